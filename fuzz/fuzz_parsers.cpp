// The parsers of texts that clients, files and the kernel give: credentials, time-zone rules, addresses, the
// resolver file and the route table, and XML documents byte by byte.
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <memory>
#include <string>
#include <vector>

#include "frame/access_control.h"
#include "frame/xml.h"
#include "network/interface_address.h"
#include "system/posix_tz_check.h"
#include "system/time_zone_table.h"

namespace {

void require(bool holds) {
  if (!holds) std::abort();
}

struct FileCloser {
  void operator()(std::FILE* file) const { std::fclose(file); }
};

std::unique_ptr<std::FILE, FileCloser> as_file(const std::string& text) {
  return std::unique_ptr<std::FILE, FileCloser>(
      fmemopen(const_cast<char*>(text.data()), text.size() + 1, "r"));
}

/// Base 64 into a buffer that is too small by any amount.
void decode(const std::string& text) {
  for (std::size_t limit = 0; limit < text.size(); limit = limit * 2 + 1) {
    std::vector<char> output(limit);
    require(psia::decode_base64(text.c_str(), output.data(), limit) <= limit);
  }
  (void)psia::decode_credentials(text.c_str());
}

/// What an address is written as must be read as the same address.
void read_address(const std::string& text) {
  (void)psia::link_local_text(text.c_str());
  const auto address = psia::parse_address(text.c_str());
  if (!address) return;
  const auto written = psia::socket_address_text(*address);
  require(written.has_value());
  const auto again = psia::parse_address(written->data());
  require(again.has_value() && psia::socket_address_text(*again) == written);
}

void check_addresses(const std::string& text) {
  for (const psia::OctetOrder order : {psia::OctetOrder{0}, psia::OctetOrder{1}})
    (void)psia::parse_dotted_quad(text.c_str(), order);
  const std::size_t first = text.find(' ');
  const std::size_t second = first == std::string::npos ? first : text.find(' ', first + 1);
  if (second == std::string::npos) return;
  (void)psia::ip_check(text.substr(0, first).c_str(), text.substr(first + 1, second - first - 1).c_str(),
                       text.substr(second + 1).c_str());
}

std::size_t total_text(const psia::XmlElement& element) {
  std::size_t length = std::string(element.text()).size();
  for (const psia::XmlElement child : element)
    length += total_text(child);
  return length;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  static const psia::TzPairListOwner time_zones = [] {
    psia::prepare_xml();
    psia::TzPairListOwner list(psia::tz_pair_list_create());
    require(psia::tz_table_fill(*list));
    return list;
  }();
  if (size == 0) return 0;
  std::string text(reinterpret_cast<const char*>(data) + 1, size - 1);
  text = text.substr(0, text.find('\0'));
  switch (*data % 7) {
    case 0:
      decode(text);
      break;
    case 1:
      (void)psia::posix_tz_check(text);
      (void)psia::tz_find_zone(*time_zones, text.c_str());
      break;
    case 2:
      check_addresses(text);
      break;
    case 3:
      (void)psia::parse_dns_servers(as_file(text).get());
      (void)psia::parse_dns_search_domain(as_file(text).get());
      break;
    case 4:
      (void)psia::find_gateway(as_file(text).get(), "eth0");
      break;
    case 5:
      read_address(text);
      break;
    default:
      // No text grows in parsing, but for those in an encoding of one byte per character.
      if (const psia::XmlDocument document = psia::XmlDocument::parse(text.c_str()))
        require(total_text(document.root()) <= 4 * text.size());
  }
  return 0;
}
