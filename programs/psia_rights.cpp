// psia-rights: run as root before every start of the service, gives a group the files that the service works
// on and takes those with passwords from everybody else.
//
// The group may write to the directories of these files, so whoever has taken the service over may put
// anything in their place, at any moment. Nothing is therefore named twice: each directory and file is opened
// without following links that the group could have made, judged by its descriptor, and changed through that
// descriptor. A file that is not what is expected there is left as it is and named on standard error.
#include <dirent.h>
#include <fcntl.h>
#include <grp.h>
#include <pwd.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <climits>
#include <csignal>
#include <cstdio>
#include <cstring>
#include <string_view>
#include <utility>

#include "core/paths.h"

namespace {

constexpr const char* kUsage =
    "Usage: psia-rights [--wait] [--kill USER] [--socket] GROUP\n"
    "Gives GROUP what the PSIA management service needs. Run it as root before every start of the service.\n"
    "The group root takes the rights back.\n"
    "\n"
    "  --wait       first wait until the settings database is there and an SQLite file\n"
    "  --kill USER  first end every process of USER, whose the service is\n"
    "  --socket     let GROUP create the socket in /run/psia, for a web server that starts the service itself\n";

constexpr std::string_view kUpload =
    "psia_config.dat";  // made anew by each upload, in the exchange directory
constexpr const char* kLinkProtection = "/proc/sys/fs/protected_hardlinks";

struct Options {
  bool wait = false;
  bool makes_socket = false;
  const char* user = nullptr;
  const char* group = nullptr;
};

class Descriptor {
 public:
  explicit Descriptor(int number) : number_(number) {}
  Descriptor(const Descriptor&) = delete;
  Descriptor(Descriptor&& other) noexcept : number_(std::exchange(other.number_, -1)) {}
  Descriptor& operator=(const Descriptor&) = delete;
  Descriptor& operator=(Descriptor&& other) noexcept {
    std::swap(number_, other.number_);
    return *this;
  }
  ~Descriptor() {
    if (number_ >= 0) close(number_);
  }
  [[nodiscard]] int number() const { return number_; }
  [[nodiscard]] bool is_open() const { return number_ >= 0; }

 private:
  int number_;
};

enum class Kind { kDatabase, kJournal, kExchanged, kDevice };

/// What all the steps share.
struct Rights {
  gid_t group = 0;
  bool links_protected = false;  // the kernel lets nobody link to files of others
  bool failed = false;

  void refuse(const char* name, const char* why) {
    std::fprintf(stderr, "psia-rights: %s is left as it is: %s\n", name, why);
    failed = true;
  }
  /// For a call that failed; what is not there now may come later, and the service then lives without it.
  void refuse_unless_missing(const char* name) {
    if (errno != ENOENT) refuse(name, errno == ELOOP ? "it is a symbolic link" : std::strerror(errno));
  }
};

bool only_root_writes(const struct stat& entry) {
  return entry.st_uid == 0 && (entry.st_mode & (S_IWGRP | S_IWOTH)) == 0;
}

/// Opens an entry of a directory. Links are followed where root alone can have made them.
int open_entry(int directory, const char* name, int flags) {
  struct stat own {};
  if (fstat(directory, &own) != 0) return -1;
  return openat(directory, name, flags | O_CLOEXEC | (only_root_writes(own) ? 0 : O_NOFOLLOW));
}

/// Opens the directory of an absolute path; on failure errno says why.
Descriptor open_directory(std::string_view path) {
  Descriptor directory(open("/", O_RDONLY | O_DIRECTORY | O_CLOEXEC));
  while (directory.is_open() && !path.empty()) {
    path.remove_prefix(1);
    const std::string_view part(path.data(), std::min(path.find('/'), path.size()));
    std::array<char, NAME_MAX + 1> name{};
    if (part.size() >= name.size()) {
      errno = ENAMETOOLONG;
      return Descriptor(-1);
    }
    std::copy(part.begin(), part.end(), name.begin());
    directory = Descriptor(open_entry(directory.number(), name.data(), O_RDONLY | O_DIRECTORY));
    path.remove_prefix(part.size());
  }
  return directory;
}

bool change(int file, uid_t owner, gid_t group, mode_t mode) {
  return fchown(file, owner, group) == 0 && fchmod(file, mode) == 0;
}

constexpr uid_t kSameOwner = static_cast<uid_t>(-1);

/// Lets the group create files, which then are the group's: SQLite puts its journal beside a database, and a
/// journal left by a daemon can be rolled back. `others` are the rights that others keep, at most.
void give_directory(Rights& rights, const Descriptor& directory, const char* path, mode_t others) {
  struct stat found {};
  if (fstat(directory.number(), &found) != 0 ||
      !change(directory.number(), kSameOwner, rights.group,
              S_ISGID | S_IRWXU | S_IRWXG | (found.st_mode & others))) {
    rights.refuse(path, std::strerror(errno));
  }
}

/// Whether the file begins as its kind does. A journal of which nothing was written yet is empty.
bool begins_as(int file, Kind kind) {
  constexpr std::string_view database("SQLite format 3\0", 16);
  constexpr std::string_view journal("\xd9\xd5\x05\xf9\x20\xa1\x63\xd7", 8);
  constexpr std::string_view done_journal("\0\0\0\0\0\0\0\0", 8);
  std::array<char, 16> buffer{};
  const ssize_t size = pread(file, buffer.data(), buffer.size(), 0);
  if (size < 0) return false;
  const std::string_view start(buffer.data(), static_cast<std::size_t>(size));
  if (kind == Kind::kDatabase) return start == database;
  return start.empty() || start.starts_with(journal) || start.starts_with(done_journal);
}

/// Opens a file that may be given to the group, or names it and returns a closed descriptor. `before` is the
/// directory as it was before this run: where others than root could write to it, the file may be any.
Descriptor open_given_file(Rights& rights, const Descriptor& directory, const struct stat& before,
                           const char* name, Kind kind) {
  Descriptor file(
      openat(directory.number(), name, O_RDONLY | O_NOFOLLOW | O_NONBLOCK | O_NOCTTY | O_CLOEXEC));
  struct stat found {};
  struct stat named {};
  const auto refuse = [&](const char* why) {
    rights.refuse(name, why);
    return Descriptor(-1);
  };
  if (!file.is_open() || fstat(file.number(), &found) != 0) {
    rights.refuse_unless_missing(name);
    return Descriptor(-1);
  }
  if (!S_ISREG(found.st_mode) && !(kind == Kind::kDevice && S_ISBLK(found.st_mode))) {
    return kind == Kind::kExchanged ? Descriptor(-1) : refuse("it is no file");
  }
  // Names are counted before it is looked whether one of them is still here: a name that was moved away
  // between opening and counting does not come back, for new ones to files of others are not to be had.
  if (found.st_nlink != 1) return refuse("it has more than one name");
  if (fstatat(directory.number(), name, &named, AT_SYMLINK_NOFOLLOW) != 0 || named.st_dev != found.st_dev ||
      named.st_ino != found.st_ino) {
    return refuse("it was replaced meanwhile");
  }
  // Without that protection only what was made in the directory, and so has its group, can be told from a
  // link.
  if (!rights.links_protected && !only_root_writes(before) && found.st_gid != before.st_gid) {
    return refuse("its group is not its directory's, and this kernel does not protect hard links");
  }
  // The group may have moved a private file of root's here. What root made for the group is usable as it is.
  if (kind == Kind::kExchanged && found.st_uid == 0 && rights.group != 0 && !only_root_writes(before)) {
    const mode_t needed = std::string_view(name) == kUpload ? S_IRGRP | S_IWGRP : S_IRGRP;
    const bool usable = found.st_gid == rights.group && (found.st_mode & needed) == needed;
    return usable ? Descriptor(-1) : refuse("it is root's, and others can write to its directory");
  }
  // Another file of the same directory could have been given this name.
  if ((kind == Kind::kDatabase || kind == Kind::kJournal) && !begins_as(file.number(), kind)) {
    return refuse("it is no SQLite file");
  }
  return file;
}

/// Lets the group read and write a file that open_given_file returned, and nobody else.
void give_file(Rights& rights, const Descriptor& file, const char* name) {
  if (file.is_open() &&
      !change(file.number(), kSameOwner, rights.group, S_IRUSR | S_IWUSR | S_IRGRP | S_IWGRP)) {
    rights.refuse(name, std::strerror(errno));
  }
}

/// Gives a directory only if its database was recognised: the group may have moved a private directory of
/// root's to the place of one of its own.
void give_settings(Rights& rights, const char* path, const char* database, const char* journal) {
  const Descriptor directory = open_directory(path);
  struct stat before {};
  if (!directory.is_open() || fstat(directory.number(), &before) != 0) {
    return rights.refuse_unless_missing(path);
  }
  const Descriptor recognised = open_given_file(rights, directory, before, database, Kind::kDatabase);
  if (!recognised.is_open()) return rights.refuse(path, "it has no settings database");
  give_directory(rights, directory, path, S_IRWXO);
  give_file(rights, recognised, database);
  give_file(rights, open_given_file(rights, directory, before, journal, Kind::kJournal), journal);
}

/// Exports of the daemons, to be read; uploads of clients, to be written, also when another user's service
/// left one.
void give_exchange_directory(Rights& rights) {
  const char* path = psia::kExchangeDirectory;
  const Descriptor directory = open_directory(path);
  struct stat before {};
  if (!directory.is_open() || fstat(directory.number(), &before) != 0) {
    if (errno != ENOENT) return rights.refuse_unless_missing(path);
    // Under systemd the service can write only to what was there when it started.
    std::fprintf(stderr, "psia-rights: %s does not exist: restart the service when it does\n", path);
    return;
  }
  give_directory(rights, directory, path, 0);
  DIR* entries = fdopendir(dup(directory.number()));
  if (entries == nullptr) return rights.refuse(path, std::strerror(errno));
  while (const dirent* entry = readdir(entries)) {
    const char* name = entry->d_name;
    if (name[0] == '.') continue;
    give_file(rights, open_given_file(rights, directory, before, name, Kind::kExchanged), name);
  }
  closedir(entries);
}

/// The serial number. The service only reads, but opens for both.
void give_factory_data(Rights& rights) {
  const std::string_view path = psia::kFactoryData;
  const std::string_view folder(path.data(), path.rfind('/'));
  const char* name = path.data() + folder.size() + 1;
  const Descriptor directory = open_directory(folder);
  struct stat before {};
  if (!directory.is_open() || fstat(directory.number(), &before) != 0) {
    return rights.refuse_unless_missing(path.data());
  }
  give_file(rights, open_given_file(rights, directory, before, name, Kind::kDevice), name);
}

/// Makes the socket's directory. Only a web server that starts the service creates the socket itself.
void give_socket_directory(Rights& rights, bool makes_socket) {
  const Descriptor parent = open_directory("/run");
  if (!parent.is_open() || (mkdirat(parent.number(), "psia", S_IRWXU) != 0 && errno != EEXIST)) {
    return rights.refuse("/run/psia", std::strerror(errno));
  }
  const Descriptor directory(
      openat(parent.number(), "psia", O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC));
  const mode_t mode = makes_socket ? S_IRWXU | S_IRWXG | S_IXOTH : S_IRWXU | S_IXGRP | S_IXOTH;
  if (!directory.is_open() || !change(directory.number(), 0, makes_socket ? rights.group : 0, mode)) {
    rights.refuse("/run/psia", std::strerror(errno));
  }
}

/// Has the kernel refuse links to files of others, as most distributions do at boot. False on one that
/// cannot.
bool protect_links() {
  const Descriptor setting(open(kLinkProtection, O_RDWR | O_CLOEXEC));
  const Descriptor current(open(kLinkProtection, O_RDONLY | O_CLOEXEC));
  char value = '0';
  if (pread(current.number(), &value, 1, 0) == 1 && value == '1') return true;
  return pwrite(setting.number(), "1", 1, 0) == 1 && pread(current.number(), &value, 1, 0) == 1 &&
         value == '1';
}

/// Ends all processes of the user at once, as that user, so that nobody else's can be met. Whoever is about
/// to be ended may try to end or stop this attempt first; then follows the next. False when none got through.
bool end_processes_of(uid_t user) {
  for (int attempt = 0; attempt < 1000; attempt++) {
    const pid_t child = fork();
    if (child == 0) {
      if (setresuid(user, user, 0) != 0) _exit(1);
      _exit(kill(-1, SIGKILL) == 0 || errno == ESRCH ? 0 : 1);
    }
    int status = 0;
    if (child < 0 || waitpid(child, &status, WUNTRACED) != child) return false;
    if (WIFEXITED(status)) return WEXITSTATUS(status) == 0;
    if (WIFSTOPPED(status)) {
      kill(child, SIGKILL);
      waitpid(child, &status, 0);
    }
  }
  return false;
}

/// Why the service cannot start yet, or null when the settings database is there. The file may be a link
/// here. A descriptor of its place alone opens no device that somebody put there.
const char* missing_database() {
  const Descriptor place(open(psia::kConfigurationDatabase, O_PATH | O_CLOEXEC));
  struct stat found {};
  if (!place.is_open() || fstat(place.number(), &found) != 0) {
    return errno == ENOENT ? "it does not exist" : "it cannot be opened";
  }
  if (!S_ISREG(found.st_mode)) return "it is no file";
  if (found.st_size == 0) return "it is empty";
  std::array<char, 32> path{};
  std::snprintf(path.data(), path.size(), "/proc/self/fd/%d", place.number());
  const Descriptor file(open(path.data(), O_RDONLY | O_CLOEXEC));
  return begins_as(file.number(), Kind::kDatabase) ? nullptr : "it is no SQLite file";
}

void wait_for_database() {
  const char* told = nullptr;
  while (const char* reason = missing_database()) {
    if (reason != told) {
      std::fprintf(stderr, "psia-rights: waiting for %s, which the camera's daemons make: %s\n",
                   psia::kConfigurationDatabase, reason);
    }
    told = reason;
    usleep(200'000);
  }
}

bool read_options(int count, char** arguments, Options& options) {
  for (int i = 1; i < count; i++) {
    const std::string_view word = arguments[i];
    if (word == "--wait") {
      options.wait = true;
    } else if (word == "--socket") {
      options.makes_socket = true;
    } else if (word == "--kill" && i + 1 < count) {
      options.user = arguments[++i];
    } else if (!word.starts_with('-') && options.group == nullptr) {
      options.group = arguments[i];
    } else {
      return false;
    }
  }
  return options.group != nullptr;
}

int fail(const char* what, const char* name) {
  std::fprintf(stderr, "psia-rights: %s: %s\n", what, name);
  return 1;
}

}  // namespace

int main(int argc, char** argv) {
  Options options;
  if (!read_options(argc, argv, options)) {
    std::fputs(kUsage, stderr);
    return 2;
  }
  const group* group = getgrnam(options.group);
  if (group == nullptr) return fail("there is no such group", options.group);
  Rights rights{.group = group->gr_gid};
  if (options.wait) wait_for_database();
  if (options.user != nullptr) {
    const passwd* user = getpwnam(options.user);
    if (user == nullptr || user->pw_uid == 0) return fail("there is no such ordinary user", options.user);
    if (!end_processes_of(user->pw_uid)) return fail("cannot end the processes of", options.user);
  }
  rights.links_protected = protect_links();
  give_settings(rights, psia::kSettingsDirectory, "morvid.db", "morvid.db-journal");
  give_settings(rights, psia::kDefaultsDirectory, "default.db", "default.db-journal");
  give_exchange_directory(rights);
  give_factory_data(rights);
  give_socket_directory(rights, options.makes_socket);
  return rights.failed ? 1 : 0;
}
