// The documents by which clients explore the service: a ResourceList and a ResourceDescription per level.
// They are the same for every request and are built once, at the start.
#pragma once

#include <array>
#include <string_view>

#include "context.h"
#include "core/response.h"
#include "core/text_buffer.h"

namespace psia {

/// Every level describes its index. The root's, the Network and the Event level's description have no line
/// break after the XML declaration, the others have one.
enum IndexDocument {
  kRecursiveIndex,
  kRootIndex,
  kSystemIndex,
  kNetworkIndex,
  kAudioIndex,
  kVideoIndex,
  kSecurityIndex,
  kAaaIndex,
  kStreamingIndex,
  kEventIndex,
  kDescription,
  kDescriptionWithLineBreak,
  kIndexDocumentCount,
};

class IndexDocuments {
 public:
  IndexDocuments();

  /// False when memory was too short to build them all.
  [[nodiscard]] bool valid() const;
  /// The document's bytes. Only for valid documents.
  [[nodiscard]] std::string_view text(IndexDocument which) const;

 private:
  std::array<TextBuffer, kIndexDocumentCount> documents_;
};

/// The handlers that answer with one of these documents, or print it as the Event level does.
template <IndexDocument kWhich>
void read_index(Context& context, const Request& /*request*/) {
  answer_fixed_xml(context.index_documents.text(kWhich));
}
template <IndexDocument kWhich>
void print_index(Context& context, const Request& /*request*/) {
  print_fixed_xml(context.index_documents.text(kWhich));
}

}  // namespace psia
