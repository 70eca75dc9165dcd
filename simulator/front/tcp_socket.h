// TCP sockets at numeric IPv4 and IPv6 addresses, for the web server.
#pragma once

#include <string>

#include "simulator/tools/descriptor.h"

namespace camera {

/// Whether the text is an IPv4 or IPv6 address, the latter without brackets.
[[nodiscard]] bool is_ip_address(const std::string& text);

/// Whether only this machine reaches the address.
[[nodiscard]] bool is_loopback(const std::string& address);

/// A socket that listens at an address and a port from 0 to 65535; 0 lets the system choose one. At :: it
/// takes IPv4 too. Without a descriptor when that fails; errno tells why.
[[nodiscard]] Descriptor listen_on_port(const std::string& address, int port);

/// The port at which a socket listens.
[[nodiscard]] int port_of(const Descriptor& listener);

/// "192.0.2.1:8080" or "[2001:db8::1]:8080".
[[nodiscard]] std::string authority(const std::string& address, int port);

}  // namespace camera
