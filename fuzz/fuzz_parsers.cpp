// The parsers of texts that clients give.
#include <cstdint>
#include <cstdlib>
#include <string>
#include <vector>

#include "core/access_control.h"
#include "core/xml.h"
#include "fuzz/target.h"
#include "system/posix_tz_check.h"
#include "system/time_zone_table.h"

namespace {

void require(bool holds) {
  if (!holds) std::abort();
}

/// Base 64 into a buffer that is too small by any amount.
void decode(const std::string& text) {
  for (std::size_t limit = 0; limit < text.size(); limit = limit * 2 + 1) {
    std::vector<char> output(limit);
    require(psia::decode_base64(text.c_str(), output.data(), limit) <= limit);
  }
  (void)psia::decode_credentials(text.c_str());
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  static const psia::TzPairListOwner time_zones = [] {
    psia::prepare_xml();
    psia::TzPairListOwner list(psia::tz_pair_list_create());
    require(psia::tz_table_fill(*list));
    return list;
  }();
  std::string text(reinterpret_cast<const char*>(data), size);
  text = text.substr(0, text.find('\0'));
  decode(text);
  (void)psia::posix_tz_check(text);
  (void)psia::tz_find_zone(*time_zones, text.c_str());
  (void)psia::XmlDocument::parse(text.c_str());
  return 0;
}
