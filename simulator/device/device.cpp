#include "simulator/device/device.h"

#include <fcntl.h>
#include <sched.h>
#include <sys/mount.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <functional>
#include <sstream>
#include <string_view>
#include <system_error>

#include "namespaces_text.h"
#include "simulator/device/clock.h"
#include "simulator/tools/descriptor.h"

namespace camera {
namespace {

namespace fs = std::filesystem;

constexpr const char* kPlainChroot =
    "This is a plain chroot: its / is not a mount point, so the camera's mounts cannot be kept apart from\n"
    "the machine's. Make it one from outside, before you enter it:\n"
    "  mount --bind DIRECTORY DIRECTORY; mount -t proc proc DIRECTORY/proc; chroot DIRECTORY";
constexpr const char* kNoProc = "/proc is not mounted here. As root: mount -t proc proc /proc";

// The device files of the machine that the camera has as well.
constexpr std::array<std::string_view, 12> kDevices = {"null", "zero", "full", "random", "urandom", "tty",
                                                       "ptmx", "pts",  "fd",   "stdin",  "stdout",  "stderr"};

bool inside = false;
Identity identity = identity_of(1);

bool write_file(const fs::path& path, const std::string& content) {
  std::ofstream file(path, std::ios::binary | std::ios::trunc);
  file << content;
  file.close();
  return !file.fail();
}

std::string read_file(const fs::path& path) {
  std::ostringstream content;
  content << std::ifstream(path, std::ios::binary).rdbuf();
  return content.str();
}

// The kernel makes mounts private only if / is the root of a mount.
bool is_plain_chroot() {
  struct statx root = {};
  return statx(AT_FDCWD, "/", AT_NO_AUTOMOUNT, 0, &root) == 0 &&
         (root.stx_attributes_mask & STATX_ATTR_MOUNT_ROOT) != 0 &&
         (root.stx_attributes & STATX_ATTR_MOUNT_ROOT) == 0;
}

// Enters private namespaces: as root if that is possible, which works without user namespaces.
std::string enter_namespaces() {
  if (access("/proc/self/fd", X_OK) != 0) return kNoProc;
  if (is_plain_chroot()) return kPlainChroot;
  const int namespaces = CLONE_NEWNS | CLONE_NEWIPC | CLONE_NEWNET;
  const std::string user = std::to_string(geteuid());
  const std::string group = std::to_string(getegid());
  if (unshare(namespaces) != 0) {
    if (unshare(CLONE_NEWUSER | namespaces) != 0) {
      return system_error("Cannot create private namespaces") + "\n" + kNamespacesText;
    }
    // An ordinary user may write a group map only after denying setgroups
    // (user_namespaces(7)).
    if (!write_file("/proc/self/setgroups", "deny") ||
        !write_file("/proc/self/uid_map", "0 " + user + " 1") ||
        !write_file("/proc/self/gid_map", "0 " + group + " 1")) {
      return std::string("Cannot become root in the private namespaces.\n") + kNamespacesText;
    }
  }
  if (mount("none", "/", nullptr, MS_REC | MS_PRIVATE, nullptr) != 0) {
    return system_error("Cannot make the mounts private") + "\n" + kNamespacesText;
  }
  return "";
}

// Mounts an empty file system over a directory and binds those of its entries into it that `keep` names. So
// entries can be added without a write to the machine's file system.
std::string cover(const fs::path& directory, const std::function<bool(const std::string&)>& keep) {
  // A descriptor still reaches the directory after the mount.
  const Descriptor covered(open(directory.c_str(), O_PATH | O_DIRECTORY | O_CLOEXEC));
  if (covered.number < 0) return system_error("Cannot open " + directory.string());
  const fs::path original = "/proc/self/fd/" + std::to_string(covered.number);
  if (mount("tmpfs", directory.c_str(), "tmpfs", 0, "mode=755") != 0) {
    return system_error("Cannot mount over " + directory.string()) + "\n" + kNamespacesText;
  }
  for (const fs::directory_entry& entry : fs::directory_iterator(original)) {
    const fs::path name = entry.path().filename();
    if (!keep(name.string())) continue;
    const fs::path place = directory / name;
    if (entry.is_symlink()) {
      fs::create_symlink(fs::read_symlink(entry.path()), place);
      continue;
    }
    if (entry.is_directory()) {
      fs::create_directory(place);
    } else if (!write_file(place, "")) {
      return system_error("Cannot create " + place.string());
    }
    if (mount(entry.path().c_str(), place.c_str(), nullptr, MS_BIND | MS_REC, nullptr) != 0 &&
        errno != ENOENT) {  // removed meanwhile
      return system_error("Cannot bind " + place.string());
    }
  }
  return "";
}

// The device's directories and files. When the settings are to be kept, they lie in the directory `keep`.
std::string lay_out_directories(const std::string& keep) {
  const Descriptor kept(keep.empty() ? -1 : open(keep.c_str(), O_PATH | O_DIRECTORY | O_CLOEXEC));
  if (!keep.empty() && kept.number < 0) return system_error("Cannot open " + keep);
  const std::string local_time = read_file("/etc/localtime");
  for (const std::string& fault :
       {cover("/usr/local", [](const std::string& name) { return name != "orvid" && name != "httpd"; }),
        cover("/dev",
              [](const std::string& name) {
                return std::find(kDevices.begin(), kDevices.end(), name) != kDevices.end();
              }),
        // Covering the whole of /etc also works where resolv.conf is missing or a dangling link.
        cover("/etc", [](const std::string& name) {
          return name != "resolv.conf" && name != "localtime" && name != "faketimerc";
        })}) {
    if (!fault.empty()) return fault;
  }
  // The machine may have a link or a file here; a copy can be replaced.
  if (!local_time.empty() && !write_file("/etc/localtime", local_time)) {
    return system_error("Cannot write /etc/localtime");
  }
  const fs::path settings = fs::path(kDatabase).parent_path();
  fs::create_directories(settings);
  if (kept.number >= 0) {
    const fs::path original = "/proc/self/fd/" + std::to_string(kept.number);
    if (mount(original.c_str(), settings.c_str(), nullptr, MS_BIND, nullptr) != 0) {
      return system_error("Cannot bind " + keep);
    }
    for (const char* path : {kResolverFile, kClockFile})
      fs::create_symlink(settings / "conf" / fs::path(path).filename(), path);
  }
  fs::create_directories(fs::path(kDefaultsDatabase).parent_path());
  fs::create_directories(kExchangeDirectory);
  fs::create_directory("/dev/shm");
  return "";
}

std::string reset_fixed_files() {
  // The serial number has 32 bytes at offset 256.
  std::string factory_data(65536, '\0');
  factory_data.replace(256, identity.serial_number.size(), identity.serial_number);
  if (!write_file(kFactoryData, factory_data)) return system_error("Cannot write the factory data");
  // The directory itself stays: it is watched for uploads.
  for (const fs::directory_entry& entry : fs::directory_iterator(kExchangeDirectory))
    fs::remove_all(entry.path());
  return "";
}

// Starts from the settings that an earlier run left.
std::string open_kept_settings() {
  const std::string fault = check_export(kDatabase);
  if (!fault.empty()) return "The kept settings cannot be used: " + fault;
  for (const std::string& step : {reset_fixed_files(), reset_queues(), reset_interface()}) {
    if (!step.empty()) return step;
  }
  return apply_addressing();
}

}  // namespace

Identity identity_of(int number) {
  const auto hexadecimal = [](int value, int digits) {
    std::array<char, 16> text{};
    std::snprintf(text.data(), text.size(), "%0*x", digits, static_cast<unsigned int>(value));
    return std::string(text.data());
  };
  const std::string decimal = std::to_string(number);
  const int further = number - 1;  // cameras before this one
  return {"QC2040-0007-" + std::to_string(4242 + further),
          "6F1E0C52-93B7-4D2A-8E45-2a7d90b1" + hexadecimal(0xc3f4 + further, 4),
          "02:51:43:20:40:" + hexadecimal(0x0a + further, 2),
          "camera-" + decimal,
          "192.168." + decimal + ".10",
          "192.168." + decimal + ".1",
          "192.168." + decimal + ".20"};
}

bool inside_private_device() {
  return inside;
}

const Identity& own_identity() {
  return identity;
}

std::string enter_private_device(const std::string& keep, int number) {
  identity = identity_of(number);
  std::string fault = enter_namespaces();
  if (!fault.empty()) return fault;
  try {
    fault = lay_out_directories(keep);
  } catch (const fs::filesystem_error& error) {
    fault = error.what();
  }
  if (!fault.empty()) return fault;
  inside = true;

  // ip and route are in the administrator's directories, which an ordinary user's PATH often lacks.
  const char* path = getenv("PATH");
  setenv("PATH", (std::string(path != nullptr ? path : "/usr/bin:/bin") + ":/usr/sbin:/sbin").c_str(), 1);
  fault = create_interfaces();
  if (!fault.empty()) return fault;
  if (!keep.empty() && access(kDatabase, F_OK) == 0) return open_kept_settings();
  return reset_device();
}

std::string reset_device() {
  if (!inside) return kOutsideDevice;
  std::string fault = create_settings();
  try {
    if (fault.empty()) fault = reset_fixed_files();
  } catch (const fs::filesystem_error& error) {
    fault = error.what();
  }
  for (const auto step : {reset_queues, reset_interface, follow_machine_clock}) {
    if (fault.empty()) fault = step();
  }
  return fault.empty() ? write_resolver(kPrimaryDns, kSecondaryDns) : fault;
}

}  // namespace camera
