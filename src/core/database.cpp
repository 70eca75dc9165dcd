#include "core/database.h"

#include <sqlite3.h>
#include <sys/stat.h>

#include <cstdarg>
#include <cstdint>
#include <utility>

#include "core/paths.h"
#include "core/sleep.h"
#include "core/stop.h"

namespace psia {

namespace {

/// Called by SQLite with the number of earlier calls for the same lock. Returning 0 fails the statement.
/// After one failed wait a stop skips the others: a list that a client sends may need thousands of
/// statements.
int wait_for_lock(void* waited_in_vain, int calls) {
  auto& in_vain = *static_cast<bool*>(waited_in_vain);
  in_vain = in_vain || calls > 5;
  if (calls > 5 || (in_vain && stop_requested())) return 0;
  sleep_milliseconds(50 * (calls + 1));
  return 1;
}

/// True when a write at `now` gives a file another time than `changed`. The kernel's clock for files ticks at
/// least every 10 ms. Some file systems keep only whole seconds of it.
bool has_settled(const timespec& changed, const timespec& now) {
  const std::int64_t seconds = now.tv_sec - changed.tv_sec;
  const std::int64_t milliseconds = seconds * 1000 + (now.tv_nsec - changed.tv_nsec) / 1000000;
  return changed.tv_nsec == 0 ? seconds > 2 : milliseconds > 50;
}

}  // namespace

bool Database::open(const char* path) {
  path_ = path;
  // One thread uses SQLite, so it needs no locks of its own; this must be said before its first use.
  sqlite3_config(SQLITE_CONFIG_SINGLETHREAD);
  // Nobody asks how much memory it uses, and counting costs each call.
  sqlite3_config(SQLITE_CONFIG_MEMSTATUS, 0);
  file_ = file_state();
  if (!connection_.open(path, SQLITE_OPEN_READWRITE | SQLITE_OPEN_CREATE)) return false;
  connection_.set_busy_handler(wait_for_lock, &waited_in_vain_);
  return true;
}

Database::FileState Database::file_state() const {
  struct stat status {};
  if (stat(path_, &status) != 0) return {};
  timespec now{};
  clock_gettime(CLOCK_REALTIME_COARSE, &now);  // the kernel's clock for the times of files
  return {.device = status.st_dev,
          .inode = status.st_ino,
          .changed = status.st_ctim,
          .settled = has_settled(status.st_ctim, now)};
}

bool Database::follow_file() {
  if (!connection_.is_open()) return true;
  const FileState now = file_state();
  if (now.inode == 0) return true;
  if (now.inode != file_.inode || now.device != file_.device) return open_again();
  const bool unchanged = file_.settled && now.changed.tv_sec == file_.changed.tv_sec &&
                         now.changed.tv_nsec == file_.changed.tv_nsec;
  if (!unchanged) connection_.forget_pages();
  file_ = now;
  return true;
}

bool Database::open_again() {
  if (!connection_.is_open()) return false;
  const FileState file = file_state();  // before the file is opened: a replacement in between is seen later
  // Without SQLITE_OPEN_CREATE: a file that is about to be put there is opened by a later request.
  if (!connection_.open(path_, SQLITE_OPEN_READWRITE)) return false;
  connection_.set_busy_handler(wait_for_lock, &waited_in_vain_);
  file_ = file;
  return true;
}

Rows Database::query(const char* format, ...) {
  Rows rows;
  if (transaction_ == TransactionState::kFailed) return rows;
  std::va_list arguments;
  va_start(arguments, format);
  take_result(connection_.run_with(&rows, format, arguments));
  va_end(arguments);
  if (rows.succeeded()) waited_in_vain_ = false;
  return rows;
}

bool Database::execute(const char* format, ...) {
  if (!begin_expected_transaction()) return false;
  std::va_list arguments;
  va_start(arguments, format);
  const int result = connection_.run_with(nullptr, format, arguments);
  va_end(arguments);
  return result == SQLITE_DONE;
}

bool Database::begin_expected_transaction() {
  if (transaction_ == TransactionState::kNone) return true;
  if (transaction_ == TransactionState::kFailed) return false;
  // Some failures, a full medium for instance, make SQLite roll the whole transaction back.
  if (transaction_ == TransactionState::kOpen) return connection_.in_transaction();
  // Locked from the start: a transaction that only reads at first could later not get the lock, and would
  // keep the daemons from theirs.
  const int result = connection_.run(nullptr, "begin immediate");
  take_result(result);
  if (result != SQLITE_DONE) return false;
  transaction_ = TransactionState::kOpen;
  return true;
}

void Database::take_result(int result) {
  if (result == SQLITE_BUSY && transaction_ == TransactionState::kExpected) {
    transaction_ = TransactionState::kFailed;
  }
}

Transaction::Transaction(Database& database) : database_(database) {
  database_.transaction_ = Database::TransactionState::kExpected;
}

Transaction::~Transaction() {
  (void)commit();
}

bool Transaction::commit() {
  const auto state = std::exchange(database_.transaction_, Database::TransactionState::kNone);
  if (state != Database::TransactionState::kOpen) return true;
  if (database_.connection_.run(nullptr, "commit") == SQLITE_DONE) return true;
  (void)database_.connection_.run(nullptr, "rollback");
  return false;
}

void Database::store_identifier(const char* identifier) {
  constexpr const char* statement = "update system set uuid='%s'";
  (void)connection_.run(nullptr, statement, identifier);
  if (!defaults_.open(kDefaultsDatabase, SQLITE_OPEN_READWRITE | SQLITE_OPEN_CREATE)) return;
  (void)defaults_.run(nullptr, statement, identifier);
  connection_.close();
  defaults_.set_busy_handler(wait_for_lock, &waited_in_vain_);
}

}  // namespace psia
