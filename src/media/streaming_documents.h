// The streaming channels as documents: the list, one channel, one channel with its allowed values. A channel
// is one of the camera's two encoder streams; both share the audio encoder and the RTSP port.
#pragma once

#include <cstdint>

#include "core/request.h"

namespace psia {

class Database;
struct Context;

/// The streams by their VideoEncoderID; the id of a channel is one more.
enum Stream : int { kMaster = 0, kSlave = 1 };

inline constexpr std::int32_t kDefaultRtspPort = 554;

/// The stored RTSP port, the default when it cannot be read.
[[nodiscard]] std::int32_t stored_rtsp_port(Database& database);

void read_streaming_channels(Context& context, const Request& request);
void read_streaming_channel(Context& context, const Request& request);
void read_streaming_capabilities(Context& context, const Request& request);

}  // namespace psia
