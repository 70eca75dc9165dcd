#include "simulator/camera/run_directory.h"

#include <fcntl.h>
#include <sys/file.h>
#include <unistd.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <system_error>

namespace camera {
namespace {

namespace fs = std::filesystem;

constexpr const char* kOwner = "/owner";           // locked as long as its run lives; holds process and port
constexpr const char* kMark = "camera-simulator";  // its first word

/// Locks the owner file of a directory that an ended run has left. Without a descriptor when the directory is
/// in use, or was not made by a run: somebody else's directory has no such file.
Descriptor lock_left_directory(const std::string& directory) {
  const std::string path = directory + kOwner;
  std::string mark;
  std::ifstream(path) >> mark;
  Descriptor owner(open(path.c_str(), O_RDWR | O_NOFOLLOW | O_CLOEXEC));
  if (mark != kMark || (owner.number >= 0 && flock(owner.number, LOCK_EX | LOCK_NB) != 0)) owner.reset();
  return owner;
}

}  // namespace

Descriptor lock_file(const std::string& path) {
  Descriptor file(open(path.c_str(), O_RDWR | O_CREAT | O_CLOEXEC, 0600));
  if (file.number >= 0 && flock(file.number, LOCK_EX | LOCK_NB) != 0) file.reset();
  return file;
}

RunDirectory::RunDirectory(const std::string& base, int port) {
  std::error_code fault;
  fs::create_directories(base, fault);
  // One process at a time here, so that none removes a new directory before it is locked.
  const Descriptor turn(open((base + "/lock").c_str(), O_RDWR | O_CREAT | O_CLOEXEC, 0600));
  flock(turn.number, LOCK_EX);
  for (const fs::directory_entry& entry : fs::directory_iterator(base, fault)) {
    if (entry.symlink_status(fault).type() != fs::file_type::directory) continue;
    const Descriptor left = lock_left_directory(entry.path().string());
    if (left.number >= 0) fs::remove_all(entry.path(), fault);
  }
  std::string path = base + "/XXXXXX";
  if (mkdtemp(path.data()) == nullptr) {
    fault_ = system_error("Cannot create a directory in " + base);
    return;
  }
  path_ = path;
  removal_.emplace(removal_of_directory(path_));  // before the lock, which its process would hold too
  lock_ = lock_file(path_ + kOwner);
  std::ofstream(path_ + kOwner) << kMark << " " << getpid() << " " << port << "\n";
}

std::vector<Run> find_runs(const std::string& base) {
  std::vector<Run> runs;
  std::error_code fault;
  for (const fs::directory_entry& entry : fs::directory_iterator(base, fault)) {
    const Descriptor owner(open((entry.path().string() + kOwner).c_str(), O_RDWR | O_CLOEXEC));
    if (owner.number < 0 || flock(owner.number, LOCK_SH | LOCK_NB) == 0) continue;
    Run run;
    std::string mark;
    std::ifstream(entry.path().string() + kOwner) >> mark >> run.process >> run.port;
    if (run.process > 0) runs.push_back(run);
  }
  return runs;
}

}  // namespace camera
