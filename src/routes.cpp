#include "routes.h"

#include <algorithm>
#include <array>
#include <cstddef>
#include <cstring>
#include <string_view>

#include "context.h"
#include "core/response.h"
#include "event/notification_servers.h"
#include "event/schedule.h"
#include "event/triggers.h"
#include "index/index_documents.h"
#include "media/audio_channels.h"
#include "media/streaming_documents.h"
#include "media/streaming_status.h"
#include "media/streaming_updates.h"
#include "media/video_inputs.h"
#include "network/interfaces.h"
#include "security/users.h"
#include "system/device_info.h"
#include "system/maintenance.h"
#include "system/ntp_servers.h"
#include "system/time.h"

namespace psia {

namespace {

using Handler = void (*)(Context&, const Request&);

/// The condition on what follows the prefix of a URI. Prefixes are compared without regard to case.
enum Match {
  kPrefix,  // anything: /PSIA/System/statusXYZ is served like /PSIA/System/status
  kExact,   // nothing
  kLonger,  // at least one character
  kNested,  // a text with a '/'
  kFlat,    // a text without a '/'
};

/// The least privileged user level that is allowed; 4 and above never are.
enum Level { kAdministrator = 0, kOperator = 1, kAnyone = 3 };

struct MethodRule {
  const char* method = nullptr;
  Level level = kAdministrator;
  Handler handler = nullptr;
};

struct Route {
  std::string_view prefix;
  Match match;
  std::array<MethodRule, 4> methods;  // unused ones stay null
};

constexpr MethodRule get(Level level, Handler handler) {
  return {"GET", level, handler};
}
constexpr MethodRule put(Level level, Handler handler) {
  return {"PUT", level, handler};
}
constexpr MethodRule post(Level level, Handler handler) {
  return {"POST", level, handler};
}
constexpr MethodRule del(Level level, Handler handler) {
  return {"DELETE", level, handler};
}

void read_channel_resource(Context& context, const Request& request);

/// For routes whose whole answer is a fixed status.
void answer_ok(Context& /*context*/, const Request& request) {
  answer_status(request, Status::kOk);
}
void answer_invalid_operation(Context& /*context*/, const Request& request) {
  answer_status(request, Status::kInvalidOperation);
}

/// Tried from top to bottom. A route that matches but has no method for the user passes the request on to the
/// routes below it: so POST /PSIA/System/time/ntpServers/3 reaches the list.
// clang-format off
constexpr auto kRoutes = std::to_array<Route>({
    {"/PSIA/indexr", kPrefix, {{get(kAnyone, read_index<kRecursiveIndex>)}}},
    {"/PSIA/index", kPrefix, {{get(kAnyone, read_index<kRootIndex>)}}},
    {"/PSIA/description", kPrefix, {{get(kAnyone, read_index<kDescription>)}}},

    {"/PSIA/System/index", kPrefix, {{get(kAnyone, read_index<kSystemIndex>)}}},
    {"/PSIA/System/description", kPrefix, {{get(kAnyone, read_index<kDescriptionWithLineBreak>)}}},
    {"/PSIA/System/reboot", kPrefix, {{put(kAdministrator, request_reboot)}}},
    // The device takes no firmware over this interface; tools that offer one are answered OK all the same.
    {"/PSIA/System/updateFirmware", kPrefix, {{put(kAdministrator, answer_ok)}}},
    {"/PSIA/System/configurationData", kPrefix,
     {{get(kAdministrator, read_configuration),
       put(kAdministrator, write_configuration)}}},
    {"/PSIA/System/factoryReset", kPrefix, {{put(kAdministrator, reset_to_factory)}}},
    {"/PSIA/System/deviceInfo", kPrefix,
     {{get(kAnyone, read_device_info),
       put(kAdministrator, write_device_info)}}},
    {"/PSIA/System/status", kPrefix, {{get(kAnyone, read_device_status)}}},
    {"/PSIA/System/time/localTime", kPrefix,
     {{get(kAnyone, read_local_time),
       put(kOperator, write_local_time)}}},
    {"/PSIA/System/time/timeZone", kPrefix,
     {{get(kAnyone, read_time_zone),
       put(kOperator, write_time_zone)}}},
    // There is one NTP server: adding to the list updates it, and deleting leaves it.
    {"/PSIA/System/time/ntpServers/", kPrefix,
     {{get(kAnyone, read_ntp_server),
       put(kOperator, write_ntp_server),
       del(kOperator, answer_ok)}}},
    {"/PSIA/System/time/ntpServers", kPrefix,
     {{get(kAnyone, read_ntp_servers),
       put(kOperator, write_ntp_servers),
       post(kOperator, write_ntp_server),
       del(kOperator, answer_ok)}}},
    {"/PSIA/System/time", kPrefix, {{get(kAnyone, read_time), put(kOperator, write_time)}}},

    {"/PSIA/System/Network/index", kPrefix, {{get(kAnyone, read_index<kNetworkIndex>)}}},
    {"/PSIA/System/Network/description", kPrefix, {{get(kAnyone, read_index<kDescription>)}}},
    {"/PSIA/System/Network/interfaces/eth0/ipAddress", kExact,
     {{get(kAnyone, read_ip_address),
       put(kAdministrator, write_ip_address)}}},
    {"/PSIA/System/Network/interfaces/eth0/discovery", kExact,
     {{get(kAnyone, read_discovery),
       put(kAdministrator, answer_ok)}}},
    {"/PSIA/System/Network/interfaces/eth0", kExact,
     {{get(kAnyone, read_interface),
       put(kAdministrator, write_interface)}}},
    {"/PSIA/System/Network/interfaces", kExact, {{get(kAnyone, read_interfaces)}}},

    {"/PSIA/System/Audio/index", kPrefix, {{get(kAnyone, read_index<kAudioIndex>)}}},
    {"/PSIA/System/Audio/description", kPrefix, {{get(kAnyone, read_index<kDescriptionWithLineBreak>)}}},
    {"/PSIA/System/Audio/channels/1", kPrefix,
     {{get(kAnyone, read_audio_channel),
       put(kOperator, write_audio_channel)}}},
    {"/PSIA/System/Audio/channels", kPrefix, {{get(kAnyone, read_audio_channels)}}},

    {"/PSIA/System/Video/index", kPrefix, {{get(kAnyone, read_index<kVideoIndex>)}}},
    {"/PSIA/System/Video/description", kPrefix, {{get(kAnyone, read_index<kDescriptionWithLineBreak>)}}},
    {"/PSIA/System/Video/inputs/channels/1", kPrefix,
     {{get(kAnyone, read_video_input_channel),
       put(kOperator, write_video_input_channel)}}},
    {"/PSIA/System/Video/inputs/channels", kExact, {{get(kAnyone, read_video_input_channels)}}},
    {"/PSIA/System/Video/inputs", kExact, {{get(kAnyone, read_video_inputs)}}},

    {"/PSIA/Security/index", kPrefix, {{get(kAnyone, read_index<kSecurityIndex>)}}},
    {"/PSIA/Security/description", kPrefix, {{get(kAnyone, read_index<kDescriptionWithLineBreak>)}}},
    {"/PSIA/Security/AAA/index", kPrefix, {{get(kAnyone, read_index<kAaaIndex>)}}},
    {"/PSIA/Security/AAA/description", kPrefix, {{get(kAnyone, read_index<kDescriptionWithLineBreak>)}}},
    {"/PSIA/Security/AAA/users/", kLonger,
     {{get(kAnyone, read_user),
       put(kAdministrator, write_user),
       del(kAdministrator, remove_user)}}},
    {"/PSIA/Security/AAA/users", kExact,
     {{get(kAnyone, read_users),
       put(kAdministrator, write_users),
       post(kAdministrator, add_users),
       del(kAdministrator, remove_users)}}},

    {"/PSIA/Streaming/index", kPrefix, {{get(kAnyone, read_index<kStreamingIndex>)}}},
    {"/PSIA/Streaming/description", kPrefix, {{get(kAnyone, read_index<kDescriptionWithLineBreak>)}}},
    {"/PSIA/Streaming/status", kPrefix, {{get(kAnyone, read_streaming_status)}}},
    {"/PSIA/Streaming/channels/", kLonger,
     {{get(kAnyone, read_channel_resource),
       put(kOperator, write_streaming_channel),
       del(kOperator, answer_ok)}}},
    {"/PSIA/Streaming/channels", kExact,
     {{get(kAnyone, read_streaming_channels),
       put(kOperator, write_streaming_channels),
       post(kOperator, write_streaming_channel),
       del(kOperator, answer_ok)}}},

    {"/PSIA/Custom/Event/index", kPrefix, {{get(kAnyone, print_index<kEventIndex>)}}},
    {"/PSIA/Custom/Event/description", kPrefix, {{get(kAnyone, print_index<kDescription>)}}},
    // Everything below a trigger is its notification list. A single notification has no route; what follows
    // "notifications/" is ignored.
    {"/PSIA/Custom/Event/triggers/", kNested,
     {{get(kAnyone, read_notifications),
       put(kOperator, write_notifications),
       post(kOperator, add_notification),
       del(kOperator, remove_notifications)}}},
    {"/PSIA/Custom/Event/triggers/", kFlat,
     {{get(kAnyone, read_trigger),
       put(kOperator, write_trigger),
       del(kOperator, remove_trigger)}}},
    {"/PSIA/Custom/Event/triggers", kPrefix,
     {{get(kAnyone, read_triggers),
       put(kOperator, write_triggers),
       post(kOperator, answer_invalid_operation),
       del(kOperator, answer_invalid_operation)}}},
    {"/PSIA/Custom/Event/schedule", kPrefix,
     {{get(kAnyone, read_schedule),
       put(kOperator, write_schedule)}}},
    {"/PSIA/Custom/Event/notification/mailing/", kPrefix,
     {{get(kAnyone, serve<kMailServers, read_server>),
       put(kOperator, serve<kMailServers, write_server>),
       del(kOperator, serve<kMailServers, remove_server>)}}},
    {"/PSIA/Custom/Event/notification/mailing", kPrefix,
     {{get(kAnyone, serve<kMailServers, read_servers>),
       put(kOperator, serve<kMailServers, write_servers>),
       post(kOperator, serve<kMailServers, add_servers>),
       del(kOperator, serve<kMailServers, remove_servers>)}}},
    {"/PSIA/Custom/Event/notification/ftp/", kPrefix,
     {{get(kAnyone, serve<kFtpServers, read_server>),
       put(kOperator, serve<kFtpServers, write_server>),
       del(kOperator, serve<kFtpServers, remove_server>)}}},
    {"/PSIA/Custom/Event/notification/ftp", kPrefix,
     {{get(kAnyone, serve<kFtpServers, read_servers>),
       put(kOperator, serve<kFtpServers, write_servers>),
       post(kOperator, serve<kFtpServers, add_servers>),
       del(kOperator, serve<kFtpServers, remove_servers>)}}},
    {"/PSIA/Custom/Event/notification", kPrefix,
     {{get(kAnyone, read_notification_methods),
       put(kOperator, write_notification_methods)}}},
    {"/PSIA/Custom/Event", kPrefix, {{get(kAnyone, read_event), put(kOperator, write_event)}}},
});
// clang-format on

/// True when `route` takes every URI that `later` takes.
constexpr bool takes_all_of(const Route& route, const Route& later) {
  constexpr auto lower = [](char c) { return c >= 'A' && c <= 'Z' ? c + ('a' - 'A') : +c; };
  const std::string_view start = later.prefix.substr(0, route.prefix.size());
  if (!std::ranges::equal(start, route.prefix, {}, lower, lower)) return false;
  const std::string_view rest = later.prefix.substr(start.size());
  if (rest.empty() && later.match == route.match) return true;
  switch (route.match) {
    case kPrefix:
      return true;
    case kLonger:
      return !rest.empty() || later.match == kNested;
    case kNested:
      return rest.find('/') != std::string_view::npos;
    case kExact:
    case kFlat:
      return false;
  }
  return false;
}

constexpr bool share_a_method(const Route& route, const Route& later) {
  for (const MethodRule& rule : route.methods) {
    for (const MethodRule& other : later.methods) {
      if (rule.handler == nullptr || other.handler == nullptr) continue;
      if (std::string_view(rule.method) == other.method) return true;
    }
  }
  return false;
}

/// True when some method of a row can never be reached, not even by administrators, because a row above it
/// takes the same URIs with that method. A row above that takes them with other methods hides nothing.
constexpr bool some_row_is_hidden() {
  for (auto later = kRoutes.begin(); later != kRoutes.end(); ++later) {
    for (auto route = kRoutes.begin(); route != later; ++route) {
      if (takes_all_of(*route, *later) && share_a_method(*route, *later)) return true;
    }
  }
  return false;
}
static_assert(!some_row_is_hidden(), "Move the row above every row whose prefix begins its own.");

bool ends_with_ignoring_case(std::string_view uri, std::string_view suffix) {
  return uri.size() >= suffix.size() &&
         strncasecmp(uri.data() + uri.size() - suffix.size(), suffix.data(), suffix.size()) == 0;
}

/// A channel, its capabilities or its status: the end of the URI decides.
void read_channel_resource(Context& context, const Request& request) {
  if (ends_with_ignoring_case(request.uri, "status")) return read_streaming_channel_status(context, request);
  if (ends_with_ignoring_case(request.uri, "capabilities"))
    return read_streaming_capabilities(context, request);
  read_streaming_channel(context, request);
}

bool begins_with_ignoring_case(std::string_view uri, std::string_view prefix) {
  // Fast reject: most prefixes differ in their last character. Without it a request costs 2 % more.
  constexpr auto folded = [](char c) { return c | 0x20; };
  return uri.size() >= prefix.size() && folded(uri[prefix.size() - 1]) == folded(prefix.back()) &&
         strncasecmp(uri.data(), prefix.data(), prefix.size()) == 0;
}

bool matches(const Route& route, std::string_view uri) {
  if (!begins_with_ignoring_case(uri, route.prefix)) return false;
  const std::string_view tail(uri.data() + route.prefix.size(), uri.size() - route.prefix.size());
  switch (route.match) {
    case kPrefix:
      return true;
    case kExact:
      return tail.empty();
    case kLonger:
      return !tail.empty();
    case kNested:
      return tail.find('/') != std::string_view::npos;
    case kFlat:
      return tail.find('/') == std::string_view::npos;
  }
  return false;
}

}  // namespace

void dispatch(Context& context, const Request& request) {
  const std::string_view uri = request.uri;
  for (const Route& route : kRoutes) {
    if (!matches(route, uri)) continue;
    for (const MethodRule& rule : route.methods) {
      if (rule.handler == nullptr || request.level > rule.level) continue;
      if (strcasecmp(request.method, rule.method) != 0) continue;
      Request routed = request;
      routed.tail = request.uri + route.prefix.size();
      return rule.handler(context, routed);
    }
  }
  answer_status(request, Status::kInvalidOperation);
}

}  // namespace psia
