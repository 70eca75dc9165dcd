// Loaded into the unmodified service by LD_PRELOAD: makes the Nth operation of a kind fail, and time pass
// faster, as the test's plan says.
#include <dlfcn.h>
#include <fcntl.h>
#include <link.h>
#include <sys/mman.h>
#include <sys/time.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <cstdarg>
#include <cstdint>
#include <cstring>
#include <ctime>

#include "tests/support/fault_plan.h"

namespace {

using psia_tests::FaultKind;

struct Range {
  std::uintptr_t begin;
  std::uintptr_t end;
};
enum Caller { kService, kXml, kSqlite, kCallers };
std::array<Range, kCallers> callers{};
psia_tests::FaultPlan* plan = nullptr;

int remember(dl_phdr_info* object, std::size_t /*size*/, void* /*data*/) {
  const bool is_service = object->dlpi_name[0] == '\0' && callers[kService].end == 0;
  const int caller = is_service                                     ? kService
                     : std::strstr(object->dlpi_name, "libxml2")    ? kXml
                     : std::strstr(object->dlpi_name, "libsqlite3") ? kSqlite
                                                                    : kCallers;
  for (int i = 0; caller != kCallers && i < object->dlpi_phnum; ++i) {
    const auto& part = object->dlpi_phdr[i];
    if (part.p_type != PT_LOAD || (part.p_flags & PF_X) == 0) continue;
    const std::uintptr_t begin = object->dlpi_addr + part.p_vaddr;
    callers[static_cast<std::size_t>(caller)] = {begin, begin + part.p_memsz};
  }
  return 0;
}

__attribute__((constructor)) void read_plan() {
  dl_iterate_phdr(remember, nullptr);
  const int file = open(psia_tests::kFaultPlanFile, O_RDWR | O_CLOEXEC);
  void* const page = mmap(nullptr, sizeof *plan, PROT_READ | PROT_WRITE, MAP_SHARED, file, 0);
  close(file);
  if (page != MAP_FAILED) plan = static_cast<psia_tests::FaultPlan*>(page);
}

bool called_from(const void* address, Caller caller) {
  const auto at = reinterpret_cast<std::uintptr_t>(address);
  return at >= callers[caller].begin && at < callers[caller].end;
}

/// Whether this operation is one of those that are to fail.
bool fails(FaultKind kind) {
  if (plan == nullptr || plan->kind != kind) return false;
  if (plan->skip > 0) return --plan->skip, false;
  if (plan->fail <= 0) return false;
  --plan->fail;
  return true;
}

bool memory_fails(const void* caller) {
  return plan != nullptr && plan->kind == psia_tests::kMemory &&
         (called_from(caller, kService) || called_from(caller, kXml) || called_from(caller, kSqlite)) &&
         fails(psia_tests::kMemory);
}

long speed() {
  return plan == nullptr || plan->speed < 1 ? 1 : plan->speed.load();
}

template <typename Function>
Function* original(Function* /*like*/, const char* name) {
  return reinterpret_cast<Function*>(dlsym(RTLD_NEXT, name));
}

int set_lock(int descriptor, int command, void* argument, const void* caller) {
  const bool locks = command == F_SETLK && static_cast<struct flock*>(argument)->l_type != F_UNLCK;
  if (locks && called_from(caller, kSqlite) && fails(psia_tests::kLock)) return errno = EAGAIN, -1;
  static auto* const next = original<int(int, int, ...)>(nullptr, "fcntl64");
  return next(descriptor, command, argument);
}

}  // namespace

extern "C" {

void* __libc_malloc(std::size_t size);
void* __libc_calloc(std::size_t count, std::size_t size);
void* __libc_realloc(void* block, std::size_t size);

void* malloc(std::size_t size) {
  return memory_fails(__builtin_return_address(0)) ? nullptr : __libc_malloc(size);
}

void* calloc(std::size_t count, std::size_t size) {
  return memory_fails(__builtin_return_address(0)) ? nullptr : __libc_calloc(count, size);
}

void* realloc(void* block, std::size_t size) {
  return memory_fails(__builtin_return_address(0)) ? nullptr : __libc_realloc(block, size);
}

ssize_t write(int descriptor, const void* bytes, std::size_t size) {
  static auto* const next = original(&write, "write");
  if (called_from(__builtin_return_address(0), kSqlite) && fails(psia_tests::kWrite)) return errno = EIO, -1;
  return next(descriptor, bytes, size);
}

ssize_t pwrite64(int descriptor, const void* bytes, std::size_t size, off64_t offset) {
  static auto* const next = original(&pwrite64, "pwrite64");
  if (called_from(__builtin_return_address(0), kSqlite) && fails(psia_tests::kWrite))
    return errno = ENOSPC, -1;
  return next(descriptor, bytes, size, offset);
}

int fsync(int descriptor) {
  static auto* const next = original(&fsync, "fsync");
  return fails(psia_tests::kSync) ? (errno = EIO, -1) : next(descriptor);
}

int fdatasync(int descriptor) {
  static auto* const next = original(&fdatasync, "fdatasync");
  return fails(psia_tests::kSync) ? (errno = EIO, -1) : next(descriptor);
}

int fcntl64(int descriptor, int command, ...) {
  va_list arguments;
  va_start(arguments, command);
  void* const argument = va_arg(arguments, void*);
  va_end(arguments);
  return set_lock(descriptor, command, argument, __builtin_return_address(0));
}

int clock_nanosleep(clockid_t clock, int flags, const timespec* wanted, timespec* left) {
  static auto* const next = original(&clock_nanosleep, "clock_nanosleep");
  const long nanoseconds = (wanted->tv_sec * 1000000000L + wanted->tv_nsec) / speed();
  const timespec time{nanoseconds / 1000000000L, nanoseconds % 1000000000L};
  return next(clock, flags, &time, left);
}

int setitimer(__itimer_which_t which, const itimerval* wanted, itimerval* old) noexcept {
  static auto* const next = original(&setitimer, "setitimer");
  const long microseconds = (wanted->it_value.tv_sec * 1000000L + wanted->it_value.tv_usec) / speed() + 1;
  const itimerval timer{{}, {microseconds / 1000000L, microseconds % 1000000L}};
  return next(which, &timer, old);
}

int clock_gettime(clockid_t clock, timespec* time) noexcept {
  static auto* const next = original(&clock_gettime, "clock_gettime");
  const int result = next(clock, time);
  if (clock == CLOCK_MONOTONIC && speed() > 1) {
    const long nanoseconds = (time->tv_sec % 1000000L * 1000000000L + time->tv_nsec) * speed();
    *time = {nanoseconds / 1000000000L, nanoseconds % 1000000000L};
  }
  return result;
}
}
