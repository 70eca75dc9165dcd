// The event resources, whose documents appear on the service's standard output: the trigger and its
// notifications, the schedule, the mail and FTP servers.
#include <fcgi_stdio.h>
#include <fcntl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdio>
#include <regex>

#include "event/triggers.h"
#include "frame/service.h"
#include "system/time_zone_table.h"
#include "tests/support/service_fixture.h"

namespace psia_tests {
namespace {

/// Stands for what is often said in the tables below.
const std::string kWords = "S127 := " + std::string(127, 's') + "\nS255 := " + std::string(255, 's') + R"(
METHODS := EventNotificationMethods!(MailingNotificationList!(MAIL1) FTPNotificationList!(FTP1) FORMATS)
FORMATS := FTPFormat(uploadSnapShotEnabled=false uploadVideoClipEnabled=true) MediaFormat(snapShotImageType=JPEG
 videoClipFormatType=264)
MAIL1 := MailingNotification!(id=Mail-1 authenticationMode=SMTP addressingFormatType=hostname
 hostName=mail.example.com portNo=25 accountName=camera password=mailpass)
FTP1 := FTPNotification!(id=FTP-1 addressingFormatType=ipaddress ipAddress=192.168.1.20 portNo=21 userName=camera
 password=ftppass uploadPath=/snapshots)
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
const std::string kOthers = R"(
insert into FTPServer values (11, 'FTP-11', 'h', 21, '', '', '');
insert into SMTPServer values (21, 'Mail-21', 'h', 25, '', '', '', '', '', '', 0);
update Event set (IgnoreInterval, RelayID, FTPServerID, SMTPServerID) = (77, 8, 8, 8);
update SensorRelay set Interval=123)";
const std::string kAlways = "always := " + replaced(kOthers, {{"\n", " "}}) + "\n";

class EventTest : public RunningServiceTest {};

TEST_F(EventTest, ServersAreShownInTheOrderOfTheirRows) {
  // The id in the URL is not looked at.
  expect_documents(kWords + R"(
SERVERS => METHODS
SERVERS/mailing => MailingNotificationList!(MAIL1)
SERVERS/ftp => FTPNotificationList!(FTP1)
SERVERS/mailing/{|Mail-1|FTP-1} => MAIL1
SERVERS/ftp/{|FTP-1|Mail-1} => FTP1
insert into SMTPServer values (0, 'it''s', '1.2.3', 3, '<b>', '%%%%', 'f', 'g', 'h', 'i', 1)
 :: SERVERS/mailing => MailingNotificationList!(MailingNotification!(id=it's authenticationMode=SMTP
 addressingFormatType=hostname hostName=1.2.3 portNo=3 accountName=<b> password=%) MAIL1)
insert into FTPServer values (0, '', '300.1.1.1', 2121, '%%%%%', 'e', '')
 :: SERVERS/ftp/FTP-1 => FTPNotification!(id= addressingFormatType=ipaddress ipAddress=300.1.1.1 portNo=2121
 userName=%% password=e uploadPath=)
delete from SMTPServer; drop table FTPServer
 :: SERVERS => EventNotificationMethods!(MailingNotificationList!() FTPNotificationList!() FORMATS)
delete from SMTPServer :: SERVERS/mailing/1 => MailingNotification!()
drop table FTPServer :: SERVERS/ftp/1 => FTPNotification!()
)");
}

TEST_F(EventTest, ServerUpdatesChangeTheServerThatTheBodyNames) {
  // Fields, what they change as a mail server's, as an FTP server's. The last id counts; without one it is
  // the server without one; a quote fails the statement. They come by themselves under any id, in a list, in
  // the combined document; what is not at its place is skipped, nothing is carried over from the server
  // before.
  expect_effects(kWords + R"(
always := insert into SMTPServer values (5, 'Mail-5', '', 1, '', '', 'f', 'g', 'h', 'i', 1),
 (6, '', '', 1, '', '', 'f', 'g', 'h', 'i', 1); insert into FTPServer values (5, 'FTP-5', '', 1, '', '', '');
 update SMTPServer set Address='-', Port=1, UserID='-', Password='-';
 update FTPServer set Address='-', Port=1, UserID='-', Password='-', Path='-'
REST := portNo=` 9x` ACCOUNTNAME=a userName=u password=p uploadPath=/
)" +
                 for_each(R"(
id=Mail-1 id=FTP-1 |  | FTPServer/1 Address= Port=21 UserID= Password= Path=; 
x(id=Mail-5) | SMTPServer/6 Address= Port=25 UserID= Password=;  | 
ID=Mail-5 ipAddress=1.2.3.4 HostName=mx REST | SMTPServer/5 Address=mx Port=9 UserID=a Password=p;  | 
id=FTP-5 hostName=mx ipAddress=1.2.3.4 REST |  | FTPServer/5 Address=1.2.3.4 Port=9 UserID=u Password=p Path=/; 
id=FTP-5 hostName=S127y userName=S127y password=S127y uploadPath=S127y |
  | FTPServer/5 Address=S127 Port=21 UserID=S127 Password=S127 Path=S127; 
id=Mail-5 password=it's |  | 
)",
                          R"(
PUT SERVERS/mailing/FTP-1 MailingNotification($1) => $2status 1
PUT SERVERS/mailing MailingNotificationLIST(FTPNotification(id=Mail-1) MailingNotification(id=x REST)
 MailingNotification($1)) => $2status 1
PUT SERVERS EventNotificationMethods(MailingNotificationList(MailingNotification($1))
 FTPFormat(FTPNotification($1))) => $2status 1
PUT SERVERS/ftp/ FTPNotification($1) => $3status 1
PUT SERVERS/ftp FTPNotificationList(MailingNotification(id=FTP-1) FTPNotification(id=x REST) FTPNotification($1))
 => $3status 1
PUT SERVERS EVENTnotificationmethods(FTPNotificationLIST(FTPNotification($1)) X(MailingNotification($1))) => $3status 1
PUT SERVERS{/mailing/1|/mailing|/ftp/1|/ftp|} X(MailingNotification($1) FTPNotification($1)) => status 3
)"));
}

TEST_F(EventTest, ServersAreAddedUpToTheLimitAndDeletedByTheUrlsId) {
  // The limit is looked at once: of a longer list all are taken, less the one whose statement fails. Behind
  // "ftp/" it is the server without an id, not all of them.
  expect_effects(kWords + R"(
always := insert into FTPServer values (2, 'FTP-1', 'h', 1, '', '', '')
POST SERVERS/ftp FTPNotificationList(<x/> FTPNotification(id=S127y hostName=&lt;h&gt; userName=%s password=p
 uploadPath=/)) => +FTPServer 3|S127|<h>|21|%s|p|/; status 1
X(FTPNotificationList()) => status 3
FTPNotificationList(FTPNotification(portNo=1) FTPNotification(id=') FTPNotification()) =>
 +FTPServer 3|||1|||; +FTPServer 4|||21|||; status 1
insert into FTPServer values (3, '', '', 1, '', '', '') :: FTPNotificationList(FTPNotification()) => status 3
POST SERVERS/mailing MailingNotificationList(MailingNotification()) => status 1
X(MailingNotificationList()) => status 3
MORE := insert into SMTPServer select FTPServerID + 3, '', '', 1, '', '', '', '', '', '', 0 from FTPServer
MORE limit 1 :: MailingNotificationList(MailingNotification()) => status 1
MORE :: MailingNotificationList(MailingNotification()) => status 3
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
L(D1 RANGE D2 RANGE D3 RANGE D4 RANGE D5 RANGE))
update Event set Week=-1 :: L(D7 RANGE D1 RANGE D2 RANGE D3 RANGE D4 RANGE D5 RANGE D6 RANGE))
update Event set Week=1, StartTime=5, EndTime=907 :: L(D7 TimeRange(beginTime=00:05:00 endTime=09:07:00))))
update Event set Week=64, StartTime=12345, EndTime=-130 :: L(D6 TimeRange(beginTime=123:45:00 endTime=-1:-30:00))))
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
  const std::string rows = for_each(R"(
<x/> | 0 | 2400 | 0
D=1 D=2 | 4 | 2400 | 0
D=0 R(3,000005) | 1 | 300 | 500
D=7 R(09:00:00,18:00:00) | 1 | 900 | 0
D=8 R(9,00:10) | 256 | 2400 | 0
D=31 | -2147483648 | 2400 | 0
D=1 D=32 R(9,00:10) | 0 | 900 | 1000
D=6 D=-1 R(9,00:10) | 0 | 900 | 1000
R(5,00:20) B=1111111111111111 D=3 R(7,00:09) | 8 | 700 | 900
D=1 R(08:30:00,18:30:00) | 2 | 800 | 3000
D=1 R(08:30:00,18:) | 2 | 800 | 0
D=1 R(,18:1) | 2 | 0 | 100
D=1 TimeRange(endTime=17:45:00) | 2 | 2400 | 4500
D=7 R(30,000-5) | 1 | 2400 | 0
D=1 R(-3,000-1) | 2 | -300 | 0
D=1 R(-1,1) | 2 | 2400 | 0
D=1 R(-99999999999,00:99999999999) | 2 | 0 | -100
D=7 R(9,00:17) D=4 R(7,00:12) D=2 R(8,00:20) | 4 | 700 | 2000
D=6 R(9,00:17) D=7 R(12,00:13) | 1 | 900 | 1700
D=1 B=000000001111111110000000 R(3,00:04) | 2 | 1600 | 900
D=6 B=111111111111111111111111 | 64 | 2300 | 100
D=1 B=0000000000000000000000001 R(3,00:04) | 2 | 300 | 400
D=1 B=00000000 | 2 | 2300 | 900
D=1 B= R(3,00:04) | 2 | 300 | 400
D=7 B=111111111111111111111111 R(3,00:04) | 1 | 300 | 400
D=1 B=000000000000000000000000 B=0 | 2 | 100 | 200
D=1 B=000000000000000000000000 D=2 B=0 | 4 | 2300 | 200
DAYOFWEEK=2)) TIMEBLOCKLIST(TIMEBLOCK(TIMERANGE(BEGINTIME=8 <x/> ENDTIME=00:18) beginTime=1) x(D=6)) x(TimeBlock(D=6))
 TimeBlockList(TimeBlock( | 4 | 800 | 1800
)",
                                    R"(
PUT $/schedule EventSchedule(TimeBlockList(TimeBlock( $1))) => Event Week=$2 StartTime=$3 EndTime=$4; status 1)");
  const std::string ranges =
      std::regex_replace(rows, std::regex(" R\\(([^,]*),([^)]*)\\)"), " TimeRange(beginTime=$1 endTime=$2)");
  expect_effects("always := update Event set Week=99, StartTime=98, EndTime=97\n" + kWords +
                 replaced(ranges, {{" D=", " dayOfWeek="}, {" B=", " bitString="}}) + R"(
"no XML" => status 3
TimeBlockList() => status 3
update Event set "Trigger"=1 :: EventSchedule() => status 1
drop table Event :: EventSchedule() => status 3
)");
}

TEST_F(EventTest, TriggersShowTheLinksWhoseRowsExist) {
  // Any device will do as a relay; rows that have gone are left out; negative numbers are none, though there
  // are such rows.
  expect_documents(kWords + for_each(R"(
2, 1, 1 | NOTE!(id=Relay-2 BY_IO=10000 outputIOPortID=2) NOTE!(id=FTP-1 BY_FTP) NOTE!(id=Mail-1 BY_email)
1, -1, -1 | NOTE!(id=Relay-1 BY_IO=-2147483296 outputIOPortID=1)
-1, 1, -1 | NOTE!(id=FTP-1 BY_FTP)
-1, -1, 1 | NOTE!(id=Mail-1 BY_email)
0, -5, -5 | NOTE!(id=Sensor-0 BY_IO=5000 outputIOPortID=0)
77, 77, 77 | 
-2, -1, -1 | 
-1, -2, -1 | 
-1, -1, -2 | 
)",
                                     R"(
always := insert into SensorRelay values (-2, 'Out', 5); insert into FTPServer values (-2, 'f', '', 1, '', '', '');
 insert into SMTPServer values (22, 'm', '', 1, '', '', '', '', '', '', 0);
 update SensorRelay set Interval=2147484 where DeviceID=1; update Event set IgnoreInterval=-700, LINKS=($1)
DOCUMENT := EventTrigger!(id=Sensor-0 TRIGGER INTERVAL=-700 NOTES!($2))
$/triggers => EventTriggerList!(DOCUMENT)
$/triggers/Sensor-0 => DOCUMENT
$/triggers/Sensor-0/notifications => NOTES!($2)
delete from SMTPServer where SMTPServerID=22; delete from FTPServer where FTPServerID=-2
 :: $ => EventNotification!(EventTriggerList!(DOCUMENT) METHODS)
update SMTPServer set SMTPServerID=-2 where SMTPServerID=22 :: $/triggers/Sensor-0 => DOCUMENT
)"));
  // A relay's alias shows the trigger, too, but has no notifications. A negative number of sensors counts for
  // the list alone, and a missing one has its usual name.
  expect_documents(kWords + R"(
update Event set LINKS=(-1, -1, -1) :: $/triggers => EventTriggerList!(EventTrigger!(id=Sensor-0 TRIGGER INTERVAL=5))
update Event set LINKS=(-1, -1, -1) :: $/triggers/Sensor-0/notifications => NOTES!()
update Event set "Trigger"=1 :: $/triggers/Sensor-0 => EventTrigger!(id=Sensor-0 TRIGGER)
update Event set "Trigger"=1 :: $/triggers/Sensor-0/notifications => NOTES!()
$/triggers/Relay-2 => EventTrigger!(id=Relay-2 TRIGGER INTERVAL=5 NOTES!(NOTE!(id=FTP-1 BY_FTP)))
$/triggers/{|Relay-2/notifications|/notifications|'or'1'='1|'or'1'='1/notifications} => status 4
update SensorRelay set DeviceID=-4 where DeviceID=1 :: $/triggers/{Relay-1|Relay-1/notifications} => status 4
update SensorRelay set Alias='Door';delete from Event :: $/triggers => EventTriggerList!(EventTrigger!(id=Door TRIGGER))
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
  expect_effects(kAlways + kWords +
                 for_each(R"(
NOTE(id=Relay-2 BY_IO=7999) | 2 FTP=-1 MAIL=-1; SensorRelay/2 Interval=7
NOTE(id=Sensor-0 BY_io notificationInterval=-1999) | 0 FTP=-1 MAIL=-1; SensorRelay/0 Interval=-1
NOTE(id=Relay-1 BY_Io) | 1 FTP=-1 MAIL=-1; SensorRelay/1 Interval=5
NOTE(id=FTP-1 BY_IO=1000) | -1 FTP=-1 MAIL=-1
NOTE(id=FTP-11 BY_ftp notificationInterval=1000) | -1 FTP=11 MAIL=-1
NOTE(id=Mail-21 BY_smtp) | -1 FTP=-1 MAIL=21
NOTE(id=Mail-21 BY_email) | -1 FTP=-1 MAIL=-1
<x/> | -1 FTP=-1 MAIL=-1
NOTE(id=Relay-1 BY_IO=9000) NOTE(id=FTP-1 BY_FTP) | -1 FTP=1 MAIL=-1; SensorRelay/1 Interval=9
NOTE(id=FTP-11 BY_FTP) NOTE() | -1 FTP=11 MAIL=-1
NOTE(id=FTP-1 BY_FTP) Other(id=FTP-11) | -1 FTP=1 MAIL=-1
)",
                          R"(
PUT $/triggers/Sensor-0/notifications NOTES($1) => REL$2; status 1
PUT $/triggers/Sensor-0 EventTrigger(id=Sensor-0 NOTES($1)) => ALL$2; status 1
)") + R"(
POST $/triggers/Sensor-0/notifications NOTE(id=Mail-21 BY_SMTP) => REL-1 FTP=-1 MAIL=21; status 1
NOTES() => status 3
PUT $/triggers/Sensor-0/notifications NOTE() => status 3
drop table Event :: NOTES() => status 1
PUT $/triggers/Sensor-0 NOTES() => status 3
PUT $/triggers EventTrigger() => status 3
PUT $ EventTriggerList() => status 3
)");
}

TEST_F(EventTest, ListsAreAppliedTriggerByTriggerWithCarriedValues) {
  // Without an id nothing is changed; a relay is no trigger, but its interval is stored all the same. A
  // combined document may have several lists, among other elements.
  expect_effects(kAlways + kWords +
                 for_each(R"(
EventTrigger(INTERVAL=8) | <x/> | 
EventTrigger(INTERVAL=` 8s` NOTES(NOTE(id=FTP-1 BY_FTP))) | EventTrigger(id=x id=Sensor-0) |
 Event IgnoreInterval=8 RelayID=-1 FTP=1 MAIL=-1; 
EventTrigger(id=Sensor-0 NOTES(NOTE(id=FTP-1 BY_FTP))) | EventTrigger(NOTES(NOTE(id=FTP-11))) | ALL-1 FTP=11 MAIL=-1; 
EventTrigger(id=Sensor-0 NOTES(NOTE(id=Relay-1 BY_IO=2000))) | EventTrigger(NOTES(NOTE(id=Relay-2))) |
 ALL2 FTP=-1 MAIL=-1; SensorRelay/1 Interval=2; SensorRelay/2 Interval=2; 
EventTrigger(id=Sensor-0) | EventTrigger(id=nobody INTERVAL=6) x(INTERVAL=6) | ALL-1 FTP=-1 MAIL=-1; 
EventTrigger(id=Relay-1 NOTES(NOTE(id=Relay-1 BY_IO=1000))) | <x/> | SensorRelay/1 Interval=1; 
)",
                          R"(
PUT $/triggers eventTriggerLIST($1 $2) => $3status 1
PUT $ EVENTnotification(EventTriggerLIST($1) X(EventTrigger(id=Sensor-0 INTERVAL=6)) EventTriggerList($2)) => $3status 1
)"));
}

TEST_F(EventTest, TheUrlNamesTheTriggerThatIsChanged) {
  // Of an id 127 characters count in a body.
  expect_effects(kAlways + kWords + R"(
PUT $/triggers/Sensor-0 EventTrigger(id=Relay-1 INTERVAL=12) =>
 Event IgnoreInterval=12 RelayID=-1 FTP=-1 MAIL=-1; status 1
DELETE $/triggers/{Sensor-0|Sensor-0/notifications|Sensor-0/notifications/FTP-1} => REL-1 FTP=-1 MAIL=-1; status 1
{PUT|DELETE} $/triggers/{Relay-1|Relay-2||'or'1'='1} EventTrigger(id=Sensor-0) => status 1
{PUT|DELETE} $/triggers/{Relay-1|Relay-2||'or'1'='1}/notifications NOTES() => status 1
POST $/triggers/{Relay-1|Relay-2||'or'1'='1}/notifications NOTE() => status 1
update SensorRelay set Alias='S127' where DeviceID=0; update FTPServer set Alias='S127' where FTPServerID=11
 :: PUT $/triggers EventTriggerList(EventTrigger(id=S127s NOTES(NOTE(id=S127s BY_FTP)))) => ALL-1 FTP=11 MAIL=-1; status 1
)");
}

/// Runs a handler of one notification, which no route leads to, in a process of its own that libfcgi takes
/// for a plain CGI program. Returns what it writes, and behind it the changes it makes.
std::string run(void (*handler)(psia::Service&, const psia::Request&), const std::string& tail,
                const std::string& body = "") {
  const char* const input = "/usr/local/orvid/body";
  const char* const output = "/usr/local/orvid/answer";
  write_file(input, body);
  const Settings before = all_settings();
  std::fflush(stdout);
  const pid_t child = fork();
  if (child == 0) {
    dup2(open(input, O_RDONLY), 0);
    dup2(open(output, O_WRONLY | O_CREAT | O_TRUNC, 0600), 1);
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
  return read_file(output) + differences(before, all_settings());
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
  // Of what has the same name the relay counts, then the FTP server; a relay of a negative number is none.
  run_sql(kOthers +
          ";insert into FTPServer values (12, 'Relay-2', '', 0, '', '', '');"
          "insert into SMTPServer values (22, 'FTP-11', '', 0, '', '', '', '', '', '', 0);"
          "insert into SensorRelay values (-4, 'Mail-1', 1)");
  const std::string ok = status(1, "/u");
  for (const auto& [children, changed] :
       Pairs{{"id=Sensor-0 BY_IO notificationInterval=3000", "; Event RelayID=0; SensorRelay/0 Interval=3"},
             {"id=FTP-11 BY_FTP", "; Event FTPServerID=11"},
             {"id=Mail-21 BY_SMTP", "; Event SMTPServerID=21"},
             {"id=Mail-1 BY_IO notificationInterval=1000", ""}}) {
    EXPECT_EQ(run(psia::write_notification, "Sensor-0/notifications/FTP-1", note(children)), ok + changed)
        << children;
  }
  EXPECT_EQ(run(psia::write_notification, "Relay-1/notifications/x", note("id=FTP-1 BY_FTP")), ok);
  // A deletion links what it names.
  for (const auto& [id, changed] : Pairs{{"Relay-2", "; Event RelayID=2"},
                                         {"nobody", ""},
                                         {"FTP-1", "; Event FTPServerID=1"},
                                         {"FTP-11", "; Event FTPServerID=11"},
                                         {"Mail-1", "; Event SMTPServerID=1"},
                                         {"Mail-21", "; Event SMTPServerID=21"}}) {
    EXPECT_EQ(run(psia::delete_notification, "Sensor-0/notifications/" + id), ok + changed) << id;
  }
  EXPECT_EQ(run(psia::delete_notification, "Relay-1/notifications/FTP-1"), ok);
}

}  // namespace
}  // namespace psia_tests
