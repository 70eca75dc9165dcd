// Maps the POSIX TZ rules that clients send to the zone names that the device stores. The list is filled at
// the start and then only searched.
#pragma once

#include <cstddef>
#include <memory>
#include <span>

namespace psia {

struct tz_pair {
  char* key;    ///< POSIX TZ rule, or a zone name where the zone's rule cannot be written as one.
  char* value;  ///< Zone name as stored in the database and found under /usr/share/zoneinfo/.
};

/// Pairs in the order in which they were added; owns their texts. Keys are neither sorted nor checked for
/// being unique.
struct tz_pair_list {
  tz_pair* pairs = nullptr;
  std::size_t count = 0;
  std::size_t capacity = 0;

  [[nodiscard]] std::span<const tz_pair> in_use() const { return {pairs, count}; }
};

/// An empty list, or null when memory is exhausted. TzPairListOwner gives it to `tz_pair_list_free`.
[[nodiscard]] tz_pair_list* tz_pair_list_create();

/// Appends a pair of copies of `key` and `value`. 0, or -1 with the list as it was when memory is exhausted.
[[nodiscard]] int tz_pair_list_add(tz_pair_list& list, const char* key, const char* value);

/// Releases the list and every copy in it; null is allowed.
void tz_pair_list_free(tz_pair_list* list);

struct TzPairListDeleter {
  void operator()(tz_pair_list* list) const { tz_pair_list_free(list); }
};
using TzPairListOwner = std::unique_ptr<tz_pair_list, TzPairListDeleter>;

/// Adds the 180 rows of the built-in table, in its order; false when memory is exhausted.
[[nodiscard]] bool tz_table_fill(tz_pair_list& list);

/// The value of the first pair whose key begins with `text`, without regard to case; null when there is none.
/// The text stays owned by the list. An empty `text` matches the first pair; "C" finds the first key that
/// begins with C.
[[nodiscard]] const char* tz_find_zone(const tz_pair_list& list, const char* text);

}  // namespace psia
