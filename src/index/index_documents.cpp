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

constexpr std::array kRoot = {
    Resource{"index"},
    Resource{"indexr"},
    Resource{"description"},
    Resource{"System", kService},
    Resource{"Security", kService},
    Resource{"Streaming", kService},
};
constexpr std::array kSystem = {
    Resource{"index"},
    Resource{"description"},
    Resource{"reboot"},
    Resource{"updateFirmware"},
    Resource{"configurationData"},
    Resource{"factoryReset"},
    Resource{"deviceInfo"},
    Resource{"status"},
    Resource{"time"},
    Resource{"localTime"},
    Resource{"timeZone"},
    Resource{"ntpServers"},
    Resource{"ntpServers/ID"},
    Resource{"Network", kService},
    Resource{"Audio", kService},
    Resource{"Video", kService},
};
constexpr std::array kNetwork = {
    Resource{"index"},
    Resource{"description"},
    Resource{"interfaces"},
};
constexpr std::array kAudio = {
    Resource{"index"},
    Resource{"description"},
    Resource{"channels"},
};
constexpr std::array kVideo = {
    Resource{"index"},
    Resource{"description"},
    Resource{"inputs"},
};
constexpr std::array kSecurity = {
    Resource{"index"},
    Resource{"description"},
};
constexpr std::array kAaa = {
    Resource{"index"},
    Resource{"description"},
    Resource{"users"},
};
constexpr std::array kStreaming = {
    Resource{"index"},
    Resource{"description"},
    Resource{"status"},
    Resource{"channels"},
};
constexpr std::array kEvent = {
    Resource{"index"},    Resource{"description"},  Resource{"triggers"},
    Resource{"schedule"}, Resource{"notification"},
};

// The recursive list shows less of System than System's own index, and names AAA where Security's does not.
constexpr std::array kSystemRecursive = {
    Resource{"index"},
    Resource{"description"},
    Resource{"reboot"},
    Resource{"updateFirmware"},
    Resource{"configurationData"},
    Resource{"factoryReset"},
    Resource{"deviceInfo"},
    Resource{"status"},
    Resource{"Network", kService, kNetwork},
    Resource{"Video", kService, kVideo},
};
constexpr std::array kSecurityRecursive = {
    Resource{"index"},
    Resource{"description"},
    Resource{"AAA", kService, kAaa},
};
constexpr std::array kRootRecursive = {
    Resource{"index"},
    Resource{"indexr"},
    Resource{"description"},
    Resource{"System", kService, kSystemRecursive},
    Resource{"Security", kService, kSecurityRecursive},
    Resource{"Streaming", kService, kStreaming},
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
  const auto list = [this](IndexDocument which, const char* declaration, const char* root,
                           std::span<const Resource> resources) {
    append_list(documents_[which], declaration, root, resources);
  };
  list(kRecursiveIndex, kXmlDeclarationBare, kListRoot, kRootRecursive);
  list(kRootIndex, kXmlDeclarationBare, kListRoot, kRoot);
  list(kSystemIndex, kXmlDeclaration, kListRoot, kSystem);
  list(kNetworkIndex, kXmlDeclarationBare, kListRoot, kNetwork);
  list(kAudioIndex, kXmlDeclaration, kListRoot, kAudio);
  list(kVideoIndex, kXmlDeclaration, kShortListRoot, kVideo);  // the one that shows no schema
  list(kSecurityIndex, kXmlDeclaration, kListRoot, kSecurity);
  list(kAaaIndex, kXmlDeclaration, kListRoot, kAaa);
  list(kStreamingIndex, kXmlDeclaration, kListRoot, kStreaming);
  list(kEventIndex, kXmlDeclarationBare, kListRoot, kEvent);
  append_description(documents_[kDescription], kXmlDeclarationBare);
  append_description(documents_[kDescriptionWithLineBreak], kXmlDeclaration);
}

bool IndexDocuments::valid() const {
  return std::all_of(documents_.begin(), documents_.end(),
                     [](const TextBuffer& document) { return document.valid(); });
}

std::string_view IndexDocuments::text(IndexDocument which) const {
  return {documents_[which].data(), documents_[which].length()};
}

}  // namespace psia
