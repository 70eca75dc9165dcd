// The device's name, identifier, serial number, addresses and firmware, and its uptime.
#pragma once

#include <array>
#include <optional>

#include "core/request.h"

namespace psia {

struct Context;

/// Zero-terminated, at most 31 characters.
using SerialNumber = std::array<char, 32>;

/// Reads the serial number from the factory data: the 32 bytes at offset 256 of kFactoryData. Nothing when
/// that fails; the cause is written to the request's error stream.
[[nodiscard]] std::optional<SerialNumber> find_factory_serial();

/// Gives a device that has no identifier yet a new one; see Database::store_identifier for what follows.
void read_device_info(Context& context, const Request& request);
/// Changes the device's name, which is also its host name for dynamic DNS. A document without a name empties
/// it.
void write_device_info(Context& context, const Request& request);
void read_device_status(Context& context, const Request& request);

}  // namespace psia
