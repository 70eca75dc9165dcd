// Sends answers: documents with their header lines, and the ResponseStatus document, which answers every
// change and every request that is refused or fails.
#pragma once

#include <string_view>

#include "core/request.h"
#include "core/text_buffer.h"

namespace psia {

class ControlMessage;
class ControlQueues;

/// The status codes of the PSIA ResponseStatus document.
enum class Status : int {
  kOk = 1,
  kDeviceBusy = 2,
  kDeviceError = 3,
  kInvalidOperation = 4,
  kInvalidXmlFormat = 5,
  kInvalidXmlContent = 6,
  kRebootRequired = 7,
};

/// Content-Type lines with the empty line that ends the header.
inline constexpr const char* kXmlContent = "Content-Type: application/xml; charset=\"UTF-8\"\r\n\r\n";
inline constexpr const char* kTextContent = "Content-Type: text/plain; charset=\"UTF-8\"\r\n\r\n";

/// The XML declaration, with the line end that the document has after it.
inline constexpr const char* kXmlDeclarationCrLf = "<?xml version=\"1.0\" encoding=\"UTF-8\" ?>\r\n";
inline constexpr const char* kXmlDeclarationNoLineEnd = "<?xml version=\"1.0\" encoding=\"UTF-8\" ?>";
inline constexpr const char* kXmlDeclarationLf = "<?xml version=\"1.0\" encoding=\"UTF-8\" ?>\n";

/// The namespace of all documents, as the last attribute of a root element.
inline constexpr const char* kNamespace = " xmlns=\"urn:psialliance-org\"";

/// Sends a text to the client unchanged. False when the write failed: the client is gone, or it did not take
/// its answer in time. Most callers ignore this, because further writes then do nothing.
bool write_text(std::string_view text);

/// Answers with a ResponseStatus document. Writes nothing when memory is short.
void answer_status(const Request& request, Status status);

/// Answers with the status of a control message's result: 0 ok, 1 busy, 2 error.
void answer_result(const Request& request, int result);

/// Answers ok when `done`, otherwise a device error.
void answer_done(const Request& request, bool done);

/// Sends `message` to the daemons, waits for the reply and answers with the status of its result.
void send_and_answer(ControlQueues& queues, const Request& request, ControlMessage& message);

/// Sends a document that is the same for every request and holds no percent sign.
void answer_fixed_xml(std::string_view document);

/// Sends a complete document to the client, or a device error when memory ran short while it was built.
void send_document(const Request& request, const char* content_type, TextBuffer& document);

/// Writes the document to the process's standard output, with the Event resources' own Content-Type line.
/// Kept for compatibility: over FastCGI the client receives nothing of it. The standard output of a plain CGI
/// program leads to the client.
void print_document(const Request& request, TextBuffer& document);
void print_fixed_xml(std::string_view document);

/// Answers with the document that `build` appends to the text buffer it is given.
template <typename Build>
void answer_document(const Request& request, const char* content_type, const Build& build) {
  TextBuffer document;
  if (document.valid()) build(document);
  send_document(request, content_type, document);
}

/// Answers with an XML document; see answer_document.
template <typename Build>
void answer_xml(const Request& request, const Build& build) {
  answer_document(request, kXmlContent, build);
}

/// Answers with an Event document, on standard output; see print_document.
template <typename Build>
void print_xml(const Request& request, const Build& build) {
  TextBuffer document;
  if (document.valid()) build(document);
  print_document(request, document);
}

}  // namespace psia
