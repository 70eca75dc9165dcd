#include "media/audio_channels.h"

#include <optional>

#include "context.h"
#include "core/response.h"
#include "core/xml.h"

namespace psia {

namespace {

bool audio_enabled(Context& context) {
  return context.database.query("select Enable from Audio where AudioID=0").number(0, 0) != 0;
}

void append_audio_channel(TextBuffer& document, bool enabled) {
  document.append("<AudioChannel version=\"1.0\" xmlns=\"urn:psialliance-org\">");
  document.append("<id>1</id>");
  document.append("<enabled>", enabled ? "true" : "false", "</enabled>");
  document.append("<audioMode>listenonly</audioMode>");
  document.append("</AudioChannel>");
}

/// The Enable value of a body: 1 for "true", 0 for anything else. Nothing when the body cannot be used.
std::optional<int> parse_requested_enable(const Request& request) {
  const XmlDocument document = receive_document(request, "AudioChannel");
  if (!document) return std::nullopt;
  int enable = 0;
  for (const XmlElement child : document.root()) {
    if (child.is("enabled")) enable = child.text_is("true") ? 1 : 0;
  }
  return enable;
}

}  // namespace

void read_audio_channel(Context& context, const Request& request) {
  answer_xml(request, [enabled = audio_enabled(context)](TextBuffer& document) {
    document.append(kXmlDeclarationCrLf);
    append_audio_channel(document, enabled);
  });
}

void read_audio_channels(Context& context, const Request& request) {
  answer_xml(request, [enabled = audio_enabled(context)](TextBuffer& document) {
    document.append(kXmlDeclarationCrLf);
    document.append("<AudioChannelList version=\"1.0\" xmlns=\"urn:psialliance-org\">");
    append_audio_channel(document, enabled);  // the inner element keeps its own namespace attribute
    document.append("</AudioChannelList>");
  });
}

void write_audio_channel(Context& context, const Request& request) {
  const std::optional<int> enable = parse_requested_enable(request);
  if (!enable || !context.database.execute("update Audio set Enable=%d where AudioID=0", *enable)) {
    return answer_status(request, Status::kDeviceError);
  }
  ControlMessage message(Command::kAudio);
  send_and_answer(context.queues, request, message);
}

}  // namespace psia
