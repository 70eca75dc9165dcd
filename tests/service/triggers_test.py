"""The trigger and what it is linked to: a relay, an FTP server, a mail server; -1 is no link."""
import pytest

from answers import INVALID_OPERATION, OK

EVENT = "/PSIA/Custom/Event"
TRIGGERS = EVENT + "/triggers"
SENSOR = TRIGGERS + "/Sensor-0"
UNLINKED = ["Event.RelayID = -1", "Event.FTPServerID = -1", "Event.SMTPServerID = -1"]


@pytest.fixture
def other_links(camera):
    """A second server of each kind, and links and an interval that no update stores."""
    camera.execute("""
        insert into FTPServer (FTPServerID, Alias) values (11, 'FTP-11');
        insert into SMTPServer (SMTPServerID, Alias) values (21, 'Mail-21');
        update Event set IgnoreInterval=77, RelayID=8, FTPServerID=8, SMTPServerID=8;""")


def test_links_to_rows_with_the_number_0_are_shown(camera):
    camera.execute("""
        update FTPServer set FTPServerID=0;
        update SMTPServer set SMTPServerID=0;
        update Event set RelayID=0, FTPServerID=0, SMTPServerID=0""")
    trigger, relay, ftp, mail = camera.shown(SENSOR, "id")
    assert (relay, ftp, mail) == ("Sensor-0", "FTP-1", "Mail-1")  # row 0 of the relays is the sensor
    assert camera.shown(SENSOR, "notificationInterval") == ["5000"]


@pytest.mark.parametrize("mail, end", [
    pytest.param(-1, "</intervalBetweenEvents></EventTrigger>", id="without any link there is no list"),
    pytest.param(77, "</EventTriggerNotificationList></EventTrigger>", id="with a missing row an empty one"),
])
def test_links_to_missing_rows_are_not_shown(camera, mail, end):
    camera.execute(f"update Event set RelayID=-1, FTPServerID=-1, SMTPServerID={mail}")
    [document] = camera.effects("GET", SENSOR)
    assert document.endswith(end)
    assert "<EventTriggerNotification " not in document
    assert camera.shown(SENSOR + "/notifications", "EventTriggerNotificationList") == [""]


@pytest.mark.parametrize("statement, uri, ids", [
    pytest.param("update SensorRelay set Alias='Door' where DeviceID=0", TRIGGERS, ["Door", "FTP-1"],
                 id="the alias of the sensor"),
    pytest.param("delete from SensorRelay; delete from Event; update Spec set Sensor=-1", TRIGGERS,
                 ["Sensor-0"], id="Sensor-0 without a row, and without an Event no link"),
    pytest.param("", TRIGGERS + "/Relay-2", ["Relay-2", "FTP-1"], id="the id of the URL"),
])
def test_the_trigger_is_named_by_the_alias_of_the_sensor_or_by_the_url(camera, statement, uri, ids):
    camera.execute(statement)
    assert camera.shown(uri, "id") == ids


@pytest.mark.parametrize("sensors, uri", [
    pytest.param(0, TRIGGERS, id="the list of triggers, which is shown with a number of -1"),
    pytest.param(-1, EVENT, id="all events, which need 1 or more"),
])
def test_without_a_sensor_a_read_is_refused(camera, sensors, uri):
    camera.execute(f"update Spec set Sensor={sensors}")
    assert camera.effects("GET", uri) == [INVALID_OPERATION]


@pytest.mark.usefixtures("other_links")
@pytest.mark.parametrize("name, method, relay, ftp, mail", [
    pytest.param("n" * 128, "ftp", -1, 11, -1, id="127 characters of a name count"),
    pytest.param("FTP-1", "IO", -1, -1, -1, id="an FTP server is no relay"),
])
def test_a_notification_replaces_all_links(camera, name, method, relay, ftp, mail):
    camera.execute(f"update FTPServer set Alias='{'n' * 127}' where FTPServerID=11")
    assert camera.effects("PUT", SENSOR + "/notifications", f"""
        <EventTriggerNotificationList>
          <EventTriggerNotification>
            <id>{name}</id>
            <notificationMethod>{method}</notificationMethod>
          </EventTriggerNotification>
        </EventTriggerNotificationList>""") == [
            f"Event.RelayID = {relay}", f"Event.FTPServerID = {ftp}", f"Event.SMTPServerID = {mail}", OK]


@pytest.mark.usefixtures("other_links")
def test_triggers_and_notifications_keep_what_the_one_before_set(camera):
    # The second trigger is Sensor-0 again. Of its notifications Relay-2 and Sensor-0 have the method IO of
    # Relay-1, and Sensor-0 the interval of Relay-2. Without one 5 s are stored.
    camera.execute("update SensorRelay set Interval=123")
    assert camera.effects("PUT", TRIGGERS, """
        <EventTriggerList>
          <EventTrigger>
            <id>Sensor-0</id>
            <intervalBetweenEvents>8</intervalBetweenEvents>
            <EventTriggerNotificationList>
              <EventTriggerNotification>
                <id>Relay-1</id>
                <notificationMethod>IO</notificationMethod>
              </EventTriggerNotification>
            </EventTriggerNotificationList>
          </EventTrigger>
          <EventTrigger>
            <EventTriggerNotificationList>
              <EventTriggerNotification>
                <id>Relay-2</id>
                <notificationInterval>-1999</notificationInterval>
              </EventTriggerNotification>
              <EventTriggerNotification><id>Sensor-0</id></EventTriggerNotification>
              <EventTriggerNotification>
                <id>FTP-11</id>
                <notificationMethod>FTP</notificationMethod>
              </EventTriggerNotification>
              <Other><id>FTP-1</id></Other>
            </EventTriggerNotificationList>
          </EventTrigger>
          <Other><intervalBetweenEvents>6</intervalBetweenEvents></Other>
        </EventTriggerList>""") == [
            "Event.IgnoreInterval = 8",
            "Event.RelayID = -1", "Event.FTPServerID = 11", "Event.SMTPServerID = -1",
            "SensorRelay[0].Interval = -1", "SensorRelay[1].Interval = 5", "SensorRelay[2].Interval = -1",
            OK]


@pytest.mark.usefixtures("other_links")
@pytest.mark.parametrize("url, body, effects", [
    pytest.param("Sensor-0", "Relay-1", ["Event.IgnoreInterval = 5", *UNLINKED, OK], id="the sensor"),
    pytest.param("Relay-1", "Sensor-0", [OK], id="a relay, which is no trigger"),
])
def test_one_trigger_is_named_by_the_url_and_not_by_the_body(camera, url, body, effects):
    assert camera.effects("PUT", f"{TRIGGERS}/{url}", f"""
        <EventTrigger><id>{body}</id></EventTrigger>""") == effects


@pytest.mark.usefixtures("other_links")
@pytest.mark.parametrize("uri, effects", [
    pytest.param("/Sensor-0", [*UNLINKED, OK], id="the trigger"),
    pytest.param("/Sensor-0/notifications/FTP-1", [*UNLINKED, OK], id="one notification is all of them"),
    pytest.param("/Relay-1", [OK], id="a relay, which is no trigger"),
])
def test_a_deletion_removes_all_links_of_the_sensor(camera, uri, effects):
    assert camera.effects("DELETE", TRIGGERS + uri) == effects
