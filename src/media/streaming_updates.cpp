#include "media/streaming_updates.h"

#include <cstdint>
#include <optional>

#include "frame/response.h"
#include "frame/service.h"
#include "frame/xml.h"
#include "media/streaming_documents.h"

namespace psia {

namespace {

/// What a body asks for, and what it is taken to ask for where it says nothing. Filled element by element;
/// a later channel of a list begins with what the earlier ones left.
struct Settings {
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

void read_video(XmlElement video, Settings& settings) {
  for (const XmlElement child : video) {
    if (child.is("videoCodecType")) {
      settings.codec = child.text_is("MJPEG") ? 0 : 1;
    } else if (child.is("videoResolutionWidth")) {
      settings.resolution = resolution_of_width(settings.stream, child.number());
    } else if (child.is("videoResolutionHeight")) {
      settings.resolution = resolution_of_height(settings.stream, child.number(), settings.resolution);
    } else if (child.is("videoQualityControlType")) {
      if (settings.codec == 0) {  // MJPEG knows no constant bit rate
        settings.quality_type = 1;
        settings.quality = 2;
      } else {
        settings.quality_type = child.text_is("VBR") ? 1 : 0;
      }
    } else if (child.is("fixedQuality")) {
      settings.quality = quality_level(child.number());
    } else if (child.is("constantBitRate")) {
      settings.bit_rate = child.number();
    } else if (child.is("maxFrameRate")) {
      settings.frame_rate = child.number() / 100;  // from hundredths of a frame per second
    }
  }
}

void read_audio(XmlElement audio, Settings& settings) {
  for (const XmlElement child : audio) {
    if (child.is("enabled")) {
      settings.audio_enable = child.text_is("true") ? 1 : 0;
    } else if (child.is("audioCompressionType")) {
      settings.audio_codec = child.text_is("G.711alaw") ? 1 : child.text_is("G.726") ? 2 : 0;
    } else if (child.is("audioBitRate")) {
      if (settings.audio_codec == 2 && child.number() == 32) settings.audio_codec = 3;
    }
  }
}

/// Tells the daemons. What they reply does not change the answer: the settings are stored.
void announce(Service& service, ControlMessage message) {
  (void)service.queues.send_and_wait(message);
}

/// Stores the encoder settings and announces them; false when the statement failed or the request has sent
/// all the messages it may.
bool apply_video(Service& service, const Settings& settings) {
  if (!service.queues.may_send() ||
      !service.database.execute(
          "update VideoEncoder set Enable=%d, Codec=%d, Resolution=%d, QualityType=%d, Bitrate=%d, Quality=%d, Framerate=%d where VideoEncoderID=%d",
          settings.enable, settings.codec, settings.resolution, settings.quality_type, settings.bit_rate,
          settings.quality, settings.frame_rate, static_cast<int>(settings.stream))) {
    return false;
  }
  ControlMessage message(Command::kVideoEncoder);
  message.put_int(kPayloadOffset + 4, settings.stream == kMaster ? 1 : 0);
  announce(service, message);
  return true;
}

/// The same for the audio encoder.
bool apply_audio(Service& service, const Settings& settings) {
  if (!service.queues.may_send() ||
      !service.database.execute("update Audio set Enable=%d, Codec=%d where AudioID=0", settings.audio_enable,
                                settings.audio_codec)) {
    return false;
  }
  announce(service, ControlMessage(Command::kAudio));
  return true;
}

/// The same for the RTSP port, when it is not the stored one.
bool apply_rtsp_port(Service& service, std::int32_t port) {
  if (read_rtsp_port(service.database) == port) return true;
  if (!service.queues.may_send() || !service.database.execute("update Network set RTSPPort=%d", port))
    return false;
  announce(service, ControlMessage(Command::kRtspPort));
  return true;
}

/// Carries a StreamingChannel element out in document order; id and enabled count for the Video elements
/// behind them. False as soon as a statement fails.
bool update_channel(Service& service, XmlElement channel, Settings& settings) {
  for (const XmlElement child : channel) {
    if (child.is("id")) {
      const bool master = child.text_is("Master-0") || child.text_is("1");
      settings.stream = master ? kMaster : kSlave;
      settings.resolution = master ? 4 : 0;
    } else if (child.is("enabled")) {
      settings.enable = child.text_is("true") ? 1 : 0;
    } else if (child.is("Transport")) {
      for (const XmlElement transport : child) {
        if (transport.is("rtspPortNo")) settings.rtsp_port = transport.number();
      }
    } else if (child.is("Video")) {
      read_video(child, settings);
      if (!apply_video(service, settings)) return false;
    } else if (child.is("Audio")) {
      read_audio(child, settings);
      if (!apply_audio(service, settings)) return false;
    }
  }
  return true;
}

bool update_channels(Service& service, XmlElement list, Settings& settings) {
  for (const XmlElement child : list) {
    if (child.is("StreamingChannel") && !update_channel(service, child, settings)) return false;
  }
  return true;
}

/// Carries a body out with `update` when its root element is `root_name`, then sets the RTSP port. A body
/// with another root or nothing in it still does the latter: it is meant to put the default port back.
void update_from_body(Service& service, const Request& request, const char* root_name,
                      bool (*update)(Service&, XmlElement, Settings&)) {
  const XmlDocument document = read_document(request);
  if (!document) return answer_status(request, Status::kDeviceError);
  Settings settings;
  const XmlElement root = document.root();
  const bool done = (!root.is(root_name) || update(service, root, settings)) &&
                    apply_rtsp_port(service, settings.rtsp_port);
  answer_done(request, done);
}

}  // namespace

void update_streaming_channel(Service& service, const Request& request) {
  update_from_body(service, request, "StreamingChannel", update_channel);
}

void update_streaming_channels(Service& service, const Request& request) {
  update_from_body(service, request, "StreamingChannelList", update_channels);
}

}  // namespace psia
