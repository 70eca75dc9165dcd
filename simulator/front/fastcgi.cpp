#include "simulator/front/fastcgi.h"

#include <algorithm>
#include <cstddef>

namespace camera::fastcgi {
namespace {

constexpr std::size_t kHeaderSize = 8;
constexpr std::size_t kMaxContent = 0xffff;

unsigned int byte_at(std::string_view bytes, std::size_t i) {
  return static_cast<unsigned char>(bytes[i]);
}

// Reads a length of one byte, or of four when the highest bit is set. False when the bytes end before.
bool take_length(std::string_view& bytes, std::size_t& length) {
  if (bytes.empty()) return false;
  const std::size_t size = byte_at(bytes, 0) < 0x80 ? 1 : 4;
  if (bytes.size() < size) return false;
  length = byte_at(bytes, 0) & 0x7fU;
  for (std::size_t i = 1; i < size; i++)
    length = length << 8U | byte_at(bytes, i);
  bytes.remove_prefix(size);
  return true;
}

}  // namespace

std::string record(unsigned char type, std::uint16_t request, std::string_view content) {
  std::string bytes;
  for (const unsigned int value :
       {1U, static_cast<unsigned int>(type), static_cast<unsigned int>(request >> 8U), request & 0xffU,
        static_cast<unsigned int>(content.size() >> 8U), static_cast<unsigned int>(content.size() & 0xffU),
        0U, 0U})
    bytes += static_cast<char>(static_cast<unsigned char>(value));
  return bytes.append(content);
}

std::string stream(unsigned char type, std::uint16_t request, std::string_view content, bool end) {
  std::string bytes;
  for (; !content.empty(); content.remove_prefix(std::min(content.size(), kMaxContent)))
    bytes += record(type, request, content.substr(0, kMaxContent));
  return end ? bytes + record(type, request, "") : bytes;
}

std::vector<Record> take_records(std::string& bytes) {
  std::vector<Record> records;
  std::size_t start = 0;
  while (bytes.size() - start >= kHeaderSize) {
    const std::string_view header = std::string_view(bytes).substr(start);
    const std::size_t content = byte_at(header, 4) << 8U | byte_at(header, 5);
    const std::size_t whole = kHeaderSize + content + byte_at(header, 6);
    if (header.size() < whole) break;
    const auto request = static_cast<std::uint16_t>(byte_at(header, 2) << 8U | byte_at(header, 3));
    records.push_back({static_cast<unsigned char>(byte_at(header, 1)), request,
                       std::string(header.substr(kHeaderSize, content))});
    start += whole;
  }
  bytes.erase(0, start);
  return records;
}

std::map<std::string, std::string> read_parameters(std::string_view content) {
  std::map<std::string, std::string> variables;
  std::size_t name = 0;
  std::size_t value = 0;
  while (take_length(content, name) && take_length(content, value) && name <= content.size() &&
         value <= content.size() - name) {
    variables[std::string(content.substr(0, name))] = content.substr(name, value);
    content.remove_prefix(name + value);
  }
  return variables;
}

std::string answer_records(std::uint16_t request, std::string_view text) {
  return stream(kOutput, request, text) + record(kEndRequest, request, std::string(8, '\0'));
}

}  // namespace camera::fastcgi
