#include "core/xml.h"

#include <libxml/parser.h>
#include <libxml/parserInternals.h>

#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <string_view>
#include <utility>

#include "core/body.h"
#include "core/memory.h"
#include "core/numbers.h"

namespace psia {

struct XmlNode {
  const xmlChar* name;  // in the parser's dictionary
  char* text;           // null for no text
  XmlNode* first_child;
  XmlNode* last_child;
  XmlNode* next;
  XmlNode* link;           // the parent while the element is open, then the element that was closed before it
  std::size_t text_begin;  // position in Parser::text, while the element is open
};

struct XmlTree {
  XmlNode* root;
  xmlDict* names;
  std::size_t size;  // bytes of the document
};

namespace {

const xmlChar* as_xml(const char* text) {
  return reinterpret_cast<const xmlChar*>(text);
}

bool same_name(std::string_view name, std::string_view other) {
  return name.size() == other.size() &&
         xmlStrncasecmp(as_xml(name.data()), as_xml(other.data()), static_cast<int>(name.size())) == 0;
}

bool is_blank(char byte) {
  return byte == ' ' || byte == '\t' || byte == '\r' || byte == '\n';
}

/// The encoding of a document, by its first bytes.
struct Encoding {
  std::size_t most_bytes;  // the limit of such a document; 0 when it is refused
  bool is_utf8;
};
constexpr Encoding kUtf8{kMaxBodyInMemory, true};
constexpr Encoding kLatin{kMaxLatinDocument, false};
constexpr Encoding kUnusual{kMaxUnusualDocument, false};
constexpr Encoding kRefused{0, false};

/// The versions of libxml2 differ in what they report about an encoding, in whether they obey a declaration
/// after a byte order mark, and in how strictly they read it. A declaration that is misread here is not
/// well-formed.
Encoding encoding_of(std::string_view text) {
  if (text.empty()) return kRefused;
  if (text.front() == 0x4C) return kUnusual;  // '<' in EBCDIC
  if (text.front() != '<' && !is_blank(text.front())) return kRefused;
  if (text.size() < 6 || std::strncmp(text.data(), "<?xml", 5) != 0 || !is_blank(text[5])) return kUtf8;
  const std::size_t declaration = std::strcspn(text.data(), ">");
  const auto* const found = static_cast<const char*>(memmem(text.data(), declaration, "encoding", 8));
  if (found == nullptr) return kUtf8;
  const char* const quote = found + std::strcspn(found, "\"'");
  if (*quote == '\0') return kRefused;
  const std::string_view name(quote + 1, std::strcspn(quote + 1, "\"'"));
  const char* const behind = name.data() + name.size();  // the closing quote
  if (*behind == '\0' || (behind[1] != '?' && !is_blank(behind[1]))) return kRefused;
  if (same_name(name, "UTF-8") || same_name(name, "UTF8")) return kUtf8;
  if (same_name(name, "US-ASCII") || same_name(name, "ASCII")) {
    const auto is_ascii = [](char byte) { return static_cast<unsigned char>(byte) < 0x80; };
    return std::all_of(text.begin(), text.end(), is_ascii) ? kUtf8 : kRefused;
  }
  const bool latin = name.size() > 9 && same_name({name.data(), 9}, "ISO-8859-");
  return latin ? kLatin : kUnusual;
}

void say_nothing(void* /*context*/, const char* /*format*/, ...) {}

// libxml2 2.12 made the error const; a template fits both.
template <typename Error>
void report_nothing(void* /*context*/, Error* /*error*/) {}

xmlParserInputPtr fetch_nothing(const char* /*url*/, const char* /*id*/, xmlParserCtxtPtr /*context*/) {
  return nullptr;
}

/// Frees a node and all nodes that follow by their links.
void free_nodes(XmlNode* node) {
  while (node != nullptr) {
    XmlNode* const next = node->link;
    std::free(node->text);
    std::free(node);
    node = next;
  }
}

/// libxml2's parser and the state of the SAX callbacks: the elements, and the texts of the open elements. The
/// text of an inner element is appended to that of its parent and removed when the inner element is closed,
/// so each text is contiguous.
struct Parser {
  Parser() = default;
  ~Parser() {
    free_nodes(open);
    free_nodes(closed);
    std::free(text);
    if (context != nullptr) xmlFreeDoc(context->myDoc);
    xmlFreeParserCtxt(context);
    give_back_memory(document_size);
  }
  Parser(const Parser&) = delete;
  Parser& operator=(const Parser&) = delete;
  Parser(Parser&&) = delete;
  Parser& operator=(Parser&&) = delete;

  xmlParserCtxt* context = nullptr;  // null without a document
  std::size_t document_size = 0;     // bytes; 0 after the tree was taken
  int elements = 0;
  int attributes = 0;
  bool refers_outside = false;  // names a file of declarations, which is not read
  bool failed = false;          // there will be no document
  XmlNode* open = nullptr;      // the innermost open element
  XmlNode* closed = nullptr;    // the element closed last; at the end the root
  char* text = nullptr;
  std::size_t length = 0;
  std::size_t capacity = 0;
};

Parser& parser_of(void* context) {
  return *static_cast<Parser*>(static_cast<xmlParserCtxt*>(context)->_private);
}

/// Stops the parser unless `good` and the document is still well-formed.
bool may_continue(Parser& parser, bool good) {
  if (good && !parser.failed && parser.context->wellFormed != 0) return true;
  parser.failed = true;
  xmlStopParser(parser.context);
  return false;
}

/// Called for each error. The first fatal one stops the parser, which would otherwise format and report every
/// further one: a large document can hold a million. Memory shortage is a fatal error after which some
/// versions of libxml2 leave `wellFormed` set.
template <typename Error>
void note_error(void* context, Error* error) {
  if (error->level != XML_ERR_FATAL) return;
  Parser& parser = parser_of(context);
  parser.failed = true;
#if LIBXML_VERSION < 21400
  // libxml2 stops itself like this when memory is short. Before 2.14, xmlStopParser frees the input, which
  // the function that reported the error still reads.
  parser.context->disableSAX = 2;
  parser.context->instate = XML_PARSER_EOF;
#else
  xmlStopParser(parser.context);
#endif
}

/// Called at a DOCTYPE, before its declarations between "[" and "]".
void start_declarations(void* context, const xmlChar* /*name*/, const xmlChar* /*id*/, const xmlChar* url) {
  Parser& parser = parser_of(context);
  parser.refers_outside = url != nullptr;
  const bool follow = *parser.context->input->cur == '[';
  (void)may_continue(parser, !follow || parser.document_size <= kMaxUnusualDocument);
}

void refuse_entity(void* context, const xmlChar* /*name*/, int /*type*/, const xmlChar* /*id*/,
                   const xmlChar* /*url*/, xmlChar* /*content*/) {
  (void)may_continue(parser_of(context), false);
}

void refuse_unparsed_entity(void* context, const xmlChar* /*name*/, const xmlChar* /*id*/,
                            const xmlChar* /*url*/, const xmlChar* /*notation*/) {
  (void)may_continue(parser_of(context), false);
}

/// A document that declares a parameter entity is refused, so only a declaration in another file can be
/// meant.
xmlEntity* find_no_entity(void* context, const xmlChar* /*name*/) {
  Parser& parser = parser_of(context);
  (void)may_continue(parser, parser.refers_outside);
  return nullptr;
}

void count_as_attribute(void* context) {
  Parser& parser = parser_of(context);
  (void)may_continue(parser, ++parser.attributes <= kMaxAttributes);
}

void count_reference(void* context, const xmlChar* /*name*/) {
  count_as_attribute(context);
}

void count_instruction(void* context, const xmlChar* /*target*/, const xmlChar* /*data*/) {
  count_as_attribute(context);
}

void open_element(void* context, const xmlChar* name, const xmlChar* prefix, const xmlChar* uri,
                  int namespaces, const xmlChar** /*namespace_table*/, int attributes, int /*defaulted*/,
                  const xmlChar** /*attribute_table*/) {
  Parser& parser = parser_of(context);
  parser.attributes += namespaces + attributes;
  if (!may_continue(parser, ++parser.elements <= kMaxElements && parser.attributes <= kMaxAttributes)) return;
  auto* const node = static_cast<XmlNode*>(std::calloc(1, sizeof(XmlNode)));
  if (!may_continue(parser, node != nullptr)) return;
  // An undeclared prefix is part of the name. No handler reads such a name, and ":" matches none that it
  // reads.
  node->name = prefix != nullptr && uri == nullptr ? as_xml(":") : name;
  node->text_begin = parser.length;
  if (XmlNode* const parent = parser.open) {
    (parent->last_child == nullptr ? parent->first_child : parent->last_child->next) = node;
    parent->last_child = node;
  }
  node->link = std::exchange(parser.open, node);
}

void close_element(void* context, const xmlChar* /*name*/, const xmlChar* /*prefix*/,
                   const xmlChar* /*uri*/) {
  Parser& parser = parser_of(context);
  if (!may_continue(parser, parser.open != nullptr)) return;
  XmlNode* const node = parser.open;
  if (const std::size_t length = parser.length - node->text_begin; length > 0) {
    node->text = static_cast<char*>(std::malloc(length + 1));
    if (!may_continue(parser, node->text != nullptr)) return;
    std::memcpy(node->text, parser.text + node->text_begin, length);
    node->text[length] = '\0';
  }
  parser.length = node->text_begin;
  parser.open = std::exchange(node->link, parser.closed);
  parser.closed = node;
}

void append_text(void* context, const xmlChar* text, int length) {
  Parser& parser = parser_of(context);
  // For an empty CDATA section parser.text may still be null, which memcpy does not accept.
  if (!may_continue(parser, true) || length <= 0) return;
  const std::size_t needed = parser.length + static_cast<std::size_t>(length);
  if (needed > parser.capacity) {
    const std::size_t capacity = std::max(needed, parser.capacity + parser.capacity / 2);
    auto* const grown = static_cast<char*>(std::realloc(parser.text, capacity));
    if (!may_continue(parser, grown != nullptr)) return;
    parser.text = grown;
    parser.capacity = capacity;
  }
  std::memcpy(parser.text + parser.length, text, static_cast<std::size_t>(length));
  parser.length = needed;
}

/// The parser skips everything that has no callback here, such as comments.
xmlSAXHandler callbacks() {
  xmlSAXHandler sax{};
  sax.initialized = XML_SAX2_MAGIC;
  sax.internalSubset = start_declarations;
  sax.entityDecl = refuse_entity;
  sax.unparsedEntityDecl = refuse_unparsed_entity;
  sax.getParameterEntity = find_no_entity;
  sax.reference = count_reference;
  sax.processingInstruction = count_instruction;
  sax.startElementNs = open_element;
  sax.endElementNs = close_element;
  sax.characters = append_text;  // CDATA sections, too
  sax.ignorableWhitespace = append_text;
  sax.serror = note_error;
  return sax;
}

/// Gives the parser a copy of the zero-terminated text, unless the text exceeds a limit or memory is short.
void load(Parser& parser, const char* document) {
  parser.document_size = std::strlen(document);
  const char* const begin = std::strncmp(document, "\xEF\xBB\xBF", 3) == 0 ? document + 3 : document;
  const std::string_view bytes(begin, parser.document_size - static_cast<std::size_t>(begin - document));
  const Encoding encoding = encoding_of(bytes);
  if (parser.document_size > encoding.most_bytes) return;
  // The parser compares each attribute of an element with all others before it reports the first.
  if (std::count(bytes.begin(), bytes.end(), '=') > kMaxAttributes) return;

  parser.context = xmlCreateMemoryParserCtxt(begin, static_cast<int>(bytes.size()));
  if (parser.context == nullptr) return;
  *parser.context->sax = callbacks();
  // XML_PARSE_RECOVER: the callbacks go on being called after an error, so that they can stop the parser.
  (void)xmlCtxtUseOptions(parser.context, XML_PARSE_RECOVER | (encoding.is_utf8 ? XML_PARSE_IGNORE_ENC : 0));
  parser.context->_private = &parser;
#if LIBXML_VERSION < 21300  // later versions do so themselves
  // The document is whole. With this callback libxml2 would look for more of it again and again near the end.
  if (encoding.is_utf8) parser.context->input->buf->readcallback = nullptr;
#endif
}

/// Parses and gives the document's tree to the caller; null for no document.
XmlTree* take_tree(Parser& parser) {
  if (parser.context == nullptr) return nullptr;
  if (xmlParseDocument(parser.context) != 0 || parser.failed || parser.open != nullptr) return nullptr;
  // After a namespace error libxml2 2.14 and later accept anything behind the root element.
  if (parser.context->input->cur != parser.context->input->end) return nullptr;
  auto* const tree = static_cast<XmlTree*>(std::malloc(sizeof(XmlTree)));
  if (tree == nullptr) return nullptr;
  xmlDictReference(parser.context->dict);
  *tree = {std::exchange(parser.closed, nullptr), parser.context->dict,
           std::exchange(parser.document_size, 0)};
  return tree;
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

XmlElement XmlDocument::root() const {
  return XmlElement(tree_->root);
}

XmlDocument::~XmlDocument() {
  if (tree_ == nullptr) return;
  const std::size_t size = tree_->size;
  free_nodes(tree_->root);
  xmlDictFree(tree_->names);
  std::free(tree_);
  give_back_memory(size);
}

XmlDocument::XmlDocument(XmlDocument&& other) noexcept : tree_(std::exchange(other.tree_, nullptr)) {}

XmlDocument XmlDocument::parse(const char* text) {
  Parser parser;
  load(parser, text);
  return XmlDocument(take_tree(parser));
}

XmlDocument receive_document(const Request& request) {
  Parser parser;
  if (const Body body = Body::read(request)) load(parser, body.text());
  // The body is freed by now, so that a large one is not in memory twice while it is parsed.
  return XmlDocument(take_tree(parser));
}

XmlDocument receive_document(const Request& request, const char* root_name) {
  XmlDocument document = receive_document(request);
  return document && document.root().is(root_name) ? std::move(document) : XmlDocument();
}

}  // namespace psia
