#include "media/streaming_documents.h"

#include <strings.h>

#include <algorithm>
#include <array>
#include <cmath>
#include <cstddef>
#include <limits>
#include <optional>

#include "context.h"
#include "core/numbers.h"
#include "core/response.h"

namespace psia {

namespace {

/// A row of the VideoEncoder table. The initial values are shown when there is no row.
struct Encoder {
  std::int32_t enable = 1;
  std::int32_t codec = 1;
  std::int32_t resolution = 0;
  std::int32_t quality_type = 1;
  std::int32_t bit_rate = 2048;  // kilobits per second
  std::int32_t quality = 2;
  std::int32_t frame_rate = 15;  // per second
  std::int32_t gop_size = 15;    // frames from one key frame to the next
};

/// The value of Encoder::enable that says that the camera has no such encoder.
constexpr std::int32_t kNoEncoder = -1;

// Bits of Spec.VideoResolution.
constexpr std::int32_t kLargerSizes = 0x20;       // sizes above the sensor's basic one are offered
constexpr std::int32_t kSmallerClass = 0x200000;  // the sensor belongs to the smaller class

/// Percentages shown for the quality levels.
constexpr std::array kPercentages = {100, 75, 50, 25, 0};

struct Audio {
  std::int32_t enable;
  std::int32_t codec;
};

/// The largest picture the sensor gives in its present mode. The height alone tells the modes apart.
struct CaptureSize {
  int width;
  int height;

  [[nodiscard]] bool is_4_to_3() const { return height == 1024 || height == 1536; }
};

/// The picture size that a document shows, with the attributes that its elements have in the capabilities.
struct ShownSize {
  int width;
  int height;
  const char* width_attributes = "";
  const char* height_attributes = "";
};

/// What one StreamingChannel element shows. Each document determines the last three members in its own way.
struct Channel {
  Stream stream;
  Encoder encoder;
  Audio audio;
  std::int32_t rtsp_port;
  const char* codec;
  ShownSize size;
  bool audio_enabled;
};

CaptureSize maximum_capture_size(Database& database) {
  const Rows spec = database.query("select VideoResolution, VideoSourceFeature from Spec");
  const bool smaller = !spec.found() || (spec.number(0, 0) & kSmallerClass) != 0;
  const Rows mode = database.query("select a.ModelName, b.CaptureMode from System as a, VideoSource as b");
  if (!mode.found()) return {1920, 1080};  // for the smaller class, too; clients rely on it
  const bool is_4_to_3 = mode.number(0, 1) == 1;
  if (smaller) return is_4_to_3 ? CaptureSize{1280, 1024} : CaptureSize{1280, 720};
  return is_4_to_3 ? CaptureSize{2040, 1536} : CaptureSize{1920, 1080};
}

std::optional<Encoder> stored_encoder(Database& database, Stream stream) {
  const Rows rows = database.query(
      "select Enable, Codec, Resolution, QualityType, Bitrate, Quality, Framerate, GOPSize from VideoEncoder where VideoEncoderID=%d",
      static_cast<int>(stream));
  if (!rows.found()) return std::nullopt;
  return Encoder{.enable = rows.number(0, 0),
                 .codec = rows.number(0, 1),
                 .resolution = rows.number(0, 2),
                 .quality_type = rows.number(0, 3),
                 .bit_rate = rows.number(0, 4),
                 .quality = rows.number(0, 5),
                 .frame_rate = rows.number(0, 6),
                 .gop_size = rows.number(0, 7)};
}

/// The values of a row of the Audio table; off and codec 0 when there is no row.
Audio to_audio(const Rows& rows) {
  return {.enable = rows.number(0, 2), .codec = rows.number(0, 3)};
}

/// The stream that the URI names after "/PSIA/Streaming/channels/". No name is refused: 10 is the Master
/// stream, 7 and any other text the Slave stream.
Stream stream_of(const Request& request) {
  return strncasecmp(request.tail, "Master-0", 8) == 0 || request.tail[0] == '1' ? kMaster : kSlave;
}

const char* codec_name(const Encoder& encoder) {
  return encoder.codec != 0 ? "H.264" : "MJPEG";
}

/// Kept for compatibility: the list's Slave entry shows code 0 as H.264 and code 1 as MJPEG, the opposite of
/// all others.
const char* listed_slave_codec_name(const Encoder& encoder) {
  return encoder.codec == 1 ? "MJPEG" : "H.264";
}

/// The size shown by the channel document and the list's Master entry. Kept for compatibility: all codes but
/// 5 are shown as the sensor's size, also the small pictures of the Slave stream.
ShownSize shown_size(const Encoder& encoder, const CaptureSize& largest) {
  if (encoder.resolution == 5) return largest.height == 1536 ? ShownSize{2040, 1536} : ShownSize{1920, 1080};
  return largest.is_4_to_3() ? ShownSize{1280, 1024} : ShownSize{1280, 720};
}

/// The size shown by the list's Slave entry.
ShownSize listed_slave_size(const Encoder& encoder) {
  return encoder.resolution == 2 ? ShownSize{352, 240} : ShownSize{704, 480};
}

/// The size shown by the capabilities document.
ShownSize capabilities_size(const Encoder& encoder, const CaptureSize& largest, bool larger_sizes) {
  switch (encoder.resolution) {
    case 0:
      return {704, 480, " opt=\"352,704\"", " opt=\"240,480\""};
    case 1:  // the width of code 0 and the height of code 2
      return {704, 240, " opt=\"352,704\"", " opt=\"240,480\""};
    case 2:
      return {352, 240, " opt=\"352,704\"", " opt=\"240,480\""};
    case 3:
      return {144, 112};
    case 5:
      return largest.height == 1536 ? ShownSize{2040, 1536, " opt=\"1280,2040\"", " opt=\"1024,1536\""}
                                    : ShownSize{1920, 1080, " opt=\"1280,1920\"", " opt=\"720,1080\""};
    default:  // 4 and unknown codes
      if (largest.is_4_to_3()) {
        return larger_sizes ? ShownSize{1280, 1024, " opt=\"1280,2040\"", " opt=\"1024,1536\""}
                            : ShownSize{1280, 1024, " opt=\"1280\"", " opt=\"1024\""};
      }
      return larger_sizes ? ShownSize{1280, 720, " opt=\"1280,1920\"", " opt=\"720,1080\""}
                          : ShownSize{1280, 720, " opt=\"1280\"", " opt=\"720\""};
  }
}

/// Unknown quality levels are shown as the middle one.
int quality_percentage(std::int32_t level) {
  const auto index = static_cast<std::uint32_t>(level);
  return index < kPercentages.size() ? kPercentages[index] : 50;
}

/// Milliseconds from one key frame to the next. The division has single precision, and clients see its
/// rounding: 699 for 7 frames at 10 per second. At frame rate 0 they see an end of the range, or 0 when there
/// are no key frames either.
std::int32_t key_frame_interval(const Encoder& encoder) {
  using Limits = std::numeric_limits<std::int32_t>;
  const float seconds = static_cast<float>(encoder.gop_size) / static_cast<float>(encoder.frame_rate);
  const double milliseconds = static_cast<double>(seconds) * 1000.0;
  if (std::isnan(milliseconds)) return 0;
  return static_cast<std::int32_t>(std::clamp<double>(milliseconds, Limits::min(), Limits::max()));
}

struct AudioFormat {
  const char* compression;
  int bit_rate;  // kilobits per second
};

AudioFormat audio_format(std::int32_t codec) {
  switch (codec) {
    case 0:
      return {"G.711ulaw", 64};
    case 1:
      return {"G.711alaw", 64};
    case 2:
      return {"G.726", 24};
    case 3:
      return {"G.726", 32};
    default:
      return {"G.711", 64};
  }
}

const char* true_or_false(bool value) {
  return value ? "true" : "false";
}

enum class Form {
  kCapabilities,  // with attributes that tell what a client may set
  kValues,
};

/// Writes elements in one of the forms.
class Elements {
 public:
  Elements(TextBuffer& document, Form form) : document_(document), form_(form) {}

  /// `attributes` begins with a blank; the values form leaves it out.
  [[gnu::noinline]] void element(const char* name, const char* attributes, Piece value) {
    document_.append("<", name, form_ == Form::kCapabilities ? attributes : "", ">", value, "</", name, ">");
  }

 private:
  TextBuffer& document_;
  Form form_;
};

void append_transport(TextBuffer& document, Form form, const Channel& channel) {
  Elements elements(document, form);
  document.append("<Transport>");
  elements.element("rtspPortNo", " min=\"0\" max=\"65535\" def=\"554\"", channel.rtsp_port);
  if (form == Form::kValues) document.append("<maxPacketSize>1448</maxPacketSize>");
  document.append("<ControlProtocolList><ControlProtocol>");
  elements.element("streamingTransport", " opt=\"RTSP/RTP,HTTP\"", "RTSP");
  document.append("</ControlProtocol></ControlProtocolList>");
  document.append("<Unicast>");
  if (form == Form::kCapabilities) {
    document.append("<enabled opt=\"true,false\" def=\"true\"/>");
    document.append("<rtpTransportType opt=\"RTP/UDP,RTP/TCP\" />");
  } else {
    document.append("<enabled>true</enabled>");
    document.append("<rtpTransportType>RTP/TCP</rtpTransportType>");
  }
  document.append("</Unicast></Transport>");
}

void append_video(TextBuffer& document, Form form, const Channel& channel) {
  const Encoder& encoder = channel.encoder;
  const ShownSize& size = channel.size;
  Elements elements(document, form);
  document.append("<Video>");
  elements.element("enabled", " opt=\"true,false\"", true_or_false(encoder.enable == 1));
  elements.element("videoInputChannelID", " opt=\"1\"", 1);
  elements.element("videoCodecType", " opt=\"MJPEG,H.264\"", channel.codec);
  if (form == Form::kValues) document.append("<videoScanType>progressive</videoScanType>");
  elements.element("videoResolutionWidth", size.width_attributes, size.width);
  elements.element("videoResolutionHeight", size.height_attributes, size.height);
  if (encoder.quality_type == 0) {
    elements.element("videoQualityControlType", " opt=\"CBR,VBR\"", "CBR");
    elements.element("constantBitRate", " min=\"64\" max=\"10240\" dynamic=\"true\"", encoder.bit_rate);
  } else {
    elements.element("videoQualityControlType", " opt=\"CBR,VBR\"", "VBR");
    elements.element("fixedQuality", " min=\"0\" max=\"100\" default=\"50\"",
                     quality_percentage(encoder.quality));
    document.append("<vbrUpperCap>10240</vbrUpperCap><vbrLowerCap>1024</vbrLowerCap>");
  }
  elements.element("maxFrameRate", " min=\"100\" max=\"3000\" default=\"1500\"",
                   wrapping_multiply(encoder.frame_rate, 100));
  elements.element("keyFrameInterval", " min=\"0\" max=\"10000\"", key_frame_interval(encoder));
  document.append("</Video>");
}

void append_audio(TextBuffer& document, Form form, const Channel& channel) {
  const AudioFormat audio = audio_format(channel.audio.codec);
  Elements elements(document, form);
  document.append("<Audio>");
  elements.element("enabled", " opt=\"true,false\"", true_or_false(channel.audio_enabled));
  elements.element("audioInputChannelID", " min=\"1\" max=\"1\"", 1);
  elements.element("audioCompressionType", " opt=\"G.711ulaw,G.711alaw,G.726\" default=\"G.711ulaw\"",
                   audio.compression);
  elements.element("audioBitRate", " opt=\"24,32,64\"", audio.bit_rate);
  elements.element("audioSamplingRate", " opt=\"8\"", 8);
  elements.element("audioResolution", " opt=\"8\"", 8);
  document.append("</Audio>");
}

void append_channel(TextBuffer& document, const char* attributes, Form form, const Channel& channel) {
  Elements elements(document, form);
  document.append("<StreamingChannel version=\"1.0\"", attributes, ">");
  elements.element("id", " opt=\"1,2\"", channel.stream + 1);
  elements.element("channelName", " min=\"1\" max=\"128\"",
                   channel.stream == kMaster ? "Master stream" : "Slave stream");
  elements.element("enabled", " opt=\"true,false\"", true_or_false(channel.encoder.enable == 1));
  append_transport(document, form, channel);
  append_video(document, form, channel);
  append_audio(document, form, channel);
  document.append("</StreamingChannel>");
}

/// Answers with the document of one channel.
void answer_channel(const Request& request, Form form, const Channel& channel) {
  if (channel.encoder.enable == kNoEncoder) return answer_status(request, Status::kDeviceError);
  answer_xml(request, [form, &channel](TextBuffer& document) {
    document.append(kXmlDeclarationCrLf);
    append_channel(document, kNamespace, form, channel);
  });
}

}  // namespace

std::int32_t stored_rtsp_port(Database& database) {
  const Rows rows = database.query("select RTSPPort from Network");
  return rows.found() ? rows.number(0, 0) : kDefaultRtspPort;
}

void read_streaming_channels(Context& context, const Request& request) {
  Database& database = context.database;
  const CaptureSize largest = maximum_capture_size(database);
  const Encoder master = stored_encoder(database, kMaster).value_or(Encoder());
  const Encoder slave = stored_encoder(database, kSlave).value_or(Encoder());
  const Audio audio = to_audio(database.query("select * from Audio where Type=0 limit 1"));
  const bool audio_enabled = audio.enable != 0;  // any number, unlike in the documents of one channel
  const std::int32_t rtsp_port = stored_rtsp_port(database);
  if (master.enable == kNoEncoder || slave.enable == kNoEncoder) {
    return answer_status(request, Status::kDeviceError);
  }
  const std::array channels = {
      Channel{.stream = kMaster,
              .encoder = master,
              .audio = audio,
              .rtsp_port = rtsp_port,
              .codec = codec_name(master),
              .size = shown_size(master, largest),
              .audio_enabled = audio_enabled},
      Channel{.stream = kSlave,
              .encoder = slave,
              .audio = audio,
              .rtsp_port = rtsp_port,
              .codec = listed_slave_codec_name(slave),
              .size = listed_slave_size(slave),
              .audio_enabled = audio_enabled},
  };
  answer_xml(request, [&channels](TextBuffer& document) {
    document.append(kXmlDeclarationCrLf);
    document.append("<StreamingChannelList version=\"1.0\" xmlns=\"urn:psialliance-org\">");
    for (const Channel& channel : channels)
      append_channel(document, "", Form::kValues, channel);
    document.append("</StreamingChannelList>");
  });
}

void read_streaming_channel(Context& context, const Request& request) {
  Database& database = context.database;
  const Stream stream = stream_of(request);
  const CaptureSize largest = maximum_capture_size(database);
  const Encoder encoder = stored_encoder(database, stream).value_or(Encoder());
  const Audio audio = to_audio(database.query("select * from Audio where Type=0 limit 1"));
  answer_channel(request, Form::kValues,
                 {.stream = stream,
                  .encoder = encoder,
                  .audio = audio,
                  .rtsp_port = stored_rtsp_port(database),
                  .codec = codec_name(encoder),
                  .size = shown_size(encoder, largest),
                  .audio_enabled = audio.enable == 1});
}

void read_streaming_capabilities(Context& context, const Request& request) {
  Database& database = context.database;
  const Stream stream = stream_of(request);
  const CaptureSize largest = maximum_capture_size(database);
  const Rows spec = database.query("select VideoResolution from Spec");
  if (!spec.found()) return answer_status(request, Status::kDeviceError);
  const std::optional<Encoder> encoder = stored_encoder(database, stream);
  if (!encoder) return answer_status(request, Status::kDeviceError);
  const bool larger_sizes = (spec.number(0, 0) & kLargerSizes) != 0;
  const Audio audio = to_audio(database.query("select * from Audio where AudioID=0"));
  answer_channel(request, Form::kCapabilities,
                 {.stream = stream,
                  .encoder = *encoder,
                  .audio = audio,
                  .rtsp_port = stored_rtsp_port(database),
                  .codec = codec_name(*encoder),
                  .size = capabilities_size(*encoder, largest, larger_sizes),
                  .audio_enabled = audio.enable == 1});
}

}  // namespace psia
