#include "core/response.h"

#include <fcgi_stdio.h>

#include <algorithm>
#include <array>
#include <charconv>
#include <cstdio>

#include "core/control_queue.h"
#include "core/stop.h"

namespace psia {

namespace {

/// The client must take each piece of this many bytes within the limit of stop.h. libfcgi's buffer has the
/// same size, so a piece causes at most two writes.
constexpr std::size_t kPieceSize = 8192;

constexpr std::array kStatusStrings = {
    "OK",
    "Device Busy",
    "Device Error",
    "Invalid Operation",
    "Invalid XML Format",
    "Invalid XML Content",
    "Reboot Required",
};

void send(const char* content_type, std::string_view body) {
  std::array<char, 20> digits;
  const char* const end = std::to_chars(digits.begin(), digits.end(), body.size()).ptr;
  std::array<char, 128> header;
  std::size_t size = 0;
  for (const std::string_view text :
       {std::string_view("Content-Length: "),
        std::string_view(digits.data(), static_cast<std::size_t>(end - digits.data())),
        std::string_view("\r\n"), std::string_view(content_type)}) {
    size += text.copy(header.data() + size, header.size() - size);
  }
  write_text({header.data(), size});
  write_text(body);
}

/// The text as it is sent.
std::string_view finished(TextBuffer& document) {
  document.fold();
  return {document.data(), document.length()};
}

}  // namespace

bool write_text(std::string_view text) {
  for (;;) {
    const std::size_t size = std::min(text.size(), kPieceSize);
    const PeerAwaited awaited(Wait::kAnswerTaken);
    if (FCGI_fwrite(const_cast<char*>(text.data()), 1, size, FCGI_stdout) != size) return false;
    if (size == text.size()) return true;
    text.remove_prefix(size);
  }
}

void answer_status(const Request& request, Status status) {
  TextBuffer document;
  document.append("<?xml version=\"1.0\" encoding=\"UTF-8\" ?>\n");
  document.append("<ResponseStatus version=\"1.0\" xmlns=\"urn:psialliance-org\">\n");
  document.append("<requestURL>", request.uri, "</requestURL>\n");
  document.append("<statusCode>", static_cast<int>(status), "</statusCode>\n");
  document.append(
      "<!-- O=1-OK, 2-Device Busy, 3-Device Error, 4-Invalid Operation, 5-Invalid XML Format, 6-Invalid XML content; 7-Reboot Required -->\n");
  document.append("<statusString>", kStatusStrings[static_cast<std::size_t>(status) - 1],
                  "</statusString>\n");
  document.append("<id>1</id>\n");
  document.append("</ResponseStatus>\n");
  if (document.valid()) send(kXmlContent, finished(document));
}

void answer_result(const Request& request, int result) {
  answer_status(request, static_cast<Status>(result + 1));
}

void answer_done(const Request& request, bool done) {
  answer_status(request, done ? Status::kOk : Status::kDeviceError);
}

void send_and_answer(ControlQueues& queues, const Request& request, ControlMessage& message) {
  answer_result(request, queues.send_and_wait(message));
}

void answer_fixed_xml(std::string_view document) {
  send(kXmlContent, document);
}

void send_document(const Request& request, const char* content_type, TextBuffer& document) {
  if (!document.valid()) return answer_status(request, Status::kDeviceError);
  send(content_type, finished(document));
}

void print_fixed_xml(std::string_view document) {
  std::printf("Content-Length: %d\r\n", static_cast<int>(document.size()));
  std::puts("Content-Type: application/xml\r\n\r");
  std::fwrite(document.data(), 1, document.size(), stdout);
  std::fflush(stdout);
}

void print_document(const Request& request, TextBuffer& document) {
  if (!document.valid()) return answer_status(request, Status::kDeviceError);
  print_fixed_xml(finished(document));
}

}  // namespace psia
