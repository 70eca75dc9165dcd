"""The trigger and what it is linked to: a relay, an FTP server, a mail server; -1 is no link. What requests
store in the factory state is shown in docs/reference/events.md."""
import pytest

from answers import OK

TRIGGERS = "/PSIA/Custom/Event/triggers"
SENSOR = TRIGGERS + "/Sensor-0"
NOTIFICATIONS = SENSOR + "/notifications"
TRIGGER_WITHOUT_A_LINK = "<EventTrigger><intervalBetweenEvents>77</intervalBetweenEvents></EventTrigger>"
LONGEST = 127 * "n"  # the longest name of a server that is looked for


@pytest.mark.parametrize("mail, end", [
    pytest.param(-1, "</intervalBetweenEvents></EventTrigger>", id="without any link there is no list"),
    pytest.param(77, "</EventTriggerNotificationList></EventTrigger>", id="with a missing row an empty one"),
])
def test_links_to_missing_rows_are_not_shown(camera, mail, end):
    camera.execute(f"update Event set RelayID=-1, FTPServerID=-1, SMTPServerID={mail}")
    [document] = camera.effects("GET", SENSOR)
    assert document.endswith(end)
    assert "<EventTriggerNotification " not in document
    assert camera.shown(NOTIFICATIONS, "EventTriggerNotificationList") == [""]


def test_without_rows_the_trigger_is_sensor_0_without_links(camera):
    camera.execute("delete from SensorRelay; delete from Event")
    assert camera.shown(TRIGGERS, "id") == ["Sensor-0"]


@pytest.mark.parametrize("method, uri, body", [
    pytest.param("PUT", SENSOR, TRIGGER_WITHOUT_A_LINK, id="a trigger without a notification"),
    pytest.param("PUT", NOTIFICATIONS, "<EventTriggerNotificationList/>", id="an empty list"),
    pytest.param("DELETE", SENSOR, "", id="a deletion"),
])
def test_every_link_is_removed(camera, method, uri, body):
    camera.execute("update Event set IgnoreInterval=77, RelayID=8, FTPServerID=8, SMTPServerID=8")
    assert camera.effects(method, uri, body) == [
        "Event.RelayID = -1", "Event.FTPServerID = -1", "Event.SMTPServerID = -1", OK]


def test_127_characters_of_a_name_count(camera):
    camera.execute(f"insert into FTPServer (FTPServerID, Alias) values (11, '{LONGEST}')")
    assert camera.effects("PUT", NOTIFICATIONS, f"""
        <EventTriggerNotificationList>
          <EventTriggerNotification>
            <id>{LONGEST}x</id>
            <notificationMethod>FTP</notificationMethod>
          </EventTriggerNotification>
        </EventTriggerNotificationList>""") == ["Event.FTPServerID = 11", OK]
