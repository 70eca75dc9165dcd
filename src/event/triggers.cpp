#include "event/triggers.h"

#include <cstdint>

#include "event/linked_notifications.h"
#include "event/notification_servers.h"
#include "event/store_document.h"
#include "frame/fixed_text.h"
#include "frame/response.h"
#include "frame/service.h"
#include "frame/xml.h"

namespace psia {

namespace {

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

// Writing. The results of the statements are ignored: see store_document.

/// What has been read of a body. One record serves the whole request: a trigger takes what it omits from the
/// one before it.
struct RequestedTrigger {
  FixedText<128> id;
  std::int32_t interval_between_events = 5;
  RequestedNotification notification;
};

void take_trigger(Service& service, XmlElement trigger, RequestedTrigger& requested) {
  for (const XmlElement child : trigger) {
    if (child.is("id")) child.copy_text(requested.id);
    if (child.is("intervalBetweenEvents")) requested.interval_between_events = child.number();
    if (child.is("EventTriggerNotificationList")) {
      take_notification_list(service, child, requested.notification);
    }
  }
}

/// Changes the trigger; does nothing when `trigger_id` names none.
void apply_trigger(Service& service, const char* trigger_id, const RequestedTrigger& requested) {
  if (!is_trigger(service, trigger_id)) return;
  const Links& links = requested.notification.links;
  (void)service.database.execute(
      "update Event set IgnoreInterval=%d, RelayID=%d, FTPServerID=%d, SMTPServerID=%d where Trigger=%d",
      requested.interval_between_events, links.relay, links.ftp, links.mail, kTrigger);
}

void take_trigger_list(Service& service, XmlElement list, RequestedTrigger& requested) {
  for (const XmlElement child : list) {
    if (!child.is("EventTrigger")) continue;
    take_trigger(service, child, requested);
    apply_trigger(service, requested.id.c_str(), requested);
  }
}

/// Sets all three links; does nothing when `trigger_id` names no trigger.
void apply_links(Service& service, const char* trigger_id, const Links& links) {
  if (!is_trigger(service, trigger_id)) return;
  (void)service.database.execute(
      "update Event set RelayID=%d, FTPServerID=%d, SMTPServerID=%d where Trigger=%d", links.relay, links.ftp,
      links.mail, kTrigger);
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
    requested.notification.combined = true;
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
    append_notification_list(service, document, stored_links(service));
  });
}

void write_notifications(Service& service, const Request& request) {
  store_document(service, request, "EventTriggerNotificationList", [&](XmlElement root) {
    RequestedNotification requested;
    take_notification_list(service, root, requested);
    apply_links(service, trigger_id_of(request).c_str(), requested.links);
  });
}

/// Replaces the links rather than adding one.
void add_notification(Service& service, const Request& request) {
  store_document(service, request, "EventTriggerNotification", [&](XmlElement root) {
    RequestedNotification requested;
    take_notification(service, root, requested);
    apply_links(service, trigger_id_of(request).c_str(), requested.links);
  });
}

void remove_notifications(Service& service, const Request& request) {
  unlink_all(service, request, trigger_id_of(request).c_str());
}

}  // namespace psia
