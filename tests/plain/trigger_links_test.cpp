// The trigger and what it is linked to: a relay, an FTP server, a mail server; -1 is no link.
#include "tests/plain/camera_test.h"

namespace service_tests {
namespace {

const std::string kSensor = "/PSIA/Custom/Event/triggers/Sensor-0";
// A second server of each kind, and numbers that no update stores, so that no link is taken for another.
const std::string kOthers = R"(
    insert into FTPServer values (11, 'FTP-11', 'h', 21, '', '', '');
    insert into SMTPServer values (21, 'Mail-21', 'h', 25, '', '', '', '', '', '', 0);
    update Event set RelayID=8, FTPServerID=8, SMTPServerID=8;
    update SensorRelay set Interval=123)";

using TriggerLinksTest = ServiceTest;

TEST_F(TriggerLinksTest, ATriggerShowsItsLinks) {
  execute("update Event set RelayID=2, FTPServerID=1, SMTPServerID=1");
  expect_effects({"GET", kSensor}, {printed(R"(
      <EventTrigger version="1.0" xmlns="urn:psialliance-org">
        <id>Sensor-0</id>
        <eventType>IO</eventType>
        <inputIOPortID>0</inputIOPortID>
        <intervalBetweenEvents>5</intervalBetweenEvents>
        <EventTriggerNotificationList version="1.0" xmlns="urn:psialliance-org">
          <EventTriggerNotification version="1.0" xmlns="urn:psialliance-org">
            <id>Relay-2</id>
            <notificationMethod>IO</notificationMethod>
            <notificationInterval>10000</notificationInterval>
            <outputIOPortID>2</outputIOPortID>
          </EventTriggerNotification>
          <EventTriggerNotification version="1.0" xmlns="urn:psialliance-org">
            <id>FTP-1</id>
            <notificationMethod>FTP</notificationMethod>
          </EventTriggerNotification>
          <EventTriggerNotification version="1.0" xmlns="urn:psialliance-org">
            <id>Mail-1</id>
            <notificationMethod>email</notificationMethod>
          </EventTriggerNotification>
        </EventTriggerNotificationList>
      </EventTrigger>)")});
}

TEST_F(TriggerLinksTest, ANotificationReplacesAllLinks) {
  const auto expect_links = [this](const std::string& notification, const Lines& expected,
                                   Place place = here()) {
    reset();
    execute(kOthers);
    expect_effects({"PUT", kSensor + "/notifications",
                    "<EventTriggerNotificationList><EventTriggerNotification>" + notification +
                        "</EventTriggerNotification></EventTriggerNotificationList>"},
                   expected, place);
  };
  // The interval is in milliseconds, and stored in whole seconds with the relay.
  expect_links("<id>Relay-1</id><notificationMethod>Io</notificationMethod>",
               {"Event.RelayID = 1", "Event.FTPServerID = -1", "Event.SMTPServerID = -1",
                "SensorRelay[1].Interval = 5", "status 1"});
  expect_links(
      "<id>Sensor-0</id><notificationMethod>io</notificationMethod>"
      "<notificationInterval>-1999</notificationInterval>",
      {"Event.RelayID = 0", "Event.FTPServerID = -1", "Event.SMTPServerID = -1",
       "SensorRelay[0].Interval = -1", "status 1"});
  expect_links("<id>FTP-11</id><notificationMethod>ftp</notificationMethod>",
               {"Event.RelayID = -1", "Event.FTPServerID = 11", "Event.SMTPServerID = -1", "status 1"});
  expect_links("<id>Mail-21</id><notificationMethod>smtp</notificationMethod>",
               {"Event.RelayID = -1", "Event.FTPServerID = -1", "Event.SMTPServerID = 21", "status 1"});
  // No link: the method is not that of the server; what documents call "email" is "SMTP" in a request.
  const Lines none = {"Event.RelayID = -1", "Event.FTPServerID = -1", "Event.SMTPServerID = -1", "status 1"};
  expect_links("<id>FTP-1</id><notificationMethod>IO</notificationMethod>", none);
  expect_links("<id>Mail-21</id><notificationMethod>email</notificationMethod>", none);
}

TEST_F(TriggerLinksTest, ATriggerAndItsNotificationKeepWhatTheOneBeforeSet) {
  execute(kOthers);
  expect_effects(
      {"PUT", "/PSIA/Custom/Event/triggers", R"(
      <EventTriggerList>
        <EventTrigger>
          <id>Sensor-0</id>
          <intervalBetweenEvents>8</intervalBetweenEvents>
          <EventTriggerNotificationList>
            <EventTriggerNotification>
              <id>Relay-1</id>
              <notificationMethod>IO</notificationMethod>
              <notificationInterval>2000</notificationInterval>
            </EventTriggerNotification>
          </EventTriggerNotificationList>
        </EventTrigger>
        <EventTrigger>
          <EventTriggerNotificationList>
            <EventTriggerNotification><id>Relay-2</id></EventTriggerNotification>
          </EventTriggerNotificationList>
        </EventTrigger>
      </EventTriggerList>)"},
      {"Event.IgnoreInterval = 8", "Event.RelayID = 2", "Event.FTPServerID = -1", "Event.SMTPServerID = -1",
       "SensorRelay[1].Interval = 2", "SensorRelay[2].Interval = 2", "status 1"});
}

}  // namespace
}  // namespace service_tests
