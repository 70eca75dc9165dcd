#include "frame/database.h"

#include <sqlite3.h>
#include <sys/stat.h>

#include <cstdarg>
#include <cstring>
#include <utility>

#include "frame/numbers.h"
#include "frame/paths.h"
#include "frame/sleep.h"
#include "frame/stop.h"

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

/// True when a text value (%s) among the arguments of a statement holds a single quote.
bool any_text_has_quote(const char* format, va_list arguments) {
  bool quoted = false;
  for (const char* at = std::strchr(format, '%'); at != nullptr; at = std::strchr(at + 2, '%')) {
    if (at[1] == 's') {
      quoted = quoted || std::strchr(va_arg(arguments, const char*), '\'') != nullptr;
    } else {
      va_arg(arguments, int);  // %d is the only other directive in the service's statements
    }
  }
  return quoted;
}

/// The finished statement, to be freed with sqlite3_free; null when a value holds a quote or memory is short.
char* build_statement(const char* format, va_list arguments) {
  va_list values;
  va_copy(values, arguments);
  const bool quoted = any_text_has_quote(format, values);
  va_end(values);
  return quoted ? nullptr : sqlite3_vmprintf(format, arguments);
}

/// The SQLite result code.
int run(sqlite3* connection, const char* statement) {
  if (connection == nullptr || statement == nullptr) return SQLITE_MISUSE;
  return sqlite3_exec(connection, statement, nullptr, nullptr, nullptr);
}

/// Some file systems keep times in whole seconds, so two writes within a second may leave the same time.
constexpr std::time_t kSettledSeconds = 2;

}  // namespace

Rows::~Rows() {
  sqlite3_free_table(table_);
}

Rows::Rows(Rows&& other) noexcept
    : table_(std::exchange(other.table_, nullptr)),
      count_(std::exchange(other.count_, 0)),
      columns_(std::exchange(other.columns_, 0)),
      outcome_(other.outcome_) {}

Rows::Outcome Rows::outcome_of(int result) {
  switch (result) {
    case SQLITE_OK:
      return Outcome::kSucceeded;
    case SQLITE_BUSY:
    case SQLITE_LOCKED:
    case SQLITE_IOERR:
    case SQLITE_NOMEM:
      return Outcome::kTransientFailure;
    case SQLITE_ERROR:
    case SQLITE_CORRUPT:
    case SQLITE_NOTADB:
      return Outcome::kUnreadable;
    default:
      return Outcome::kOtherFailure;
  }
}

const char* Rows::cell(int row, int column) const {
  if (row < 0 || row >= count_ || column < 0 || column >= columns_) return nullptr;
  return table_[(row + 1) * columns_ + column];
}

const char* Rows::text(int row, int column) const {
  const char* value = cell(row, column);
  return value == nullptr ? "" : value;
}

std::int32_t Rows::number(int row, int column) const {
  return to_int32(text(row, column));
}

bool Rows::is_null(int row, int column) const {
  return cell(row, column) == nullptr;
}

Database::~Database() {
  sqlite3_close(connection_);
  sqlite3_close(defaults_);
}

bool Database::open(const char* path) {
  path_ = path;
  // One thread uses SQLite, so it needs no locks of its own; this must be said before its first use.
  sqlite3_config(SQLITE_CONFIG_SINGLETHREAD);
  // Nobody asks how much memory it uses, and counting costs each call.
  sqlite3_config(SQLITE_CONFIG_MEMSTATUS, 0);
  file_ = file_state();
  if (sqlite3_open(path, &connection_) != SQLITE_OK) {
    sqlite3_close(std::exchange(connection_, nullptr));
    return false;
  }
  sqlite3_busy_handler(connection_, wait_for_lock, &waited_in_vain_);
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
          .settled = status.st_ctim.tv_sec + kSettledSeconds <= now.tv_sec};
}

bool Database::follow_file() {
  if (connection_ == nullptr) return true;
  const FileState now = file_state();
  if (now.inode == 0) return true;
  if (now.inode != file_.inode || now.device != file_.device) return open_again();
  const bool unchanged = file_.settled && now.changed.tv_sec == file_.changed.tv_sec &&
                         now.changed.tv_nsec == file_.changed.tv_nsec;
  if (!unchanged) sqlite3_db_release_memory(connection_);
  file_ = now;
  return true;
}

bool Database::open_again() {
  if (connection_ == nullptr) return false;
  const FileState file = file_state();  // before the file is opened: a replacement in between is seen later
  sqlite3* connection = nullptr;
  // Unlike sqlite3_open this makes no file where there is none: one that is about to be put there is opened
  // by a later request.
  const bool opened = sqlite3_open_v2(path_, &connection, SQLITE_OPEN_READWRITE, nullptr) == SQLITE_OK;
  if (opened) {
    sqlite3_busy_handler(connection, wait_for_lock, &waited_in_vain_);
    std::swap(connection, connection_);
    file_ = file;
  }
  sqlite3_close(connection);
  return opened;
}

Rows Database::query(const char* format, ...) {
  va_list arguments;
  va_start(arguments, format);
  char* statement = build_statement(format, arguments);
  va_end(arguments);
  Rows rows;
  if (connection_ != nullptr && statement != nullptr && transaction_ != TransactionState::kFailed) {
    const int result =
        sqlite3_get_table(connection_, statement, &rows.table_, &rows.count_, &rows.columns_, nullptr);
    take_result(result);
    rows.outcome_ = Rows::outcome_of(result);
    if (rows.succeeded()) waited_in_vain_ = false;
  }
  sqlite3_free(statement);
  return rows;
}

bool Database::execute(const char* format, ...) {
  va_list arguments;
  va_start(arguments, format);
  char* statement = build_statement(format, arguments);
  va_end(arguments);
  const bool done = begin_expected_transaction() && run(connection_, statement) == SQLITE_OK;
  sqlite3_free(statement);
  return done;
}

bool Database::begin_expected_transaction() {
  if (transaction_ == TransactionState::kNone) return true;
  if (transaction_ == TransactionState::kFailed) return false;
  // Some failures, a full medium for instance, make SQLite roll the whole transaction back.
  if (transaction_ == TransactionState::kOpen) return sqlite3_get_autocommit(connection_) == 0;
  // Locked from the start: a transaction that only reads at first could later not get the lock, and would
  // keep the daemons from theirs.
  const int result = run(connection_, "begin immediate");
  take_result(result);
  if (result != SQLITE_OK) return false;
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
  if (run(database_.connection_, "commit") == SQLITE_OK) return true;
  run(database_.connection_, "rollback");
  return false;
}

void Database::store_identifier(const char* identifier) {
  char* statement = sqlite3_mprintf("update system set uuid='%s'", identifier);
  run(connection_, statement);
  sqlite3_close(std::exchange(defaults_, nullptr));  // what an earlier open that failed left
  if (sqlite3_open(kDefaultsDatabase, &defaults_) == SQLITE_OK) {
    run(defaults_, statement);
    sqlite3_close(std::exchange(connection_, nullptr));
  }
  if (defaults_ != nullptr) sqlite3_busy_handler(defaults_, wait_for_lock, &waited_in_vain_);
  sqlite3_free(statement);
}

}  // namespace psia
