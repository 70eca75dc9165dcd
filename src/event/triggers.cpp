#include "event/triggers.h"

#include <cstdint>

#include "context.h"
#include "core/fixed_text.h"
#include "core/response.h"
#include "core/xml.h"
#include "event/linked_notifications.h"
#include "event/notification_servers.h"
#include "event/store_document.h"

namespace psia {

namespace {

void append_trigger(Context& context, TextBuffer& document, const char* id) {
  document.append("<EventTrigger version=\"1.0\" xmlns=\"urn:psialliance-org\">");
  document.append("<id>", id, "</id>");
  document.append("<eventType>IO</eventType>");
  document.append("<inputIOPortID>0</inputIOPortID>");
  const Rows event = context.database.query(
      "select IgnoreInterval, RelayID, FTPServerID, SMTPServerID from Event where Trigger=0");
  if (event.found()) {
    document.append("<intervalBetweenEvents>", event.number(0, 0), "</intervalBetweenEvents>");
    const Links links = {.relay = event.number(0, 1), .ftp = event.number(0, 2), .mail = event.number(0, 3)};
    if (links.relay != kNoLink || links.ftp != kNoLink || links.mail != kNoLink) {
      append_notification_list(context, document, links);
    }
  }
  document.append("</EventTrigger>");
}

void append_trigger_list(Context& context, TextBuffer& document) {
  document.append("<EventTriggerList version=\"1.0\" xmlns=\"urn:psialliance-org\">");
  const Rows sensor = context.database.query("select Alias from SensorRelay where DeviceID=0");
  append_trigger(context, document, sensor.found() ? sensor.text(0, 0) : "Sensor-0");
  document.append("</EventTriggerList>");
}

/// The number of sensor inputs, 0 when it cannot be read.
std::int32_t sensor_count(Context& context) {
  return context.database.query("select Sensor from Spec").number(0, 0);
}

// Writing. The results of the statements are ignored: see store_document.

/// What has been read of a body. One record serves the whole request: a trigger takes what it omits from the
/// one before it.
struct RequestedTrigger {
  FixedText<128> id;
  std::int32_t interval_between_events = 5;
  RequestedNotification notification;
};

void take_trigger(Context& context, XmlElement trigger, RequestedTrigger& requested) {
  for (const XmlElement child : trigger) {
    if (child.is("id")) child.copy_text(requested.id);
    if (child.is("intervalBetweenEvents")) requested.interval_between_events = child.number();
    if (child.is("EventTriggerNotificationList")) {
      take_notification_list(context, child, requested.notification);
    }
  }
}

/// Changes the trigger; does nothing when `trigger_id` names none.
void apply_trigger(Context& context, const char* trigger_id, const RequestedTrigger& requested) {
  if (!is_trigger(context, trigger_id)) return;
  const Links& links = requested.notification.links;
  (void)context.database.execute(
      "update Event set IgnoreInterval=%d, RelayID=%d, FTPServerID=%d, SMTPServerID=%d where Trigger=%d",
      requested.interval_between_events, links.relay, links.ftp, links.mail, kTrigger);
}

void take_trigger_list(Context& context, XmlElement list, RequestedTrigger& requested) {
  for (const XmlElement child : list) {
    if (!child.is("EventTrigger")) continue;
    take_trigger(context, child, requested);
    apply_trigger(context, requested.id.c_str(), requested);
  }
}

/// Sets all three links; does nothing when `trigger_id` names no trigger.
void apply_links(Context& context, const char* trigger_id, const Links& links) {
  if (!is_trigger(context, trigger_id)) return;
  (void)context.database.execute(
      "update Event set RelayID=%d, FTPServerID=%d, SMTPServerID=%d where Trigger=%d", links.relay, links.ftp,
      links.mail, kTrigger);
}

/// Ends all links of the trigger; the trigger itself cannot be removed.
void unlink_all(Context& context, const Request& request, const char* trigger_id) {
  if (is_trigger(context, trigger_id)) {
    (void)context.database.execute(
        "update Event set RelayID=-1, FTPServerID=-1, SMTPServerID=-1 where Trigger=%d", kTrigger);
  }
  answer_status(request, Status::kOk);
}

}  // namespace

void read_event(Context& context, const Request& request) {
  if (sensor_count(context) < 1) return answer_status(request, Status::kInvalidOperation);
  print_xml(request, [&](TextBuffer& document) {
    document.append(kXmlDeclarationNoLineEnd);
    document.append("<EventNotification version=\"1.0\" xmlns=\"urn:psialliance-org\">");
    append_trigger_list(context, document);
    append_notification_methods(context, document);
    document.append("</EventNotification>");
  });
}

/// Changes the triggers only; servers in the document are ignored.
void write_event(Context& context, const Request& request) {
  store_document(context, request, "EventNotification", [&](XmlElement root) {
    RequestedTrigger requested;
    requested.notification.combined = true;
    for (const XmlElement child : root) {
      if (child.is("EventTriggerList")) take_trigger_list(context, child, requested);
    }
  });
}

/// Kept for compatibility: a negative number of sensors is not refused here, but it is for the combined
/// document.
void read_triggers(Context& context, const Request& request) {
  if (sensor_count(context) == 0) return answer_status(request, Status::kInvalidOperation);
  print_xml(request, [&](TextBuffer& document) {
    document.append(kXmlDeclarationNoLineEnd);
    append_trigger_list(context, document);
  });
}

void write_triggers(Context& context, const Request& request) {
  store_document(context, request, "EventTriggerList", [&](XmlElement root) {
    RequestedTrigger requested;
    take_trigger_list(context, root, requested);
  });
}

/// Accepts a relay's alias, too, and shows the trigger under it.
void read_trigger(Context& context, const Request& request) {
  if (find_device(context, request.tail) < 0) return answer_status(request, Status::kInvalidOperation);
  print_xml(request, [&](TextBuffer& document) {
    document.append(kXmlDeclarationNoLineEnd);
    append_trigger(context, document, request.tail);
  });
}

/// The id in the URL says which trigger is changed, not the one in the body.
void write_trigger(Context& context, const Request& request) {
  store_document(context, request, "EventTrigger", [&](XmlElement root) {
    RequestedTrigger requested;
    take_trigger(context, root, requested);
    apply_trigger(context, request.tail, requested);
  });
}

void remove_trigger(Context& context, const Request& request) {
  unlink_all(context, request, request.tail);
}

void read_notifications(Context& context, const Request& request) {
  if (!is_trigger(context, trigger_id_of(request).c_str())) {
    return answer_status(request, Status::kInvalidOperation);
  }
  print_xml(request, [&](TextBuffer& document) {
    document.append(kXmlDeclarationNoLineEnd);
    append_notification_list(context, document, stored_links(context));
  });
}

void write_notifications(Context& context, const Request& request) {
  store_document(context, request, "EventTriggerNotificationList", [&](XmlElement root) {
    RequestedNotification requested;
    take_notification_list(context, root, requested);
    apply_links(context, trigger_id_of(request).c_str(), requested.links);
  });
}

/// Replaces the links rather than adding one.
void add_notification(Context& context, const Request& request) {
  store_document(context, request, "EventTriggerNotification", [&](XmlElement root) {
    RequestedNotification requested;
    take_notification(context, root, requested);
    apply_links(context, trigger_id_of(request).c_str(), requested.links);
  });
}

void remove_notifications(Context& context, const Request& request) {
  unlink_all(context, request, trigger_id_of(request).c_str());
}

}  // namespace psia
