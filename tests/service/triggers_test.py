"""The trigger and what it is linked to: a relay, an FTP server, a mail server; -1 is no link."""
import pytest

TRIGGERS = "/PSIA/Custom/Event/triggers"
SENSOR = TRIGGERS + "/Sensor-0"
# A second server of each kind, and numbers that no update stores.
OTHERS = """
    insert into FTPServer values (11, 'FTP-11', 'h', 21, '', '', '');
    insert into SMTPServer values (21, 'Mail-21', 'h', 25, '', '', '', '', '', '', 0);
    update Event set IgnoreInterval=77, RelayID=8, FTPServerID=8, SMTPServerID=8;"""
UNLINKED = ["Event.RelayID = -1", "Event.FTPServerID = -1", "Event.SMTPServerID = -1", "status 1"]


def test_links_to_the_rows_0_are_shown(camera):
    camera.execute("""
        update FTPServer set FTPServerID=0;
        update SMTPServer set SMTPServerID=0;
        update Event set RelayID=0, FTPServerID=0, SMTPServerID=0""")
    assert camera.shown(SENSOR, "id") == ["Sensor-0", "Sensor-0", "FTP-1", "Mail-1"]
    assert camera.shown(SENSOR, "notificationInterval") == ["5000"]


@pytest.mark.parametrize("links, end", [
    ("RelayID=-1, FTPServerID=-1, SMTPServerID=-1", "</intervalBetweenEvents></EventTrigger>"),  # no list
    ("RelayID=-1, FTPServerID=-1, SMTPServerID=77", "</EventTriggerNotificationList></EventTrigger>"),
])
def test_links_to_rows_that_have_gone_are_not_shown(camera, links, end):
    camera.execute("update Event set " + links)
    [document] = camera.effects("GET", SENSOR)
    assert document.endswith(end) and "<EventTriggerNotification " not in document
    assert camera.shown(SENSOR + "/notifications", "EventTriggerNotificationList") == [""]


@pytest.mark.parametrize("statement, uri, shown", [
    ("update SensorRelay set Alias='Door' where DeviceID=0", TRIGGERS, ["Door", "FTP-1"]),
    ("delete from SensorRelay; delete from Event; update Spec set Sensor=-1", TRIGGERS, ["Sensor-0"]),
    ("", TRIGGERS + "/Relay-2", ["Relay-2", "FTP-1"]),
])
def test_the_trigger_is_named_by_the_alias_of_the_sensor_or_by_the_url(camera, statement, uri, shown):
    camera.execute(statement)
    assert camera.shown(uri, "id") == shown


@pytest.mark.parametrize("statement, uri", [
    ("update Spec set Sensor=0", TRIGGERS),
    ("update Spec set Sensor=-1", "/PSIA/Custom/Event"),  # though the list is shown then
    ("", TRIGGERS + "/nobody"),
    ("", TRIGGERS + "/Relay-1/notifications"),
])
def test_without_a_sensor_or_a_known_id_a_read_is_refused(camera, statement, uri):
    camera.execute(statement)
    assert camera.effects("GET", uri) == ["status 4"]


@pytest.mark.parametrize("name, method, relay, ftp, mail", [
    ("Mail-21", "smtp", -1, -1, 21),
    ("n" * 128, "ftp", -1, 11, -1),  # 127 characters count
    # No link: the method is not that of the server, and what documents call "email" is "SMTP" in a request.
    ("FTP-1", "IO", -1, -1, -1),
    ("Mail-21", "email", -1, -1, -1),
])
def test_a_notification_replaces_all_links(camera, name, method, relay, ftp, mail):
    camera.execute(OTHERS + f"update FTPServer set Alias='{'n' * 127}' where FTPServerID=11")
    assert camera.effects("PUT", SENSOR + "/notifications", f"""
        <EventTriggerNotificationList>
          <EventTriggerNotification>
            <id>{name}</id>
            <notificationMethod>{method}</notificationMethod>
          </EventTriggerNotification>
        </EventTriggerNotificationList>
        """) == [f"Event.RelayID = {relay}", f"Event.FTPServerID = {ftp}", f"Event.SMTPServerID = {mail}",
                 "status 1"]


def test_triggers_and_notifications_keep_what_the_one_before_set(camera):
    camera.execute(OTHERS + "update SensorRelay set Interval=123")
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
        </EventTriggerList>
        """) == ["Event.IgnoreInterval = 8", "Event.RelayID = -1", "Event.FTPServerID = 11",
                 "Event.SMTPServerID = -1", "SensorRelay[0].Interval = -1", "SensorRelay[1].Interval = 5",
                 "SensorRelay[2].Interval = -1", "status 1"]


@pytest.mark.parametrize("url, body, effects", [
    ("Sensor-0", "Relay-1", ["Event.IgnoreInterval = 5", *UNLINKED]),
    ("Relay-1", "Sensor-0", ["status 1"]),
])
def test_of_one_trigger_the_id_of_the_url_counts(camera, url, body, effects):
    camera.execute(OTHERS)
    assert camera.effects("PUT", f"{TRIGGERS}/{url}", f"""
        <EventTrigger><id>{body}</id></EventTrigger>""") == effects


@pytest.mark.parametrize("uri, effects", [
    ("/Sensor-0", UNLINKED),
    ("/Sensor-0/notifications/FTP-1", UNLINKED),  # all of them
    ("/Relay-1", ["status 1"]),
])
def test_a_deletion_unlinks_what_the_sensor_is_linked_to(camera, uri, effects):
    camera.execute(OTHERS)
    assert camera.effects("DELETE", TRIGGERS + uri) == effects
