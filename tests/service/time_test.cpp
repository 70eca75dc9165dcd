// The clock and the two time zones: what is shown, what is stored, and the time message byte for byte.
#include "tests/support/clock.h"
#include "tests/support/service_fixture.h"

namespace psia_tests {
namespace {

constexpr const char* kTime = "/PSIA/System/time";
constexpr const char* kLocalTime = "/PSIA/System/time/localTime";
constexpr const char* kTimeZone = "/PSIA/System/time/timeZone";
constexpr const char* kPlainText = "text/plain; charset=\"UTF-8\"";

std::string wanted(const std::string& mode, const std::string& time, const std::string& zone) {
  return "<Time><timeMode>" + mode + "</timeMode><localTime>" + time + "</localTime><timeZone>" + zone +
         "</timeZone></Time>";
}

/// What sets the clock: mode 0, the NTP settings, and year, month, day, hour, minute, second.
camera::Message time_message(const std::string& server, int interval, const std::array<int, 6>& fields) {
  camera::Message message;
  camera::put_integer(message, 4, 6);
  camera::put_text(message, 16, server);
  camera::put_integer(message, 144, interval);
  for (std::size_t i = 0; i < fields.size(); ++i)
    camera::put_integer(message, 148 + 4 * i, fields.at(i));
  return message;
}

class TimeTest : public RunningServiceTest {
 protected:
  /// GET time and localTime, the requests carrying a TZ of their own, as no web server sends it: it shows
  /// whether the service has one to put in its place. `offset`: seconds east of Greenwich that are shown.
  void expect_time(const std::string& mode, const std::string& zone, const std::string& tz, int offset) {
    const std::time_t since = std::time(nullptr);
    EXPECT_EQ(with_now(call({.uri = kTime, .variables = {{"TZ", tz}}}), since, offset),
              document("<?xml version=\"1.0\" encoding=\"UTF-8\" ?>\r\n"
                       "<Time version=\"1.0\" xmlns=\"urn:psialliance-org\"><timeMode>" +
                       mode + "</timeMode><localTime>YYYY-MM-DDThh:mm:ss</localTime><timeZone>" + zone +
                       "</timeZone></Time>"));
    // The bare time goes by the zone read last.
    EXPECT_EQ(with_now(call({.uri = kLocalTime, .variables = {{"TZ", "XXX+9"}}}), since, offset),
              document(kNow));
  }
};

TEST_F(TimeTest, ReadingShowsModeAndStoredZone) {
  for (const auto& [change, mode, zone] : std::vector<std::array<std::string, 3>>{
           {"update Network set DateTimeSync=0", "manual", "EST5EDT,M3.2.0,M11.1.0"},
           {"update Network set DateTimeSync=2, TimeZone='Africa/Algiers'", "NTP", "CET-1"},
           {"update Network set DateTimeSync=1, TimeZone='Nowhere'", "manual", "GMT0"},
           {"delete from Network", "manual", "GMT0"}}) {
    run_sql(change);
    expect_time(mode, zone, "AAA-5:30", 19800);
  }
  expect_time("manual", "GMT0", "BBB+3", -10800);
}

TEST_F(TimeTest, TheStoredZonesRuleIsTheLastLineOfItsFile) {
  const auto expect_rule = [this](const std::string& stored, const std::string& rule) {
    run_sql("update Network set TimeZone='" + stored + "'");
    EXPECT_EQ(get(kTimeZone), document(rule, kPlainText));
  };
  expect_rule("../zoneinfo/GMT", "GMT0");
  const std::size_t descriptors = open_descriptors();
  for (const char* no_file : {"Nowhere/Land", "", "Africa", "cst-0"})
    expect_rule(no_file, "GMT0");
  expect_rule("CST-0", "CST-0");
  const std::string long_rule(3000, 'x');
  for (const auto& [content, rule] : std::vector<std::pair<std::string, std::string>>{
           {"TZif2\n\nEST5\n", "EST5"},
           {"EST5\n", "EST5"},
           {"a\nEST5", "EST"},  // the last byte is taken to be the line feed
           {"a\nEST5\n\n", ""},
           {"A", ""},
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
  expect_rule(name.substr(0, 126), "GMT0");
  expect_rule(name + "cut off", "LONG5");
}

TEST_F(TimeTest, SettingTheZoneStoresItsNameAndSendsCommand7) {
  EXPECT_EQ(put_with_daemon(kTimeZone, "CET-1"), status(1, kTimeZone));
  camera::Message expected;
  camera::put_integer(expected, 4, 7);
  camera::put_text(expected, 12, "Africa/Algiers");
  EXPECT_EQ(messages.at(0).body, expected.body);
  EXPECT_EQ(put_with_daemon(kTimeZone, "CET-1", {1}), status(2, kTimeZone));
  EXPECT_EQ(get(kTimeZone), document("CET-1", kPlainText));
  expect_time("manual", "CET-1", "UTC0", 0);  // this process's own zone is another matter

  EXPECT_EQ(put(kTimeZone, "Europe/Paris"), status(3, kTimeZone));
  EXPECT_EQ(put(kTimeZone, ""), status(3, kTimeZone));
  run_sql("create trigger refuse before update on Network begin select raise(abort, 'no'); end");
  EXPECT_EQ(put(kTimeZone, "JST-9"), status(3, kTimeZone));
  EXPECT_EQ(rows("select TimeZone from Network"), "Africa/Algiers");
}

TEST_F(TimeTest, ManualTimesAreBroughtIntoRangeAndSent) {
  const std::string server(127, 'n');
  run_sql("update Network set NTPServer='" + server + "y', NTPInterval=15");
  const std::string zone = "EST5EDT,M3.2.0,M11.1.0";  // tells which times are daylight saving time
  for (const auto& [text, fields] : std::vector<std::pair<std::string, std::array<int, 6>>>{
           {"2024-03-01T10:20:30", {2024, 3, 1, 10, 20, 30}},
           {"2024-02-30T10:00:00", {2024, 3, 1, 10, 0, 0}},
           {"2024-13-01T25:61:61", {2025, 1, 2, 2, 2, 1}},
           {"2024-06-15 08.09.10.999+02:00", {2024, 6, 15, 8, 9, 10}},
           {"1969-12-31T18:59:59", {1969, 12, 31, 18, 59, 59}},  // -1 seconds since the epoch is a time
           {"2024-06-15T08:30:" + std::string(109, '0') + "79", {2024, 6, 15, 8, 30, 7}},
           // Of an earlier, longer text nothing is taken.
           {"2001-02-03T04:05:06</localTime><localTime>2024", {2023, 11, 30, 0, 0, 0}}}) {
    EXPECT_EQ(put_with_daemon(kTime, wanted("NTPX", text, zone)), status(1, kTime));
    EXPECT_EQ(messages.at(0).body, time_message(server, 15, fields).body) << text;
  }
  for (const char* no_time : {"20240615103000", "2147483647T10:00:00", "-2147483648"})
    EXPECT_EQ(put(kTime, wanted("manual", no_time, zone)), status(3, kTime)) << no_time;
}

TEST_F(TimeTest, NtpModeSendsThePresentTime) {
  EXPECT_NE(get(kTime), "");  // from here on the zone must be read anew
  for (const std::string mode :
       {"<TIMEMODE>ntp</TIMEMODE>", "", "<timeMode>manual</timeMode><timeMode>NTP</timeMode>"}) {
    const std::time_t since = std::time(nullptr);
    EXPECT_EQ(put_with_daemon(kTime, "<time>" + mode + "<x/><timeZone>AAA-5:30</timeZone></time>", {1}),
              status(2, kTime));
    const auto field = [this](std::size_t offset) { return camera::integer_at(messages.at(0), offset); };
    EXPECT_EQ(field(12), 2) << mode;
    std::tm sent{field(168), field(164), field(160), field(156), field(152) - 1, field(148) - 1900,
                 0,          0,          0,          0,          nullptr};
    EXPECT_GE(timegm(&sent), since + 19800);
    EXPECT_LE(timegm(&sent), std::time(nullptr) + 19800);
  }
}

TEST_F(TimeTest, TheZoneSetStaysInForceForThisProcess) {
  EXPECT_EQ(put_with_daemon(kTime, wanted("NTP", "", "AAA-5:30")), status(1, kTime));
  expect_time("manual", "AAA-5:30", "UTC0", 19800);
  EXPECT_EQ(get(kTimeZone), document("EST5EDT,M3.2.0,M11.1.0", kPlainText));
  for (const std::string& refused : {std::string("<Tim/>"), wanted("NTP", "", "AAA24")})
    EXPECT_EQ(put(kTime, refused), status(3, kTime));
  expect_time("manual", "AAA-5:30", "UTC0", 19800);

  // Of a long rule 63 characters count; the last one of a document wins.
  const std::string rule = std::string(31, 'A') + "05:00:00" + std::string(31, 'B');
  EXPECT_EQ(put_with_daemon(kTime, wanted("NTP", "", "UTC0</timeZone><timeZone>" + rule)), status(1, kTime));
  expect_time("manual", rule.substr(0, 63), "UTC0", -18000);
  // A zone is in force even where the message then cannot be made, and an empty one ends it.
  run_sql("delete from Network");
  EXPECT_EQ(put(kTime, wanted("NTP", "", "BBB+3")), status(3, kTime));
  expect_time("manual", "BBB+3", "UTC0", -10800);
  EXPECT_EQ(put(kTime, "<Time/>"), status(3, kTime));
  expect_time("manual", "GMT0", "CCC-12", 0);
}

TEST_F(TimeTest, TheBareTimeIsSetInManualModeOnly) {
  const std::string text = "2023-02-30T10:00:00";
  EXPECT_EQ(put_with_daemon(kLocalTime, text), status(1, kLocalTime));
  EXPECT_EQ(messages.at(0).body, time_message("pool.ntp.org", 60, {2023, 3, 2, 10, 0, 0}).body);
  EXPECT_EQ(put_with_daemon(kLocalTime, "x", {1}), status(2, kLocalTime));
  EXPECT_EQ(messages.at(0).body, time_message("pool.ntp.org", 60, {-1, 11, 30, 0, 0, 0}).body);
  for (const char* mode : {"2", "1", "-1"}) {
    run_sql(std::string("update Network set DateTimeSync=") + mode);
    EXPECT_EQ(put(kLocalTime, text), status(1, kLocalTime)) << mode;
    EXPECT_EQ(put(kLocalTime, ""), status(3, kLocalTime)) << mode;  // the body is read first
  }
  run_sql("delete from Network");
  EXPECT_EQ(put(kLocalTime, text), status(3, kLocalTime));
}

}  // namespace
}  // namespace psia_tests
