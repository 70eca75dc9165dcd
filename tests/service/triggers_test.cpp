// The trigger and its notifications: what the documents show of the links, and what each change leaves in the
// database.
#include "event/triggers.h"

#include <fcgi_stdio.h>
#include <fcntl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdio>
#include <optional>

#include "frame/service.h"
#include "system/time_zone_table.h"
#include "tests/support/event_test.h"

namespace psia_tests {
namespace {

const std::string kEvent = "/PSIA/Custom/Event";
const std::string kTriggers = kEvent + "/triggers";
const std::string kTrigger = kTriggers + "/Sensor-0";
const std::string kNotifications = kTrigger + "/notifications";

// Elements as the service shows them; clients send them in the same form.

std::string one(const std::string& method, const std::string& id, const std::string& milliseconds = "",
                const std::string& port = "") {  // what is empty is left out
  std::string children = id.empty() ? "" : element("id", id);
  if (!method.empty()) children += element("notificationMethod", method);
  if (!milliseconds.empty()) children += element("notificationInterval", milliseconds);
  if (!port.empty()) children += element("outputIOPortID", port);
  return shown("EventTriggerNotification", children);
}
std::string list(const std::string& notifications) {
  return shown("EventTriggerNotificationList", notifications);
}
std::string interval(const std::string& value) {
  return element("intervalBetweenEvents", value);
}
/// `rest` is what follows the port: the interval and the notification list.
std::string trigger(const std::string& id, const std::string& rest) {
  return shown("EventTrigger",
               "<id>" + id + "</id><eventType>IO</eventType><inputIOPortID>0</inputIOPortID>" + rest);
}

class TriggersTest : public EventTest {
 protected:
  /// Every table gets rows of its own numbers, so that no link can be taken for another.
  void SetUp() override {
    EventTest::SetUp();
    run_sql("insert into FTPServer values (11, 'FTP-11', 'h', 21, '', '', '')");
    run_sql("insert into SMTPServer values (21, 'Mail-21', 'h', 25, '', '', '', '', '', '', 0)");
  }

  // The trigger's interval and its links, relay, FTP and mail server, are stored as "5, 1, -1, -1", and shown
  // by changes() as "5|1|-1|-1".
  static void store(const std::string& values) {
    run_sql("update Event set (IgnoreInterval, RelayID, FTPServerID, SMTPServerID) = (" + values + ")");
  }
  static std::string row(const std::string& values) { return "Event|0|" + values + "|62|800|1730"; }

  using Handler = void (*)(psia::Service&, const psia::Request&);

  /// Runs a handler of one notification, which no route leads to, in a process of its own that libfcgi takes
  /// for a plain CGI program. Returns what it writes, and behind it the rows that it changes.
  static std::string run(Handler handler, const char* trigger_id, const std::string& notification_id,
                         const std::string& body = "") {
    const char* const input = "/usr/local/orvid/body";
    const char* const output = "/usr/local/orvid/answer";
    write_file(input, body);
    const Rows before = all_rows();
    std::fflush(stdout);
    const pid_t child = fork();
    if (child == 0) {
      dup2(open(input, O_RDONLY), 0);
      dup2(open(output, O_WRONLY | O_CREAT | O_TRUNC, 0600), 1);
      psia::Environment environment;
      psia::Database database;
      const std::optional<psia::ControlQueues> queues = psia::ControlQueues::open();
      const psia::TzPairListOwner zones(psia::tz_pair_list_create());
      if (FCGI_Accept() < 0 || !database.open(psia::kConfigurationDatabase) || !queues || !zones) _exit(1);
      psia::Service service{environment, database, *queues, *zones};
      const std::string length = std::to_string(body.size());
      const std::string tail = std::string(trigger_id) + "/notifications/" + notification_id;
      handler(
          service,
          {.uri = "/u", .method = "", .content_length = length.c_str(), .level = 0, .tail = tail.c_str()});
      std::fflush(stdout);
      _exit(0);
    }
    EXPECT_EQ(waitpid(child, nullptr, 0), child);
    return read_file(output) + differences(before);
  }
};

TEST_F(TriggersTest, ReadsShowTheLinksWhoseRowsExist) {
  const std::string servers = body_of(read(kEvent + "/notification")).substr(kDeclaration.size());
  const auto expect_all = [&](const std::string& rest, const std::string& notifications) {
    const std::string triggers = shown("EventTriggerList", trigger("Sensor-0", rest));
    expect_read(kTriggers, triggers);
    expect_read(kEvent, shown("EventNotification", triggers + servers));
    expect_read(kTrigger, trigger("Sensor-0", rest));
    expect_read(kNotifications, list(notifications));
  };
  run_sql("update SensorRelay set Interval=2147484 where DeviceID=1");
  for (const auto& [links, notifications] :
       Pairs{{"2, 11, 1", one("IO", "Relay-2", "10000", "2") + one("FTP", "FTP-11") + one("email", "Mail-1")},
             {"1, -1, -1", one("IO", "Relay-1", "-2147483296", "1")},
             {"-1, 1, -1", one("FTP", "FTP-1")},
             {"-1, -1, 21", one("email", "Mail-21")},
             {"0, -5, -5", one("IO", "Sensor-0", "5000", "0")},  // any device will do
             {"77, 77, 77", ""},                                 // rows that have gone
             {"-2, -1, -1", ""},
             {"-1, -1, -2", ""}}) {
    store("-700, " + links);
    expect_all(interval("-700") + list(notifications), notifications);
  }
  store("5, -1, -1, -1");
  expect_all(interval("5"), "");
  run_sql("update Event set \"Trigger\"=1, FTPServerID=1");
  expect_all("", "");
  run_sql("update SensorRelay set Alias='Door' where DeviceID=0");
  run_sql("update SensorRelay set DeviceID=-4 where DeviceID=1");
  expect_read(kTriggers, shown("EventTriggerList", trigger("Door", "")));
  // A negative number of sensors counts for the list alone, and a missing one has its usual name.
  run_sql("update Spec set Sensor=-1; delete from SensorRelay");
  expect_read(kTriggers, shown("EventTriggerList", trigger("Sensor-0", "")));
  expect_read(kEvent, "refused");
  run_sql("update Spec set Sensor=0");
  expect_read(kTriggers, "refused");
}

TEST_F(TriggersTest, TheLastNotificationDecidesOverTheLinks) {
  for (const auto& [notifications, links, interval_change] :
       Triples{{one("IO", "Relay-2", "7999"), "2|-1|-1", ";SensorRelay|2|Relay-2|7"},
               {one("io", "Sensor-0", "-1999"), "0|-1|-1", ";SensorRelay|0|Sensor-0|-1"},
               {one("IO", "Relay-1"), "1|-1|-1", ";SensorRelay|1|Relay-1|5"},
               {one("IO", "FTP-1", "1000"), "-1|-1|-1", ""},
               {one("ftp", "FTP-11", "1000"), "-1|11|-1", ""},
               {one("smtp", "Mail-21"), "-1|-1|21", ""},
               {one("email", "Mail-21"), "-1|-1|-1", ""},  // what the documents say is not what they take
               {"", "-1|-1|-1", ""},
               // Several: the last one decides, and takes on what it does not say itself.
               {one("IO", "Relay-1", "9000") + one("FTP", "FTP-1"), "-1|1|-1", ";SensorRelay|1|Relay-1|9"},
               {one("FTP", "FTP-11") + one("", ""), "-1|11|-1", ""},
               {one("FTP", "FTP-1") + "<Other><id>FTP-11</id></Other>", "-1|1|-1", ""}}) {
    for (const auto& [uri, body, ignore_interval] :
         Triples{{kNotifications, list(notifications), "77|"},
                 {kTrigger, trigger("Sensor-0", list(notifications)), "5|"}}) {
      run_sql("update SensorRelay set Interval=123");
      store("77, 8, 8, 8");
      EXPECT_EQ(changes("PUT", uri, element("X", body), 3), "");
      EXPECT_EQ(changes("PUT", uri, body), row(ignore_interval + links) + interval_change) << uri << body;
    }
  }
  store("77, 8, 8, 8");  // a POST replaces the links too
  EXPECT_EQ(changes("POST", kNotifications, one("SMTP", "Mail-21")), row("77|-1|-1|21"));
  run_sql("drop table Event");  // a failing statement is not reported
  EXPECT_EQ(changes("PUT", kNotifications, list("")), "");
}

TEST_F(TriggersTest, ListsAreAppliedTriggerByTriggerWithCarriedValues) {
  const auto event = [](const std::string& content) { return element("EventTrigger", content); };
  const std::string sensor = "<id>x</id><id>Sensor-0</id>";
  for (const auto& [first, second, changed] : Triples{
           {event(interval("8")), "", ""},  // no id yet
           {event(interval(" 8s") + list(one("FTP", "FTP-1"))), event(sensor), row("8|-1|1|-1")},
           {event(sensor + list(one("FTP", "FTP-1"))), event(list(one("", "FTP-11"))), row("5|-1|11|-1")},
           {event(sensor + list(one("IO", "Relay-1", "2000"))), event(list(one("", "Relay-2"))),
            row("5|2|-1|-1") + ";SensorRelay|1|Relay-1|2;SensorRelay|2|Relay-2|2"},
           {event(sensor), event("<id>nobody</id>" + interval("6")), row("5|-1|-1|-1")},
           {event(sensor), "<x>" + interval("6") + "</x>", row("5|-1|-1|-1")},
           // A relay is no trigger, but its interval is stored all the same.
           {event("<id>Relay-1</id>" + list(one("IO", "Relay-1", "1000"))), "", "SensorRelay|1|Relay-1|1"}}) {
    // A combined document may have several lists, among other elements.
    const std::string lists = element("EventTriggerLIST", first) +
                              element("X", event(sensor + interval("6"))) +
                              element("EventTriggerList", second);
    for (const auto& [uri, body] : Pairs{{kTriggers, element("eventTriggerLIST", first + second)},
                                         {kEvent, element("EVENTnotification", lists)}}) {
      run_sql("update SensorRelay set Interval=123");
      store("77, 8, 8, 8");
      EXPECT_EQ(changes("PUT", uri, body), changed) << body;
    }
  }
}

TEST_F(TriggersTest, TheUrlNamesTheTriggerThatIsChanged) {
  expect_read(kTriggers + "/Relay-2", trigger("Relay-2", interval("5") + list(one("FTP", "FTP-1"))));
  EXPECT_EQ(changes("PUT", kTrigger, trigger("Relay-1", interval("12"))), row("12|-1|-1|-1"));
  store("77, 8, 8, 8");
  run_sql("update SensorRelay set DeviceID=-4 where DeviceID=1");
  for (const std::string id : {"/Relay-1", "/Relay-2", "/", "/' or '1'='1"}) {
    const std::string notifications = kTriggers + id + "/notifications";
    if (id != "/Relay-2") expect_read(kTriggers + id, "refused");  // a relay is shown, but not changed
    expect_read(notifications, "refused");
    EXPECT_EQ(changes("PUT", kTriggers + id, trigger("Sensor-0", "")), "");
    EXPECT_EQ(changes("DELETE", kTriggers + id), "");
    EXPECT_EQ(changes("PUT", notifications, list("")), "");
  }
  for (const std::string& uri : {kTrigger, kNotifications, kNotifications + "/FTP-1"}) {
    store("5, 1, 2, 3");
    EXPECT_EQ(changes("DELETE", uri), row("5|-1|-1|-1")) << uri;
  }
  // Of an id 127 characters count in a body, 255 before a '/', and all at the URL's end.
  const std::string id(256, 's');
  run_sql("update SensorRelay set Alias='" + id.substr(0, 127) + "' where DeviceID=0");
  run_sql("update FTPServer set Alias='" + id.substr(0, 127) + "' where FTPServerID=11");
  const std::string triggers = element("EventTriggerList", trigger(id, list(one("FTP", id))));
  EXPECT_EQ(changes("PUT", kTriggers, triggers), row("5|-1|11|-1"));
  run_sql("update SensorRelay set Alias='" + id.substr(0, 255) + "' where DeviceID=0");
  expect_read(kTriggers + "/" + id + "/notifications", list(one("FTP", id.substr(0, 127))));
  expect_read(kTriggers + "/" + id, "refused");
}

TEST_F(TriggersTest, ReadsOfOneNotificationBringTheLinksBehindTheOneNamed) {
  run_sql(
      "insert into Relay values (-1, 'none'), (5, 'gone');"
      "insert into FTPServer values (-1, 'none', '', 0, '', '', '')");
  const std::string mail1 = one("email", "Mail-1");
  for (const auto& [links, id, entries] :
       Triples{{"1, 1, 1", "Relay-2", one("IO", "Relay-2", "10000", "2") + one("FTP", "FTP-1") + mail1},
               {"-1, 1, 1", "Relay-2", ""},  // only kinds that are linked
               {"1, 1, 1", "gone", one("FTP", "FTP-1") + mail1},
               {"1, 1, 1", "none", ""},
               {"1, 1, 1", "FTP-11", one("FTP", "FTP-11") + mail1},
               {"1, -1, 1", "FTP-11", ""},
               {"1, 1, 77", "Mail-21", one("email", "Mail-21")},
               {"1, 1, -1", "Mail-21", ""}}) {
    store("5, " + links);
    EXPECT_EQ(run(psia::read_notification, "Sensor-0", id), printed_document(kDeclaration + entries))
        << id << links;
  }
  EXPECT_EQ(run(psia::read_notification, "Relay-1", "FTP-1"), status(4, "/u"));
}

TEST_F(TriggersTest, ChangesOfOneNotificationSetOneLinkAndLeaveTheOthers) {
  run_sql("insert into FTPServer values (12, 'Relay-2', '', 0, '', '', '')");
  run_sql("insert into SMTPServer values (22, 'FTP-11', '', 0, '', '', '', '', '', '', 0)");
  const std::string ok = status(1, "/u");
  store("5, 7, 8, 9");
  for (const auto& [body, changed] :
       Pairs{{one("IO", "Sensor-0", "3000"), row("5|0|8|9") + ";SensorRelay|0|Sensor-0|3"},
             {one("FTP", "FTP-11"), row("5|0|11|9")},
             {one("SMTP", "Mail-21"), row("5|0|11|21")}}) {
    EXPECT_EQ(run(psia::write_notification, "Sensor-0", "FTP-1", body), ok + changed) << body;
  }
  EXPECT_EQ(run(psia::write_notification, "Relay-1", "x", one("FTP", "FTP-1")), ok);

  // A deletion links what it names; of several kinds with that name the relay, then the FTP server.
  store("5, 7, 8, 9");
  for (const auto& [id, changed] : Pairs{{"Relay-2", row("5|2|8|9")},
                                         {"FTP-11", row("5|2|11|9")},
                                         {"Mail-21", row("5|2|11|21")},
                                         {"nobody", ""}}) {
    EXPECT_EQ(run(psia::delete_notification, "Sensor-0", id), ok + changed) << id;
  }
  EXPECT_EQ(run(psia::delete_notification, "Relay-1", "FTP-1"), ok);
}

}  // namespace
}  // namespace psia_tests
