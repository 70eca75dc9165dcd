#include <gtest/gtest.h>

#include <cstdint>
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

// Clients and stored settings rely on every character of the table, so a slip of the keyboard must not pass.
TEST(TimeZoneTable, IsUnchangedAndHoldsGoodRules) {
  const TzPairListOwner list = filled_list();
  std::uint64_t digest = 0xCBF29CE484222325;  // 64-bit FNV-1a over all texts, each with a line feed
  for (const tz_pair& pair : list->in_use()) {
    for (const char c : std::string(pair.key) + "\n" + pair.value + "\n")
      digest = (digest ^ static_cast<unsigned char>(c)) * 0x100000001B3;
    EXPECT_TRUE(std::string(pair.key) == pair.value || posix_tz_check(pair.key) == 0) << pair.key;
  }
  EXPECT_EQ(digest, 0x81037FAF2C49E9A2U);
}

TEST(TimeZoneTable, FindsTheFirstKeyThatBeginsWithTheText) {
  const TzPairListOwner list = filled_list();
  const std::pair<const char*, const char*> cases[] = {
      {"CET-1", "Africa/Algiers"},          {"cet-1cest", "CET"},   {"C", "Africa/Blantyre"},
      {"Asia/Jerusalem", "Asia/Jerusalem"}, {"EST5EDT", "EST5EDT"}, {"CST6CDT,M4", "Mexico/General"},
      {"yekt", "Asia/Yekaterinburg"},       {"", "Brazil/Acre"},
  };
  for (const auto& [text, zone] : cases)
    EXPECT_STREQ(tz_find_zone(*list, text), zone) << text;
  for (const char* text : {"Europe/Paris", "CET-1\n", "JST-9 ", "YEKT-5YEKST,M3.5.0,M10.5.0/3/"}) {
    EXPECT_EQ(tz_find_zone(*list, text), nullptr) << text;
  }
}

TEST(PosixTzCheck, GivesTheCodeOfTheBadComponentOrTheLastOutOfRange) {
  // Thirty-one characters are the most of a component; one more is a bad character.
  const std::string a(31, 'A');
  const std::string n(31, '0');
  const std::string longest = a + n + a + n + ",0" + n.substr(1) + "/" + n + "," + n + "/" + n;
  const std::vector<std::pair<int, std::vector<std::string>>> texts_by_code = {
      {0, {"JST-9", "CET-1CEST,M3.5.0,M10.5.0/3", "NST+3:30:59NDT-2:30:00,0/0:01,365/23:59:59", longest}},
      // A text may end anywhere, and components may be left out.
      {0, {"", "C", "CET-", "CET-1C", "CET-1CEST2,", "CET-1CEST,,", "CET-1CEST,M3.5.0/,M10.5.0/"}},
      {-1, {"C1", "CE-1", "<CET>-1", "C\xC9T-1", a + "A"}},
      {-2, {"CET-1:", "CET:30", "CET-:30", "CET-1::30", "CET-1:2:3:4", "CET" + n + "0"}},
      {-3, {"CET--1", "CET/", "CET-1,M3.5.0", "CET-1CE2", "CET-1CEST/", "CET-1" + a + "A"}},
      {-4, {"CET-1CEST-2-", "CET-1CEST-2:", "CET-1CEST2X", "CET-1CEST+" + n}},
      {-5, {"CET-1CEST,m3", "CET-1CEST,J3.5", "CET-1CEST,M3.5.0.", "CET-1CEST,-1", "CET-1CEST,0" + n}},
      {-5, {"CET-1CEST,M3.5.0.1"}},
      {-6, {"CET-1CEST,1/-1", "CET-1CEST,1/2/", "CET-1CEST,1/2:,", "CET-1CEST,1/0" + n}},
      {-7, {"CET-1CEST,1,X", "CET-1CEST,M3.5.0,M10.5.0,", "CET-1CEST,1,0" + n}},
      {-8, {"CET-1CEST,1,1/3,", "CET-1CEST,1,1/+3", "CET-1CEST,1,1/0" + n}},
      {0, {"AAA23:59:59", "CET-1CEST,M12.1.6,M1.5", "CET-1CEST,J1,J365"}},
      {-9, {"AAA24", "AAA-25", "AAA1:60", "AAA1:0:60", "AAA4294967296", "AAA1BBB24"}},
      {-10, {"CET-1CEST,M0.5.0", "CET-1CEST,M13.5.0,M10.5.0/3", "CET-1CEST,M3.0.0", "CET-1CEST,M3.6.0"}},
      {-10, {"CET-1CEST,M3.5.7", "CET-1CEST,M3", "CET-1CEST,J0", "CET-1CEST,J366", "CET-1CEST,0,366"}},
      {-10, {"CET-1CEST,99999999999999999999"}},
      {-11, {"CET-1CEST,1/24", "CET-1CEST,1/2:60", "CET-1CEST,1,2/2:00:60"}},
      // A range error hides a bad character and every earlier range error.
      {-9, {"AAA25!"}},
      {-10, {"AAA25BBB,M13.5.0", "AAA25BBB,M13.5.0/24,M3.5.8"}},
      {-11, {"AAA25BBB,M13.5.0/24,M3.5.0", "AAA25BBB,M13.5.0/24,M3.5.8/24x"}},
  };
  for (const auto& [code, texts] : texts_by_code) {
    for (const std::string& text : texts)
      EXPECT_EQ(posix_tz_check(text), code) << text;
  }
}

}  // namespace
}  // namespace psia
