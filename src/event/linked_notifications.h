// The notifications that the trigger is linked to, as their documents show and change them.
#pragma once

#include <cstdint>

#include "core/fixed_text.h"
#include "core/request.h"
#include "core/xml.h"

namespace psia {

class TextBuffer;
struct Context;

inline constexpr int kTrigger = 0;  ///< the only row of Event that is used, and the sensor input's device id
inline constexpr std::int32_t kNoLink = -1;

/// What the trigger sets off; kNoLink for nothing.
struct Links {
  std::int32_t relay = kNoLink;  ///< DeviceID in SensorRelay
  std::int32_t ftp = kNoLink;    ///< FTPServerID
  std::int32_t mail = kNoLink;   ///< SMTPServerID
};

/// The numbers of the rows with this alias, kNoLink without one.
[[nodiscard]] std::int32_t find_device(Context& context, const char* alias);
[[nodiscard]] std::int32_t find_ftp_server(Context& context, const char* alias);
[[nodiscard]] std::int32_t find_mail_server(Context& context, const char* alias);

[[nodiscard]] bool is_trigger(Context& context, const char* id);
/// The trigger's id in the URL of its notifications.
[[nodiscard]] FixedText<256> trigger_id_of(const Request& request);

[[nodiscard]] Links stored_links(Context& context);

/// Appends the linked notifications. A link to a row that does not exist is left out.
void append_notifications(Context& context, TextBuffer& document, const Links& links);
/// The same inside their list element.
void append_notification_list(Context& context, TextBuffer& document, const Links& links);

/// What has been read of a body. One record serves the whole request: a notification takes what it omits from
/// the one before it.
struct RequestedNotification {
  FixedText<128> id;
  FixedText<128> method;
  std::int32_t interval = 5;  // seconds
  Links links;
  bool combined = false;  ///< the body is the combined document of the whole Event resource
};

/// Takes an EventTriggerNotification. It replaces all three links, so that the last of several decides. Kept
/// for compatibility: mail is "SMTP" here but "email" in the documents, so a document that is sent back
/// unchanged unlinks it.
void take_notification(Context& context, XmlElement notification, RequestedNotification& requested);
void take_notification_list(Context& context, XmlElement list, RequestedNotification& requested);

}  // namespace psia
