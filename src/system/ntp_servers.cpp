#include "system/ntp_servers.h"

#include <cstring>
#include <optional>

#include "frame/response.h"
#include "frame/service.h"
#include "frame/xml.h"

namespace psia {

namespace {

/// A host name or a dotted IPv4 address.
using ServerText = FixedText<32>;

ServerText stored_server(Service& service) {
  const Rows server = service.database.query("select NTPServer from Network");
  return ServerText(server.found() ? server.text(0, 0) : "pool.ntp.org");
}

/// What both documents show of the server, each element after `indent`. All digits and dots make an address;
/// so does no character at all.
void append_server(TextBuffer& document, const char* indent, const ServerText& server) {
  const char* const text = server.c_str();
  document.append(indent, "<id>1</id>");
  if (text[std::strspn(text, "0123456789.")] == '\0') {
    document.append(indent, "<addressingFormatType>ipaddress</addressingFormatType>");
    document.append(indent, "<ipAddress>", text, "</ipAddress>");
  } else {
    document.append(indent, "<addressingFormatType>hostname</addressingFormatType>");
    document.append(indent, "<hostName>", text, "</hostName>");
  }
  document.append(indent, "<portNo>123</portNo>");
}

struct WantedServer {
  ServerText host_name;
  ServerText address;
  bool use_address = false;
};

void read_server(XmlElement element, WantedServer& wanted) {
  for (const XmlElement child : element) {
    // Only the word "NTP", no addressing format of the standard, selects the host name: with an
    // addressingFormatType of "hostname" the address is stored. To store a host name, clients leave it out.
    if (child.is("addressingFormatType")) wanted.use_address = !child.text_is("NTP");
    if (child.is("hostName")) child.copy_text(wanted.host_name);
    if (child.is("ipAddress")) child.copy_text(wanted.address);
  }
}

void store_server(Service& service, const Request& request, const ServerText& server) {
  const bool stored = service.database.execute("update Network set NTPServer='%s'", server.c_str());
  answer_done(request, stored);
}

}  // namespace

void list_ntp_servers(Service& service, const Request& request) {
  answer_xml(request, [server = stored_server(service)](TextBuffer& document) {
    document.append(kXmlDeclaration);
    document.append("<NTPServerList version=\"1.0\" xmlns=\"urn:psialliance-org\">");
    document.append("<NTPServer version=\"1.0\">");
    append_server(document, "", server);
    document.append("</NTPServer>");
    document.append("</NTPServerList>");
  });
}

void read_ntp_server(Service& service, const Request& request) {
  answer_xml(request, [server = stored_server(service)](TextBuffer& document) {
    document.append(kXmlDeclaration);
    document.append("  <NTPServer version=\"1.0\" xmlns=\"urn:psialliance-org\">");
    append_server(document, "    ", server);
    document.append("  </NTPServer>");
  });
}

void replace_ntp_servers(Service& service, const Request& request) {
  std::optional<WantedServer> wanted;
  if (const XmlDocument document = read_document(request, "NTPServerList")) {
    wanted.emplace();
    for (const XmlElement child : document.root()) {
      if (child.is("NTPServer")) read_server(child, *wanted);
    }
  }
  if (!wanted) return answer_status(request, Status::kDeviceError);
  store_server(service, request, wanted->host_name);
}

void update_ntp_server(Service& service, const Request& request) {
  std::optional<WantedServer> wanted;
  if (const XmlDocument document = read_document(request, "NTPServer")) {
    read_server(document.root(), wanted.emplace());
  }
  if (!wanted) return answer_status(request, Status::kDeviceError);
  store_server(service, request, wanted->use_address ? wanted->address : wanted->host_name);
}

}  // namespace psia
