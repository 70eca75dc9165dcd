#include "simulator/device.h"

#include <arpa/inet.h>
#include <fcntl.h>
#include <sched.h>
#include <spawn.h>
#include <sqlite3.h>
#include <sys/mman.h>
#include <sys/mount.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <functional>
#include <memory>
#include <string_view>
#include <system_error>

#include "factory_sql.h"

namespace camera {
namespace {

namespace fs = std::filesystem;

constexpr const char* kNoNamespaces =
    "Run it as root, or let ordinary users create namespaces, by whichever of these this system has:\n"
    "  sysctl -w user.max_user_namespaces=10000\n"
    "  sysctl -w kernel.unprivileged_userns_clone=1\n"
    "  sysctl -w kernel.apparmor_restrict_unprivileged_userns=0\n"
    "In a container, run that container privileged.";

// What of the machine's /dev the device has as well.
constexpr std::array<std::string_view, 13> kDevices = {"null",  "zero",   "full",  "random", "urandom",
                                                       "tty",   "ptmx",   "pts",   "shm",    "fd",
                                                       "stdin", "stdout", "stderr"};

// Everything below that changes files or the network asks this first, so that a forgotten
// enter_private_device cannot reach the machine's own.
bool inside_private_device = false;
constexpr const char* kOutside = "enter_private_device has not succeeded in this process";

std::string system_error(const std::string& what) {
  return what + ": " + std::strerror(errno);
}

struct Descriptor {
  explicit Descriptor(int descriptor) : number(descriptor) {}
  Descriptor(const Descriptor&) = delete;
  Descriptor(Descriptor&&) = delete;
  Descriptor& operator=(const Descriptor&) = delete;
  Descriptor& operator=(Descriptor&&) = delete;
  ~Descriptor() {
    if (number >= 0) close(number);
  }
  const int number;
};

bool write_file(const fs::path& path, const std::string& content) {
  std::ofstream file(path, std::ios::binary | std::ios::trunc);
  file << content;
  file.close();
  return !file.fail();
}

// Private namespaces. Being root is tried first: it works without user namespaces.
std::string enter_namespaces() {
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

std::string lay_out_directories() {
  for (const std::string& fault :
       {cover("/usr/local", [](const std::string& name) { return name != "orvid" && name != "httpd"; }),
        cover("/dev",
              [](const std::string& name) {
                return std::find(kDevices.begin(), kDevices.end(), name) != kDevices.end();
              }),
        // Covering the whole of /etc works also where resolv.conf is missing or a dangling link.
        cover("/etc", [](const std::string& name) { return name != "resolv.conf"; })}) {
    if (!fault.empty()) return fault;
  }
  fs::create_directories(fs::path(kDefaultsDatabase).parent_path());
  fs::create_directories(kExchangeDirectory);
  return "";
}

// Runs lines of ip commands in one process. Returns an empty text or what the command says.
std::string run_ip(const std::string& lines) {
  if (!inside_private_device) return kOutside;
  const Descriptor input(memfd_create("ip-input", MFD_CLOEXEC));
  const Descriptor output(memfd_create("ip-output", MFD_CLOEXEC));
  if (input.number < 0 || output.number < 0 ||
      write(input.number, lines.data(), lines.size()) != static_cast<ssize_t>(lines.size())) {
    return system_error("Cannot prepare the ip command");
  }
  lseek(input.number, 0, SEEK_SET);

  std::array<std::string, 3> words = {"ip", "-batch", "-"};
  const std::array<char*, 4> arguments = {words[0].data(), words[1].data(), words[2].data(), nullptr};
  posix_spawn_file_actions_t actions;
  posix_spawn_file_actions_init(&actions);
  posix_spawn_file_actions_adddup2(&actions, input.number, STDIN_FILENO);
  posix_spawn_file_actions_adddup2(&actions, output.number, STDOUT_FILENO);
  posix_spawn_file_actions_adddup2(&actions, output.number, STDERR_FILENO);
  pid_t process = 0;
  const int fault = posix_spawnp(&process, "ip", &actions, nullptr, arguments.data(), environ);
  posix_spawn_file_actions_destroy(&actions);
  if (fault != 0) return "The ip command is missing: install the package iproute2.";

  int status = 0;
  while (waitpid(process, &status, 0) < 0 && errno == EINTR) {
  }
  if (WIFEXITED(status) && WEXITSTATUS(status) == 0) return "";
  std::array<char, 512> said{};
  const ssize_t length = pread(output.number, said.data(), said.size(), 0);
  return "The ip command failed: " +
         std::string(said.data(), length > 0 ? static_cast<std::size_t>(length) : 0);
}

bool is_address(const std::string& text) {
  in_addr address{};
  return inet_pton(AF_INET, text.c_str(), &address) == 1;
}

// The ip commands that bring eth0 to this addressing; an empty or 0.0.0.0 gateway is none. Nothing when a
// text, which comes from a database where anything may be stored, is no address.
std::string addressing_commands(const std::string& address, const std::string& mask,
                                const std::string& gateway) {
  const bool has_gateway = !gateway.empty() && gateway != "0.0.0.0";
  if (!is_address(address) || !is_address(mask) || (has_gateway && !is_address(gateway))) return "";
  return "address flush dev eth0 scope global\n"
         "link set eth0 up\n"
         "address add " +
         address + "/" + mask + " broadcast + dev eth0\n" +
         (has_gateway ? "route replace default via " + gateway + " dev eth0\n" : "");
}

struct CloseDatabase {
  void operator()(sqlite3* database) const { sqlite3_close(database); }
};

int append_row(void* rows, int count, char** values, char** /*names*/) {
  std::vector<std::string> row;
  row.reserve(static_cast<std::size_t>(count));
  for (int i = 0; i < count; i++)
    row.emplace_back(values[i] != nullptr ? values[i] : "");
  static_cast<std::vector<std::vector<std::string>>*>(rows)->push_back(std::move(row));
  return 0;
}

// Runs the statements and collects the rows they give.
std::string run_sql(const std::string& sql, const char* path, std::vector<std::vector<std::string>>& rows) {
  if (!inside_private_device) return kOutside;
  sqlite3* opened = nullptr;
  const int result = sqlite3_open_v2(path, &opened, SQLITE_OPEN_READWRITE, nullptr);
  const std::unique_ptr<sqlite3, CloseDatabase> database(opened);
  if (result != SQLITE_OK) return std::string("Cannot open ") + path;
  sqlite3_busy_timeout(database.get(), 1000);
  if (sqlite3_exec(database.get(), sql.c_str(), append_row, &rows, nullptr) != SQLITE_OK) {
    return std::string(path) + ": " + sqlite3_errmsg(database.get());
  }
  return "";
}

std::string create_database(const std::string& path) {
  for (const char* suffix : {"", "-journal", "-wal", "-shm"})
    fs::remove(path + suffix);
  if (!write_file(path, "")) return system_error("Cannot create " + path);
  return execute(std::string("pragma synchronous=off; begin;") + kSchemaSql + kFactorySql + "commit;",
                 path.c_str());
}

std::string reset_files() {
  for (const char* path : {kDatabase, kDefaultsDatabase}) {
    std::string fault = create_database(path);
    if (!fault.empty()) return fault;
  }
  // The serial number's place in the factory data: 32 bytes at 256.
  std::string factory_data(65536, '\0');
  factory_data.replace(256, std::strlen(kSerialNumber), kSerialNumber);
  if (!write_file(kFactoryData, factory_data)) return system_error("Cannot write the factory data");

  fs::remove_all(kExchangeDirectory);
  fs::create_directories(kExchangeDirectory);
  return write_resolver(kPrimaryDns, kSecondaryDns);
}

}  // namespace

std::string enter_private_device() {
  std::string fault = enter_namespaces();
  if (!fault.empty()) return fault;
  try {
    fault = lay_out_directories();
  } catch (const fs::filesystem_error& error) {
    fault = error.what();
  }
  if (!fault.empty()) return fault;
  inside_private_device = true;

  // Where ip and route are; an ordinary user's PATH often leaves these out.
  const char* path = getenv("PATH");
  setenv("PATH", (std::string(path != nullptr ? path : "/usr/bin:/bin") + ":/usr/sbin:/sbin").c_str(), 1);
  fault = run_ip(
      "link set lo up\n"
      "link add eth0 type veth peer name eth0peer\n"
      "link set eth0peer up\n"
      "link set eth0 up\n");
  if (!fault.empty()) return fault + "If the kernel lacks veth interfaces: modprobe veth.";
  return reset_device();
}

std::string reset_device() {
  if (!inside_private_device) return kOutside;
  std::string fault;
  try {
    fault = reset_files();
  } catch (const fs::filesystem_error& error) {
    fault = error.what();
  }
  if (fault.empty()) fault = reset_queues();
  if (!fault.empty()) return fault;
  return run_ip(std::string("link set eth0 address ") + kHardwareAddress + "\n" +
                addressing_commands(kAddress, kSubnetMask, kGateway));
}

std::string execute(const std::string& sql, const char* database) {
  std::vector<std::vector<std::string>> rows;
  return run_sql(sql, database, rows);
}

std::vector<std::vector<std::string>> query(const std::string& sql, const char* database) {
  std::vector<std::vector<std::string>> rows;
  if (!run_sql(sql, database, rows).empty()) rows.clear();
  return rows;
}

std::string restore_factory_rows() {
  std::string sql = "attach '" + std::string(kDefaultsDatabase) + "' as factory; begin immediate;";
  for (const std::vector<std::string>& table : query("select name from sqlite_master where type='table'")) {
    sql += "delete from main." + table[0] + ";insert into main." + table[0] + " select * from factory." +
           table[0] + ";";
  }
  return execute(sql + "commit;");
}

std::string apply_addressing() {
  const auto rows = query("select ConnectionType, IPAddress, SubnetMask, Gateway from Network");
  if (rows.empty()) return "No stored addressing";
  const std::vector<std::string>& stored = rows[0];
  const std::string commands = stored[0] == "1"
                                   ? addressing_commands("192.168.1.20", "255.255.255.0", "192.168.1.1")
                                   : addressing_commands(stored[1], stored[2], stored[3]);
  return commands.empty() ? "The stored address, mask or gateway is none" : run_ip(commands);
}

std::string write_resolver(const std::string& primary, const std::string& secondary) {
  if (!inside_private_device) return kOutside;
  std::string content;
  for (const std::string& server : {primary, secondary}) {
    if (!server.empty()) content += "nameserver " + server + "\n";
  }
  content += std::string("search ") + kSearchDomain + "\n";
  return write_file(kResolverFile, content) ? "" : system_error("Cannot write the resolver file");
}

}  // namespace camera
