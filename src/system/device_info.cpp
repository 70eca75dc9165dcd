#include "system/device_info.h"

#include <fcgi_stdio.h>
#include <fcntl.h>
#include <unistd.h>
#include <uuid/uuid.h>

#include <algorithm>
#include <cerrno>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <limits>

#include "context.h"
#include "core/file.h"
#include "core/paths.h"
#include "core/response.h"
#include "core/xml.h"
#include "network/interface_state.h"
#include "system/local_time.h"

namespace psia {

namespace {

constexpr off_t kSerialOffset = 256;

/// The placeholder: an identifier that begins with it marks a device that has none yet.
constexpr const char* kNoIdentifier = "aaaaaaaaaaaaaaaa";

using Identifier = FixedText<40>;

void append_name(TextBuffer& document, Context& context) {
  const Rows name = context.database.query("select DDNSHostname from Network");
  document.append("<deviceName>", name.found() ? name.text(0, 0) : context.environment.host_name(),
                  "</deviceName>");
}

/// A random UUID with its first ten bytes in upper case and its last six in lower case. Every device has its
/// identifier in this form, and clients compare it as a text.
Identifier new_identifier() {
  uuid_t b;
  uuid_generate_random(b);
  std::array<char, 40> text{};
  std::snprintf(text.data(), text.size(),
                "%02X%02X%02X%02X-%02X%02X-%02X%02X-%02X%02X-%02x%02x%02x%02x%02x%02x", b[0], b[1], b[2],
                b[3], b[4], b[5], b[6], b[7], b[8], b[9], b[10], b[11], b[12], b[13], b[14], b[15]);
  return Identifier(text.data());
}

/// The stored identifier, or a new one that is stored first. After a transient failure the placeholder: a
/// device must not change its identifier because a daemon holds a lock.
Identifier device_identifier(Database& database) {
  Identifier identifier(kNoIdentifier);
  {
    const Rows stored = database.query("select uuid from System");
    if (!stored.certain()) return identifier;
    if (stored.found()) identifier.assign(stored.text(0, 0));
  }
  if (std::strncmp(identifier.c_str(), kNoIdentifier, std::strlen(kNoIdentifier)) == 0) {
    identifier = new_identifier();
    database.store_identifier(identifier.c_str());
  }
  return identifier;
}

void append_model(TextBuffer& document, Database& database) {
  const Rows model = database.query("select ModelName from System");
  document.append("<model>", model.found() ? model.text(0, 0) : "Quellan IP Camera", "</model>");
}

void append_serial_number(TextBuffer& document) {
  const std::optional<SerialNumber> serial = find_factory_serial();
  document.append("<serialNumber>", serial ? serial->data() : "0", "</serialNumber>");
}

void append_mac_address(TextBuffer& document) {
  const HardwareAddress mac = find_hardware_address("eth0").value_or(HardwareAddress{});
  std::array<char, sizeof "00:00:00:00:00:00"> text{};
  (void)std::snprintf(text.data(), text.size(), "%02x:%02x:%02x:%02x:%02x:%02x", mac[0], mac[1], mac[2],
                      mac[3], mac[4], mac[5]);
  document.append("<macAddress>", text.data(), "</macAddress>");
}

void append_firmware(TextBuffer& document, Database& database) {
  const Rows firmware = database.query("select ModelID, Version from System");
  if (firmware.found()) {
    document.append("<firmwareVersion>", firmware.text(0, 0), ".", firmware.text(0, 1), "</firmwareVersion>");
    // The device stores no release date; the element carries the version.
    document.append("<firmwareReleasedDate>", firmware.text(0, 1), "</firmwareReleasedDate>");
  } else {
    document.append("<firmwareVersion>0.0.0.0</firmwareVersion>");
    document.append("<firmwareReleasedDate>000000</firmwareReleasedDate>");
  }
}

/// Whole seconds since the device was started; 0 when the kernel does not tell.
std::int32_t uptime_seconds() {
  std::array<char, 36> line{};
  const File file = open_file("/proc/uptime", "re");
  if (!file || std::fgets(line.data(), static_cast<int>(line.size()), file.get()) == nullptr) return 0;
  // Two numbers, uptime and idle time (proc(5)); a line without the second one is not trusted.
  char* end = nullptr;
  const double uptime = std::strtod(line.data(), &end);
  const char* const idle = end;
  std::strtod(idle, &end);
  if (idle == line.data() || end == idle) return 0;
  using Limits = std::numeric_limits<std::int32_t>;
  // "nan" compares false with everything and becomes the smallest number.
  const double at_least = uptime > Limits::min() ? uptime : Limits::min();
  return static_cast<std::int32_t>(std::min<double>(at_least, Limits::max()));
}

}  // namespace

std::optional<SerialNumber> find_factory_serial() {
  const int device = open(kFactoryData, O_RDWR | O_CLOEXEC);
  if (device < 0) {
    FCGI_perror("EEPROM OPEN");
    return std::nullopt;
  }
  std::optional<SerialNumber> serial(std::in_place);
  errno = 0;  // a read that is only short sets none
  if (const off_t place = lseek(device, kSerialOffset, SEEK_SET); place != kSerialOffset) {
    FCGI_fprintf(FCGI_stderr, "eeprom lseek fail res=[%x:%x], error=%s\n",
                 static_cast<unsigned int>(kSerialOffset), static_cast<unsigned int>(place),
                 std::strerror(errno));
    serial.reset();
  } else if (const ssize_t count = read(device, serial->data(), serial->size());
             count != static_cast<ssize_t>(serial->size())) {
    FCGI_fprintf(FCGI_stderr, "eeprom read fail res=%d, error=%s\n", static_cast<int>(count),
                 std::strerror(errno));
    serial.reset();
  }
  close(device);
  if (serial) serial->back() = '\0';
  return serial;
}

void read_device_info(Context& context, const Request& request) {
  Database& database = context.database;
  answer_xml(request, [&](TextBuffer& document) {
    document.append(kXmlDeclarationCrLf);
    document.append("<DeviceInfo version=\"1.0\" xmlns=\"urn:psialliance-org\">");
    append_name(document, context);
    // When this generates an identifier, the database is closed: all later elements show their defaults.
    document.append("<deviceID>", device_identifier(database).c_str(), "</deviceID>");
    document.append("<systemContact>http://www.quellan.example</systemContact>");
    append_model(document, database);
    append_serial_number(document);
    append_mac_address(document);
    append_firmware(document, database);
    document.append("</DeviceInfo>");
  });
}

void write_device_info(Context& context, const Request& request) {
  std::optional<FixedText<32>> name;
  if (const XmlDocument document = receive_document(request, "DeviceInfo")) {
    name.emplace();
    for (const XmlElement child : document.root()) {
      if (child.is("deviceName")) child.copy_text(*name);
    }
  }
  const bool stored = name && context.database.execute("update Network set DDNSHostname='%s'", name->c_str());
  answer_done(request, stored);
}

void read_device_status(Context& /*context*/, const Request& request) {
  tzset();
  const std::tm now = local_time_now();
  answer_xml(request, [&](TextBuffer& document) {
    document.append(kXmlDeclarationCrLf);
    document.append("<DeviceStatus version=\"1.0\" xmlns=\"urn:psialliance-org\">");
    document.append("<currentDeviceTime>");
    append_time(document, now);
    document.append("</currentDeviceTime>");
    document.append("<deviceUpTime>", uptime_seconds(), "</deviceUpTime>");
    document.append("</DeviceStatus>");
  });
}

}  // namespace psia
