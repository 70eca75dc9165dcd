#include "index/index_documents.h"

#include <algorithm>
#include <span>

namespace psia {

namespace {

/// One child of a resource, with its own children where a list shows them.
struct Resource {
  const char* name;
  const char* type = "resource";
  std::span<const Resource> children = {};
};

constexpr const char* kService = "service";

constexpr const char* kListRoot =
    "<ResourceList version=\"1.0\" xmlns=\"urn:psialliance-org\" "
    "xmlns:xsi=\"http://www.w3.org/2001/XMLSchema-instance\" "
    "xsi:schemaLocation=\"urn:psialliance-org http://www.psialliance.org/XMLSchemas/service.xsd\">";
constexpr const char* kShortListRoot = "<ResourceList version=\"1.0\" xmlns=\"urn:psialliance-org\">";
constexpr const char* kDescriptionRoot =
    "<ResourceDescription version=\"1.0\" xmlns=\"urn:psialliance-org\" "
    "xmlns:xsi=\"http://www.w3.org/2001/XMLSchema-instance\" "
    "xsi:schemaLocation=\"urn:psialliance-org http://www.psialliance.org/XMLSchemas/service.xsd\">";

constexpr Resource kRoot[] = {
    {"index"},
    {"indexr"},
    {"description"},
    {"System", kService},
    {"Security", kService},
    {"Streaming", kService},
};
constexpr Resource kSystem[] = {
    {"index"},
    {"description"},
    {"reboot"},
    {"updateFirmware"},
    {"configurationData"},
    {"factoryReset"},
    {"deviceInfo"},
    {"status"},
    {"time"},
    {"localTime"},
    {"timeZone"},
    {"ntpServers"},
    {"ntpServers/ID"},
    {"Network", kService},
    {"Audio", kService},
    {"Video", kService},
};
constexpr Resource kNetwork[] = {{"index"}, {"description"}, {"interfaces"}};
constexpr Resource kAudio[] = {{"index"}, {"description"}, {"channels"}};
constexpr Resource kVideo[] = {{"index"}, {"description"}, {"inputs"}};
constexpr Resource kSecurity[] = {{"index"}, {"description"}};
constexpr Resource kAaa[] = {{"index"}, {"description"}, {"users"}};
constexpr Resource kStreaming[] = {{"index"}, {"description"}, {"status"}, {"channels"}};
constexpr Resource kEvent[] = {{"index"}, {"description"}, {"triggers"}, {"schedule"}, {"notification"}};

// The recursive list shows less of System than System's own index, and names AAA where Security's does not.
constexpr Resource kSystemRecursive[] = {
    {"index"},
    {"description"},
    {"reboot"},
    {"updateFirmware"},
    {"configurationData"},
    {"factoryReset"},
    {"deviceInfo"},
    {"status"},
    {"Network", kService, kNetwork},
    {"Video", kService, kVideo},
};
constexpr Resource kSecurityRecursive[] = {{"index"}, {"description"}, {"AAA", kService, kAaa}};
constexpr Resource kRootRecursive[] = {
    {"index"},
    {"indexr"},
    {"description"},
    {"System", kService, kSystemRecursive},
    {"Security", kService, kSecurityRecursive},
    {"Streaming", kService, kStreaming},
};

void append_resources(TextBuffer& document, std::span<const Resource> resources) {
  for (const Resource& resource : resources) {
    document.append("<Resource version=\"1.0\">");
    document.append("<name>", resource.name, "</name>");
    document.append("<version>1.0</version>");
    document.append("<type>", resource.type, "</type>");
    if (!resource.children.empty()) {
      document.append("<ResourceList version=\"1.0\">");
      append_resources(document, resource.children);
      document.append("</ResourceList>");
    }
    document.append("</Resource>");
  }
}

void append_method(TextBuffer& document, const char* method, const char* result, const char* function,
                   const char* notes) {
  document.append("<", method, ">");
  document.append("<QueryStringParameterList />");
  document.append("<inboundData>none</inboundData>");
  document.append("<returnResult>", result, "</returnResult>");
  document.append("<function>", function, "</function>");
  document.append("<notes>", notes, "</notes>");
  document.append("</", method, ">");
}

/// A ResourceList from its declaration to its closing tag.
void append_list(TextBuffer& document, const char* declaration, const char* root,
                 std::span<const Resource> resources) {
  document.append(declaration, root);
  append_resources(document, resources);
  document.append("</ResourceList>");
}

void append_description(TextBuffer& document, const char* declaration) {
  document.append(declaration, kDescriptionRoot);
  document.append("<name>index</name>");
  document.append("<version>1.0</version>");
  document.append("<type>resource</type>");
  append_method(document, "get", "ResourceList", "enumerate 1st level children", "non-recursive");
  append_method(document, "put", "none", "not supported", "not supported");
  append_method(document, "post", "none", "not supported", "not supported");
  append_method(document, "delete", "none", "not supported", "not supported");
  document.append("</ResourceDescription>");
}

}  // namespace

IndexDocuments::IndexDocuments() {
  append_list(documents_[kRecursiveIndex], kXmlDeclarationNoLineEnd, kListRoot, kRootRecursive);
  append_list(documents_[kRootIndex], kXmlDeclarationNoLineEnd, kListRoot, kRoot);
  append_list(documents_[kSystemIndex], kXmlDeclarationCrLf, kListRoot, kSystem);
  append_list(documents_[kNetworkIndex], kXmlDeclarationNoLineEnd, kListRoot, kNetwork);
  append_list(documents_[kAudioIndex], kXmlDeclarationCrLf, kListRoot, kAudio);
  // The one that shows no schema.
  append_list(documents_[kVideoIndex], kXmlDeclarationCrLf, kShortListRoot, kVideo);
  append_list(documents_[kSecurityIndex], kXmlDeclarationCrLf, kListRoot, kSecurity);
  append_list(documents_[kAaaIndex], kXmlDeclarationCrLf, kListRoot, kAaa);
  append_list(documents_[kStreamingIndex], kXmlDeclarationCrLf, kListRoot, kStreaming);
  append_list(documents_[kEventIndex], kXmlDeclarationNoLineEnd, kListRoot, kEvent);
  append_description(documents_[kDescription], kXmlDeclarationNoLineEnd);
  append_description(documents_[kDescriptionWithLineBreak], kXmlDeclarationCrLf);
}

bool IndexDocuments::valid() const {
  return std::all_of(documents_.begin(), documents_.end(),
                     [](const TextBuffer& document) { return document.valid(); });
}

std::string_view IndexDocuments::text(IndexDocument which) const {
  return {documents_[which].data(), documents_[which].length()};
}

}  // namespace psia
