// Prints the route table, one row per line: prefix, match, and each method with its highest level, as in
// "/PSIA/System/time kPrefix GET=3 PUT=1".
#include <cstdio>

// The table has internal linkage, because nothing but the dispatch uses it.
// NOLINTNEXTLINE(bugprone-suspicious-include)
#include "../../src/routes.cpp"

int main() {
  constexpr std::array matches = {"kPrefix", "kExact", "kLonger", "kNested", "kFlat"};
  static_assert(psia::kFlat + 1 == matches.size());
  for (const psia::Route& route : psia::kRoutes) {
    std::printf("%.*s %s", static_cast<int>(route.prefix.size()), route.prefix.data(), matches[route.match]);
    for (const psia::MethodRule& rule : route.methods) {
      if (rule.handler != nullptr) std::printf(" %s=%d", rule.method, static_cast<int>(rule.level));
    }
    std::puts("");
  }
  return 0;
}
