#include "for_other_programs/single_notification.h"

#include <strings.h>

#include <cstring>
#include <string_view>

#include "context.h"
#include "core/response.h"
#include "event/linked_notifications.h"
#include "event/store_document.h"

namespace psia {

namespace {

/// The notification's id in the URL of a single notification; empty for other URLs.
FixedText<256> notification_id_of(const Request& request) {
  constexpr std::string_view between = "/notifications/";
  const char* const behind = request.tail + std::strcspn(request.tail, "/");
  if (strncasecmp(behind, between.data(), between.size()) != 0) return {};
  return FixedText<256>(behind + between.size());
}

/// The links that the document of the notification `id` shows. Only linked kinds are searched, the relay
/// first. Kept for compatibility: with a relay the document also shows the FTP and mail links, with an FTP
/// server the mail link, so that clients see more notifications than they asked for.
Links select_links(Context& context, const char* id) {
  Links links = stored_links(context);
  if (links.relay != kNoLink) {
    const Rows relay = context.database.query("select DeviceID from Relay where Alias='%s'", id);
    if (relay.found()) {
      links.relay = relay.number(0, 0);
      if (links.relay != kNoLink) return links;
    }
  }
  links.relay = kNoLink;
  if (links.ftp != kNoLink) {
    links.ftp = find_ftp_server(context, id);
    if (links.ftp != kNoLink) return links;
  }
  const std::int32_t mail = find_mail_server(context, id);
  if (links.mail != kNoLink) links.mail = mail;
  return links;
}

/// Stores the first of the three links that is set; the others keep their stored values.
void apply_first_link(Context& context, const Links& links) {
  if (links.relay >= 0) {
    (void)context.database.execute("update Event set RelayID=%d where Trigger=%d", links.relay, kTrigger);
  } else if (links.ftp >= 0) {
    (void)context.database.execute("update Event set FTPServerID=%d where Trigger=%d", links.ftp, kTrigger);
  } else if (links.mail >= 0) {
    (void)context.database.execute("update Event set SMTPServerID=%d where Trigger=%d", links.mail, kTrigger);
  }
}

}  // namespace

void read_notification(Context& context, const Request& request) {
  if (!is_trigger(context, trigger_id_of(request).c_str())) {
    return answer_status(request, Status::kInvalidOperation);
  }
  print_xml(request, [&](TextBuffer& document) {
    document.append(kXmlDeclarationNoLineEnd);
    append_notifications(context, document, select_links(context, notification_id_of(request).c_str()));
  });
}

void write_notification(Context& context, const Request& request) {
  store_document(context, request, "EventTriggerNotification", [&](XmlElement root) {
    RequestedNotification requested;
    take_notification(context, root, requested);
    if (is_trigger(context, trigger_id_of(request).c_str())) apply_first_link(context, requested.links);
  });
}

void remove_notification(Context& context, const Request& request) {
  if (is_trigger(context, trigger_id_of(request).c_str())) {
    const FixedText<256> id = notification_id_of(request);
    apply_first_link(context, {.relay = find_device(context, id.c_str()),
                               .ftp = find_ftp_server(context, id.c_str()),
                               .mail = find_mail_server(context, id.c_str())});
  }
  answer_status(request, Status::kOk);
}

}  // namespace psia
