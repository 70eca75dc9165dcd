#include "core/connection.h"

#include <sqlite3.h>

#include <algorithm>
#include <cstring>
#include <utility>

namespace psia {

namespace {

constexpr std::size_t kMaxStatementText = 256;  // bytes

}  // namespace

bool Connection::open(const char* path, int flags) {
  sqlite3* database = nullptr;
  if (sqlite3_open_v2(path, &database, flags, nullptr) != SQLITE_OK) {
    sqlite3_close(database);
    return false;
  }
  close();
  database_ = database;
  return true;
}

void Connection::close() {
  forget_all();
  sqlite3_close(std::exchange(database_, nullptr));
}

void Connection::set_busy_handler(int (*handler)(void*, int), void* argument) {
  sqlite3_busy_handler(database_, handler, argument);
}

void Connection::forget_pages() {
  sqlite3_db_release_memory(database_);
}

bool Connection::in_transaction() const {
  return sqlite3_get_autocommit(database_) == 0;
}

int Connection::run(Rows* rows, const char* format, ...) {
  std::va_list arguments;
  va_start(arguments, format);
  const int result = run_with(rows, format, arguments);
  va_end(arguments);
  return result;
}

int Connection::run_with(Rows* rows, const char* format, std::va_list arguments) {
  if (!is_open()) return kNotRun;
  const Statement& statement = select(format);
  if (statement.values > kMostValues) return kNotRun;
  Value values[kMostValues];
  for (unsigned i = 0; i < statement.values; ++i) {
    Value& value = values[i];
    value = {};
    // The caller has started the arguments, which the analyzer loses sight of.
    // NOLINTBEGIN(clang-analyzer-valist.Uninitialized)
    if ((statement.texts >> i & 1U) == 0) {
      value.number = va_arg(arguments, int);
      continue;
    }
    value.text = va_arg(arguments, const char*);
    // NOLINTEND(clang-analyzer-valist.Uninitialized)
    value.length = std::strlen(value.text);
    if (std::memchr(value.text, '\'', value.length) != nullptr) return kNotRun;
  }
  const int result = run_first(rows, values);
  if (result != SQLITE_DONE) {
    forget_first();  // whatever the reason is, the next attempt begins anew
  } else if (sqlite3_stmt_status(statement.compiled, SQLITE_STMTSTATUS_REPREPARE, 0) != 0) {
    // A daemon has changed the tables. Statements that can no longer be compiled must not be started, so that
    // no trace shows them.
    forget_all();
  }
  if (rows != nullptr) rows->finish(result);
  return result;
}

Connection::Statement& Connection::select(const char* format) {
  std::size_t place = 0;
  while (place < kept_ && statements_[place].format != format)
    ++place;
  Statement statement{format, nullptr, 0, 0};
  if (place < kept_) {
    statement = statements_[place];
  } else {
    if (kept_ == kKeptStatements) {
      sqlite3_finalize(statements_[--place].compiled);
    } else {
      ++kept_;
    }
    for (const char* at = format; (at = std::strchr(at, '%')) != nullptr; at += 2) {
      if (at[1] == 's') statement.texts |= 1U << statement.values;
      ++statement.values;
    }
  }
  std::copy_backward(statements_.begin(), statements_.begin() + place, statements_.begin() + place + 1);
  return statements_.front() = statement;
}

int Connection::run_first(Rows* rows, const Value* values) {
  Statement& statement = statements_.front();
  if (statement.compiled == nullptr) {
    if (const int result = compile(statement); result != SQLITE_OK) return result;
  }
  for (unsigned i = 0; i < statement.values; ++i) {
    const int result = bind(statement.compiled, static_cast<int>(i) + 1, values[i]);
    if (result != SQLITE_OK) return result;
  }
  int result = sqlite3_step(statement.compiled);
  while (result == SQLITE_ROW) {
    const bool stored = rows == nullptr || rows->append_row(statement.compiled);
    result = stored ? sqlite3_step(statement.compiled) : SQLITE_NOMEM;
  }
  sqlite3_reset(statement.compiled);
  if (statement.texts != 0) sqlite3_clear_bindings(statement.compiled);  // they belong to the caller
  return result;
}

int Connection::bind(sqlite3_stmt* statement, int index, const Value& value) {
  if (value.text == nullptr) return sqlite3_bind_int(statement, index, value.number);
  return sqlite3_bind_text(statement, index, value.text, static_cast<int>(value.length), SQLITE_STATIC);
}

int Connection::compile(Statement& statement) {
  char text[kMaxStatementText];
  std::size_t length = 0;
  for (const char* at = statement.format; *at != '\0';) {
    if (length + 1 == kMaxStatementText) return SQLITE_TOOBIG;
    const bool is_text = std::strncmp(at, "'%s'", 4) == 0;
    const bool is_number = std::strncmp(at, "%d", 2) == 0;
    text[length++] = is_text || is_number ? '?' : *at;
    at += is_text ? 4 : is_number ? 2 : 1;
  }
  text[length++] = '\0';
  return sqlite3_prepare_v3(database_, text, static_cast<int>(length), SQLITE_PREPARE_PERSISTENT,
                            &statement.compiled, nullptr);
}

void Connection::forget_all() {
  for (; kept_ > 0; --kept_)
    sqlite3_finalize(statements_[kept_ - 1].compiled);
}

void Connection::forget_first() {
  sqlite3_finalize(statements_.front().compiled);
  std::copy(statements_.begin() + 1, statements_.begin() + kept_, statements_.begin());
  --kept_;
}

}  // namespace psia
