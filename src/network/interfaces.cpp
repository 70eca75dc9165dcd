#include "network/interfaces.h"

#include <array>
#include <cstdio>
#include <optional>

#include "context.h"
#include "core/response.h"
#include "core/xml.h"
#include "network/interface_state.h"

namespace psia {

namespace {

constexpr const char* kInterface = "eth0";

struct LiveAddressing {
  bool dynamic = true;
  AddressText address{};
  std::array<int, 4> mask{};
  std::array<int, 4> gateway{};
  DnsServers name_servers;
};

/// The stored addressing type; everything else comes from the kernel and the resolver file.
LiveAddressing live_addressing(Context& context) {
  const Rows network = context.database.query("select ConnectionType from Network");
  LiveAddressing live;
  live.dynamic = !network.found() || network.number(0, 0) == 1;
  live.address = interface_ipv4_text(kInterface).value_or(AddressText{"0.0.0.0"});
  live.mask = octets_of(find_subnet_mask(kInterface).value_or(0));
  const std::uint32_t gateway = find_default_gateway(kInterface);
  live.gateway = octets_of(gateway == kNoAddress ? 0 : gateway);
  live.name_servers = find_dns_servers().value_or(DnsServers{});
  return live;
}

/// Writes lines of a document with the indentation of one nesting level, four columns each.
class Lines {
 public:
  Lines(TextBuffer& document, int level) : document_(document), level_(level) {}

  template <typename... Pieces>
  void line(Pieces... pieces) {
    document_.append(indentation(), pieces..., "\n");
  }
  /// The same one level deeper.
  [[nodiscard]] Lines inside() const { return {document_, level_ + 1}; }

 private:
  static constexpr int kDeepest = 4;

  [[nodiscard]] const char* indentation() const { return &"                "[4 * (kDeepest - level_)]; }

  TextBuffer& document_;
  int level_;
};

/// The content of an IPAddress element.
void append_address_settings(Lines lines, const LiveAddressing& live) {
  const auto& mask = live.mask;
  const auto& gateway = live.gateway;
  lines.line("<ipVersion>v4</ipVersion>");
  lines.line("<addressingType>", live.dynamic ? "dynamic" : "static", "</addressingType>");
  lines.line("<ipAddress>", live.address.data(), "</ipAddress>");
  lines.line("<subnetMask>", mask[0], ".", mask[1], ".", mask[2], ".", mask[3], "</subnetMask>");
  lines.line("<DefaultGateway>");
  lines.inside().line("<ipAddress>", gateway[0], ".", gateway[1], ".", gateway[2], ".", gateway[3],
                      "</ipAddress>");
  lines.line("</DefaultGateway>");
  // The texts still hold the line feed of their line in the resolver file. Clients have always been sent it.
  lines.line("<PrimaryDNS>");
  lines.inside().line("<ipAddress>", live.name_servers.primary.data(), "</ipAddress>");
  lines.line("</PrimaryDNS>");
  lines.line("<SecondaryDNS>");
  lines.inside().line("<ipAddress>", live.name_servers.secondary.data(), "</ipAddress>");
  lines.line("</SecondaryDNS>");
}

/// The content of a Discovery element: zero-configuration networking cannot be switched off.
void append_discovery_settings(Lines lines) {
  lines.line("<Zeroconf>");
  lines.inside().line("<enabled>true</enabled>");
  lines.line("</Zeroconf>");
}

/// The content of a NetworkInterface element.
void append_interface(Lines lines, const LiveAddressing& live) {
  lines.line("<id>eth0</id>");
  lines.line("<IPAddress version=\"1.0\">");
  append_address_settings(lines.inside(), live);
  lines.line("</IPAddress>");
  lines.line("<Discovery version=\"1.0\">");
  append_discovery_settings(lines.inside());
  lines.line("</Discovery>");
}

/// The addressing of a body.
struct RequestedAddressing {
  std::optional<bool> is_static;  // none: the body names no addressing type
  FixedText<32> address;
  FixedText<32> mask;
  FixedText<32> gateway;
  FixedText<32> primary_dns;
  FixedText<32> secondary_dns;
};

void take_address(XmlElement parent, FixedText<32>& address) {
  for (const XmlElement child : parent) {
    if (child.is("ipAddress")) child.copy_text(address);
  }
}

/// Takes an IPAddress element; false when it is not about IPv4.
bool take_address_settings(XmlElement element, RequestedAddressing& requested) {
  for (const XmlElement child : element) {
    if (child.is("ipVersion")) {
      if (!child.text_is("v4")) return false;
    } else if (child.is("addressingType")) {
      requested.is_static = child.text_is("static");
    } else if (child.is("ipAddress")) {
      child.copy_text(requested.address);
    } else if (child.is("subnetMask")) {
      child.copy_text(requested.mask);
    } else if (child.is("DefaultGateway")) {
      take_address(child, requested.gateway);
    } else if (child.is("PrimaryDNS")) {
      requested.primary_dns.clear();
      take_address(child, requested.primary_dns);
    } else if (child.is("SecondaryDNS")) {
      requested.secondary_dns.clear();
      take_address(child, requested.secondary_dns);
    }
  }
  return true;
}

/// Takes a NetworkInterface element; false when it is about another interface or not about IPv4.
bool take_interface(XmlElement element, RequestedAddressing& requested) {
  for (const XmlElement child : element) {
    if (child.is("id")) {
      if (!child.text_is(kInterface)) return false;
    } else if (child.is("IPAddress")) {
      if (!take_address_settings(child, requested)) return false;
    }
  }
  return true;
}

bool store(Database& database, const RequestedAddressing& requested) {
  if (!*requested.is_static) return database.execute("update Network set ConnectionType=1");
  return database.execute(
      "update Network set ConnectionType=0, IPAddress='%s', SubnetMask='%s', Gateway='%s'",
      requested.address.c_str(), requested.mask.c_str(), requested.gateway.c_str());
}

/// Asks the network daemon to apply the stored addressing and, after a static one was applied, the name
/// servers, which are not stored. Returns the result of the last message.
int announce(ControlQueues& queues, const RequestedAddressing& requested) {
  ControlMessage changed(Command::kAddressing);
  const int result = queues.send_and_wait(changed);
  if (result != 0 || !*requested.is_static) return result;
  std::array<char, 256> servers{};
  (void)std::snprintf(servers.data(), servers.size(), "%s-%s", requested.primary_dns.c_str(),
                      requested.secondary_dns.c_str());
  ControlMessage name_servers(Command::kNameServers);
  name_servers.put_text(kPayloadOffset, servers.size(), servers.data());
  return queues.send_and_wait(name_servers);
}

/// Changes the addressing to what `take_root` finds in the body. Clients can tell a wrong root element from
/// the other faults: its status is a different one.
void change_addressing(Context& context, const Request& request, const char* root_name,
                       bool (*take_root)(XmlElement, RequestedAddressing&)) {
  RequestedAddressing requested;
  {
    const XmlDocument document = receive_document(request);
    if (!document) return answer_status(request, Status::kDeviceError);
    if (!document.root().is(root_name)) return answer_status(request, Status::kInvalidXmlFormat);
    if (!take_root(document.root(), requested)) return answer_status(request, Status::kDeviceError);
  }
  if (!requested.is_static || !store(context.database, requested)) {
    return answer_status(request, Status::kDeviceError);
  }
  answer_result(request, announce(context.queues, requested));
}

}  // namespace

void read_interfaces(Context& context, const Request& request) {
  answer_xml(request, [live = live_addressing(context)](TextBuffer& document) {
    document.append(kXmlDeclarationLf);
    document.append("<NetworkInterfaceList version=\"1.0\" xmlns=\"urn:psialliance-org\">\n");
    document.append("    <NetworkInterface version=\"1.0\">\n");
    append_interface(Lines(document, 2), live);
    document.append("    </NetworkInterface>\n");
    document.append("</NetworkInterfaceList>\n");
  });
}

void read_interface(Context& context, const Request& request) {
  answer_xml(request, [live = live_addressing(context)](TextBuffer& document) {
    document.append(kXmlDeclarationLf);
    document.append("<NetworkInterface version=\"1.0\" xmlns=\"urn:psialliance-org\">\n");
    append_interface(Lines(document, 1), live);
    document.append("</NetworkInterface>\n");
  });
}

void read_ip_address(Context& context, const Request& request) {
  answer_xml(request, [live = live_addressing(context)](TextBuffer& document) {
    document.append(kXmlDeclarationLf);
    document.append("<IPAddress version=\"1.0\" xmlns=\"urn:psialliance-org\">\n");
    append_address_settings(Lines(document, 1), live);
    document.append("</IPAddress>\n");
  });
}

void read_discovery(Context& /*context*/, const Request& request) {
  answer_xml(request, [](TextBuffer& document) {
    document.append(kXmlDeclarationLf);
    document.append("<Discovery version=\"1.0\" xmlns=\"urn:psialliance-org\">\n");
    append_discovery_settings(Lines(document, 1));
    document.append("</Discovery>\n");
  });
}

void write_interface(Context& context, const Request& request) {
  change_addressing(context, request, "NetworkInterface", take_interface);
}

void write_ip_address(Context& context, const Request& request) {
  change_addressing(context, request, "IPAddress", take_address_settings);
}

}  // namespace psia
