#include "system/ntp_servers.h"

#include <cstring>
#include <optional>

#include "context.h"
#include "core/response.h"
#include "core/xml.h"

namespace psia {

namespace {

/// A host name or a dotted IPv4 address.
using ServerText = FixedText<32>;

ServerText stored_server(Context& context) {
  const Rows server = context.database.query("select NTPServer from Network");
  return ServerText(server.found() ? server.text(0, 0) : "pool.ntp.org");
}

/// The elements that both documents show, each after `indent`. A text of digits and dots is an address; so is
/// an empty one.
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

struct RequestedServer {
  ServerText host_name;
  ServerText address;
  bool use_address = false;
};

void take_server(XmlElement element, RequestedServer& requested) {
  for (const XmlElement child : element) {
    // Kept for compatibility: only "NTP", which is no addressing format of the standard, selects the host
    // name. With "hostname" the address is stored. To store a host name, clients omit the element.
    if (child.is("addressingFormatType")) requested.use_address = !child.text_is("NTP");
    if (child.is("hostName")) child.copy_text(requested.host_name);
    if (child.is("ipAddress")) child.copy_text(requested.address);
  }
}

void store_server(Context& context, const Request& request, const ServerText& server) {
  const bool stored = context.database.execute("update Network set NTPServer='%s'", server.c_str());
  answer_done(request, stored);
}

}  // namespace

void read_ntp_servers(Context& context, const Request& request) {
  answer_xml(request, [server = stored_server(context)](TextBuffer& document) {
    document.append(kXmlDeclarationCrLf);
    document.append("<NTPServerList version=\"1.0\" xmlns=\"urn:psialliance-org\">");
    document.append("<NTPServer version=\"1.0\">");
    append_server(document, "", server);
    document.append("</NTPServer>");
    document.append("</NTPServerList>");
  });
}

void read_ntp_server(Context& context, const Request& request) {
  answer_xml(request, [server = stored_server(context)](TextBuffer& document) {
    document.append(kXmlDeclarationCrLf);
    document.append("  <NTPServer version=\"1.0\" xmlns=\"urn:psialliance-org\">");
    append_server(document, "    ", server);
    document.append("  </NTPServer>");
  });
}

void write_ntp_servers(Context& context, const Request& request) {
  std::optional<RequestedServer> requested;
  if (const XmlDocument document = receive_document(request, "NTPServerList")) {
    requested.emplace();
    for (const XmlElement child : document.root()) {
      if (child.is("NTPServer")) take_server(child, *requested);
    }
  }
  if (!requested) return answer_status(request, Status::kDeviceError);
  store_server(context, request, requested->host_name);
}

void write_ntp_server(Context& context, const Request& request) {
  std::optional<RequestedServer> requested;
  if (const XmlDocument document = receive_document(request, "NTPServer")) {
    take_server(document.root(), requested.emplace());
  }
  if (!requested) return answer_status(request, Status::kDeviceError);
  store_server(context, request, requested->use_address ? requested->address : requested->host_name);
}

}  // namespace psia
