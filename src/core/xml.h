// Reads values from the XML documents that clients send. Names are compared without regard to case. Handlers
// ignore unknown elements. When an element occurs more than once, the last one holds, because a handler
// stores each in turn.
//
// libxml2 parses, and its SAX callbacks build the tree below. libxml2's own tree takes about four times the
// memory, and reading a text from it allocates memory, so every read could fail. With this tree only parsing
// can fail.
#pragma once

#include <cstddef>
#include <cstdint>

#include "core/fixed_text.h"
#include "core/request.h"

namespace psia {

// The limits of a document, which bound the time and memory of reading it. A list of 1,000 users has 5,000 to
// 8,000 elements and 2,000 attributes.
inline constexpr int kMaxElements = 10000;
/// Counts attributes, processing instructions and references to entities that are declared elsewhere.
inline constexpr int kMaxAttributes = 6000;
/// Bytes of a document that has its own declarations or an encoding that is not named below. The parser's
/// work on these can grow with the square of their size before a callback can count anything.
inline constexpr std::size_t kMaxUnusualDocument = 32UL << 10;
/// Bytes of a document in one of the ISO 8859 encodings. The parser's copy in UTF-8 is up to twice as long.
inline constexpr std::size_t kMaxLatinDocument = 512UL << 10;
// A document in UTF-8 or US-ASCII may be as long as a body: kMaxBodyInMemory.

/// Prepares libxml2 for the process: it prints nothing and fetches nothing. Call once, before any parsing.
void prepare_xml();

struct XmlNode;
struct XmlTree;

/// An element of a parsed document; valid as long as the document. A range-for over it visits its child
/// elements in document order.
class XmlElement {
 public:
  class Iterator {
   public:
    explicit Iterator(const XmlNode* node) : node_(node) {}
    [[nodiscard]] XmlElement operator*() const { return XmlElement(node_); }
    Iterator& operator++();
    [[nodiscard]] bool operator==(const Iterator&) const = default;

   private:
    const XmlNode* node_;
  };

  explicit XmlElement(const XmlNode* node) : node_(node) {}

  /// Compares the element's name without regard to case.
  [[nodiscard]] bool is(const char* name) const;

  /// The text inside the element, without markup and without the text of its children. Empty when there is
  /// none.
  [[nodiscard]] const char* text() const;
  /// Compares the text without regard to case.
  [[nodiscard]] bool text_is(const char* word) const;
  /// The text as a number; see to_int32.
  [[nodiscard]] std::int32_t number() const;
  /// Copies the text into `destination`, truncated to fit.
  template <std::size_t Size>
  void copy_text(FixedText<Size>& destination) const {
    destination.assign(text());
  }

  [[nodiscard]] Iterator begin() const;
  [[nodiscard]] Iterator end() const { return Iterator(nullptr); }

 private:
  const XmlNode* node_;
};

/// A parsed document; owns it. All its texts are in memory: reading one cannot fail.
class XmlDocument {
 public:
  XmlDocument() = default;
  /// Takes ownership of the tree; null for no document.
  explicit XmlDocument(XmlTree* tree) : tree_(tree) {}
  ~XmlDocument();
  XmlDocument(const XmlDocument&) = delete;
  XmlDocument& operator=(const XmlDocument&) = delete;
  XmlDocument(XmlDocument&& other) noexcept;
  XmlDocument& operator=(XmlDocument&& other) = delete;

  /// Parses a zero-terminated text. Gives no document when the text is not well-formed, exceeds a limit above
  /// or declares an entity, and when memory is short. No client needs entities, and nested ones can grow
  /// without bound.
  [[nodiscard]] static XmlDocument parse(const char* text);

  explicit operator bool() const { return tree_ != nullptr; }
  /// Call only when there is a document.
  [[nodiscard]] XmlElement root() const;

 private:
  XmlTree* tree_ = nullptr;
};

/// Reads the request's body and parses it. Gives no document when either fails.
[[nodiscard]] XmlDocument receive_document(const Request& request);

/// The same, and the root element's name must be `root_name`.
[[nodiscard]] XmlDocument receive_document(const Request& request, const char* root_name);

}  // namespace psia
