#include <gtest/gtest.h>

#include <filesystem>
#include <string>
#include <vector>

#include "system/posix_tz_check.h"
#include "system/time_zone_table.h"

namespace psia {
namespace {

// A slip of the keyboard must not pass: neither a rule that no client may send, nor a zone without a file.
TEST(TimeZoneTable, HoldsValidRulesOfZonesThatExist) {
  const TzPairListOwner list(tz_pair_list_create());
  ASSERT_TRUE(tz_table_fill(*list));
  for (const tz_pair& pair : list->in_use()) {
    const std::string rule = pair.key;
    const std::string zone = pair.value;
    EXPECT_TRUE(rule == zone || posix_tz_check(rule) == 0) << rule;
    if (zone == "CST-0") continue;  // the device's own zone, which has no file
    EXPECT_TRUE(std::filesystem::exists("/usr/share/zoneinfo/" + zone)) << zone;
  }
}

// What the check answers: the component with a bad character, or what is out of range.
enum Code : int {
  kGood = 0,
  kStandardName = -1,
  kStandardOffset = -2,
  kDaylightName = -3,
  kDaylightOffset = -4,
  kStartRule = -5,
  kStartTime = -6,
  kEndRule = -7,
  kEndTime = -8,
  kOffsetRange = -9,
  kRuleRange = -10,
  kTimeRange = -11,
};

// A component has at most 31 characters; one more is a bad character.
const std::string kLongestName(31, 'A');
const std::string kLongestNumber(31, '0');

void expect_code(Code code, const std::vector<std::string>& texts) {
  for (const std::string& text : texts)
    EXPECT_EQ(posix_tz_check(text), code) << text;
}

TEST(PosixTzCheck, TakesWholeRules) {
  expect_code(kGood, {"JST-9", "CET-1CEST,M3.5.0,M10.5.0/3", "AAA23:59:59BBB,M12.1.6,M1.5",
                      "CET-1CEST,J1,J365", "NST+3:30:59NDT-2:30:00,0/0:01,365/23:59:59",
                      kLongestName + kLongestNumber + kLongestName + ",0/" + kLongestNumber});
}

TEST(PosixTzCheck, TakesRulesThatEndEarly) {
  expect_code(kGood, {"", "CET-1C", "CET-1CEST,,", "CET-1CEST,M3.5.0/,M10.5.0/"});
}

TEST(PosixTzCheck, NamesTheComponentWithTheBadCharacter) {
  expect_code(kStandardName, {"CE-1", "<CET>-1", kLongestName + "A"});
  expect_code(kStandardOffset,
              {"CET:30", "CET-1::30", "CET-1:2:3:4", "CET-1:CEST", "CET" + kLongestNumber + "0"});
  expect_code(kDaylightName, {"CET--1", "CET-1,M3.5.0", "CET-1CE2", "CET-1" + kLongestName + "A"});
  expect_code(kDaylightOffset, {"CET-1CEST2X", "CET-1CEST+" + kLongestNumber});
  expect_code(kStartRule, {"CET-1CEST,m3", "CET-1CEST,J3.5", "CET-1CEST,-1"});
  expect_code(kStartTime, {"CET-1CEST,1/-1", "CET-1CEST,1/0" + kLongestNumber});
  expect_code(kEndRule, {"CET-1CEST,1,X", "CET-1CEST,1,0" + kLongestNumber});
  expect_code(kEndTime, {"CET-1CEST,1,1/3,", "CET-1CEST,1,1/0" + kLongestNumber});
}

TEST(PosixTzCheck, TellsWhatIsOutOfRange) {
  expect_code(kOffsetRange, {"AAA24", "AAA1:60", "AAA1:0:60", "AAA4294967296", "AAA1BBB24"});
  expect_code(kRuleRange, {"CET-1CEST,M0.5.0", "CET-1CEST,M13.5.0", "CET-1CEST,M3.0.0", "CET-1CEST,M3.6.0",
                           "CET-1CEST,M3.5.7", "CET-1CEST,J0", "CET-1CEST,J366", "CET-1CEST,0,366"});
  expect_code(kTimeRange, {"CET-1CEST,1/24", "CET-1CEST,1,2/2:00:60"});
}

TEST(PosixTzCheck, TellsTheLastRangeErrorRatherThanABadCharacter) {
  expect_code(kOffsetRange, {"AAA25!"});
  expect_code(kRuleRange, {"AAA25BBB,M13.5.0/24,M3.5.8"});
  expect_code(kTimeRange, {"AAA25BBB,M13.5.0/24,M3.5.8/24x"});
}

}  // namespace
}  // namespace psia
