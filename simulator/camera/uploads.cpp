#include "simulator/camera/uploads.h"

#include <sys/inotify.h>
#include <unistd.h>

#include <array>
#include <cstring>
#include <filesystem>
#include <system_error>

#include "simulator/camera/daemons.h"
#include "simulator/device/device.h"

namespace camera {
namespace {

const std::string kPath = std::string(kExchangeDirectory) + "/" + kUploadName;

}  // namespace

Uploads::Uploads() : watch_(inotify_init1(IN_NONBLOCK | IN_CLOEXEC)) {
  inotify_add_watch(watch_.number, kExchangeDirectory, IN_CLOSE_WRITE | IN_MOVED_TO);
}

std::optional<std::string> Uploads::news() {
  bool stored = false;
  alignas(inotify_event) std::array<char, 4096> events{};
  ssize_t size = 0;
  while ((size = read(watch_.number, events.data(), events.size())) > 0) {
    for (std::size_t at = 0; at < static_cast<std::size_t>(size);) {
      inotify_event event{};
      std::memcpy(&event, &events.at(at), sizeof event);
      const std::size_t name = at + sizeof event;
      stored = stored || (event.len > 0 && std::strcmp(&events.at(name), kUploadName) == 0);
      at = name + event.len;
    }
  }
  if (!stored || access(kPath.c_str(), F_OK) != 0) return std::nullopt;  // removed: it has been applied
  const std::string fault = check_export(kPath);
  waiting_ = fault.empty();
  return waiting_ ? "the uploaded settings are good; they take effect with the next boot"
                  : "the uploaded settings are refused: " + fault;
}

std::optional<std::string> Uploads::apply() {
  if (!waiting_) return std::nullopt;
  const std::string fault = import_settings(kPath);
  forget();
  return fault.empty() ? "the uploaded settings are in effect"
                       : "the uploaded settings could not be taken: " + fault;
}

void Uploads::forget() {
  waiting_ = false;
  std::error_code ignored;
  std::filesystem::remove(kPath, ignored);
}

}  // namespace camera
