// What the tests of the Event resources share: documents that appear on the service's standard output instead
// of the client's, and changes of which the database is the only witness.
#pragma once

#include <map>
#include <string>
#include <tuple>
#include <utility>
#include <vector>

#include "tests/support/service_fixture.h"

namespace psia_tests {

inline const std::string kDeclaration = "<?xml version=\"1.0\" encoding=\"UTF-8\" ?>";

/// An element as a client writes it.
inline std::string element(const std::string& name, const std::string& content) {
  return "<" + name + ">" + content + "</" + name + ">";
}
/// An element as the service's documents show it.
inline std::string shown(const std::string& name, const std::string& content) {
  return "<" + name + " version=\"1.0\" xmlns=\"urn:psialliance-org\">" + content + "</" + name + ">";
}

using Pairs = std::vector<std::pair<std::string, std::string>>;
using Triples = std::vector<std::tuple<std::string, std::string, std::string>>;

class EventTest : public RunningServiceTest {
 protected:
  /// What a GET prints; the client must receive nothing of it.
  std::string read(const std::string& uri) {
    const std::size_t before = printed().size();
    EXPECT_EQ(get(uri), "") << uri;
    return printed().substr(before);
  }

  /// A GET must print the declaration and `elements`; or, when `elements` is "refused", answer status 4.
  void expect_read(const std::string& uri, const std::string& elements) {
    if (elements == "refused") {
      EXPECT_EQ(get(uri), status(4, uri));
    } else {
      EXPECT_EQ(read(uri), printed_document(kDeclaration + elements)) << uri;
    }
  }

  /// Sends a change, which must be answered with status `code` and send no message, and returns
  /// differences().
  std::string changes(const std::string& method, const std::string& uri, const std::string& body = "",
                      int code = 1) {
    const Rows before = all_rows();
    EXPECT_EQ(call_with_daemon({.method = method, .uri = uri, .body = body}, {}), status(code, uri)) << body;
    return differences(before);
  }

  using Rows = std::map<std::string, std::string>;

  /// Every row of every table, "table|value|value", by table and row number.
  static Rows all_rows() {
    Rows all;
    for (const auto& table : camera::query("select name from sqlite_master where type='table'")) {
      for (const auto& row : camera::query("select rowid, * from " + table[0])) {
        std::string& text = all[table[0] + row[0]] = table[0];
        for (std::size_t i = 1; i < row.size(); ++i)
          text += '|' + row[i];
      }
    }
    return all;
  }

  /// The rows that were changed or added since `before`, and those removed with a '-', each behind a ";".
  static std::string differences(const Rows& before) {
    std::string text;
    const Rows after = all_rows();
    for (const auto& [key, row] : after) {
      if (!before.contains(key) || before.at(key) != row) text += ";" + row;
    }
    for (const auto& [key, row] : before) {
      if (!after.contains(key)) text += ";-" + row;
    }
    return text.empty() ? text : text.substr(1);
  }
};

}  // namespace psia_tests
