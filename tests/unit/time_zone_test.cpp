#include <gtest/gtest.h>

#include <filesystem>
#include <string>
#include <utility>
#include <vector>

#include "system/posix_tz_check.h"
#include "system/time_zone_table.h"

namespace psia {
namespace {

TzPairListOwner filled_list() {
  TzPairListOwner list(tz_pair_list_create());
  EXPECT_TRUE(tz_table_fill(*list));
  return list;
}

// A slip of the keyboard must not pass: neither a rule that no client may send, nor a zone without a file.
TEST(TimeZoneTable, HoldsGoodRulesOfZonesThatThereAre) {
  const TzPairListOwner list = filled_list();
  for (const tz_pair& pair : list->in_use()) {
    const std::string rule = pair.key;
    const std::string zone = pair.value;
    EXPECT_TRUE(rule == zone || posix_tz_check(rule) == 0) << rule;
    EXPECT_TRUE(zone == "CST-0" || std::filesystem::exists("/usr/share/zoneinfo/" + zone)) << zone;
  }
}

TEST(TimeZoneTable, FindsTheFirstKeyThatBeginsWithTheText) {
  const TzPairListOwner list = filled_list();
  const std::pair<const char*, const char*> cases[] = {
      {"cet-1cest", "CET"},
      {"C", "Africa/Blantyre"},
      {"EST5EDT", "EST5EDT"},
      {"", "Brazil/Acre"},
  };
  for (const auto& [text, zone] : cases)
    EXPECT_STREQ(tz_find_zone(*list, text), zone) << text;
  EXPECT_EQ(tz_find_zone(*list, "CET-1\n"), nullptr);
}

// A component has at most 31 characters; one more is a bad character.
const std::string kLongestName(31, 'A');
const std::string kLongestNumber(31, '0');

void expect_code(int code, const std::vector<std::string>& texts) {
  for (const std::string& text : texts)
    EXPECT_EQ(posix_tz_check(text), code) << text;
}

TEST(PosixTzCheck, TakesWholeRulesAndTheirBeginnings) {
  expect_code(0, {"JST-9", "CET-1CEST,M3.5.0,M10.5.0/3", "AAA23:59:59BBB,M12.1.6,M1.5",
                  "NST+3:30:59NDT-2:30:00,0/0:01,365/23:59:59", "CET-1CEST,J1,J365",
                  kLongestName + kLongestNumber + kLongestName + ",0/" + kLongestNumber});
  expect_code(0, {"", "CET-1C", "CET-1CEST,,", "CET-1CEST,M3.5.0/,M10.5.0/"});
}

TEST(PosixTzCheck, GivesTheNumberOfTheComponentWithTheBadCharacter) {
  expect_code(-1, {"CE-1", "<CET>-1", kLongestName + "A"});
  expect_code(-2, {"CET:30", "CET-1::30", "CET-1:2:3:4", "CET" + kLongestNumber + "0"});
  expect_code(-3, {"CET--1", "CET-1,M3.5.0", "CET-1CE2", "CET-1" + kLongestName + "A"});
  expect_code(-4, {"CET-1CEST2X", "CET-1CEST+" + kLongestNumber});
  expect_code(-5, {"CET-1CEST,m3", "CET-1CEST,J3.5", "CET-1CEST,-1"});
  expect_code(-6, {"CET-1CEST,1/-1", "CET-1CEST,1/0" + kLongestNumber});
  expect_code(-7, {"CET-1CEST,1,X", "CET-1CEST,1,0" + kLongestNumber});
  expect_code(-8, {"CET-1CEST,1,1/3,", "CET-1CEST,1,1/0" + kLongestNumber});
}

TEST(PosixTzCheck, GivesACodeForWhatIsOutOfRange) {
  expect_code(-9, {"AAA24", "AAA1:60", "AAA1:0:60", "AAA4294967296", "AAA1BBB24"});
  expect_code(-10, {"CET-1CEST,M0.5.0", "CET-1CEST,M13.5.0", "CET-1CEST,M3.0.0", "CET-1CEST,M3.6.0",
                    "CET-1CEST,M3.5.7", "CET-1CEST,J0", "CET-1CEST,J366", "CET-1CEST,0,366"});
  expect_code(-11, {"CET-1CEST,1/24", "CET-1CEST,1,2/2:00:60"});
  // It hides a bad character and every range error before it.
  expect_code(-9, {"AAA25!"});
  expect_code(-10, {"AAA25BBB,M13.5.0/24,M3.5.8"});
  expect_code(-11, {"AAA25BBB,M13.5.0/24,M3.5.8/24x"});
}

}  // namespace
}  // namespace psia
