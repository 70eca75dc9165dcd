#include "media/video_inputs.h"

#include <cstdint>
#include <optional>

#include "context.h"
#include "core/numbers.h"
#include "core/response.h"
#include "core/xml.h"

namespace psia {

namespace {

struct Picture {
  std::int32_t brightness = 50;
  std::int32_t contrast = 50;
  std::int32_t hue = 50;
  std::int32_t power_line_frequency = 1;  // 1: 50 Hz, any other: 60 Hz
};

Picture stored_picture(Context& context) {
  const Rows source = context.database.query("select * from VideoSource where VideoSourceID=0");
  if (!source.found()) return {};
  return {source.number(0, 1), source.number(0, 2), source.number(0, 3), source.number(0, 4)};
}

void append_channel(TextBuffer& document, const char* attributes, const Picture& picture) {
  document.append("<VideoInputChannel version=\"1.0\"", attributes, ">");
  document.append("<id>1</id>");
  document.append("<inputPort>1</inputPort>");
  document.append("<powerLineFrequencyMode>", picture.power_line_frequency == 1 ? "50hz" : "60hz",
                  "</powerLineFrequencyMode>");
  document.append("<brightnessLevel>", picture.brightness, "</brightnessLevel>");
  document.append("<contrastLevel>", picture.contrast, "</contrastLevel>");
  document.append("<hueLevel>", picture.hue, "</hueLevel>");
  document.append("</VideoInputChannel>");
}

/// The levels of a body. One that it omits becomes 0; without an id no row is changed.
struct RequestedPicture {
  std::int32_t source = -1;
  std::int32_t brightness = 0;
  std::int32_t contrast = 0;
  std::int32_t hue = 0;
};

/// The element's text as a number; its first 127 characters count.
std::int32_t short_number(XmlElement element) {
  FixedText<128> text;
  element.copy_text(text);
  return to_int32(text.c_str());
}

std::optional<RequestedPicture> parse_requested_picture(const Request& request) {
  const XmlDocument document = receive_document(request, "VideoInputChannel");
  if (!document) return std::nullopt;
  RequestedPicture requested;
  for (const XmlElement child : document.root()) {
    if (child.is("id")) requested.source = short_number(child);
    if (child.is("brightnessLevel")) requested.brightness = short_number(child);
    if (child.is("contrastLevel")) requested.contrast = short_number(child);
    if (child.is("hueLevel")) requested.hue = short_number(child);
  }
  return requested;
}

}  // namespace

void read_video_inputs(Context& context, const Request& request) {
  answer_xml(request, [picture = stored_picture(context)](TextBuffer& document) {
    document.append(kXmlDeclarationCrLf);
    document.append("<VideoInput version=\"1.0\" xmlns=\"urn:psialliance-org\">");
    document.append("<VideoInputChannelList version=\"1.0\">");
    append_channel(document, "", picture);
    document.append("</VideoInputChannelList>");
    document.append("</VideoInput>");
  });
}

void read_video_input_channels(Context& context, const Request& request) {
  answer_xml(request, [picture = stored_picture(context)](TextBuffer& document) {
    document.append(kXmlDeclarationCrLf);
    document.append("<VideoInputChannelList version=\"1.0\" xmlns=\"urn:psialliance-org\">");
    append_channel(document, "", picture);
    document.append("</VideoInputChannelList>");
  });
}

void read_video_input_channel(Context& context, const Request& request) {
  answer_xml(request, [picture = stored_picture(context)](TextBuffer& document) {
    document.append(kXmlDeclarationCrLf);
    append_channel(document, kNamespace, picture);
  });
}

void write_video_input_channel(Context& context, const Request& request) {
  const std::optional<RequestedPicture> requested = parse_requested_picture(request);
  // Kept for compatibility: the id of the body is the number of the row, while reading shows row 0 as
  // channel 1. A client that sends back the id it was shown changes row 1, and reading still shows row 0.
  if (!requested || !context.database.execute(
                        "update VideoSource set Brightness=%d, Contrast=%d, Hue=%d where VideoSourceID=%d",
                        requested->brightness, requested->contrast, requested->hue, requested->source)) {
    return answer_status(request, Status::kDeviceError);
  }
  ControlMessage message(Command::kVideoSource);
  message.put_int(kPayloadOffset, requested->source);
  send_and_answer(context.queues, request, message);
}

}  // namespace psia
