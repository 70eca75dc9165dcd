// The parts of the FastCGI protocol that a web server needs, and a relay between it and its responder:
// reading and writing records, reading the variables of a request, and writing a whole answer.
#pragma once

#include <cstdint>
#include <map>
#include <string>
#include <string_view>
#include <vector>

namespace camera::fastcgi {

// Record types (fastcgi.h of the FastCGI 1.0 protocol, section 8).
constexpr unsigned char kBeginRequest = 1;
constexpr unsigned char kEndRequest = 3;
constexpr unsigned char kParameters = 4;
constexpr unsigned char kInput = 5;
constexpr unsigned char kOutput = 6;
constexpr unsigned char kErrors = 7;

struct Record {
  unsigned char type = 0;
  std::uint16_t request = 0;
  std::string content;
};

/// Removes the complete records from the front of `bytes` and gives them. The start of the next one remains.
[[nodiscard]] std::vector<Record> take_records(std::string& bytes);

/// The variables in the joined contents of the parameter records, up to the first that is not well-formed.
[[nodiscard]] std::map<std::string, std::string> read_parameters(std::string_view content);

/// One record; its content has at most 65535 bytes.
[[nodiscard]] std::string record(unsigned char type, std::uint16_t request, std::string_view content);

/// The content in as many records as it needs, and with `end` the empty one that ends the stream.
[[nodiscard]] std::string stream(unsigned char type, std::uint16_t request, std::string_view content,
                                 bool end = true);

/// The records of a whole answer: `text` as the output, then the end of the request.
[[nodiscard]] std::string answer_records(std::uint16_t request, std::string_view text);

}  // namespace camera::fastcgi
