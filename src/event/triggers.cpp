#include "event/triggers.h"

#include <strings.h>

#include <cstdint>
#include <cstring>
#include <string_view>

#include "event/notification_servers.h"
#include "event/store_document.h"
#include "frame/fixed_text.h"
#include "frame/numbers.h"
#include "frame/response.h"
#include "frame/service.h"
#include "frame/xml.h"

namespace psia {

namespace {

constexpr int kTrigger = 0;  // the only row of Event that is used, and the device id of the sensor input
constexpr std::int32_t kNoLink = -1;

/// What the trigger sets off; kNoLink for nothing.
struct Links {
  std::int32_t relay = kNoLink;  // DeviceID in SensorRelay
  std::int32_t ftp = kNoLink;    // FTPServerID
  std::int32_t mail = kNoLink;   // SMTPServerID
};

std::int32_t id_or_none(const Rows& rows) {
  return rows.found() ? rows.number(0, 0) : kNoLink;
}

std::int32_t find_device(Service& service, const char* alias) {
  return id_or_none(service.database.query("select DeviceID from SensorRelay where Alias='%s'", alias));
}

std::int32_t find_ftp_server(Service& service, const char* alias) {
  return id_or_none(service.database.query("select FTPServerID from FTPServer where Alias='%s'", alias));
}

std::int32_t find_mail_server(Service& service, const char* alias) {
  return id_or_none(service.database.query("select SMTPServerID from SMTPServer where Alias='%s'", alias));
}

bool is_trigger(Service& service, const char* id) {
  return find_device(service, id) == kTrigger;
}

/// The trigger's id in the URL of its notifications.
FixedText<256> trigger_id_of(const Request& request) {
  FixedText<256> id;
  id.assign(request.tail, std::strcspn(request.tail, "/"));
  return id;
}

/// The notification's id in the URL of a single notification; empty for other URLs.
FixedText<256> notification_id_of(const Request& request) {
  constexpr std::string_view between = "/notifications/";
  const char* const behind = request.tail + std::strcspn(request.tail, "/");
  if (strncasecmp(behind, between.data(), between.size()) != 0) return {};
  return FixedText<256>(behind + between.size());
}

// Reading.

Links read_links(Service& service) {
  const Rows event =
      service.database.query("select RelayID, FTPServerID, SMTPServerID from Event where Trigger=0");
  if (!event.found()) return {};
  return {.relay = event.number(0, 0), .ftp = event.number(0, 1), .mail = event.number(0, 2)};
}

constexpr const char* kNotificationTag =
    "<EventTriggerNotification version=\"1.0\" xmlns=\"urn:psialliance-org\">";
constexpr const char* kNotificationListTag =
    "<EventTriggerNotificationList version=\"1.0\" xmlns=\"urn:psialliance-org\">";

void append_relay(Service& service, TextBuffer& document, std::int32_t id) {
  if (id < 0) return;
  const Rows relay = service.database.query("select Alias, Interval from SensorRelay where DeviceID=%d", id);
  if (!relay.found()) return;
  document.append(kNotificationTag);
  document.append("<id>", relay.text(0, 0), "</id>");
  document.append("<notificationMethod>IO</notificationMethod>");
  document.append("<notificationInterval>", wrapping_multiply(relay.number(0, 1), 1000),
                  "</notificationInterval>");
  document.append("<outputIOPortID>", id, "</outputIOPortID>");
  document.append("</EventTriggerNotification>");
}

/// A notification over the server whose alias is in `server`.
void append_server_link(TextBuffer& document, const Rows& server, const char* method) {
  if (!server.found()) return;
  document.append(kNotificationTag);
  document.append("<id>", server.text(0, 0), "</id>");
  document.append("<notificationMethod>", method, "</notificationMethod>");
  document.append("</EventTriggerNotification>");
}

void append_ftp_upload(Service& service, TextBuffer& document, std::int32_t id) {
  if (id < 0) return;
  append_server_link(document, service.database.query("select Alias from FTPServer where FTPServerID=%d", id),
                     "FTP");
}

void append_mail(Service& service, TextBuffer& document, std::int32_t id) {
  if (id < 0) return;
  append_server_link(
      document, service.database.query("select Alias from SMTPServer where SMTPServerID=%d", id), "email");
}

/// The linked notifications. A link to a row that does not exist is left out.
void append_notifications(Service& service, TextBuffer& document, const Links& links) {
  append_relay(service, document, links.relay);
  append_ftp_upload(service, document, links.ftp);
  append_mail(service, document, links.mail);
}

void append_notification_list(Service& service, TextBuffer& document, const Links& links) {
  document.append(kNotificationListTag);
  append_notifications(service, document, links);
  document.append("</EventTriggerNotificationList>");
}

void append_trigger(Service& service, TextBuffer& document, const char* id) {
  document.append("<EventTrigger version=\"1.0\" xmlns=\"urn:psialliance-org\">");
  document.append("<id>", id, "</id>");
  document.append("<eventType>IO</eventType>");
  document.append("<inputIOPortID>0</inputIOPortID>");
  const Rows event = service.database.query(
      "select IgnoreInterval, RelayID, FTPServerID, SMTPServerID from Event where Trigger=0");
  if (event.found()) {
    document.append("<intervalBetweenEvents>", event.number(0, 0), "</intervalBetweenEvents>");
    const Links links = {.relay = event.number(0, 1), .ftp = event.number(0, 2), .mail = event.number(0, 3)};
    if (links.relay != kNoLink || links.ftp != kNoLink || links.mail != kNoLink) {
      append_notification_list(service, document, links);
    }
  }
  document.append("</EventTrigger>");
}

void append_trigger_list(Service& service, TextBuffer& document) {
  document.append("<EventTriggerList version=\"1.0\" xmlns=\"urn:psialliance-org\">");
  const Rows sensor = service.database.query("select Alias from SensorRelay where DeviceID=0");
  append_trigger(service, document, sensor.found() ? sensor.text(0, 0) : "Sensor-0");
  document.append("</EventTriggerList>");
}

/// The number of sensor inputs, 0 when it cannot be read.
std::int32_t sensor_count(Service& service) {
  return service.database.query("select Sensor from Spec").number(0, 0);
}

/// The links that the document of the notification `id` shows. Only linked kinds are searched, the relay
/// first. Kept for compatibility: with a relay the document also shows the FTP and mail links, with an FTP
/// server the mail link, so that clients see more notifications than they asked for.
Links select_links(Service& service, const char* id) {
  Links links = read_links(service);
  if (links.relay != kNoLink) {
    const Rows relay = service.database.query("select DeviceID from Relay where Alias='%s'", id);
    if (relay.found()) {
      links.relay = relay.number(0, 0);
      if (links.relay != kNoLink) return links;
    }
  }
  links.relay = kNoLink;
  if (links.ftp != kNoLink) {
    links.ftp = find_ftp_server(service, id);
    if (links.ftp != kNoLink) return links;
  }
  const std::int32_t mail = find_mail_server(service, id);
  if (links.mail != kNoLink) links.mail = mail;
  return links;
}

// Writing. The results of the statements are ignored: see store_document.

/// What has been read of a body. One record serves the whole request: fields that a trigger or notification
/// omits are taken from the one before it.
struct RequestedTrigger {
  FixedText<128> trigger_id;
  FixedText<128> notification_id;
  FixedText<128> method;
  std::int32_t interval_between_events = 5;
  std::int32_t notification_interval = 5;  // seconds
  Links links;
  bool combined = false;  // the body is the combined document of the whole Event resource
};

/// The combined document's statement spells the column in lower case. The database does not care; tools that
/// compare traces of the statements do.
void store_relay_interval(Service& service, const RequestedTrigger& requested) {
  if (requested.combined) {
    (void)service.database.execute("update SensorRelay set interval=%d where Alias='%s'",
                                   requested.notification_interval, requested.notification_id.c_str());
  } else {
    (void)service.database.execute("update SensorRelay set Interval=%d where Alias='%s'",
                                   requested.notification_interval, requested.notification_id.c_str());
  }
}

/// Takes an EventTriggerNotification. It replaces all three links, so that the last of several decides. Kept
/// for compatibility: mail is "SMTP" here but "email" in the documents, so a document that is sent back
/// unchanged unlinks it.
void take_notification(Service& service, XmlElement notification, RequestedTrigger& requested) {
  for (const XmlElement child : notification) {
    if (child.is("id")) child.copy_text(requested.notification_id);
    if (child.is("notificationMethod")) child.copy_text(requested.method);
    if (child.is("notificationInterval")) requested.notification_interval = child.number() / 1000;
  }
  const char* id = requested.notification_id.c_str();
  const char* method = requested.method.c_str();
  requested.links = {};
  if (strcasecmp(method, "IO") == 0) {
    store_relay_interval(service, requested);
    requested.links.relay = find_device(service, id);
  } else if (strcasecmp(method, "FTP") == 0) {
    requested.links.ftp = find_ftp_server(service, id);
  } else if (strcasecmp(method, "SMTP") == 0) {
    requested.links.mail = find_mail_server(service, id);
  }
}

void take_notification_list(Service& service, XmlElement list, RequestedTrigger& requested) {
  for (const XmlElement child : list) {
    if (child.is("EventTriggerNotification")) take_notification(service, child, requested);
  }
}

void take_trigger(Service& service, XmlElement trigger, RequestedTrigger& requested) {
  for (const XmlElement child : trigger) {
    if (child.is("id")) child.copy_text(requested.trigger_id);
    if (child.is("intervalBetweenEvents")) requested.interval_between_events = child.number();
    if (child.is("EventTriggerNotificationList")) take_notification_list(service, child, requested);
  }
}

/// Changes the trigger; does nothing when `trigger_id` names none.
void apply_trigger(Service& service, const char* trigger_id, const RequestedTrigger& requested) {
  if (!is_trigger(service, trigger_id)) return;
  (void)service.database.execute(
      "update Event set IgnoreInterval=%d, RelayID=%d, FTPServerID=%d, SMTPServerID=%d where Trigger=%d",
      requested.interval_between_events, requested.links.relay, requested.links.ftp, requested.links.mail,
      kTrigger);
}

void take_trigger_list(Service& service, XmlElement list, RequestedTrigger& requested) {
  for (const XmlElement child : list) {
    if (!child.is("EventTrigger")) continue;
    take_trigger(service, child, requested);
    apply_trigger(service, requested.trigger_id.c_str(), requested);
  }
}

/// Sets all three links; does nothing when `trigger_id` names no trigger.
void apply_links(Service& service, const char* trigger_id, const Links& links) {
  if (!is_trigger(service, trigger_id)) return;
  (void)service.database.execute(
      "update Event set RelayID=%d, FTPServerID=%d, SMTPServerID=%d where Trigger=%d", links.relay, links.ftp,
      links.mail, kTrigger);
}

/// Stores the first of the three links that is set; the others keep their stored values.
void apply_first_link(Service& service, const Links& links) {
  if (links.relay >= 0) {
    (void)service.database.execute("update Event set RelayID=%d where Trigger=%d", links.relay, kTrigger);
  } else if (links.ftp >= 0) {
    (void)service.database.execute("update Event set FTPServerID=%d where Trigger=%d", links.ftp, kTrigger);
  } else if (links.mail >= 0) {
    (void)service.database.execute("update Event set SMTPServerID=%d where Trigger=%d", links.mail, kTrigger);
  }
}

/// Ends all links of the trigger; the trigger itself cannot be removed.
void unlink_all(Service& service, const Request& request, const char* trigger_id) {
  if (is_trigger(service, trigger_id)) {
    (void)service.database.execute(
        "update Event set RelayID=-1, FTPServerID=-1, SMTPServerID=-1 where Trigger=%d", kTrigger);
  }
  answer_status(request, Status::kOk);
}

}  // namespace

void read_event(Service& service, const Request& request) {
  if (sensor_count(service) < 1) return answer_status(request, Status::kInvalidOperation);
  print_xml(request, [&](TextBuffer& document) {
    document.append(kXmlDeclarationBare);
    document.append("<EventNotification version=\"1.0\" xmlns=\"urn:psialliance-org\">");
    append_trigger_list(service, document);
    append_notification_methods(service, document);
    document.append("</EventNotification>");
  });
}

/// Changes the triggers only; servers in the document are ignored.
void write_event(Service& service, const Request& request) {
  store_document(service, request, "EventNotification", [&](XmlElement root) {
    RequestedTrigger requested;
    requested.combined = true;
    for (const XmlElement child : root) {
      if (child.is("EventTriggerList")) take_trigger_list(service, child, requested);
    }
  });
}

/// Kept for compatibility: a negative number of sensors is not refused here, but it is for the combined
/// document.
void read_triggers(Service& service, const Request& request) {
  if (sensor_count(service) == 0) return answer_status(request, Status::kInvalidOperation);
  print_xml(request, [&](TextBuffer& document) {
    document.append(kXmlDeclarationBare);
    append_trigger_list(service, document);
  });
}

void write_triggers(Service& service, const Request& request) {
  store_document(service, request, "EventTriggerList", [&](XmlElement root) {
    RequestedTrigger requested;
    take_trigger_list(service, root, requested);
  });
}

/// Accepts a relay's alias, too, and shows the trigger under it.
void read_trigger(Service& service, const Request& request) {
  if (find_device(service, request.tail) < 0) return answer_status(request, Status::kInvalidOperation);
  print_xml(request, [&](TextBuffer& document) {
    document.append(kXmlDeclarationBare);
    append_trigger(service, document, request.tail);
  });
}

/// The id in the URL says which trigger is changed, not the one in the body.
void write_trigger(Service& service, const Request& request) {
  store_document(service, request, "EventTrigger", [&](XmlElement root) {
    RequestedTrigger requested;
    take_trigger(service, root, requested);
    apply_trigger(service, request.tail, requested);
  });
}

void remove_trigger(Service& service, const Request& request) {
  unlink_all(service, request, request.tail);
}

void read_notifications(Service& service, const Request& request) {
  if (!is_trigger(service, trigger_id_of(request).c_str())) {
    return answer_status(request, Status::kInvalidOperation);
  }
  print_xml(request, [&](TextBuffer& document) {
    document.append(kXmlDeclarationBare);
    append_notification_list(service, document, read_links(service));
  });
}

void write_notifications(Service& service, const Request& request) {
  store_document(service, request, "EventTriggerNotificationList", [&](XmlElement root) {
    RequestedTrigger requested;
    take_notification_list(service, root, requested);
    apply_links(service, trigger_id_of(request).c_str(), requested.links);
  });
}

/// Replaces the links rather than adding one.
void add_notification(Service& service, const Request& request) {
  store_document(service, request, "EventTriggerNotification", [&](XmlElement root) {
    RequestedTrigger requested;
    take_notification(service, root, requested);
    apply_links(service, trigger_id_of(request).c_str(), requested.links);
  });
}

void remove_notifications(Service& service, const Request& request) {
  unlink_all(service, request, trigger_id_of(request).c_str());
}

void read_notification(Service& service, const Request& request) {
  if (!is_trigger(service, trigger_id_of(request).c_str())) {
    return answer_status(request, Status::kInvalidOperation);
  }
  print_xml(request, [&](TextBuffer& document) {
    document.append(kXmlDeclarationBare);
    append_notifications(service, document, select_links(service, notification_id_of(request).c_str()));
  });
}

void write_notification(Service& service, const Request& request) {
  store_document(service, request, "EventTriggerNotification", [&](XmlElement root) {
    RequestedTrigger requested;
    take_notification(service, root, requested);
    if (is_trigger(service, trigger_id_of(request).c_str())) apply_first_link(service, requested.links);
  });
}

void remove_notification(Service& service, const Request& request) {
  if (is_trigger(service, trigger_id_of(request).c_str())) {
    const FixedText<256> id = notification_id_of(request);
    apply_first_link(service, {.relay = find_device(service, id.c_str()),
                               .ftp = find_ftp_server(service, id.c_str()),
                               .mail = find_mail_server(service, id.c_str())});
  }
  answer_status(request, Status::kOk);
}

}  // namespace psia
