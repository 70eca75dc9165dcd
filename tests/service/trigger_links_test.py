"""The trigger and what it is linked to: a relay, an FTP server, a mail server; -1 is no link."""
import pytest

from camera import printed, status

SENSOR = "/PSIA/Custom/Event/triggers/Sensor-0"
# A second server of each kind, and numbers that no update stores, so that no link is taken for another.
OTHERS = """
    insert into FTPServer values (11, 'FTP-11', 'h', 21, '', '', '');
    insert into SMTPServer values (21, 'Mail-21', 'h', 25, '', '', '', '', '', '', 0);
    update Event set RelayID=8, FTPServerID=8, SMTPServerID=8;
    update SensorRelay set Interval=123;"""


def test_a_trigger_shows_its_links(camera):
    camera.execute("update Event set RelayID=2, FTPServerID=1, SMTPServerID=1")
    assert camera.effects("GET", SENSOR) == [printed("""
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
        </EventTrigger>""")]


@pytest.mark.parametrize("notifications, relay, ftp, mail, interval", [
    # The interval is in milliseconds, and stored in whole seconds with the relay.
    ("<id>Relay-1</id><notificationMethod>Io</notificationMethod>", 1, -1, -1, "SensorRelay[1].Interval = 5"),
    ("<id>Sensor-0</id><notificationMethod>io</notificationMethod>"
     "<notificationInterval>-1999</notificationInterval>", 0, -1, -1, "SensorRelay[0].Interval = -1"),
    ("<id>FTP-11</id><notificationMethod>ftp</notificationMethod>", -1, 11, -1, None),
    ("<id>Mail-21</id><notificationMethod>smtp</notificationMethod>", -1, -1, 21, None),
    # No link: the method is not that of the server, and what documents call "email" is "SMTP" in a request.
    ("<id>FTP-1</id><notificationMethod>IO</notificationMethod>", -1, -1, -1, None),
    ("<id>Mail-21</id><notificationMethod>email</notificationMethod>", -1, -1, -1, None),
])
def test_a_notification_replaces_all_links(camera, notifications, relay, ftp, mail, interval):
    camera.execute(OTHERS)
    assert camera.effects("PUT", SENSOR + "/notifications", f"""
        <EventTriggerNotificationList>
          <EventTriggerNotification>{notifications}</EventTriggerNotification>
        </EventTriggerNotificationList>
        """) == [f"Event.RelayID = {relay}", f"Event.FTPServerID = {ftp}", f"Event.SMTPServerID = {mail}",
                 *([interval] if interval else []), "status 1"]


def test_a_trigger_and_its_notification_keep_what_the_one_before_set(camera):
    camera.execute(OTHERS)
    assert camera.effects("PUT", "/PSIA/Custom/Event/triggers", """
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
        </EventTriggerList>
    """) == ["Event.IgnoreInterval = 8", "Event.RelayID = 2", "Event.FTPServerID = -1",
             "Event.SMTPServerID = -1", "SensorRelay[1].Interval = 2", "SensorRelay[2].Interval = 2",
             "status 1"]
