#include "simulator/device.h"

#include <fcntl.h>
#include <sched.h>
#include <sys/mount.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <functional>
#include <sstream>
#include <string_view>
#include <system_error>

#include "simulator/descriptor.h"

namespace camera {
namespace {

namespace fs = std::filesystem;

constexpr const char* kNoNamespaces =
    "Run it as root, or let ordinary users create namespaces, by whichever of these this system has:\n"
    "  sysctl -w user.max_user_namespaces=10000\n"
    "  sysctl -w kernel.unprivileged_userns_clone=1\n"
    "  sysctl -w kernel.apparmor_restrict_unprivileged_userns=0\n"
    "In a container, run that container privileged. In a chroot only root can.";

constexpr const char* kPlainChroot =
    "This is a plain chroot: its / is no mount point, so that the camera's mounts cannot be kept apart from the\n"
    "machine's. Make it one before you enter it, from outside:\n"
    "  mount --bind DIRECTORY DIRECTORY; mount -t proc proc DIRECTORY/proc; chroot DIRECTORY";
constexpr const char* kNoProc = "/proc is not mounted here. As root: mount -t proc proc /proc";

// What of the machine's /dev the device has as well.
constexpr std::array<std::string_view, 12> kDevices = {"null", "zero", "full", "random", "urandom", "tty",
                                                       "ptmx", "pts",  "fd",   "stdin",  "stdout",  "stderr"};

bool inside = false;

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

// The kernel lets mounts be made private only where / is the root of one.
bool is_plain_chroot() {
  struct statx root = {};
  return statx(AT_FDCWD, "/", AT_NO_AUTOMOUNT, 0, &root) == 0 &&
         (root.stx_attributes_mask & STATX_ATTR_MOUNT_ROOT) != 0 &&
         (root.stx_attributes & STATX_ATTR_MOUNT_ROOT) == 0;
}

// Private namespaces. Being root is tried first: it works without user namespaces.
std::string enter_namespaces() {
  if (access("/proc/self/fd", X_OK) != 0) return kNoProc;
  if (is_plain_chroot()) return kPlainChroot;
  const int namespaces = CLONE_NEWNS | CLONE_NEWIPC | CLONE_NEWNET;
  const std::string user = std::to_string(geteuid());
  const std::string group = std::to_string(getegid());
  if (unshare(namespaces) != 0) {
    if (unshare(CLONE_NEWUSER | namespaces) != 0) {
      return system_error("Cannot create private namespaces") + "\n" + kNoNamespaces;
    }
    // The kernel takes a group map from an ordinary user only after setgroups is given up
    // (user_namespaces(7)).
    if (!write_file("/proc/self/setgroups", "deny") ||
        !write_file("/proc/self/uid_map", "0 " + user + " 1") ||
        !write_file("/proc/self/gid_map", "0 " + group + " 1")) {
      return std::string("Cannot become root in the private namespaces.\n") + kNoNamespaces;
    }
  }
  if (mount("none", "/", nullptr, MS_REC | MS_PRIVATE, nullptr) != 0) {
    return system_error("Cannot make the mounts private") + "\n" + kNoNamespaces;
  }
  return "";
}

// Puts an empty file system of our own over a directory, with those of the entries it had that are to be kept
// bound to their places. So entries can be added without a write to the machine's file system.
std::string cover(const fs::path& directory, const std::function<bool(const std::string&)>& keep) {
  // O_PATH keeps the way to what is about to be covered.
  const Descriptor covered(open(directory.c_str(), O_PATH | O_DIRECTORY | O_CLOEXEC));
  if (covered.number < 0) return system_error("Cannot open " + directory.string());
  const fs::path original = "/proc/self/fd/" + std::to_string(covered.number);
  if (mount("tmpfs", directory.c_str(), "tmpfs", 0, "mode=755") != 0) {
    return system_error("Cannot mount over " + directory.string()) + "\n" + kNoNamespaces;
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

// Where the settings are to be kept, they and what belongs to them lie in that directory.
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
        // Covering the whole of /etc works also where resolv.conf is missing or a dangling link.
        cover("/etc", [](const std::string& name) {
          return name != "resolv.conf" && name != "localtime" && name != "faketimerc";
        })}) {
    if (!fault.empty()) return fault;
  }
  // A copy, where the machine may have a link or a file, so that it can be replaced.
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
  // The serial number's place in the factory data: 32 bytes at 256.
  std::string factory_data(65536, '\0');
  factory_data.replace(256, std::strlen(kSerialNumber), kSerialNumber);
  if (!write_file(kFactoryData, factory_data)) return system_error("Cannot write the factory data");
  fs::remove_all(kExchangeDirectory);
  fs::create_directories(kExchangeDirectory);
  return "";
}

// The kept settings, when there are some.
std::string open_kept_settings() {
  const std::string fault = check_export(kDatabase);
  if (!fault.empty()) return "The kept settings cannot be used: " + fault;
  for (const std::string& step : {reset_fixed_files(), reset_queues(), reset_interface()}) {
    if (!step.empty()) return step;
  }
  return apply_addressing();
}

}  // namespace

bool inside_private_device() {
  return inside;
}

std::string enter_private_device(const std::string& keep) {
  std::string fault = enter_namespaces();
  if (!fault.empty()) return fault;
  try {
    fault = lay_out_directories(keep);
  } catch (const fs::filesystem_error& error) {
    fault = error.what();
  }
  if (!fault.empty()) return fault;
  inside = true;

  // Where ip and route are; an ordinary user's PATH often leaves these out.
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
  for (const auto step : {reset_queues, reset_interface}) {
    if (fault.empty()) fault = step();
  }
  return fault.empty() ? write_resolver(kPrimaryDns, kSecondaryDns) : fault;
}

}  // namespace camera
