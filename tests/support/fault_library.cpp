// Loaded into the unmodified service by LD_PRELOAD: makes the Nth operation of a kind fail, and time pass
// faster, as the test's plan says.
#include <dlfcn.h>
#include <fcntl.h>
#include <sys/mman.h>
#include <sys/msg.h>
#include <sys/socket.h>
#include <sys/time.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <csignal>
#include <cstdarg>
#include <ctime>
#include <string_view>

namespace {

// What a test and this library tell each other, in a file that both map; see FaultPlan in faults.py.

constexpr const char* kFaultPlanFile = PSIA_SETTINGS_DIR "/faults";

/// Allocations, SQLite's writes, flushes, locks and reads; kStop: a SIGTERM just before an accept or a send
/// that blocks.
enum FaultKind : int { kNoFault, kMemory, kWrite, kSync, kLock, kStop, kRead };

struct FaultPlan {
  std::atomic<int> kind;
  std::atomic<int> skip;   ///< so many operations go well before
  std::atomic<int> fail;   ///< so many that fail then; counts down
  std::atomic<int> speed;  ///< clocks and waits run so many times faster; 0 as 1
  std::atomic<int> slept;  ///< milliseconds of all sleeps, as they were asked for
};

FaultPlan* plan = nullptr;

__attribute__((constructor)) void read_plan() {
  const int file = open(kFaultPlanFile, O_RDWR | O_CLOEXEC);
  void* const page = mmap(nullptr, sizeof *plan, PROT_READ | PROT_WRITE, MAP_SHARED, file, 0);
  if (page != MAP_FAILED) plan = static_cast<FaultPlan*>(page);
  close(file);
}

/// Whether this operation is one of those that are to fail.
bool fails(FaultKind kind) {
  if (plan == nullptr || plan->kind != kind || plan->skip-- > 0) return false;
  return plan->fail-- > 0;
}

long speed() {
  return plan == nullptr || plan->speed < 1 ? 1 : plan->speed.load();
}

template <typename Function>
Function* original(Function* /*like*/, const char* name) {
  return reinterpret_cast<Function*>(dlsym(RTLD_NEXT, name));
}

}  // namespace

extern "C" {

#if !defined(__SANITIZE_ADDRESS__)  // which needs the allocations for itself
/// Only those of the service, libxml2 and SQLite: out of memory libfcgi and the C++ library end the process.
static bool allocation_fails(const void* caller) {
  Dl_info info{};
  if (plan == nullptr || plan->kind != kMemory || dladdr(caller, &info) == 0) return false;
  const std::string_view object = info.dli_fname;
  const auto is = [object](const char* name) { return object.find(name) != std::string_view::npos; };
  return (is("psia.fcgi") || is("libxml2") || is("libsqlite3")) && fails(kMemory);
}

// NOLINTBEGIN(readability-identifier-naming): the C library's names
void* __libc_malloc(std::size_t size);
void* __libc_calloc(std::size_t count, std::size_t size);
void* __libc_realloc(void* block, std::size_t size);
// NOLINTEND(readability-identifier-naming)

void* malloc(std::size_t size) {
  return allocation_fails(__builtin_return_address(0)) ? nullptr : __libc_malloc(size);
}

void* calloc(std::size_t count, std::size_t size) {
  return allocation_fails(__builtin_return_address(0)) ? nullptr : __libc_calloc(count, size);
}

void* realloc(void* block, std::size_t size) {
  return allocation_fails(__builtin_return_address(0)) ? nullptr : __libc_realloc(block, size);
}
#endif

ssize_t pwrite64(int file, const void* bytes, std::size_t size, off64_t offset) {
  return fails(kWrite) ? (errno = ENOSPC, -1) : original(&pwrite64, "pwrite64")(file, bytes, size, offset);
}

ssize_t pread64(int file, void* bytes, std::size_t size, off64_t offset) {
  return fails(kRead) ? (errno = EIO, -1) : original(&pread64, "pread64")(file, bytes, size, offset);
}

int fdatasync(int file) {
  return fails(kSync) ? (errno = EIO, -1) : original(&fdatasync, "fdatasync")(file);
}

int fcntl64(int file, int command, ...) {
  va_list arguments;
  va_start(arguments, command);
  auto* const lock = va_arg(arguments, struct flock*);
  va_end(arguments);
  if (command == F_SETLK && lock->l_type != F_UNLCK && fails(kLock)) return errno = EAGAIN, -1;
  return original(&fcntl64, "fcntl64")(file, command, lock);
}

int accept(int listener, sockaddr* address, socklen_t* size) {
  if (fails(kStop)) raise(SIGTERM);
  return original(&accept, "accept")(listener, address, size);
}

int msgsnd(int queue, const void* message, std::size_t size, int flags) {
  if ((flags & IPC_NOWAIT) == 0 && fails(kStop)) raise(SIGTERM);
  return original(&msgsnd, "msgsnd")(queue, message, size, flags);
}

int clock_nanosleep(clockid_t clock, int flags, const timespec* wanted, timespec* /*left*/) {
  const long asked = wanted->tv_sec * 1000000000L + wanted->tv_nsec;
  if (plan != nullptr) plan->slept += static_cast<int>(asked / 1000000);
  const long nanoseconds = asked / speed();
  timespec time{nanoseconds / 1000000000L, nanoseconds % 1000000000L};
  // Signals do not end it: the service would sleep on in any case, and `slept` would count the rest twice.
  while (original(&clock_nanosleep, "clock_nanosleep")(clock, flags, &time, &time) == EINTR) {
  }
  return 0;
}

int setitimer(__itimer_which_t which, const itimerval* wanted, itimerval* old) noexcept {
  const auto faster = [](const timeval& time) {
    const long microseconds = (time.tv_sec * 1000000L + time.tv_usec + speed() - 1) / speed();
    return timeval{microseconds / 1000000L, microseconds % 1000000L};
  };
  const itimerval timer{faster(wanted->it_interval), faster(wanted->it_value)};
  return original(&setitimer, "setitimer")(which, &timer, old);
}

int clock_gettime(clockid_t clock, timespec* time) noexcept {
  const int result = original(&clock_gettime, "clock_gettime")(clock, time);
  const long nanoseconds = (time->tv_sec % 1000000L * 1000000000L + time->tv_nsec) * speed();
  if (clock == CLOCK_MONOTONIC) *time = {nanoseconds / 1000000000L, nanoseconds % 1000000000L};
  return result;
}
}
