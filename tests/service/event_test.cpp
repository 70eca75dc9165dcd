// The event resources, whose documents appear on the service's standard output: the trigger and its
// notifications, the schedule, the mail and FTP servers.
#include <fcgi_stdio.h>
#include <fcntl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdio>

#include "event/triggers.h"
#include "frame/service.h"
#include "index/index_documents.h"
#include "system/time_zone_table.h"
#include "tests/support/service_fixture.h"

namespace psia_tests {
namespace {

/// Stands for what is often said in the tables below.
const std::string kWords = "S127 := " + std::string(127, 's') + "\nS255 := " + std::string(255, 's') + R"(
MAIL1 := MailingNotification!(id=Mail-1 authenticationMode=SMTP addressingFormatType=hostname
 hostName=mail.example.com portNo=25 accountName=camera password=mailpass)
NOTES := EventTriggerNotificationList
NOTE := EventTriggerNotification
BY_IO := notificationMethod=IO notificationInterval
BY_ := notificationMethod=
TRIGGER := eventType=IO inputIOPortID=0
INTERVAL := intervalBetweenEvents
LINKS := (RelayID, FTPServerID, SMTPServerID)
ALL := Event IgnoreInterval=5 RelayID=
REL := Event RelayID=
FTP= := FTPServerID=
MAIL= := SMTPServerID=
SERVERS := /PSIA/Custom/Event/notification
$ := /PSIA/Custom/Event
)";
// Rows of other numbers in every table, so that no link can be taken for another; and other values.
const std::string kOthers = R"(insert into FTPServer values (11, 'FTP-11', 'h', 21, '', '', '');
 insert into SMTPServer values (21, 'Mail-21', 'h', 25, '', '', '', '', '', '', 0);
 update Event set (IgnoreInterval, RelayID, FTPServerID, SMTPServerID) = (77, 8, 8, 8);
 update SensorRelay set Interval=123)";

class EventTest : public RunningServiceTest {};

TEST_F(EventTest, ServersAreShownInTheOrderOfTheirRows) {
  // The id in the URL is not looked at.
  expect_documents(kWords + R"(
SERVERS/mailing/{|FTP-1} => MAIL1
insert into SMTPServer values (0, 'it''s', '1.2.3', 3, '<b>', '%%%%', 'f', 'g', 'h', 'i', 1)
 :: SERVERS/mailing => MailingNotificationList!(MailingNotification!(id=it's authenticationMode=SMTP
 addressingFormatType=hostname hostName=1.2.3 portNo=3 accountName=<b> password=%) MAIL1)
insert into FTPServer values (0, '', '300.1.1.1', 2121, '%%%%%', 'e', '')
 :: SERVERS/ftp/FTP-1 => FTPNotification!(id= addressingFormatType=ipaddress ipAddress=300.1.1.1 portNo=2121
 userName=%% password=e uploadPath=)
drop table FTPServer :: SERVERS/ftp => FTPNotificationList!()
drop table FTPServer :: SERVERS/ftp/1 => FTPNotification!()
)");
}

TEST_F(EventTest, ServerUpdatesChangeTheServerThatTheBodyNames) {
  // The last id counts; without one it is the server without one; a quote fails the statement. Servers come
  // by themselves under any id, in a list, in the combined document; what is not at its place is skipped,
  // nothing is carried over from the server before.
  expect_effects(kWords + R"(
always := insert into SMTPServer values (5, 'Mail-5', '-', 1, '-', '-', 'f', 'g', 'h', 'i', 1),
 (6, '', '-', 1, '-', '-', 'f', 'g', 'h', 'i', 1); insert into FTPServer values (5, 'FTP-5', '-', 1, '-', '-', '-')
REST := portNo=` 9x` ACCOUNTNAME=a userName=u password=p uploadPath=/
PUT SERVERS/mailing/FTP-1 MailingNotification(x(id=Mail-5)) =>
 SMTPServer/6 Address= Port=25 UserID= Password=; status 1
MailingNotification(id=Mail-1 ID=Mail-5 ipAddress=1.2.3.4 HostName=mx REST) =>
 SMTPServer/5 Address=mx Port=9 UserID=a Password=p; status 1
MailingNotification(id=Mail-5 password=it's) => status 1
PUT SERVERS/ftp/ FTPNotification(id=FTP-5 hostName=mx ipAddress=S127y portNo=` 9x` accountName=a userName=S127y
 password=S127y uploadPath=S127y) => FTPServer/5 Address=S127 Port=9 UserID=S127 Password=S127 Path=S127; status 1
PUT SERVERS/mailing MailingNotificationLIST(FTPNotification(id=Mail-1) MailingNotification(id=x REST)
 MailingNotification(id=Mail-5)) => SMTPServer/5 Address= Port=25 UserID= Password=; status 1
PUT SERVERS/ftp FTPNotificationList(MailingNotification(id=FTP-1) FTPNotification(id=x REST) FTPNotification(id=FTP-5)) =>
 FTPServer/5 Address= Port=21 UserID= Password= Path=; status 1
PUT SERVERS EVENTnotificationmethods(FTPNotificationLIST(FTPNotification(id=FTP-5 REST)) X(MailingNotification(id=Mail-1))
 MailingNotificationList(MailingNotification(id=Mail-5 REST)) FTPFormat(FTPNotification(id=FTP-1))) =>
 FTPServer/5 Address= Port=9 UserID=u Password=p Path=/; SMTPServer/5 Address= Port=9 UserID=a Password=p; status 1
{PUT SERVERS/mailing/1|PUT SERVERS/mailing|POST SERVERS/mailing|PUT SERVERS} X(MailingNotification(id=Mail-5) FTPNotification(id=FTP-5)) => status 3
)");
}

TEST_F(EventTest, ServersAreAddedUpToTheLimitAndDeletedByTheUrlsId) {
  // The limit is looked at once: of a longer list all are taken, less the one whose statement fails. Behind
  // "ftp/" it is the server without an id, not all of them.
  expect_effects(kWords + R"(
always := insert into FTPServer values (2, 'FTP-1', 'h', 1, '', '', '')
POST SERVERS/ftp FTPNotificationList(<x/> FTPNotification(id=S127y hostName=&lt;h&gt; userName=%s password=p
 uploadPath=/)) => +FTPServer 3|S127|<h>|21|%s|p|/; status 1
FTPNotificationList(FTPNotification(portNo=1) FTPNotification(id=') FTPNotification()) =>
 +FTPServer 3|||1|||; +FTPServer 4|||21|||; status 1
insert into FTPServer values (3, '', '', 1, '', '', '') :: FTPNotificationList(FTPNotification()) => status 3
MORE := insert into SMTPServer select FTPServerID + 3, '', '', 1, '', '', '', '', '', '', 0 from FTPServer
MORE :: POST SERVERS/mailing MailingNotificationList(MailingNotification()) => status 3
drop table SMTPServer :: MailingNotificationList(MailingNotification()) => status 1
DELETE SERVERS/ftp/{|ftp-1|'or'1'='1} => status 1
insert into FTPServer values (3, 'a/S255', '', 1, '', '', '') :: DELETE SERVERS/ftp/a/S255 => -FTPServer/3; status 1
DELETE SERVERS/ftp/FTP-1 => -FTPServer/1; -FTPServer/2; status 1
DELETE SERVERS/ftp => -FTPServer/1; -FTPServer/2; status 1
MORE :: DELETE SERVERS/mailing/Mail-1 => -SMTPServer/1; status 1
MORE :: DELETE SERVERS/mailing => -SMTPServer/1; -SMTPServer/4; -SMTPServer/5; status 1
)");
}

TEST_F(EventTest, TheScheduleShowsEachStoredDayWithTheOneRange) {
  expect_documents(kWords + R"(
L := $/schedule => EventSchedule!(TimeBlockList!
RANGE := TimeRange(beginTime=08:00:00 endTime=17:30:00))
D := TimeBlock(dayOfWeek=
update Event set Week=-1 :: L(D7 RANGE D1 RANGE D2 RANGE D3 RANGE D4 RANGE D5 RANGE D6 RANGE))
update Event set Week=65, StartTime=12305, EndTime=-130
 :: L(D7 TimeRange(beginTime=123:05:00 endTime=-1:-30:00)) D6 TimeRange(beginTime=123:05:00 endTime=-1:-30:00))))
update Event set "Trigger"=1 :: L())
)");
}

TEST_F(EventTest, TheScheduleStoresTheLastDayTheFirstHourAndTheLastMinutes) {
  // A number that is no day leaves the day as it was, its bit is stored all the same; what comes before the
  // first day is ignored. The begin is the hours, the end what stands from the fourth character on; -1 is as
  // if none were given, and the product wraps. Of all days count the smallest begin and the largest end. A
  // bit string counts from the last armed hour to behind the first, whatever the range says; a Sunday's is
  // not kept; behind a shorter one the rest of an earlier one still counts, but of the same day only. The day
  // is kept over blocks and lists, and other elements are skipped.
  expect_effects("always := update Event set Week=99, StartTime=98, EndTime=97\n" + kWords + R"(
D= := dayOfWeek=
B= := bitString=
FROM= := TimeRange(beginTime=
TO= := endTime=
SET( := EventSchedule(TimeBlockList(TimeBlock(
PUT $/schedule SET(<x/>))) => Event Week=0 StartTime=2400 EndTime=0; status 1
SET(D=0 FROM=3 TO=000005)))) => Event Week=1 StartTime=300 EndTime=500; status 1
SET(D=31 FROM=9 TO=00:10)))) => Event Week=-2147483648 StartTime=2400 EndTime=0; status 1
SET({D=1 D=32|D=6 D=-1} FROM=9 TO=00:10)))) => Event Week=0 StartTime=900 EndTime=1000; status 1
SET(FROM=5 TO=00:20) B=1111111111111111 D=3 FROM=07:30:00 TO=00:09)))) =>
 Event Week=8 StartTime=700 EndTime=900; status 1
SET(D=1 FROM= TO=18:1)))) => Event Week=2 StartTime=0 EndTime=100; status 1
SET(D=7 FROM=30 TO=000-5)))) => Event Week=1 StartTime=2400 EndTime=0; status 1
SET(D=1 FROM=-3 TO=000-1)))) => Event Week=2 StartTime=-300 EndTime=0; status 1
SET(D=1 FROM=-1 TO=1)))) => Event Week=2 StartTime=2400 EndTime=0; status 1
SET(D=1 FROM=-99999999999 TO=00:99999999999)))) => Event Week=2 StartTime=0 EndTime=-100; status 1
SET(D=7 FROM=9 TO=00:17) D=4 FROM=7 TO=00:22) D=2 FROM=8 TO=00:20)))) =>
 Event Week=4 StartTime=700 EndTime=2200; status 1
SET(D=1 B=000000001111111110000000 FROM=3 TO=00:04)))) => Event Week=2 StartTime=1600 EndTime=900; status 1
SET(D=6 B=100000000))) => Event Week=64 StartTime=2300 EndTime=100; status 1
SET(D=1 {B=0000000000000000000000001|B=} FROM=3 TO=00:04)))) => Event Week=2 StartTime=300 EndTime=400; status 1
SET(D=7 B=111111111111111111111111 FROM=3 TO=00:04)))) => Event Week=1 StartTime=300 EndTime=400; status 1
SET(D=1 B=000000000000000000000000 B=0))) => Event Week=2 StartTime=100 EndTime=200; status 1
SET(D=1 B=000000000000000000000000 D=2 B=0))) => Event Week=4 StartTime=2300 EndTime=200; status 1
SET(DAYOFWEEK=2)) TIMEBLOCKLIST(TIMEBLOCK(TIMERANGE(BEGINTIME=8 <x/> ENDTIME=00:18) beginTime=1) x(D=6))
 x(TimeBlock(D=6)) TimeBlockList(TimeBlock())) => Event Week=4 StartTime=800 EndTime=1800; status 1
TimeBlockList() => status 3
)");
}

TEST_F(EventTest, TriggersShowTheLinksWhoseRowsExist) {
  // Any device will do as a relay; rows that have gone are left out; negative numbers are none, though there
  // are such rows. A relay's alias shows the trigger, too, but has no notifications. A negative number of
  // sensors counts for the list alone, and a missing one has its usual name.
  expect_documents(kWords + R"(
SHOWN := $/triggers/Sensor-0 => EventTrigger!(id=Sensor-0 TRIGGER INTERVAL=5 NOTES!(
THREE := NOTE!(id=Relay-2 BY_IO=10000 outputIOPortID=2) NOTE!(id=FTP-1 BY_FTP) NOTE!(id=Mail-1 BY_email)
update Event set LINKS=(2, 1, 1) :: SHOWN THREE))
update Event set LINKS=(2, 1, 1) :: $/triggers/Sensor-0/notifications => NOTES!(THREE)
update SensorRelay set Interval=2147484; update Event set LINKS=(1, -1, -1) :: SHOWN
 NOTE!(id=Relay-1 BY_IO=-2147483296 outputIOPortID=1)))
update Event set LINKS=(-1, -1, 1) :: SHOWN NOTE!(id=Mail-1 BY_email)))
update FTPServer set FTPServerID=0; update SMTPServer set SMTPServerID=0; update Event set LINKS=(-1, 0, 0)
 :: SHOWN NOTE!(id=FTP-1 BY_FTP) NOTE!(id=Mail-1 BY_email)))
update Event set LINKS=(0, -5, -5) :: SHOWN NOTE!(id=Sensor-0 BY_IO=5000 outputIOPortID=0)))
update Event set LINKS=(77, 77, 77) :: SHOWN))
update SensorRelay set DeviceID=-2 where DeviceID=2; update FTPServer set FTPServerID=-2;
 update SMTPServer set SMTPServerID=-2; update Event set LINKS=(-2, -2, -2) :: SHOWN))
update SensorRelay set Alias='Door'; update Event set LINKS=(-1, -1, -1), IgnoreInterval=-700
 :: $/triggers => EventTriggerList!(EventTrigger!(id=Door TRIGGER INTERVAL=-700))
update Event set "Trigger"=1 :: $/triggers/Sensor-0 => EventTrigger!(id=Sensor-0 TRIGGER)
update Event set "Trigger"=1 :: $/triggers/Sensor-0/notifications => NOTES!()
$/triggers/Relay-2 => EventTrigger!(id=Relay-2 TRIGGER INTERVAL=5 NOTES!(NOTE!(id=FTP-1 BY_FTP)))
$/triggers/{|Relay-2/notifications|/notifications|'or'1'='1|'or'1'='1/notifications} => status 4
update SensorRelay set DeviceID=-4 where DeviceID=1 :: $/triggers/{Relay-1|Relay-1/notifications} => status 4
update Spec set Sensor=-1;delete from SensorRelay;delete from Event
 :: $/triggers => EventTriggerList!(EventTrigger!(id=Sensor-0 TRIGGER))
update Spec set Sensor=-1 :: $ => status 4
update Spec set Sensor=0 :: {$|$/triggers} => status 4
update SensorRelay set Alias='S255' where DeviceID=0 :: $/triggers/S255s/notifications => NOTES!(NOTE!(id=FTP-1 BY_FTP))
update SensorRelay set Alias='S255' where DeviceID=0 :: $/triggers/S255s => status 4
)");
}

TEST_F(EventTest, TheLastNotificationDecidesOverTheLinks) {
  // What the documents say for a mail, "email", is not what they take. Of several notifications the last one
  // decides, and takes on what it does not say itself. A POST replaces the links, too.
  expect_effects("always := " + kOthers + "\n" + kWords + R"(
PUT $/triggers/Sensor-0/notifications NOTES(NOTE(id=Sensor-0 BY_io notificationInterval=-1999)) =>
 REL0 FTP=-1 MAIL=-1; SensorRelay/0 Interval=-1; status 1
NOTES(NOTE(id=Relay-1 BY_Io)) => REL1 FTP=-1 MAIL=-1; SensorRelay/1 Interval=5; status 1
NOTES({NOTE(id=FTP-1 BY_IO=1000)|NOTE(id=Mail-21 BY_email)|<x/>}) => REL-1 FTP=-1 MAIL=-1; status 1
NOTES(NOTE(id=Mail-21 BY_smtp)) => REL-1 FTP=-1 MAIL=21; status 1
NOTES(NOTE(id=Relay-1 BY_IO=9000) NOTE(id=FTP-1 BY_FTP)) => REL-1 FTP=1 MAIL=-1; SensorRelay/1 Interval=9; status 1
NOTES(NOTE(id=FTP-11 BY_ftp) {NOTE()|Other(id=FTP-1)}) => REL-1 FTP=11 MAIL=-1; status 1
drop table Event :: NOTES() => status 1
POST $/triggers/Sensor-0/notifications NOTE(id=Mail-21 BY_SMTP) => REL-1 FTP=-1 MAIL=21; status 1
)");
}

TEST_F(EventTest, TriggersOfAListAreNamedInTheBodyWithCarriedValuesAndASingleOneByTheUrl) {
  // Without an id nothing is changed; a relay is no trigger, but its interval is stored all the same. A
  // combined document may have several lists, among other elements. Of an id 127 characters count in a body.
  expect_effects("always := " + kOthers + "\n" + kWords + R"(
SENSOR := EventTrigger(id=Sensor-0
PUT $/triggers eventTriggerLIST(EventTrigger(INTERVAL=8)) => status 1
eventTriggerLIST(EventTrigger(INTERVAL=` 8s` NOTES(NOTE(id=FTP-1 BY_FTP))) EventTrigger(id=x id=Sensor-0)) =>
 Event IgnoreInterval=8 RelayID=-1 FTP=1 MAIL=-1; status 1
eventTriggerLIST(SENSOR NOTES(NOTE(id=Relay-1 BY_IO=2000))) EventTrigger(NOTES(NOTE(id=Relay-2)))) =>
 ALL2 FTP=-1 MAIL=-1; SensorRelay/1 Interval=2; SensorRelay/2 Interval=2; status 1
eventTriggerLIST(SENSOR) EventTrigger(id=nobody INTERVAL=6) x(id=Sensor-0 INTERVAL=6)) => ALL-1 FTP=-1 MAIL=-1; status 1
eventTriggerLIST(EventTrigger(id=Relay-1 NOTES(NOTE(id=Relay-1 BY_IO=1000)))) => SensorRelay/1 Interval=1; status 1
PUT $ EVENTnotification(EventTriggerLIST(SENSOR NOTES(NOTE(id=Relay-1 BY_IO=2000)))) X(SENSOR INTERVAL=6))
 EventTriggerList(EventTrigger(NOTES(NOTE(id=Relay-2))))) =>
 ALL2 FTP=-1 MAIL=-1; SensorRelay/1 Interval=2; SensorRelay/2 Interval=2; status 1
PUT $/triggers/Sensor-0 EventTrigger(id=Relay-1 INTERVAL=12 NOTES(NOTE(id=Mail-21 BY_SMTP))) =>
 Event IgnoreInterval=12 RelayID=-1 FTP=-1 MAIL=21; status 1
DELETE $/triggers/{Sensor-0|Sensor-0/notifications|Sensor-0/notifications/FTP-1} => REL-1 FTP=-1 MAIL=-1; status 1
{PUT|DELETE} $/triggers/{Relay-1|Relay-2||'or'1'='1} EventTrigger(id=Sensor-0) => status 1
{PUT|DELETE} $/triggers/{Relay-1|Relay-2||'or'1'='1}/notifications NOTES() => status 1
POST $/triggers/{Relay-1|Relay-2||'or'1'='1}/notifications NOTE() => status 1
update SensorRelay set Alias='S127' where DeviceID=0; update FTPServer set Alias='S127' where FTPServerID=11
 :: PUT $/triggers EventTriggerList(EventTrigger(id=S127s NOTES(NOTE(id=S127s BY_FTP)))) => ALL-1 FTP=11 MAIL=-1; status 1
)");
}

using Handler = void (*)(psia::Service&, const psia::Request&);
/// Runs a handler of one notification, which no route leads to, in a process of its own that libfcgi takes
/// for a plain CGI program. Returns what it writes, and behind it the changes it makes.
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
    auto queues = psia::ControlQueues::open();
    const psia::TzPairListOwner zones(psia::tz_pair_list_create());
    if (FCGI_Accept() < 0 || !database.open(psia::kConfigurationDatabase) || !queues || !zones) _exit(1);
    const psia::IndexDocuments index;
    psia::Service service{environment, database, *queues, *zones, index};
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
  constexpr auto delete_one = psia::remove_notification;
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
