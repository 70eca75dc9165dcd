#include "frame/index_documents.h"

#include <array>
#include <span>

#include "frame/response.h"

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
    document.append("<name>%s</name>", resource.name);
    document.append("<version>1.0</version>");
    document.append("<type>%s</type>", resource.type);
    if (!resource.children.empty()) {
      document.append("<ResourceList version=\"1.0\">");
      append_resources(document, resource.children);
      document.append("</ResourceList>");
    }
    document.append("</Resource>");
  }
}

/// A ResourceList from its declaration to its closing tag, as a builder for answer_xml and print_xml.
auto list_of(const char* declaration, const char* root, std::span<const Resource> resources) {
  return [=](TextBuffer& document) {
    document.append("%s", declaration);
    document.append("%s", root);
    append_resources(document, resources);
    document.append("</ResourceList>");
  };
}

void append_method(TextBuffer& document, const char* method, const char* result, const char* function,
                   const char* notes) {
  document.append("<%s>", method);
  document.append("<QueryStringParameterList />");
  document.append("<inboundData>none</inboundData>");
  document.append("<returnResult>%s</returnResult>", result);
  document.append("<function>%s</function>", function);
  document.append("<notes>%s</notes>", notes);
  document.append("</%s>", method);
}

/// A ResourceDescription; every level describes its index.
auto description_of_index(const char* declaration) {
  return [=](TextBuffer& document) {
    document.append("%s", declaration);
    document.append(
        "<ResourceDescription version=\"1.0\" xmlns=\"urn:psialliance-org\" "
        "xmlns:xsi=\"http://www.w3.org/2001/XMLSchema-instance\" "
        "xsi:schemaLocation=\"urn:psialliance-org http://www.psialliance.org/XMLSchemas/service.xsd\">");
    document.append("<name>index</name>");
    document.append("<version>1.0</version>");
    document.append("<type>resource</type>");
    append_method(document, "get", "ResourceList", "enumerate 1st level children", "non-recursive");
    append_method(document, "put", "none", "not supported", "not supported");
    append_method(document, "post", "none", "not supported", "not supported");
    append_method(document, "delete", "none", "not supported", "not supported");
    document.append("</ResourceDescription>");
  };
}

}  // namespace

void read_recursive_index(Service& /*service*/, const Request& request) {
  answer_xml(request, list_of(kXmlDeclarationBare, kListRoot, kRootRecursive));
}

void read_root_index(Service& /*service*/, const Request& request) {
  answer_xml(request, list_of(kXmlDeclarationBare, kListRoot, kRoot));
}

void read_system_index(Service& /*service*/, const Request& request) {
  answer_xml(request, list_of(kXmlDeclaration, kListRoot, kSystem));
}

void read_network_index(Service& /*service*/, const Request& request) {
  answer_xml(request, list_of(kXmlDeclarationBare, kListRoot, kNetwork));
}

void read_audio_index(Service& /*service*/, const Request& request) {
  answer_xml(request, list_of(kXmlDeclaration, kListRoot, kAudio));
}

void read_video_index(Service& /*service*/, const Request& request) {
  answer_xml(request, list_of(kXmlDeclaration, kShortListRoot, kVideo));
}

void read_security_index(Service& /*service*/, const Request& request) {
  answer_xml(request, list_of(kXmlDeclaration, kListRoot, kSecurity));
}

void read_aaa_index(Service& /*service*/, const Request& request) {
  answer_xml(request, list_of(kXmlDeclaration, kListRoot, kAaa));
}

void read_streaming_index(Service& /*service*/, const Request& request) {
  answer_xml(request, list_of(kXmlDeclaration, kListRoot, kStreaming));
}

void read_event_index(Service& /*service*/, const Request& request) {
  print_xml(request, list_of(kXmlDeclarationBare, kListRoot, kEvent));
}

void read_description(Service& /*service*/, const Request& request) {
  answer_xml(request, description_of_index(kXmlDeclarationBare));
}

void read_description_with_line_break(Service& /*service*/, const Request& request) {
  answer_xml(request, description_of_index(kXmlDeclaration));
}

void read_event_description(Service& /*service*/, const Request& request) {
  print_xml(request, description_of_index(kXmlDeclarationBare));
}

}  // namespace psia
