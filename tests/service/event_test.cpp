// The handlers of a single notification, which no route leads to.
#include <fcgi_stdio.h>
#include <fcntl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdio>

#include "event/triggers.h"
#include "frame/service.h"
#include "system/time_zone_table.h"
#include "tests/support/service_fixture.h"

namespace psia_tests {
namespace {

// Rows of other numbers in every table, so that no link can be taken for another; and other values.
const std::string kOthers = R"(insert into FTPServer values (11, 'FTP-11', 'h', 21, '', '', '');
 insert into SMTPServer values (21, 'Mail-21', 'h', 25, '', '', '', '', '', '', 0);
 update Event set (IgnoreInterval, RelayID, FTPServerID, SMTPServerID) = (77, 8, 8, 8);
 update SensorRelay set Interval=123)";

class EventTest : public RunningServiceTest {};

using Handler = void (*)(psia::Service&, const psia::Request&);
/// Runs a handler in a process of its own that libfcgi takes for a plain CGI program. Returns what it writes,
/// and behind it the changes it makes.
std::string run(Handler handler, const std::string& tail, const std::string& body = "") {
  write_file("/usr/local/orvid/body", body);
  const Settings before = all_settings();
  std::fflush(stdout);
  const pid_t child = fork();
  if (child == 0) {
    dup2(open("/usr/local/orvid/body", O_RDONLY), 0);
    dup2(open("/usr/local/orvid/answer", O_WRONLY | O_CREAT | O_TRUNC, 0600), 1);
    psia::Environment environment;
    psia::Database database;
    const auto queues = psia::ControlQueues::open();
    const psia::TzPairListOwner zones(psia::tz_pair_list_create());
    if (FCGI_Accept() < 0 || !database.open(psia::kConfigurationDatabase) || !queues || !zones) _exit(1);
    psia::Service service{environment, database, *queues, *zones};
    const std::string length = std::to_string(body.size());
    handler(service,
            {.uri = "/u", .method = "", .content_length = length.c_str(), .level = 0, .tail = tail.c_str()});
    std::fflush(stdout);
    _exit(0);
  }
  EXPECT_EQ(waitpid(child, nullptr, 0), child);
  return read_file("/usr/local/orvid/answer") + differences(before, all_settings());
}

/// An EventTriggerNotification as a document shows it, and a client sends it.
std::string note(const std::string& children) {
  return xml("EventTriggerNotification!(" + replaced(children, {{"BY_", "notificationMethod="}}) + ")");
}

TEST_F(EventTest, ReadsOfOneNotificationBringTheLinksBehindTheOneNamed) {
  run_sql(kOthers +
          ";insert into Relay values (-1, 'none'), (5, 'gone');"
          "insert into FTPServer values (-1, 'none', '', 0, '', '', '')");
  const std::string ftp = note("id=FTP-1 BY_FTP");
  const std::string mail = note("id=Mail-1 BY_email");
  const std::string relay = note("id=Relay-2 BY_IO notificationInterval=123000 outputIOPortID=2");
  for (const auto& [links, id, entries] :
       std::vector<std::array<std::string, 3>>{{"1, 1, 1", "Relay-2", relay + ftp + mail},
                                               {"-1, 1, 1", "Relay-2", ""},  // only kinds that are linked
                                               {"1, 1, 1", "gone", ftp + mail},
                                               {"1, 1, 1", "none", ""},
                                               {"1, 1, 1", "FTP-11", note("id=FTP-11 BY_FTP") + mail},
                                               {"1, -1, 1", "FTP-11", ""},
                                               {"1, 1, 77", "Mail-21", note("id=Mail-21 BY_email")},
                                               {"1, 1, -1", "Mail-21", ""}}) {
    run_sql("update Event set (RelayID, FTPServerID, SMTPServerID) = (" + links + ")");
    EXPECT_TRUE(same(run(psia::read_notification, "Sensor-0/notifications/" + id),
                     document(kBareXml + entries, kBareType)))
        << id << " with links " << links;
  }
  EXPECT_EQ(run(psia::read_notification, "Relay-1/notifications/FTP-1"), status(4, "/u"));
}

TEST_F(EventTest, ChangesOfOneNotificationSetOneLinkAndLeaveTheOthers) {
  // A deletion links what it names. Of what has the same name the relay counts, then the FTP server; a relay
  // of a negative number is none. The notifications of a relay are not changed.
  run_sql(kOthers +
          ";insert into FTPServer values (12, 'Relay-2', '', 0, '', '', ''), (0, 'FTP-0', '', 0, '', '', '');"
          "insert into SMTPServer values (22, 'FTP-11', '', 0, '', '', '', '', '', '', 0);"
          "update SMTPServer set SMTPServerID=0 where SMTPServerID=21;"
          "insert into SensorRelay values (-4, 'Mail-1', 1)");
  constexpr auto write_one = psia::write_notification;
  constexpr auto delete_one = psia::delete_notification;
  for (const auto& [handler, id, children, changed] :
       std::vector<std::tuple<Handler, std::string, std::string, std::string>>{
           {write_one, "Sensor-0/notifications/FTP-1", "id=Sensor-0 BY_IO notificationInterval=3000",
            "; Event RelayID=0; SensorRelay/0 Interval=3"},
           {write_one, "Sensor-0/notifications/FTP-1", "id=FTP-0 BY_FTP", "; Event FTPServerID=0"},
           {write_one, "Sensor-0/notifications/FTP-1", "id=Mail-21 BY_SMTP", "; Event SMTPServerID=0"},
           {write_one, "Sensor-0/notifications/FTP-1", "id=Mail-1 BY_IO notificationInterval=1000", ""},
           {write_one, "Relay-1/notifications/FTP-1", "id=FTP-1 BY_FTP", ""},
           {delete_one, "Sensor-0/notifications/Relay-2", "", "; Event RelayID=2"},
           {delete_one, "Sensor-0/notifications/nobody", "", ""},
           {delete_one, "Sensor-0/notifications/FTP-11", "", "; Event FTPServerID=11"},
           {delete_one, "Sensor-0/notifications/Mail-1", "", "; Event SMTPServerID=1"},
           {delete_one, "Relay-1/notifications/FTP-1", "", ""}})
    EXPECT_EQ(run(handler, id, note(children)), status(1, "/u") + changed) << id << " " << children;
}

}  // namespace
}  // namespace psia_tests
