#include "simulator/device/clock.h"

#include <glob.h>
#include <sched.h>

#include <array>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <system_error>

#include "simulator/device/device.h"

namespace camera {
namespace {

namespace fs = std::filesystem;

// Sets TZ to a zone, and back in the destructor.
class InZone {
 public:
  explicit InZone(const std::string& zone) {
    const char* before = getenv("TZ");
    if (before != nullptr) before_ = before;
    had_zone_ = before != nullptr;
    setenv("TZ", zone.empty() ? ":/etc/localtime" : zone.c_str(), 1);
    tzset();
  }
  InZone(const InZone&) = delete;
  InZone(InZone&&) = delete;
  InZone& operator=(const InZone&) = delete;
  InZone& operator=(InZone&&) = delete;
  ~InZone() {
    if (had_zone_) {
      setenv("TZ", before_.c_str(), 1);
    } else {
      unsetenv("TZ");
    }
    tzset();
  }

 private:
  std::string before_;
  bool had_zone_ = false;
};

// The file is replaced by rename, because the service may read it at any time.
std::string write_offset(std::int64_t seconds) {
  if (!inside_private_device()) return kOutsideDevice;
  std::error_code fault;
  fs::path place = fs::read_symlink(kClockFile, fault);
  if (fault) place = kClockFile;
  const fs::path draft = place.string() + ".new";
  std::ofstream file(draft, std::ios::trunc);
  file << (seconds < 0 ? "" : "+") << seconds << "\n";
  file.close();
  if (!file.fail()) fs::rename(draft, place, fault);
  return file.fail() || fault ? "Cannot write " + place.string() : "";
}

}  // namespace

std::string find_clock_library() {
  glob_t found{};
  std::string path;
  if (glob("/usr/lib/*/faketime/libfaketime.so.1", 0, nullptr, &found) == 0) path = found.gl_pathv[0];
  globfree(&found);
  return path;
}

std::int64_t clock_offset() {
  std::int64_t seconds = 0;
  std::ifstream(kClockFile) >> seconds;
  return seconds;
}

std::string set_camera_clock(std::int64_t moment) {
  return write_offset(moment - std::time(nullptr));
}

std::string follow_machine_clock() {
  return write_offset(0);
}

std::int64_t moment_of(std::tm local, const std::string& zone) {
  const InZone in_zone(zone);
  local.tm_isdst = -1;
  return std::mktime(&local);
}

std::string camera_time(const std::string& zone) {
  const InZone in_zone(zone);
  const std::time_t now = std::time(nullptr) + clock_offset();
  std::tm local{};
  localtime_r(&now, &local);
  std::array<char, 48> text{};
  return std::string(text.data(), std::strftime(text.data(), text.size(), "%Y-%m-%dT%H:%M:%S", &local));
}

bool take_zone(const std::string& name) {
  if (!inside_private_device()) return false;
  const std::string directory = "/usr/share/zoneinfo/";
  std::error_code fault;
  const bool known =
      !name.empty() && name.find("..") == std::string::npos && fs::is_regular_file(directory + name, fault);
  fs::remove("/etc/localtime", fault);
  fs::create_symlink(directory + (known ? name : "Etc/UTC"), "/etc/localtime", fault);
  return known;
}

bool restart_uptime() {
  timespec since_start{};
  if (clock_gettime(CLOCK_BOOTTIME, &since_start) != 0 || unshare(CLONE_NEWTIME) != 0) return false;
  // Offsets from the machine's clock (time_namespaces(7)); its time since start may not become negative.
  std::ofstream offsets("/proc/self/timens_offsets");
  offsets << "boottime " << -since_start.tv_sec << " 0\n";
  offsets.close();
  return !offsets.fail();
}

void use_camera_clock() {
  unsetenv("TZ");
  const std::string library = find_clock_library();
  if (library.empty()) return;
  setenv("LD_PRELOAD", library.c_str(), 1);
  setenv("FAKETIME_NO_CACHE", "1", 1);
  setenv("FAKETIME_DONT_FAKE_MONOTONIC", "1", 1);
  setenv("NO_FAKE_STAT", "1", 1);
  // Without this variable libfaketime prefers a file in the home directory.
  setenv("FAKETIME_TIMESTAMP_FILE", kClockFile, 1);
}

}  // namespace camera
