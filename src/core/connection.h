// A connection to an SQLite database that compiles each statement once: most of what a short statement costs
// is its compilation.
#pragma once

#include <array>
#include <cstdarg>
#include <cstddef>

#include "core/rows.h"

struct sqlite3;
struct sqlite3_stmt;

namespace psia {

/// Statements are literals in which a text value stands as '%s' and a number as %d. The values are bound; a
/// trace of the database shows the text with the values in it. A text value that holds a single quote makes
/// its statement fail without being run, as it would if it stood in the text.
///
/// Each statement is run to its end and reset, so none holds a lock afterwards.
class Connection {
 public:
  /// What `run` gives, besides SQLite's result codes, for a statement that was not run: the connection is
  /// closed or a value holds a quote.
  static constexpr int kNotRun = -1;

  Connection() = default;
  ~Connection() { close(); }
  Connection(const Connection&) = delete;
  Connection& operator=(const Connection&) = delete;
  Connection(Connection&&) = delete;
  Connection& operator=(Connection&&) = delete;

  /// Opens a file with the flags of sqlite3_open_v2, in place of the one that was open. False when that
  /// fails; then nothing changes.
  [[nodiscard]] bool open(const char* path, int flags);
  void close();
  [[nodiscard]] bool is_open() const { return database_ != nullptr; }

  /// SQLite calls `handler` with `argument` when a lock must be awaited; see sqlite3_busy_handler.
  void set_busy_handler(int (*handler)(void*, int), void* argument);
  /// Forgets the pages of the file that are kept in memory.
  void forget_pages();
  /// True between a "begin" and the end of the transaction, which may be a failure.
  [[nodiscard]] bool in_transaction() const;

  /// Runs a statement and stores its rows in `rows`, unless that is null. Gives SQLITE_DONE for success,
  /// another result code, or kNotRun.
  int run(Rows* rows, const char* format, ...) __attribute__((format(printf, 3, 4)));
  int run_with(Rows* rows, const char* format, std::va_list arguments);

 private:
  // The service has some fifty statements, of which a client uses a few all the time. Each takes 2 to 6 kB.
  static constexpr std::size_t kKeptStatements = 32;
  static constexpr std::size_t kMostValues = 16;  // of a statement

  struct Statement {
    const char* format;  // a literal, which its address identifies
    sqlite3_stmt* compiled;
    unsigned values;  // how many
    unsigned texts;   // bit n: value n is a text
  };

  struct Value {
    const char* text = nullptr;  // null for a number
    std::size_t length = 0;
    int number = 0;
  };

  /// Brings the statement to the front of those that are kept. A new one is not compiled yet.
  Statement& select(const char* format);
  [[nodiscard]] int run_first(Rows* rows, const Value* values);
  [[nodiscard]] static int bind(sqlite3_stmt* statement, int index, const Value& value);
  [[nodiscard]] int compile(Statement& statement);
  void forget_all();
  void forget_first();

  sqlite3* database_ = nullptr;                          // null while closed
  std::array<Statement, kKeptStatements> statements_{};  // the last used one first
  std::size_t kept_ = 0;
};

}  // namespace psia
