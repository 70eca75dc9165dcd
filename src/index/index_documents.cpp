#include "index/index_documents.h"

#include <array>
#include <cstddef>
#include <span>

namespace psia {

namespace {

/// One child of a resource, with its own children where a list shows them.
struct Resource {
  std::string_view name;
  std::string_view type = "resource";
  std::span<const Resource> children = {};
};

constexpr std::string_view kService = "service";

constexpr std::string_view kListRoot =
    "<ResourceList version=\"1.0\" xmlns=\"urn:psialliance-org\" "
    "xmlns:xsi=\"http://www.w3.org/2001/XMLSchema-instance\" "
    "xsi:schemaLocation=\"urn:psialliance-org http://www.psialliance.org/XMLSchemas/service.xsd\">";
constexpr std::string_view kShortListRoot = "<ResourceList version=\"1.0\" xmlns=\"urn:psialliance-org\">";
constexpr std::string_view kDescriptionRoot =
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

/// Takes the pieces of a document; only counts them while there is nowhere to put them.
struct Output {
  char* place = nullptr;
  std::size_t length = 0;

  template <typename... Texts>
  constexpr void append(Texts... texts) {
    (append_one(texts), ...);
  }
  constexpr void append_one(std::string_view text) {
    for (const char c : text) {
      if (place != nullptr) place[length] = c;
      ++length;
    }
  }
};

constexpr void append_resources(Output& document, std::span<const Resource> resources) {
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

constexpr void append_method(Output& document, std::string_view method, std::string_view result,
                             std::string_view function, std::string_view notes) {
  document.append("<", method, ">");
  document.append("<QueryStringParameterList />");
  document.append("<inboundData>none</inboundData>");
  document.append("<returnResult>", result, "</returnResult>");
  document.append("<function>", function, "</function>");
  document.append("<notes>", notes, "</notes>");
  document.append("</", method, ">");
}

/// A ResourceList from its declaration to its closing tag.
constexpr void append_list(Output& document, std::string_view declaration, std::string_view root,
                           std::span<const Resource> resources) {
  document.append(declaration, root);
  append_resources(document, resources);
  document.append("</ResourceList>");
}

constexpr void append_description(Output& document, std::string_view declaration) {
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

/// The document that `kAppend` appends, as bytes in the program: run once to count them, once to store them.
template <auto kAppend>
constexpr auto kText = [] {
  constexpr std::size_t length = [] {
    Output counted;
    kAppend(counted);
    return counted.length;
  }();
  std::array<char, length> text{};
  Output output{text.data()};
  kAppend(output);
  return text;
}();

template <auto kAppend>
constexpr std::string_view text_of() {
  return {kText<kAppend>.data(), kText<kAppend>.size()};
}

template <const auto& kResources>
constexpr auto kList =
    [](Output& document) { append_list(document, kXmlDeclarationBare, kListRoot, kResources); };
template <const auto& kResources>
constexpr auto kListWithLineBreak =
    [](Output& document) { append_list(document, kXmlDeclaration, kListRoot, kResources); };

}  // namespace

std::string_view fixed_document(Index index) {
  switch (index) {
    case Index::kRecursive:
      return text_of<kList<kRootRecursive>>();
    case Index::kRoot:
      return text_of<kList<kRoot>>();
    case Index::kSystem:
      return text_of<kListWithLineBreak<kSystem>>();
    case Index::kNetwork:
      return text_of<kList<kNetwork>>();
    case Index::kAudio:
      return text_of<kListWithLineBreak<kAudio>>();
    case Index::kVideo:  // the one that shows no schema
      return text_of<[](Output& document) {
        append_list(document, kXmlDeclaration, kShortListRoot, kVideo);
      }>();
    case Index::kSecurity:
      return text_of<kListWithLineBreak<kSecurity>>();
    case Index::kAaa:
      return text_of<kListWithLineBreak<kAaa>>();
    case Index::kStreaming:
      return text_of<kListWithLineBreak<kStreaming>>();
    case Index::kEvent:
      return text_of<kList<kEvent>>();
  }
  return {};
}

std::string_view fixed_document(Description description) {
  return description == Description::kPlain
             ? text_of<[](Output& document) { append_description(document, kXmlDeclarationBare); }>()
             : text_of<[](Output& document) { append_description(document, kXmlDeclaration); }>();
}

}  // namespace psia
