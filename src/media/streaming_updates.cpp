#include "media/streaming_updates.h"

#include <cstdint>
#include <optional>

#include "context.h"
#include "core/response.h"
#include "core/xml.h"
#include "media/streaming_documents.h"

namespace psia {

namespace {

/// What has been read of a body, with defaults for what it omits. A later channel of a list begins with the
/// values that the earlier ones left.
struct RequestedSettings {
  Stream stream = kMaster;
  int resolution = 0;
  int enable = 1;
  int codec = 1;
  int quality_type = 1;
  std::int32_t bit_rate = 2048;
  int quality = 2;
  std::int32_t frame_rate = 30;
  int audio_enable = 0;
  int audio_codec = 0;
  std::int32_t rtsp_port = kDefaultRtspPort;
};

int resolution_of_width(Stream stream, std::int32_t width) {
  if (stream == kMaster) return width == 1920 || width == 2040 ? 5 : 4;
  if (width == 176) return 3;
  return width == 352 ? 2 : 0;
}

/// `so_far` is the code that the width gave: 240 lines belong to 352 x 240 or to 704 x 240.
int resolution_of_height(Stream stream, std::int32_t height, int so_far) {
  if (stream == kMaster) return height == 1080 || height == 1536 ? 5 : 4;
  if (height == 112 || height == 144) return 3;
  if (height == 240 || height == 288) return so_far != 0 ? 2 : 1;
  return 0;
}

/// The quality level, 0 the best, for a percentage; the middle one for those between 75 and 100 and above.
int quality_level(std::int32_t percentage) {
  if (percentage == 0) return 4;
  if (percentage <= 25) return 3;
  if (percentage <= 50) return 2;
  if (percentage <= 75) return 1;
  return percentage == 100 ? 0 : 2;
}

void take_video(XmlElement video, RequestedSettings& requested) {
  for (const XmlElement child : video) {
    if (child.is("videoCodecType")) {
      requested.codec = child.text_is("MJPEG") ? 0 : 1;
    } else if (child.is("videoResolutionWidth")) {
      requested.resolution = resolution_of_width(requested.stream, child.number());
    } else if (child.is("videoResolutionHeight")) {
      requested.resolution = resolution_of_height(requested.stream, child.number(), requested.resolution);
    } else if (child.is("videoQualityControlType")) {
      if (requested.codec == 0) {  // MJPEG knows no constant bit rate
        requested.quality_type = 1;
        requested.quality = 2;
      } else {
        requested.quality_type = child.text_is("VBR") ? 1 : 0;
      }
    } else if (child.is("fixedQuality")) {
      requested.quality = quality_level(child.number());
    } else if (child.is("constantBitRate")) {
      requested.bit_rate = child.number();
    } else if (child.is("maxFrameRate")) {
      requested.frame_rate = child.number() / 100;  // from hundredths of a frame per second
    }
  }
}

void take_audio(XmlElement audio, RequestedSettings& requested) {
  for (const XmlElement child : audio) {
    if (child.is("enabled")) {
      requested.audio_enable = child.text_is("true") ? 1 : 0;
    } else if (child.is("audioCompressionType")) {
      requested.audio_codec = child.text_is("G.711alaw") ? 1 : child.text_is("G.726") ? 2 : 0;
    } else if (child.is("audioBitRate")) {
      if (requested.audio_codec == 2 && child.number() == 32) requested.audio_codec = 3;
    }
  }
}

/// Tells the daemons. Their reply does not change the answer: the settings are stored.
void announce(Context& context, ControlMessage message) {
  (void)context.queues.send_and_wait(message);
}

/// Stores the encoder's settings and announces them. False when the statement failed or the request has sent
/// all the messages it may.
bool apply_video(Context& context, const RequestedSettings& requested) {
  if (!context.queues.may_send() ||
      !context.database.execute(
          "update VideoEncoder set Enable=%d, Codec=%d, Resolution=%d, QualityType=%d, Bitrate=%d, Quality=%d, Framerate=%d where VideoEncoderID=%d",
          requested.enable, requested.codec, requested.resolution, requested.quality_type, requested.bit_rate,
          requested.quality, requested.frame_rate, static_cast<int>(requested.stream))) {
    return false;
  }
  ControlMessage message(Command::kVideoEncoder);
  message.put_int(kPayloadOffset + 4, requested.stream == kMaster ? 1 : 0);
  announce(context, message);
  return true;
}

/// The same for the audio encoder.
bool apply_audio(Context& context, const RequestedSettings& requested) {
  if (!context.queues.may_send() ||
      !context.database.execute("update Audio set Enable=%d, Codec=%d where AudioID=0",
                                requested.audio_enable, requested.audio_codec)) {
    return false;
  }
  announce(context, ControlMessage(Command::kAudio));
  return true;
}

/// The same for the RTSP port, when it is not the stored one.
bool apply_rtsp_port(Context& context, std::int32_t port) {
  if (stored_rtsp_port(context.database) == port) return true;
  if (!context.queues.may_send() || !context.database.execute("update Network set RTSPPort=%d", port))
    return false;
  announce(context, ControlMessage(Command::kRtspPort));
  return true;
}

/// Carries out a StreamingChannel element in document order: id and enabled apply to the Video elements after
/// them. False as soon as a statement fails.
bool update_channel(Context& context, XmlElement channel, RequestedSettings& requested) {
  for (const XmlElement child : channel) {
    if (child.is("id")) {
      const bool master = child.text_is("Master-0") || child.text_is("1");
      requested.stream = master ? kMaster : kSlave;
      requested.resolution = master ? 4 : 0;
    } else if (child.is("enabled")) {
      requested.enable = child.text_is("true") ? 1 : 0;
    } else if (child.is("Transport")) {
      for (const XmlElement transport : child) {
        if (transport.is("rtspPortNo")) requested.rtsp_port = transport.number();
      }
    } else if (child.is("Video")) {
      take_video(child, requested);
      if (!apply_video(context, requested)) return false;
    } else if (child.is("Audio")) {
      take_audio(child, requested);
      if (!apply_audio(context, requested)) return false;
    }
  }
  return true;
}

bool update_channels(Context& context, XmlElement list, RequestedSettings& requested) {
  for (const XmlElement child : list) {
    if (child.is("StreamingChannel") && !update_channel(context, child, requested)) return false;
  }
  return true;
}

/// Carries out a body with `update` when its root element is `root_name`, then stores the RTSP port. Clients
/// rely on the latter happening for a body with another root or an empty one, too: it restores the default
/// port.
void update_from_body(Context& context, const Request& request, const char* root_name,
                      bool (*update)(Context&, XmlElement, RequestedSettings&)) {
  const XmlDocument document = receive_document(request);
  if (!document) return answer_status(request, Status::kDeviceError);
  RequestedSettings requested;
  const XmlElement root = document.root();
  const bool done = (!root.is(root_name) || update(context, root, requested)) &&
                    apply_rtsp_port(context, requested.rtsp_port);
  answer_done(request, done);
}

}  // namespace

void write_streaming_channel(Context& context, const Request& request) {
  update_from_body(context, request, "StreamingChannel", update_channel);
}

void write_streaming_channels(Context& context, const Request& request) {
  update_from_body(context, request, "StreamingChannelList", update_channels);
}

}  // namespace psia
