// Maps the POSIX TZ rules that clients send to the zone names that the device stores. The list is filled once
// at start and only searched afterwards.
#pragma once

#include <memory>
#include <string>
#include <string_view>
#include <vector>

namespace psia {

struct tz_pair {
  std::string key;    ///< POSIX TZ rule, or a zone name where the zone's rule cannot be written as one.
  std::string value;  ///< Zone name as stored in the database and found under /usr/share/zoneinfo/.
};

/// Pairs in the order in which they were added. Keys are neither sorted nor checked for being unique.
struct tz_pair_list {
  std::vector<tz_pair> pairs;
};

/// An empty list, or null when memory is exhausted. TzPairListOwner gives it to `tz_pair_list_free`.
[[nodiscard]] tz_pair_list* tz_pair_list_create();

/// Appends a pair of copies of `key` and `value`. Always 0: exhausted memory ends the process.
int tz_pair_list_add(tz_pair_list& list, std::string_view key, std::string_view value);

/// Releases the list and every copy in it; null is allowed.
void tz_pair_list_free(tz_pair_list* list);

struct TzPairListDeleter {
  void operator()(tz_pair_list* list) const { tz_pair_list_free(list); }
};
using TzPairListOwner = std::unique_ptr<tz_pair_list, TzPairListDeleter>;

/// Adds the 180 rows of the built-in table, in its order.
void tz_table_fill(tz_pair_list& list);

/// The value of the first pair whose key begins with `text`, without regard to case; null when there is none.
/// The text stays owned by the list. An empty `text` matches the first pair; "C" finds the first key that
/// begins with C.
[[nodiscard]] const char* tz_find_zone(const tz_pair_list& list, const char* text);

}  // namespace psia
