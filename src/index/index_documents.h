// The documents by which clients explore the service: a ResourceList and a ResourceDescription per level.
// They are the same for every request, and put together when the service is compiled.
#pragma once

#include <string_view>

#include "frame/request.h"
#include "frame/response.h"

namespace psia {

struct Service;

enum class Index {
  kRecursive,
  kRoot,
  kSystem,
  kNetwork,
  kAudio,
  kVideo,
  kSecurity,
  kAaa,
  kStreaming,
  kEvent,
};

/// Every level describes its index. The root's, the Network and the Event level's description have no line
/// break behind the XML declaration, the others have one.
enum class Description { kPlain, kWithLineBreak };

[[nodiscard]] std::string_view fixed_document(Index index);
[[nodiscard]] std::string_view fixed_document(Description description);

/// The handlers that answer with one of these documents, or print it as the Event level does.
template <auto kDocument>
void read_fixed(Service& /*service*/, const Request& /*request*/) {
  answer_fixed_xml(fixed_document(kDocument));
}
template <auto kDocument>
void print_fixed(Service& /*service*/, const Request& /*request*/) {
  print_fixed_xml(fixed_document(kDocument));
}

}  // namespace psia
