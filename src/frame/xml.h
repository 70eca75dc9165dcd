// Taking values out of the XML documents that clients send. Names are compared without regard to case,
// elements that nobody asks for are ignored, and a handler that stores each match in turn lets the last
// occurrence win.
#pragma once

#include <libxml/tree.h>

#include <cstddef>
#include <cstdint>

#include "frame/fixed_text.h"
#include "frame/request.h"

namespace psia {

/// Prepares libxml2 for the process: it prints nothing and fetches nothing. Call once, before any parsing.
void prepare_xml();

/// The text inside an element, without its markup; owns it. Empty where the element holds no text.
class XmlText {
 public:
  explicit XmlText(xmlChar* text) : text_(text) {}
  ~XmlText();
  XmlText(const XmlText&) = delete;
  XmlText& operator=(const XmlText&) = delete;
  XmlText(XmlText&&) = delete;
  XmlText& operator=(XmlText&&) = delete;

  [[nodiscard]] const char* c_str() const;

 private:
  xmlChar* text_;  // null for no text
};

/// An element of a parsed document; valid as long as the document. A range-for over it visits its child
/// elements in document order.
class XmlElement {
 public:
  class Iterator {
   public:
    explicit Iterator(xmlNode* node);  // moves on to the first element at or behind `node`
    [[nodiscard]] XmlElement operator*() const { return XmlElement(node_); }
    Iterator& operator++();
    [[nodiscard]] bool operator==(const Iterator&) const = default;

   private:
    xmlNode* node_;
  };

  explicit XmlElement(xmlNode* node) : node_(node) {}

  /// Compares the element's name without regard to case.
  [[nodiscard]] bool is(const char* name) const;

  [[nodiscard]] XmlText text() const;
  /// Compares the text without regard to case.
  [[nodiscard]] bool text_is(const char* word) const;
  /// The text as a number; see to_int32.
  [[nodiscard]] std::int32_t number() const;
  /// Copies the text into `destination`, cut to fit.
  template <std::size_t Size>
  void copy_text(FixedText<Size>& destination) const {
    destination.assign(text().c_str());
  }

  [[nodiscard]] Iterator begin() const;
  [[nodiscard]] Iterator end() const { return Iterator(nullptr); }

 private:
  xmlNode* node_;
};

/// A parsed document; owns it.
class XmlDocument {
 public:
  XmlDocument() = default;
  ~XmlDocument();
  XmlDocument(const XmlDocument&) = delete;
  XmlDocument& operator=(const XmlDocument&) = delete;
  XmlDocument(XmlDocument&& other) noexcept;
  XmlDocument& operator=(XmlDocument&& other) = delete;

  /// Parses a zero-terminated text. Gives no document when it is not well-formed, has no root element or
  /// declares an entity: no client needs any, and they can be made to grow without bound.
  [[nodiscard]] static XmlDocument parse(const char* text);

  explicit operator bool() const { return document_ != nullptr; }
  /// Only for a document that was parsed.
  [[nodiscard]] XmlElement root() const;

 private:
  xmlDoc* document_ = nullptr;
};

/// Reads the request's body and parses it. Gives no document when either fails.
[[nodiscard]] XmlDocument read_document(const Request& request);

/// The same, and the root element's name must be `root_name`.
[[nodiscard]] XmlDocument read_document(const Request& request, const char* root_name);

}  // namespace psia
