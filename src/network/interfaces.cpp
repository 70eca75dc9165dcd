#include "network/interfaces.h"

#include <array>
#include <cstdio>
#include <optional>

#include "frame/response.h"
#include "frame/service.h"
#include "frame/xml.h"
#include "network/interface_address.h"

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

/// The addressing type as stored, everything else from the kernel and the resolver file.
LiveAddressing read_live_addressing(Service& service) {
  const Rows network = service.database.query("select ConnectionType from Network");
  LiveAddressing live;
  live.dynamic = !network.found() || network.number(0, 0) == 1;
  live.address = interface_ipv4_text(kInterface).value_or(AddressText{"0.0.0.0"});
  live.mask = shown_octets(read_subnet_mask(kInterface));
  live.gateway = shown_octets(read_default_gateway(kInterface));
  live.name_servers = read_dns_servers().value_or(DnsServers{});
  return live;
}

// The writers of shared elements take the column at which they stand; a nesting level is four columns wide.

/// What an IPAddress element holds.
void append_address_settings(TextBuffer& document, int column, const LiveAddressing& live) {
  const auto& mask = live.mask;
  const auto& gateway = live.gateway;
  document.append("%*s<ipVersion>v4</ipVersion>\n", column, "");
  document.append("%*s<addressingType>%s</addressingType>\n", column, "",
                  live.dynamic ? "dynamic" : "static");
  document.append("%*s<ipAddress>%s</ipAddress>\n", column, "", live.address.data());
  document.append("%*s<subnetMask>%d.%d.%d.%d</subnetMask>\n", column, "", mask[0], mask[1], mask[2],
                  mask[3]);
  document.append("%*s<DefaultGateway>\n", column, "");
  document.append("%*s    <ipAddress>%d.%d.%d.%d</ipAddress>\n", column, "", gateway[0], gateway[1],
                  gateway[2], gateway[3]);
  document.append("%*s</DefaultGateway>\n", column, "");
  // The name servers still hold the line feed that ended their line of the resolver file: clients have always
  // been sent it inside the element.
  document.append("%*s<PrimaryDNS>\n", column, "");
  document.append("%*s    <ipAddress>%s</ipAddress>\n", column, "", live.name_servers.primary.data());
  document.append("%*s</PrimaryDNS>\n", column, "");
  document.append("%*s<SecondaryDNS>\n", column, "");
  document.append("%*s    <ipAddress>%s</ipAddress>\n", column, "", live.name_servers.secondary.data());
  document.append("%*s</SecondaryDNS>\n", column, "");
}

/// What a Discovery element holds: zero-configuration networking cannot be switched off.
void append_discovery_settings(TextBuffer& document, int column) {
  document.append("%*s<Zeroconf>\n", column, "");
  document.append("%*s    <enabled>true</enabled>\n", column, "");
  document.append("%*s</Zeroconf>\n", column, "");
}

/// What a NetworkInterface element holds.
void append_interface(TextBuffer& document, int column, const LiveAddressing& live) {
  document.append("%*s<id>eth0</id>\n", column, "");
  document.append("%*s<IPAddress version=\"1.0\">\n", column, "");
  append_address_settings(document, column + 4, live);
  document.append("%*s</IPAddress>\n", column, "");
  document.append("%*s<Discovery version=\"1.0\">\n", column, "");
  append_discovery_settings(document, column + 4);
  document.append("%*s</Discovery>\n", column, "");
}

/// The addressing that a body asks for.
struct Addressing {
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

/// Adds what an IPAddress element holds; false when it is not about IPv4.
bool take_address_settings(XmlElement element, Addressing& addressing) {
  for (const XmlElement child : element) {
    if (child.is("ipVersion")) {
      if (!child.text_is("v4")) return false;
    } else if (child.is("addressingType")) {
      addressing.is_static = child.text_is("static");
    } else if (child.is("ipAddress")) {
      child.copy_text(addressing.address);
    } else if (child.is("subnetMask")) {
      child.copy_text(addressing.mask);
    } else if (child.is("DefaultGateway")) {
      take_address(child, addressing.gateway);
    } else if (child.is("PrimaryDNS")) {
      addressing.primary_dns.clear();
      take_address(child, addressing.primary_dns);
    } else if (child.is("SecondaryDNS")) {
      addressing.secondary_dns.clear();
      take_address(child, addressing.secondary_dns);
    }
  }
  return true;
}

/// Adds what a NetworkInterface element holds; false when it is about another interface or not about IPv4.
bool take_interface(XmlElement element, Addressing& addressing) {
  for (const XmlElement child : element) {
    if (child.is("id")) {
      if (!child.text_is(kInterface)) return false;
    } else if (child.is("IPAddress")) {
      if (!take_address_settings(child, addressing)) return false;
    }
  }
  return true;
}

bool store(Database& database, const Addressing& addressing) {
  if (!*addressing.is_static) return database.execute("update Network set ConnectionType=1");
  return database.execute(
      "update Network set ConnectionType=0, IPAddress='%s', SubnetMask='%s', Gateway='%s'",
      addressing.address.c_str(), addressing.mask.c_str(), addressing.gateway.c_str());
}

/// Has the network daemon apply the stored addressing and, when that is static and was applied, the name
/// servers, which are not stored here. Returns the result of the last message sent.
int announce(const ControlQueues& queues, const Addressing& addressing) {
  ControlMessage changed(Command::kAddressing);
  const int result = queues.send_and_wait(changed);
  if (result != 0 || !*addressing.is_static) return result;
  std::array<char, 256> servers{};
  (void)std::snprintf(servers.data(), servers.size(), "%s-%s", addressing.primary_dns.c_str(),
                      addressing.secondary_dns.c_str());
  ControlMessage name_servers(Command::kNameServers);
  name_servers.put_text(kPayloadOffset, servers.size(), servers.data());
  return queues.send_and_wait(name_servers);
}

/// Changes the addressing to what `take_root` finds in the body. A root element of another name than
/// `root_name` is the one fault that clients are told apart from the others.
void change_addressing(Service& service, const Request& request, const char* root_name,
                       bool (*take_root)(XmlElement, Addressing&)) {
  Addressing addressing;
  {
    const XmlDocument document = read_document(request);
    if (!document) return answer_status(request, Status::kDeviceError);
    if (!document.root().is(root_name)) return answer_status(request, Status::kInvalidXmlFormat);
    if (!take_root(document.root(), addressing)) return answer_status(request, Status::kDeviceError);
  }
  if (!addressing.is_static || !store(service.database, addressing)) {
    return answer_status(request, Status::kDeviceError);
  }
  answer_result(request, announce(service.queues, addressing));
}

}  // namespace

void list_interfaces(Service& service, const Request& request) {
  answer_xml(request, [live = read_live_addressing(service)](TextBuffer& document) {
    document.append(kXmlDeclarationLine);
    document.append("<NetworkInterfaceList version=\"1.0\" xmlns=\"urn:psialliance-org\">\n");
    document.append("    <NetworkInterface version=\"1.0\">\n");
    append_interface(document, 8, live);
    document.append("    </NetworkInterface>\n");
    document.append("</NetworkInterfaceList>\n");
  });
}

void read_interface(Service& service, const Request& request) {
  answer_xml(request, [live = read_live_addressing(service)](TextBuffer& document) {
    document.append(kXmlDeclarationLine);
    document.append("<NetworkInterface version=\"1.0\" xmlns=\"urn:psialliance-org\">\n");
    append_interface(document, 4, live);
    document.append("</NetworkInterface>\n");
  });
}

void read_ip_address(Service& service, const Request& request) {
  answer_xml(request, [live = read_live_addressing(service)](TextBuffer& document) {
    document.append(kXmlDeclarationLine);
    document.append("<IPAddress version=\"1.0\" xmlns=\"urn:psialliance-org\">\n");
    append_address_settings(document, 4, live);
    document.append("</IPAddress>\n");
  });
}

void read_discovery(Service& /*service*/, const Request& request) {
  answer_xml(request, [](TextBuffer& document) {
    document.append(kXmlDeclarationLine);
    document.append("<Discovery version=\"1.0\" xmlns=\"urn:psialliance-org\">\n");
    append_discovery_settings(document, 4);
    document.append("</Discovery>\n");
  });
}

void set_interface(Service& service, const Request& request) {
  change_addressing(service, request, "NetworkInterface", take_interface);
}

void set_ip_address(Service& service, const Request& request) {
  change_addressing(service, request, "IPAddress", take_address_settings);
}

}  // namespace psia
