#include "core/rows.h"

#include <sqlite3.h>

#include <charconv>
#include <cstdlib>
#include <cstring>
#include <utility>

#include "core/numbers.h"

namespace psia {

namespace {

constexpr std::size_t kFirstWords = 128;                  // enough for a row of most tables
constexpr std::size_t kMaxWords = std::size_t{1} << 28U;  // of 4 bytes, so that 32 bits count the bytes
constexpr std::size_t kMaxDigits = 20;                    // of a 64-bit number, with its sign

}  // namespace

Rows::~Rows() {
  std::free(block_);
}

Rows::Rows(Rows&& other) noexcept
    : block_(std::exchange(other.block_, nullptr)),
      words_(std::exchange(other.words_, 0)),
      text_bytes_(std::exchange(other.text_bytes_, 1)),
      cells_(std::exchange(other.cells_, 0)),
      count_(std::exchange(other.count_, 0)),
      columns_(std::exchange(other.columns_, 0)),
      outcome_(other.outcome_) {}

const char* Rows::cell(int row, int column) const {
  if (row < 0 || row >= count_ || column < 0 || column >= columns_) return nullptr;
  const auto index =
      static_cast<std::size_t>(row) * static_cast<std::size_t>(columns_) + static_cast<std::size_t>(column);
  const std::uint32_t begin = block_[words_ - 1 - index];
  return begin == 0 ? nullptr : reinterpret_cast<const char*>(block_) + begin;
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

bool Rows::append_row(sqlite3_stmt* statement) {
  columns_ = sqlite3_column_count(statement);
  for (int column = 0; column < columns_; ++column) {
    sqlite3_value* const value = sqlite3_column_value(statement, column);
    const int type = sqlite3_value_type(value);
    if (type == SQLITE_INTEGER) {  // the most frequent type; SQLite's own conversion costs ten times as much
      char digits[kMaxDigits];
      const char* const end = std::to_chars(digits, digits + kMaxDigits, sqlite3_value_int64(value)).ptr;
      if (!append_cell(digits, static_cast<std::size_t>(end - digits))) return false;
      continue;
    }
    const auto* const text = reinterpret_cast<const char*>(sqlite3_value_text(value));
    if (text == nullptr && type != SQLITE_NULL) return false;
    if (!append_cell(text, static_cast<std::size_t>(sqlite3_value_bytes(value)))) return false;
  }
  ++count_;
  return true;
}

bool Rows::append_cell(const char* text, std::size_t length) {
  const std::size_t needed = text_bytes_ + length + 1 + (cells_ + 1) * sizeof *block_;
  if (needed > words_ * sizeof *block_ && !grow_to(needed)) return false;
  ++cells_;
  std::uint32_t& begin = block_[words_ - cells_];
  begin = 0;
  if (text == nullptr) return true;
  begin = static_cast<std::uint32_t>(text_bytes_);
  char* const at = reinterpret_cast<char*>(block_) + text_bytes_;
  std::memcpy(at, text, length);
  at[length] = '\0';
  text_bytes_ += length + 1;
  return true;
}

bool Rows::grow_to(std::size_t bytes) {
  std::size_t words = words_ == 0 ? kFirstWords : words_;
  while (words * sizeof *block_ < bytes)
    words += words / 2;
  if (words > kMaxWords) return false;
  auto* const block = static_cast<std::uint32_t*>(std::malloc(words * sizeof *block_));
  if (block == nullptr) return false;
  if (block_ != nullptr) {
    std::memcpy(block, block_, text_bytes_);
    std::memcpy(block + words - cells_, block_ + words_ - cells_, cells_ * sizeof *block_);
  }
  std::free(std::exchange(block_, block));
  words_ = words;
  return true;
}

void Rows::finish(int result) {
  switch (result) {
    case SQLITE_DONE:
      outcome_ = Outcome::kSucceeded;
      return;
    case SQLITE_BUSY:
    case SQLITE_LOCKED:
    case SQLITE_IOERR:
    case SQLITE_NOMEM:
      outcome_ = Outcome::kTransientFailure;
      break;
    case SQLITE_CORRUPT:
      outcome_ = Outcome::kDamaged;
      break;
    case SQLITE_ERROR:
    case SQLITE_NOTADB:
      outcome_ = Outcome::kUnreadable;
      break;
    default:
      outcome_ = Outcome::kOtherFailure;
  }
  count_ = 0;
}

}  // namespace psia
