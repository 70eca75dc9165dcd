#include "event/linked_notifications.h"

#include <strings.h>

#include <cstring>

#include "context.h"
#include "core/numbers.h"
#include "core/text_buffer.h"

namespace psia {

namespace {

std::int32_t id_or_none(const Rows& rows) {
  return rows.found() ? rows.number(0, 0) : kNoLink;
}

/// A notification of what `target` found: its alias is the first column. `more` follows the common elements.
template <typename... Pieces>
void append_notification(TextBuffer& document, const Rows& target, const char* method, Pieces... more) {
  if (!target.found()) return;
  document.append("<EventTriggerNotification version=\"1.0\" xmlns=\"urn:psialliance-org\">");
  document.append("<id>", target.text(0, 0), "</id>");
  document.append("<notificationMethod>", method, "</notificationMethod>", more...);
  document.append("</EventTriggerNotification>");
}

/// The combined document's statement spells the column in lower case. The database does not care; tools that
/// compare traces of the statements do.
void store_relay_interval(Context& context, const RequestedNotification& requested) {
  if (requested.combined) {
    (void)context.database.execute("update SensorRelay set interval=%d where Alias='%s'", requested.interval,
                                   requested.id.c_str());
  } else {
    (void)context.database.execute("update SensorRelay set Interval=%d where Alias='%s'", requested.interval,
                                   requested.id.c_str());
  }
}

}  // namespace

std::int32_t find_device(Context& context, const char* alias) {
  return id_or_none(context.database.query("select DeviceID from SensorRelay where Alias='%s'", alias));
}

std::int32_t find_ftp_server(Context& context, const char* alias) {
  return id_or_none(context.database.query("select FTPServerID from FTPServer where Alias='%s'", alias));
}

std::int32_t find_mail_server(Context& context, const char* alias) {
  return id_or_none(context.database.query("select SMTPServerID from SMTPServer where Alias='%s'", alias));
}

bool is_trigger(Context& context, const char* id) {
  return find_device(context, id) == kTrigger;
}

FixedText<256> trigger_id_of(const Request& request) {
  FixedText<256> id;
  id.assign(request.tail, std::strcspn(request.tail, "/"));
  return id;
}

Links stored_links(Context& context) {
  const Rows event =
      context.database.query("select RelayID, FTPServerID, SMTPServerID from Event where Trigger=0");
  if (!event.found()) return {};
  return {.relay = event.number(0, 0), .ftp = event.number(0, 1), .mail = event.number(0, 2)};
}

void append_notifications(Context& context, TextBuffer& document, const Links& links) {
  Database& database = context.database;
  if (links.relay >= 0) {
    const Rows relay =
        database.query("select Alias, Interval from SensorRelay where DeviceID=%d", links.relay);
    append_notification(document, relay, "IO", "<notificationInterval>",
                        wrapping_multiply(relay.number(0, 1), 1000), "</notificationInterval>",
                        "<outputIOPortID>", links.relay, "</outputIOPortID>");
  }
  if (links.ftp >= 0) {
    append_notification(document,
                        database.query("select Alias from FTPServer where FTPServerID=%d", links.ftp), "FTP");
  }
  if (links.mail >= 0) {
    append_notification(
        document, database.query("select Alias from SMTPServer where SMTPServerID=%d", links.mail), "email");
  }
}

void append_notification_list(Context& context, TextBuffer& document, const Links& links) {
  document.append("<EventTriggerNotificationList version=\"1.0\" xmlns=\"urn:psialliance-org\">");
  append_notifications(context, document, links);
  document.append("</EventTriggerNotificationList>");
}

void take_notification(Context& context, XmlElement notification, RequestedNotification& requested) {
  for (const XmlElement child : notification) {
    if (child.is("id")) child.copy_text(requested.id);
    if (child.is("notificationMethod")) child.copy_text(requested.method);
    if (child.is("notificationInterval")) requested.interval = child.number() / 1000;
  }
  const char* id = requested.id.c_str();
  const char* method = requested.method.c_str();
  requested.links = {};
  if (strcasecmp(method, "IO") == 0) {
    store_relay_interval(context, requested);
    requested.links.relay = find_device(context, id);
  } else if (strcasecmp(method, "FTP") == 0) {
    requested.links.ftp = find_ftp_server(context, id);
  } else if (strcasecmp(method, "SMTP") == 0) {
    requested.links.mail = find_mail_server(context, id);
  }
}

void take_notification_list(Context& context, XmlElement list, RequestedNotification& requested) {
  for (const XmlElement child : list) {
    if (child.is("EventTriggerNotification")) take_notification(context, child, requested);
  }
}

}  // namespace psia
