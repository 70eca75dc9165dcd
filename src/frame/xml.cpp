#include "frame/xml.h"

#include <libxml/SAX2.h>
#include <libxml/parserInternals.h>

#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <string_view>
#include <utility>

#include "frame/body.h"
#include "frame/memory.h"
#include "frame/numbers.h"

namespace psia {

struct XmlNode {
  const xmlChar* name;
  char* text;  // null for no text
  XmlNode* first_child;
  XmlNode* last_child;
  XmlNode* next;
  XmlNode* link;           // while the element is open its parent, then the one that was closed before it
  std::size_t text_begin;  // while the element is open: where its text begins in Builder::text
};

namespace {

const xmlChar* as_xml(const char* text) {
  return reinterpret_cast<const xmlChar*>(text);
}

void say_nothing(void* /*context*/, const char* /*format*/, ...) {}

void report_nothing(void* /*context*/, xmlErrorPtr /*error*/) {}

xmlParserInputPtr fetch_nothing(const char* /*url*/, const char* /*id*/, xmlParserCtxtPtr /*context*/) {
  return nullptr;
}

/// Frees the nodes that hang together by their links.
void free_nodes(XmlNode* node) {
  while (node != nullptr) {
    XmlNode* const next = node->link;
    std::free(node->text);
    std::free(node);
    node = next;
  }
}

/// What the parser's callbacks put together: the elements, and the texts of those still open, that of an
/// inner element behind that of its parent, so that each is in one piece when its element is closed.
struct Builder {
  ~Builder() {
    free_nodes(open);
    free_nodes(closed);
    std::free(text);
  }
  Builder() = default;
  Builder(const Builder&) = delete;
  Builder& operator=(const Builder&) = delete;
  Builder(Builder&&) = delete;
  Builder& operator=(Builder&&) = delete;

  std::size_t document_size = 0;  // bytes
  int elements = 0;
  int attributes = 0;
  XmlNode* open = nullptr;    // the innermost
  XmlNode* closed = nullptr;  // the last; the root in the end
  char* text = nullptr;
  std::size_t length = 0;
  std::size_t capacity = 0;
};

xmlParserCtxt& parser_of(void* context) {
  return *static_cast<xmlParserCtxt*>(context);
}

Builder& builder_of(void* context) {
  return *static_cast<Builder*>(parser_of(context)._private);
}

/// Ends the parsing unless `good`, and where the document is already known not to be well-formed: what the
/// parser does with the rest of such a document is wasted, and libxml2 bounds none of it.
bool go_on(void* context, bool good) {
  if (good && parser_of(context).wellFormed != 0) return true;
  xmlStopParser(&parser_of(context));
  return false;
}

/// The bound of a document's size that goes with its encoding. Attributes were counted beforehand by their
/// equals signs, which only shows them where those are bytes of ASCII.
std::size_t size_bound(const xmlParserInput& input) {
  if (input.buf == nullptr || input.buf->encoder == nullptr) return kMaxBodyInMemory;  // UTF-8
  const bool latin = xmlStrncasecmp(input.encoding, as_xml("ISO-8859-"), 9) == 0;
  return latin ? kMaxLatinDocument : kMaxUnusualDocument;
}

void start_document(void* context) {
  if (go_on(context, builder_of(context).document_size <= size_bound(*parser_of(context).input))) {
    xmlSAX2StartDocument(context);
  }
}

/// Called before the declarations between "[" and "]", if there are any.
void start_declarations(void* context, const xmlChar* /*name*/, const xmlChar* /*id*/,
                        const xmlChar* /*url*/) {
  const bool follow = *parser_of(context).input->cur == '[';
  (void)go_on(context, !follow || builder_of(context).document_size <= kMaxUnusualDocument);
}

void refuse_entity(void* context, const xmlChar* /*name*/, int /*type*/, const xmlChar* /*id*/,
                   const xmlChar* /*url*/, xmlChar* /*content*/) {
  (void)go_on(context, false);
}

void refuse_unparsed_entity(void* context, const xmlChar* /*name*/, const xmlChar* /*id*/,
                            const xmlChar* /*url*/, const xmlChar* /*notation*/) {
  (void)go_on(context, false);
}

void count_reference(void* context, const xmlChar* /*name*/) {
  (void)go_on(context, ++builder_of(context).attributes <= kMaxAttributes);
}

void count_instruction(void* context, const xmlChar* /*target*/, const xmlChar* /*data*/) {
  (void)go_on(context, ++builder_of(context).attributes <= kMaxAttributes);
}

void open_element(void* context, const xmlChar* name, const xmlChar* prefix, const xmlChar* uri,
                  int namespaces, const xmlChar** /*namespace_table*/, int attributes, int /*defaulted*/,
                  const xmlChar** /*attribute_table*/) {
  Builder& builder = builder_of(context);
  builder.attributes += namespaces + attributes;
  if (!go_on(context, ++builder.elements <= kMaxElements && builder.attributes <= kMaxAttributes)) return;
  auto* const node = static_cast<XmlNode*>(std::calloc(1, sizeof(XmlNode)));
  if (!go_on(context, node != nullptr)) return;
  // An undeclared prefix belongs to the name, and no name that is asked for has one.
  node->name = prefix != nullptr && uri == nullptr ? as_xml(":") : name;
  node->text_begin = builder.length;
  if (XmlNode* const parent = builder.open) {
    (parent->last_child == nullptr ? parent->first_child : parent->last_child->next) = node;
    parent->last_child = node;
  }
  node->link = std::exchange(builder.open, node);
}

void close_element(void* context, const xmlChar* /*name*/, const xmlChar* /*prefix*/,
                   const xmlChar* /*uri*/) {
  Builder& builder = builder_of(context);
  if (!go_on(context, builder.open != nullptr)) return;
  XmlNode* const node = builder.open;
  if (const std::size_t length = builder.length - node->text_begin; length > 0) {
    node->text = static_cast<char*>(std::malloc(length + 1));
    if (!go_on(context, node->text != nullptr)) return;
    std::memcpy(node->text, builder.text + node->text_begin, length);
    node->text[length] = '\0';
  }
  builder.length = node->text_begin;
  builder.open = std::exchange(node->link, builder.closed);
  builder.closed = node;
}

void append_text(void* context, const xmlChar* text, int length) {
  Builder& builder = builder_of(context);
  if (!go_on(context, true)) return;
  const std::size_t needed = builder.length + static_cast<std::size_t>(length);
  if (needed > builder.capacity) {
    const std::size_t capacity = std::max(needed, builder.capacity + builder.capacity / 2);
    auto* const grown = static_cast<char*>(std::realloc(builder.text, capacity));
    if (!go_on(context, grown != nullptr)) return;
    builder.text = grown;
    builder.capacity = capacity;
  }
  std::memcpy(builder.text + builder.length, text, static_cast<std::size_t>(length));
  builder.length = needed;
}

/// Everything that is not set here is left out: comments, for instance, are passed over.
xmlSAXHandler callbacks() {
  xmlSAXHandler sax{};
  sax.initialized = XML_SAX2_MAGIC;
  sax.startDocument = start_document;
  sax.internalSubset = start_declarations;
  sax.entityDecl = refuse_entity;
  sax.unparsedEntityDecl = refuse_unparsed_entity;
  sax.reference = count_reference;
  sax.processingInstruction = count_instruction;
  sax.startElementNs = open_element;
  sax.endElementNs = close_element;
  sax.characters = append_text;  // CDATA sections, too
  sax.ignorableWhitespace = append_text;
  return sax;
}

/// A parser for the zero-terminated text, of which it has a copy; null when it is out of bounds or memory is
/// short.
xmlParserCtxt* new_parser(const char* text) {
  const std::string_view bytes = text;
  // The parser compares each attribute of an element with all others before it reports the first.
  if (std::count(bytes.begin(), bytes.end(), '=') > kMaxAttributes) return nullptr;
  xmlParserCtxt* const parser = xmlCreateMemoryParserCtxt(text, static_cast<int>(bytes.size()));
  if (parser == nullptr) return nullptr;
  *parser->sax = callbacks();
  parser->recovery = 1;  // the callbacks go on after an error, so that they can stop the parser; see go_on
  return parser;
}

}  // namespace

void prepare_xml() {
  xmlInitParser();
  xmlSetGenericErrorFunc(nullptr, say_nothing);
  xmlSetStructuredErrorFunc(nullptr, report_nothing);
  xmlSetExternalEntityLoader(fetch_nothing);
}

XmlElement::Iterator& XmlElement::Iterator::operator++() {
  node_ = node_->next;
  return *this;
}

bool XmlElement::is(const char* name) const {
  return xmlStrcasecmp(node_->name, as_xml(name)) == 0;
}

const char* XmlElement::text() const {
  return node_->text == nullptr ? "" : node_->text;
}

bool XmlElement::text_is(const char* word) const {
  return xmlStrcasecmp(as_xml(text()), as_xml(word)) == 0;
}

std::int32_t XmlElement::number() const {
  return to_int32(text());
}

XmlElement::Iterator XmlElement::begin() const {
  return Iterator(node_->first_child);
}

XmlDocument::~XmlDocument() {
  free_nodes(root_);
  xmlDictFree(names_);
  give_back_memory(size_);
}

XmlDocument::XmlDocument(XmlDocument&& other) noexcept
    : root_(std::exchange(other.root_, nullptr)),
      names_(std::exchange(other.names_, nullptr)),
      size_(std::exchange(other.size_, 0)) {}

XmlDocument XmlDocument::parse(const char* text) {
  return parse(new_parser(text));
}

XmlDocument XmlDocument::parse(xmlParserCtxt* parser) {
  XmlDocument document;
  if (parser == nullptr) return document;
  Builder builder;
  builder.document_size = static_cast<std::size_t>(parser->input->end - parser->input->base);
  document.size_ = builder.document_size;
  parser->_private = &builder;
  xmlParseDocument(parser);
  // Whoever stops the parser, for lack of memory for instance, switches its callbacks off.
  if (parser->wellFormed != 0 && parser->disableSAX == 0 && builder.open == nullptr) {
    document.root_ = std::exchange(builder.closed, nullptr);
    document.names_ = parser->dict;
    xmlDictReference(parser->dict);
  }
  xmlFreeDoc(parser->myDoc);
  xmlFreeParserCtxt(parser);
  return document;
}

XmlDocument read_document(const Request& request) {
  xmlParserCtxt* parser = nullptr;
  if (const Body body = Body::read(request)) parser = new_parser(body.text());
  return XmlDocument::parse(parser);
}

XmlDocument read_document(const Request& request, const char* root_name) {
  XmlDocument document = read_document(request);
  return document && document.root().is(root_name) ? std::move(document) : XmlDocument();
}

}  // namespace psia
