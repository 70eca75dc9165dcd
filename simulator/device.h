// A camera to run the service against on any Linux machine: the device's files, interface and message queues,
// in namespaces of this process's own, so that the unmodified service finds its fixed paths, its eth0 and its
// queue keys there and nothing of the machine itself is touched.
#pragma once

#include <string>
#include <vector>

#include "simulator/message.h"

namespace camera {

constexpr const char* kDatabase = "/usr/local/orvid/morvid.db";
constexpr const char* kDefaultsDatabase = "/usr/local/orvid/conf/default.db";
constexpr const char* kExchangeDirectory = "/usr/local/httpd/htdocs/Web/updownload";
constexpr const char* kFactoryData = "/dev/mtdblock7";
constexpr const char* kResolverFile = "/etc/resolv.conf";

/// What reset_device puts on eth0, into the resolver file and into the factory data.
constexpr const char* kAddress = "192.168.1.10";
constexpr const char* kSubnetMask = "255.255.255.0";
constexpr const char* kGateway = "192.168.1.1";
constexpr const char* kHardwareAddress = "02:51:43:20:40:0a";
constexpr const char* kPrimaryDns = "192.168.1.2";
constexpr const char* kSecondaryDns = "192.168.1.3";
constexpr const char* kSearchDomain = "camera.example";
constexpr const char* kSerialNumber = "QC2040-0007-4242";

/// Moves the calling process, which must have one thread, into private namespaces and builds the device
/// there, in its factory state. As root, or with unprivileged user namespaces, where the caller appears as
/// root. Adds the administrator's directories to PATH. Returns an empty text, or what is missing and what to
/// do about it; the process should then end.
[[nodiscard]] std::string enter_private_device();

/// Puts the device back into its factory state: both databases, factory data, resolver file, an empty
/// exchange directory, empty message queues, eth0. Only after enter_private_device. Returns an empty text or
/// the fault.
[[nodiscard]] std::string reset_device();

// The databases.

/// Runs one or more statements. Returns an empty text, or what the database says.
[[nodiscard]] std::string execute(const std::string& sql, const char* database = kDatabase);

/// The rows that a select gives, each value as text (NULL as an empty one). No rows also when it fails.
[[nodiscard]] std::vector<std::vector<std::string>> query(const std::string& sql,
                                                          const char* database = kDatabase);

/// Replaces every row of the settings by those of the defaults database.
[[nodiscard]] std::string restore_factory_rows();

// What the network daemon does to the live device.

/// Brings eth0 to the stored addressing: address, mask and gateway when static, otherwise what the simulated
/// network leases, 192.168.1.20/24 by 192.168.1.1. Returns an empty text or the fault.
[[nodiscard]] std::string apply_addressing();

/// Replaces the name servers in the resolver file; an empty one is left out.
[[nodiscard]] std::string write_resolver(const std::string& primary, const std::string& secondary);

}  // namespace camera
