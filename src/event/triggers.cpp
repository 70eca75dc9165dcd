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

constexpr int kTrigger = 0;  // the one row of Event, and the device id of the sensor input
constexpr std::int32_t kNoLink = -1;

/// What the trigger sets off, each kNoLink for none.
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

/// The notification's id in the URL of a single notification; empty where the URL is no such one.
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

/// A notification by way of the server whose alias `server` gives.
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

/// The linked notifications; a link to a row that has gone is left out.
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

/// The links of which a single notification's document tells, `id` being the one asked for. What it names is
/// looked for among the linked kinds only, a relay first, and a relay brings the trigger's FTP and mail links
/// with it, an FTP server the mail link. Intended; such clients see more notifications than they asked for.
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

// Writing. The results of the statements are not looked at: see store_document.

/// What was read from a body so far. One record serves the whole request, so that a trigger or notification
/// which lacks an element takes on the value of the one before it.
struct TriggerChange {
  FixedText<128> trigger_id;
  FixedText<128> notification_id;
  FixedText<128> method;
  std::int32_t interval_between_events = 5;
  std::int32_t notification_interval = 5;  // seconds
  Links links;
  bool combined = false;  // the body is the combined document of the whole Event resource
};

/// The combined document's statement spells the column in lower case. The database takes both for the same
/// one; the texts stay as a trace of its statements has always shown them.
void store_relay_interval(Service& service, const TriggerChange& change) {
  if (change.combined) {
    (void)service.database.execute("update SensorRelay set interval=%d where Alias='%s'",
                                   change.notification_interval, change.notification_id.c_str());
  } else {
    (void)service.database.execute("update SensorRelay set Interval=%d where Alias='%s'",
                                   change.notification_interval, change.notification_id.c_str());
  }
}

/// Takes an EventTriggerNotification. It replaces all three links, so that of several the last one decides.
/// Mail is "SMTP" here and "email" in the documents; sent back unchanged, a document unlinks. Intended.
void take_notification(Service& service, XmlElement notification, TriggerChange& change) {
  for (const XmlElement child : notification) {
    if (child.is("id")) child.copy_text(change.notification_id);
    if (child.is("notificationMethod")) child.copy_text(change.method);
    if (child.is("notificationInterval")) change.notification_interval = child.number() / 1000;
  }
  const char* id = change.notification_id.c_str();
  const char* method = change.method.c_str();
  change.links = {};
  if (strcasecmp(method, "IO") == 0) {
    store_relay_interval(service, change);
    change.links.relay = find_device(service, id);
  } else if (strcasecmp(method, "FTP") == 0) {
    change.links.ftp = find_ftp_server(service, id);
  } else if (strcasecmp(method, "SMTP") == 0) {
    change.links.mail = find_mail_server(service, id);
  }
}

void take_notification_list(Service& service, XmlElement list, TriggerChange& change) {
  for (const XmlElement child : list) {
    if (child.is("EventTriggerNotification")) take_notification(service, child, change);
  }
}

void take_trigger(Service& service, XmlElement trigger, TriggerChange& change) {
  for (const XmlElement child : trigger) {
    if (child.is("id")) child.copy_text(change.trigger_id);
    if (child.is("intervalBetweenEvents")) change.interval_between_events = child.number();
    if (child.is("EventTriggerNotificationList")) take_notification_list(service, child, change);
  }
}

/// Changes the trigger; does nothing when `trigger_id` names none.
void apply_trigger(Service& service, const char* trigger_id, const TriggerChange& change) {
  if (!is_trigger(service, trigger_id)) return;
  (void)service.database.execute(
      "update Event set IgnoreInterval=%d, RelayID=%d, FTPServerID=%d, SMTPServerID=%d where Trigger=%d",
      change.interval_between_events, change.links.relay, change.links.ftp, change.links.mail, kTrigger);
}

void take_trigger_list(Service& service, XmlElement list, TriggerChange& change) {
  for (const XmlElement child : list) {
    if (!child.is("EventTrigger")) continue;
    take_trigger(service, child, change);
    apply_trigger(service, change.trigger_id.c_str(), change);
  }
}

/// Sets all three links; does nothing when `trigger_id` names no trigger.
void apply_links(Service& service, const char* trigger_id, const Links& links) {
  if (!is_trigger(service, trigger_id)) return;
  (void)service.database.execute(
      "update Event set RelayID=%d, FTPServerID=%d, SMTPServerID=%d where Trigger=%d", links.relay, links.ftp,
      links.mail, kTrigger);
}

/// Sets the first link there is among the three and leaves the others as they are stored.
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

/// Changes the triggers only; servers in the document are not looked at.
void write_event(Service& service, const Request& request) {
  store_document(service, request, "EventNotification", [&](XmlElement root) {
    TriggerChange change;
    change.combined = true;
    for (const XmlElement child : root) {
      if (child.is("EventTriggerList")) take_trigger_list(service, child, change);
    }
  });
}

/// A negative number of sensors counts as some here, but not for the combined document. Intended.
void list_triggers(Service& service, const Request& request) {
  if (sensor_count(service) == 0) return answer_status(request, Status::kInvalidOperation);
  print_xml(request, [&](TextBuffer& document) {
    document.append(kXmlDeclarationBare);
    append_trigger_list(service, document);
  });
}

void write_triggers(Service& service, const Request& request) {
  store_document(service, request, "EventTriggerList", [&](XmlElement root) {
    TriggerChange change;
    take_trigger_list(service, root, change);
  });
}

/// A relay's alias is taken too; what is shown under it is the trigger.
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
    TriggerChange change;
    take_trigger(service, root, change);
    apply_trigger(service, request.tail, change);
  });
}

void unlink_trigger(Service& service, const Request& request) {
  unlink_all(service, request, request.tail);
}

void list_notifications(Service& service, const Request& request) {
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
    TriggerChange change;
    take_notification_list(service, root, change);
    apply_links(service, trigger_id_of(request).c_str(), change.links);
  });
}

/// Replaces the links rather than adding one.
void post_notification(Service& service, const Request& request) {
  store_document(service, request, "EventTriggerNotification", [&](XmlElement root) {
    TriggerChange change;
    take_notification(service, root, change);
    apply_links(service, trigger_id_of(request).c_str(), change.links);
  });
}

void unlink_notifications(Service& service, const Request& request) {
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
    TriggerChange change;
    take_notification(service, root, change);
    if (is_trigger(service, trigger_id_of(request).c_str())) apply_first_link(service, change.links);
  });
}

void delete_notification(Service& service, const Request& request) {
  if (is_trigger(service, trigger_id_of(request).c_str())) {
    const FixedText<256> id = notification_id_of(request);
    apply_first_link(service, {.relay = find_device(service, id.c_str()),
                               .ftp = find_ftp_server(service, id.c_str()),
                               .mail = find_mail_server(service, id.c_str())});
  }
  answer_status(request, Status::kOk);
}

}  // namespace psia
