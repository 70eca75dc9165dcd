// Taking values out of the XML documents that clients send. Names are compared without regard to case,
// elements that nobody asks for are ignored, and a handler that stores each match in turn lets the last
// occurrence win.
//
// libxml2 parses, and its SAX callbacks build the tree below. libxml2's own tree takes about four times the
// memory, and reading a text from it allocates, so every read could fail. Here only the parsing can.
#pragma once

#include <cstddef>
#include <cstdint>

#include "frame/fixed_text.h"
#include "frame/request.h"

namespace psia {

// What a document may hold, so that reading it costs a known time and memory. A list of 1,000 users has 5,000
// to 8,000 elements and 2,000 attributes.
inline constexpr int kMaxElements = 10000;
/// Attributes, processing instructions and references to entities that are declared elsewhere.
inline constexpr int kMaxAttributes = 6000;
/// Bytes of a document with declarations of its own or in an encoding that is not named below. The parser's
/// work on these can grow with the square of their size before anything can be counted.
inline constexpr std::size_t kMaxUnusualDocument = 32UL << 10;
/// Bytes of a document in one of the ISO 8859 encodings. The parser's copy in UTF-8 is up to twice as long.
inline constexpr std::size_t kMaxLatinDocument = 512UL << 10;
// A document in UTF-8 or US-ASCII is as long as a body may be: kMaxBodyInMemory.

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

  /// The text inside the element, without its markup and without the text of its children. Empty where there
  /// is none.
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
  /// Takes over what was parsed; null for no document.
  explicit XmlDocument(XmlTree* tree) : tree_(tree) {}
  ~XmlDocument();
  XmlDocument(const XmlDocument&) = delete;
  XmlDocument& operator=(const XmlDocument&) = delete;
  XmlDocument(XmlDocument&& other) noexcept;
  XmlDocument& operator=(XmlDocument&& other) = delete;

  /// Parses a zero-terminated text. Gives no document when it is not well-formed, when memory is short, when
  /// it goes beyond the bounds above, or when it declares an entity: no client needs any, and they can be
  /// made to grow without bound.
  [[nodiscard]] static XmlDocument parse(const char* text);

  explicit operator bool() const { return tree_ != nullptr; }
  /// Only for a document that was parsed.
  [[nodiscard]] XmlElement root() const;

 private:
  XmlTree* tree_ = nullptr;
};

/// Reads the request's body and parses it. Gives no document when either fails.
[[nodiscard]] XmlDocument read_document(const Request& request);

/// The same, and the root element's name must be `root_name`.
[[nodiscard]] XmlDocument read_document(const Request& request, const char* root_name);

}  // namespace psia
