// The result of a query: all values as texts, in one block of memory.
#pragma once

#include <cstddef>
#include <cstdint>

struct sqlite3_stmt;

namespace psia {

/// The result of a query; owns it. Rows and columns are counted from 0.
class Rows {
 public:
  Rows() = default;
  ~Rows();
  Rows(const Rows&) = delete;
  Rows& operator=(const Rows&) = delete;
  Rows(Rows&& other) noexcept;
  Rows& operator=(Rows&& other) = delete;

  /// True when the statement ran, even when it gave no row.
  [[nodiscard]] bool succeeded() const { return outcome_ == Outcome::kSucceeded; }
  /// False when the statement did not run or its failure may be transient. Then finding no row proves
  /// nothing. The database is locked or closed, memory is short, an input or output failed, or the file seems
  /// damaged: SQLite reports some failed reads as damage.
  [[nodiscard]] bool certain() const {
    return outcome_ != Outcome::kTransientFailure && outcome_ != Outcome::kDamaged;
  }
  /// True when the statement failed because of what the file holds: it is no database, it seems damaged, or
  /// it lacks the table or a column.
  [[nodiscard]] bool unreadable() const {
    return outcome_ == Outcome::kUnreadable || outcome_ == Outcome::kDamaged;
  }
  /// True when the statement ran and gave at least one row.
  [[nodiscard]] bool found() const { return count_ > 0; }
  [[nodiscard]] int count() const { return count_; }

  /// The value as text; empty for NULL and for a row or column that is not there. Lives as long as the rows.
  [[nodiscard]] const char* text(int row, int column) const;
  /// The value as a number (see to_int32); 0 for NULL and for a row or column that is not there.
  [[nodiscard]] std::int32_t number(int row, int column) const;
  [[nodiscard]] bool is_null(int row, int column) const;

 private:
  friend class Connection;
  enum class Outcome { kSucceeded, kTransientFailure, kDamaged, kUnreadable, kOtherFailure };

  /// Appends the row at which the statement stands. False when memory is short.
  [[nodiscard]] bool append_row(sqlite3_stmt* statement);
  /// A null `text` is a NULL.
  [[nodiscard]] bool append_cell(const char* text, std::size_t length);
  [[nodiscard]] bool grow_to(std::size_t bytes);
  /// Sets the outcome by an SQLite result code. A result that is not whole is none.
  void finish(int result);
  [[nodiscard]] const char* cell(int row, int column) const;

  // The texts, each with a zero byte behind it, from the start of the block; where each begins, in the
  // words from its end on. A NULL begins at 0, where no text does.
  std::uint32_t* block_ = nullptr;
  std::size_t words_ = 0;       // of the block, 4 bytes each
  std::size_t text_bytes_ = 1;  // from the start
  std::size_t cells_ = 0;
  int count_ = 0;
  int columns_ = 0;
  Outcome outcome_ = Outcome::kTransientFailure;
};

}  // namespace psia
