// The clock and the two time zones: what is shown, what is stored, and the time message.
#include "tests/support/service_fixture.h"

namespace psia_tests {
namespace {

const std::string kTime = "/PSIA/System/time";

class TimeTest : public RunningServiceTest {
 protected:
  /// GET time and localTime, the requests carrying a TZ of their own, as no web server sends it: it shows
  /// whether the service has one to put in its place. `offset`: seconds east of Greenwich that are shown.
  void expect_time(const std::string& mode, const std::string& zone, const std::string& tz, int offset) {
    const std::time_t since = std::time(nullptr);
    EXPECT_TRUE(same(
        with_now(call({.uri = kTime, .variables = {{"TZ", tz}}}), since, offset),
        document(kXml + xml("Time!(timeMode=" + mode + " localTime=" + kNow + " timeZone=" + zone + ")"))));
    // The bare time goes by the zone read last.
    EXPECT_EQ(with_now(call({.uri = kTime + "/localTime", .variables = {{"TZ", "XXX+9"}}}), since, offset),
              document(kNow));
  }
  void expect_rule(const std::string& stored, const std::string& rule) {
    run_sql("update Network set TimeZone='" + stored + "'");
    EXPECT_TRUE(same(get(kTime + "/timeZone"), document(rule, "text/plain; charset=\"UTF-8\""))) << stored;
  }
};

TEST_F(TimeTest, ReadingShowsModeAndStoredZone) {
  for (const auto& [change, mode, zone] : std::vector<std::array<std::string, 3>>{
           {"update Network set DateTimeSync=2, TimeZone='Africa/Algiers'", "NTP", "CET-1"},
           {"update Network set DateTimeSync=1, TimeZone='Nowhere'", "manual", "GMT0"},
           {"delete from Network", "manual", "GMT0"}}) {
    run_sql(change);
    expect_time(mode, zone, "AAA-5:30", 19800);
  }
  expect_time("manual", "GMT0", "BBB+3", -10800);
}

TEST_F(TimeTest, TheStoredZonesRuleIsTheLastLineOfItsFile) {
  const std::size_t descriptors = open_descriptors();
  for (const char* no_file : {"Nowhere/Land", "", "Africa", "cst-0"})
    expect_rule(no_file, "GMT0");
  expect_rule("CST-0", "CST-0");
  const std::string long_rule(3000, 'x');
  for (const auto& [content, rule] : Pairs{{"TZif2\n\nEST5\n", "EST5"},
                                           {"EST5\n", "EST5"},
                                           {"a\nEST5", "EST"},  // the last byte is taken to be the line feed
                                           {"a\nEST5\n\n", ""},
                                           {"", "GMT0"},
                                           {std::string(1 << 20, 'x') + "\n", "GMT0"},
                                           {"a\n" + long_rule + "\n", long_rule}}) {
    write_file("/usr/local/orvid/zone", content);
    expect_rule("../../local/orvid/zone", rule);
  }
  EXPECT_EQ(open_descriptors(), descriptors);
  expect_time("manual", long_rule.substr(0, 127), "UTC0", 0);
  const std::string name = "../../local/orvid/" + std::string(109, 'z');  // 127 characters count
  write_file("/usr/share/zoneinfo/" + name, "\nLONG5\n");
  expect_rule(name + "cut off", "LONG5");
}

TEST_F(TimeTest, ManualTimesAreBroughtIntoRangeAndSent) {
  // The zone tells which times are daylight saving time; of an earlier, longer text nothing is taken; -1
  // seconds since the epoch is a time.
  expect_effects("N127 := " + std::string(127, 'n') + "\nZEROS := " + std::string(109, '0') + R"(
always := update Network set NTPServer='N127y', NTPInterval=15
T( := Time(timeMode=NTPX timeZone=EST5EDT,M3.2.0,M11.1.0 localTime=
SENT := message 6 server=N127 interval=15
PUT /PSIA/System/time T(2024-13-01T25:61:61) => SENT year=2025 month=1 day=2 hour=2 minute=2 second=1; status 1
T(`2024-06-15 08.09.10.999+02:00`) => SENT year=2024 month=6 day=15 hour=8 minute=9 second=10; status 1
T(1969-12-31T18:59:59) => SENT year=1969 month=12 day=31 hour=18 minute=59 second=59; status 1
T(2024-06-15T08:30:ZEROS79) => SENT year=2024 month=6 day=15 hour=8 minute=30 second=7; status 1
T(2001-02-03T04:05:06 localTime=2024) => SENT year=2023 month=11 day=30; status 1
Time(timeMode=manual localTime={20240615103000|2147483647T10:00:00|-2147483648} timeZone=EST5EDT) => status 3
Tim(timeMode=manual localTime=2024-06-15T08:30:00) => status 3
)");
}

TEST_F(TimeTest, NtpModeSendsThePresentTime) {
  EXPECT_NE(get(kTime), "");  // from here on the zone must be read anew
  for (const std::string mode : {"TIMEMODE=ntp", "", "timeMode=manual timeMode=NTP"}) {
    const std::time_t since = std::time(nullptr);
    const std::string body = xml("time(" + mode + " <x/> timeZone=AAA-5:30)");
    const std::string done = effect({.method = "PUT", .uri = kTime, .body = body}, {1});
    EXPECT_TRUE(done.starts_with("message 6 mode=2 server=pool.ntp.org interval=60 year=")) << done;
    EXPECT_TRUE(done.ends_with("; status 2")) << done;
    const auto field = [this](std::size_t offset) { return camera::integer_at(messages.at(0), offset); };
    std::tm sent{field(168), field(164), field(160), field(156), field(152) - 1, field(148) - 1900,
                 0,          0,          0,          0,          nullptr};
    EXPECT_GE(timegm(&sent), since + 19800);
    EXPECT_LE(timegm(&sent), std::time(nullptr) + 19800);
  }
}

TEST_F(TimeTest, TheZoneSetStaysInForceForThisProcess) {
  const auto put = [this](const std::string& elements) {
    return effect({.method = "PUT", .uri = kTime, .body = xml("Time(" + elements + ")")});
  };
  EXPECT_TRUE(put("timeZone=AAA-5:30").ends_with("status 1"));
  expect_rule("EST5EDT", "EST5EDT,M3.2.0,M11.1.0");
  EXPECT_EQ(put("timeZone=AAA24"), "status 3");
  expect_time("manual", "AAA-5:30", "UTC0", 19800);

  // Of a long rule 63 characters count; the last one of a document wins.
  const std::string rule = std::string(31, 'A') + "05:00:00" + std::string(31, 'B');
  EXPECT_TRUE(put("timeZone=UTC0 timeZone=" + rule).ends_with("status 1"));
  expect_time("manual", rule.substr(0, 63), "UTC0", -18000);
  // A zone is in force even where the message then cannot be made, and an empty one ends it.
  run_sql("delete from Network");
  EXPECT_EQ(put("timeZone=BBB+3"), "status 3");
  expect_time("manual", "BBB+3", "UTC0", -10800);
  EXPECT_EQ(put(""), "status 3");
  expect_time("manual", "GMT0", "CCC-12", 0);
}

TEST_F(TimeTest, TheStoredZoneAndTheBareTimeAreSetTheLatterInManualModeOnly) {
  expect_effects(R"(
PUT /PSIA/System/time/timeZone {"Europe/Paris"|""} => status 3
"CET-1" <- 1 => Network TimeZone=Africa/Algiers; message 7 zone=Africa/Algiers; status 2
PUT /PSIA/System/time/localTime "2023-02-30T10:00:00" =>
 message 6 server=pool.ntp.org interval=60 year=2023 month=3 day=2 hour=10; status 1
"x" <- 1 => message 6 server=pool.ntp.org interval=60 year=-1 month=11 day=30; status 2
update Network set DateTimeSync=2 :: "2023-02-30T10:00:00" => status 1
update Network set DateTimeSync=-1 :: "2023-02-30T10:00:00" => status 1
update Network set DateTimeSync=2 :: "" => status 3
delete from Network :: "2023-02-30T10:00:00" => status 3
)");
  expect_time("manual", "GMT0", "UTC0", 0);  // this process's own zone is another matter
}

}  // namespace
}  // namespace psia_tests
