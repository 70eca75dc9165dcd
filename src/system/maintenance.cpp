#include "system/maintenance.h"

#include <fcgi_stdio.h>
#include <strings.h>

#include <algorithm>
#include <array>
#include <cstdio>
#include <cstring>
#include <string_view>

#include "context.h"
#include "core/body.h"
#include "core/file.h"
#include "core/paths.h"
#include "core/response.h"

namespace psia {

namespace {

struct QueryPair {
  std::array<char, 128> name{};
  std::array<char, 128> value{};
};

/// Splits at the "=" signs; "&" is an ordinary character. After each further "=" the value is written again
/// from its start, over what it holds: "MODE=FULL=B" has the value "BULL".
QueryPair split_query(std::string_view query) {
  QueryPair pair;
  std::array<char, 128>* part = &pair.name;
  std::size_t length = 0;
  for (const char c : query) {
    if (c == '=') {
      part = &pair.value;
      length = 0;
    } else if (length < part->size() - 1) {
      (*part)[length++] = c;
    }
  }
  return pair;
}

/// Sends `size` bytes of the file. The header lines end and are spelled unlike all others, for compatibility.
/// A file that turns out shorter truncates the answer: the header is out already.
void send_file(const File& file, int size) {
  FCGI_printf("Content-Type: application/octet-stream\n");
  FCGI_printf("Content-length: %d\n\n", size);
  std::array<char, 1024> piece{};
  for (auto left = static_cast<std::size_t>(size); left > 0;) {
    const std::size_t length = std::min(left, piece.size());
    if (std::fread(piece.data(), length, 1, file.get()) != 1) return;
    if (!write_text({piece.data(), length})) return;
    left -= length;
  }
}

}  // namespace

void request_reboot(Context& context, const Request& request) {
  ControlMessage message(Command::kReboot);
  send_and_answer(context.queues, request, message);
}

void reset_to_factory(Context& context, const Request& request) {
  const char* const mark = std::strchr(request.uri, '?');
  const char* const behind_mark = mark == nullptr ? "" : mark + 1;
  const std::string_view query(behind_mark, strnlen(behind_mark, 255));
  if (query.empty()) return answer_status(request, Status::kInvalidXmlFormat);
  const QueryPair pair = split_query(query);
  const auto value_is = [&pair](const char* word) { return strcasecmp(pair.value.data(), word) == 0; };
  if (strcasecmp(pair.name.data(), "MODE") != 0 || (!value_is("FULL") && !value_is("BASIC"))) {
    return answer_status(request, Status::kDeviceError);
  }
  ControlMessage message(Command::kFactoryReset);
  send_and_answer(context.queues, request, message);
}

void read_configuration(Context& context, const Request& request) {
  ControlMessage message(Command::kExportConfiguration);
  if (context.queues.send_and_wait(message) != 0) return answer_status(request, Status::kDeviceError);
  const std::string_view name = message.text_at(kPayloadOffset);
  std::array<char, 1024> path{};
  std::snprintf(path.data(), path.size(), "%s/%.*s", kExchangeDirectory, static_cast<int>(name.size()),
                name.data());
  const File file = open_file(path.data(), "rb");
  const int size = file ? file_size(file) : 0;
  if (size < 1) return answer_status(request, Status::kDeviceError);
  send_file(file, size);
}

void write_configuration(Context& /*context*/, const Request& request) {
  const int result = save_body(request, kUploadedConfiguration);
  answer_done(request, result == 0);
}

}  // namespace psia
