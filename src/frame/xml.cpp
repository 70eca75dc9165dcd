#include "frame/xml.h"

#include <libxml/parser.h>

#include <cstring>
#include <utility>

#include "frame/body.h"
#include "frame/numbers.h"

namespace psia {

namespace {

const xmlChar* as_xml(const char* text) {
  return reinterpret_cast<const xmlChar*>(text);
}

bool same_word(const xmlChar* a, const char* b) {
  return xmlStrcasecmp(a, as_xml(b)) == 0;
}

void say_nothing(void* /*context*/, const char* /*format*/, ...) {}

void report_nothing(void* /*context*/, xmlErrorPtr /*error*/) {}

xmlParserInputPtr fetch_nothing(const char* /*url*/, const char* /*id*/, xmlParserCtxtPtr /*context*/) {
  return nullptr;
}

bool declares_entities(const xmlDoc& document) {
  for (const xmlDtd* subset : {document.intSubset, document.extSubset}) {
    if (subset != nullptr && (subset->entities != nullptr || subset->pentities != nullptr)) return true;
  }
  return false;
}

}  // namespace

void prepare_xml() {
  xmlInitParser();
  xmlSetGenericErrorFunc(nullptr, say_nothing);
  xmlSetStructuredErrorFunc(nullptr, report_nothing);
  xmlSetExternalEntityLoader(fetch_nothing);
}

XmlText::~XmlText() {
  if (text_ != nullptr) xmlFree(text_);
}

const char* XmlText::c_str() const {
  return text_ == nullptr ? "" : reinterpret_cast<const char*>(text_);
}

XmlElement::Iterator::Iterator(xmlNode* node) : node_(node) {
  while (node_ != nullptr && node_->type != XML_ELEMENT_NODE)
    node_ = node_->next;
}

XmlElement::Iterator& XmlElement::Iterator::operator++() {
  return *this = Iterator(node_->next);
}

bool XmlElement::is(const char* name) const {
  return same_word(node_->name, name);
}

XmlText XmlElement::text() const {
  return XmlText(xmlNodeListGetString(node_->doc, node_->children, 1));
}

bool XmlElement::text_is(const char* word) const {
  return same_word(as_xml(text().c_str()), word);
}

std::int32_t XmlElement::number() const {
  return to_int32(text().c_str());
}

XmlElement::Iterator XmlElement::begin() const {
  return Iterator(node_->children);
}

XmlDocument::~XmlDocument() {
  xmlFreeDoc(document_);
}

XmlDocument::XmlDocument(XmlDocument&& other) noexcept : document_(std::exchange(other.document_, nullptr)) {}

XmlDocument XmlDocument::parse(const char* text) {
  XmlDocument parsed;
  parsed.document_ = xmlParseMemory(text, static_cast<int>(std::strlen(text)));
  if (parsed && (xmlDocGetRootElement(parsed.document_) == nullptr || declares_entities(*parsed.document_))) {
    xmlFreeDoc(std::exchange(parsed.document_, nullptr));
  }
  return parsed;
}

XmlElement XmlDocument::root() const {
  return XmlElement(xmlDocGetRootElement(document_));
}

XmlDocument read_document(const Request& request) {
  const Body body = Body::read(request);
  return body ? XmlDocument::parse(body.text()) : XmlDocument();
}

XmlDocument read_document(const Request& request, const char* root_name) {
  XmlDocument document = read_document(request);
  return document && document.root().is(root_name) ? std::move(document) : XmlDocument();
}

}  // namespace psia
