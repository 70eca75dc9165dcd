#include "frame/database.h"

#include <sqlite3.h>

#include <cstdarg>
#include <cstring>
#include <utility>

#include "frame/numbers.h"
#include "frame/sleep.h"
#include "frame/stop.h"

namespace psia {

namespace {

/// Called by SQLite with the number of earlier calls for the same lock; 0 gives the statement up. A stop ends
/// the waits once one was in vain: a list that a client sends may need thousands of statements.
int wait_for_lock(void* waited_in_vain, int calls) {
  auto& in_vain = *static_cast<bool*>(waited_in_vain);
  in_vain = in_vain || calls > 5;
  if (calls > 5 || (in_vain && stop_waiting())) return 0;
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

bool run(sqlite3* connection, const char* statement) {
  return connection != nullptr && statement != nullptr &&
         sqlite3_exec(connection, statement, nullptr, nullptr, nullptr) == SQLITE_OK;
}

/// Whether that is why the last statement failed. SQLite has no code of its own for it.
bool table_is_missing(sqlite3* connection) {
  return std::strncmp(sqlite3_errmsg(connection), "no such table", std::strlen("no such table")) == 0;
}

}  // namespace

Rows::~Rows() {
  sqlite3_free_table(table_);
}

Rows::Rows(Rows&& other) noexcept
    : table_(std::exchange(other.table_, nullptr)),
      count_(std::exchange(other.count_, 0)),
      columns_(std::exchange(other.columns_, 0)),
      succeeded_(std::exchange(other.succeeded_, false)),
      certain_(std::exchange(other.certain_, false)) {}

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
  // One thread uses SQLite, so it needs no locks of its own; this must be said before its first use.
  sqlite3_config(SQLITE_CONFIG_SINGLETHREAD);
  // Nobody asks how much memory it uses, and counting costs each call.
  sqlite3_config(SQLITE_CONFIG_MEMSTATUS, 0);
  if (sqlite3_open(path, &connection_) != SQLITE_OK) {
    sqlite3_close(std::exchange(connection_, nullptr));
    return false;
  }
  sqlite3_busy_handler(connection_, wait_for_lock, &waited_in_vain_);
  return true;
}

Rows Database::query(const char* format, ...) {
  va_list arguments;
  va_start(arguments, format);
  char* statement = build_statement(format, arguments);
  va_end(arguments);
  Rows rows;
  if (connection_ != nullptr && statement != nullptr) {
    const int result =
        sqlite3_get_table(connection_, statement, &rows.table_, &rows.count_, &rows.columns_, nullptr);
    rows.succeeded_ = result == SQLITE_OK;
    if (rows.succeeded_) waited_in_vain_ = false;
    rows.certain_ = rows.succeeded_ || (result == SQLITE_ERROR && table_is_missing(connection_));
  }
  sqlite3_free(statement);
  return rows;
}

bool Database::execute(const char* format, ...) {
  va_list arguments;
  va_start(arguments, format);
  char* statement = build_statement(format, arguments);
  va_end(arguments);
  const bool done = run(connection_, statement);
  sqlite3_free(statement);
  return done;
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
