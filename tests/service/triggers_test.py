"""The trigger and what it is linked to: a relay, an FTP server, a mail server; -1 is no link. What requests
store in the factory state is shown in docs/reference/events.md."""
import pytest

from answers import OK

SENSOR = "/PSIA/Custom/Event/triggers/Sensor-0"
NOTIFICATIONS = SENSOR + "/notifications"
TRIGGER_WITHOUT_A_LINK = "<EventTrigger><intervalBetweenEvents>77</intervalBetweenEvents></EventTrigger>"


@pytest.mark.parametrize("method, uri, body", [
    pytest.param("PUT", SENSOR, TRIGGER_WITHOUT_A_LINK, id="a trigger without a notification"),
    pytest.param("PUT", NOTIFICATIONS, "<EventTriggerNotificationList/>", id="an empty list"),
    pytest.param("DELETE", SENSOR, "", id="a deletion"),
])
def test_every_link_is_removed(camera, method, uri, body):
    camera.execute("update Event set IgnoreInterval=77, RelayID=8, FTPServerID=8, SMTPServerID=8")
    assert camera.effects(method, uri, body) == [
        "Event.RelayID = -1", "Event.FTPServerID = -1", "Event.SMTPServerID = -1", OK]
