"""Changes and answers that need other settings or replies than those of the pages in docs/reference/."""
import pytest

from answers import DEVICE_BUSY, DEVICE_ERROR, OK
from simulator.messages import BUSY, FAILED

USERS = "/PSIA/Security/AAA/users"
VIDEO = "/PSIA/System/Video/inputs/channels/1"
CHANNELS = "/PSIA/Streaming/channels"
SENSOR = "/PSIA/Custom/Event/triggers/Sensor-0"
FTP = "/PSIA/Custom/Event/notification/ftp"
MAIL = "/PSIA/Custom/Event/notification/mailing"
INSERT_FTP = "insert into FTPServer (FTPServerID, Alias) values "  # the factory has number 1, FTP-1


@pytest.mark.parametrize("uri, body", [
    ("/PSIA/System/Audio/channels/1", "<AudioChannel/>"),
    (VIDEO, "<VideoInputChannel/>"),
    ("/PSIA/System/Network/interfaces/eth0/ipAddress",
     "<IPAddress><addressingType>dynamic</addressingType></IPAddress>"),
    ("/PSIA/System/factoryReset?mode=full", ""),
    ("/PSIA/System/time", "<Time/>"),
    ("/PSIA/System/time/localTime", "2024-07-01T12:00:00"),
    ("/PSIA/System/time/timeZone", "CET-1"),
])
def test_the_reply_of_the_daemons_is_the_answer(camera, uri, body):
    unknown_result = -1  # counts as failed
    assert camera.effects("PUT", uri, body, [BUSY])[-1] == DEVICE_BUSY
    assert camera.effects("PUT", uri, body, [unknown_result])[-1] == DEVICE_ERROR


def test_the_id_in_the_body_selects_the_video_input_and_missing_levels_become_0(camera):
    camera.execute("insert into VideoSource (VideoSourceID, Brightness, Hue) values (7, 11, 12)")
    body = "<VideoInputChannel><id>7</id><hueLevel>9</hueLevel></VideoInputChannel>"
    assert camera.effects("PUT", VIDEO, body) == [
        "VideoSource[7].Brightness = 0", "VideoSource[7].Contrast = 0", "VideoSource[7].Hue = 9",
        "message 1 picture: source = 7", OK]


# Streaming channels.

def test_every_part_is_stored_and_sent_whatever_the_daemons_reply(camera):
    # Width, control type and quality repeat the factory's: without them defaults are stored. Channel 1 is
    # encoder 0, the master stream.
    assert camera.effects("PUT", CHANNELS + "/1", """
        <StreamingChannel>
          <Transport><rtspPortNo>8554</rtspPortNo></Transport>
          <Video>
            <videoResolutionWidth>1920</videoResolutionWidth>
            <videoQualityControlType>CBR</videoQualityControlType>
            <fixedQuality>75</fixedQuality>
            <constantBitRate>3000</constantBitRate>
          </Video>
          <Audio><enabled>false</enabled></Audio>
        </StreamingChannel>""", replies=[FAILED, BUSY, FAILED]) == [
            "VideoEncoder[0].Bitrate = 3000", "message 2 encoder: master = 1",
            "Audio.Enable = 0", "message 3 audio",
            "Network.RTSPPort = 8554", "message 37 RTSP port", OK]


@pytest.mark.parametrize("uri, body", [
    pytest.param(CHANNELS + "/1", "<StreamingChannel/>", id="an empty channel"),
    pytest.param(CHANNELS, "<StreamingChannel><Video/></StreamingChannel>", id="one channel for the list"),
])
def test_a_body_that_is_no_update_puts_the_default_port_back(camera, uri, body):
    camera.execute("update Network set RTSPPort=8554")
    assert camera.effects("PUT", uri, body) == ["Network.RTSPPort = 554", "message 37 RTSP port", OK]


@pytest.mark.parametrize("table, element", [
    pytest.param("VideoEncoder", "<Video/><Audio/>", id="the encoder, so audio and port stay"),
    pytest.param("Audio", "<Audio/>", id="the audio, so the port stays"),
    pytest.param("Network", "", id="the port"),
])
def test_a_failing_statement_ends_the_request(camera, table, element):
    camera.execute(f"create trigger refuse before update on {table} begin select raise(abort, 'no'); end")
    assert camera.effects("PUT", CHANNELS, f"""
        <StreamingChannelList>
          <StreamingChannel>
            {element}
            <Transport><rtspPortNo>8554</rtspPortNo></Transport>
          </StreamingChannel>
        </StreamingChannelList>""") == [DEVICE_ERROR]


def test_the_list_is_a_device_error_when_only_its_second_encoder_is_missing(camera):
    camera.execute("update VideoEncoder set Enable=-1 where VideoEncoderID=1")  # -1: there is none
    assert camera.effects("GET", CHANNELS) == [DEVICE_ERROR]


# Accounts.

LONGEST_NAME = 31 * "n"  # of a user


@pytest.mark.parametrize("method, effects", [
    pytest.param("PUT", [f"User[{LONGEST_NAME}].Password = new", OK], id="a change truncates the name"),
    pytest.param("DELETE", [f"User[{LONGEST_NAME}x] is deleted", OK], id="a deletion does not"),
])
def test_a_user_with_a_long_name_is_changed_or_deleted(camera, method, effects):
    camera.execute(f"insert into User (UserID) values ('{LONGEST_NAME}'), ('{LONGEST_NAME}x')")
    body = "<User><password>new</password></User>"
    assert camera.effects(method, f"{USERS}/{LONGEST_NAME}x", body) == effects


def test_a_number_selects_no_account_when_only_the_permanent_ones_are_left(camera):
    # admin and anonymous stay. A number in the URL selects the first account that is neither of them.
    assert camera.effects("DELETE", USERS) == [
        "User[operator] is deleted", "User[viewer] is deleted", "User[guest] is deleted", OK]
    assert camera.effects("GET", USERS + "/1") == [DEVICE_ERROR]


# Events.

@pytest.mark.parametrize("method, uri, body", [
    pytest.param("PUT", SENSOR, "<EventTrigger/>", id="a trigger without a notification"),
    pytest.param("PUT", SENSOR + "/notifications", "<EventTriggerNotificationList/>", id="an empty list"),
    pytest.param("DELETE", SENSOR, "", id="a deletion"),
])
def test_the_links_to_a_relay_an_ftp_server_and_a_mail_server_are_removed(camera, method, uri, body):
    camera.execute("update Event set RelayID=8, FTPServerID=8, SMTPServerID=8")  # any numbers
    no_link = -1
    assert camera.effects(method, uri, body) == [
        f"Event.RelayID = {no_link}", f"Event.FTPServerID = {no_link}", f"Event.SMTPServerID = {no_link}", OK]


def test_servers_are_shown_in_the_order_of_their_numbers(camera):
    camera.execute(INSERT_FTP + "(3, 'third'), (0, 'before')")
    assert camera.shown(FTP, "id") == ["before", "FTP-1", "third"]


def test_a_server_is_found_by_the_id_in_the_body_and_all_its_texts_are_truncated_to_127_bytes(camera):
    longest, default_port = 127 * "s", 21
    camera.execute(INSERT_FTP + f"(5, '{longest}')")
    assert camera.effects("PUT", FTP + "/FTP-1", f"""
        <FTPNotification>
          <id>{longest}x</id>
          <ipAddress>{longest}x</ipAddress>
          <userName>{longest}x</userName>
          <password>{longest}x</password>
          <uploadPath>{longest}x</uploadPath>
        </FTPNotification>""") == [
            f"FTPServer[5].Address = {longest}", f"FTPServer[5].Port = {default_port}",
            f"FTPServer[5].UserID = {longest}", f"FTPServer[5].Password = {longest}",
            f"FTPServer[5].Path = {longest}", OK]


@pytest.mark.parametrize("stored, received", [(2, OK), (3, DEVICE_ERROR)])
def test_no_server_is_added_to_three(camera, stored, received):
    camera.execute("delete from FTPServer; delete from SMTPServer")
    for number in range(stored):
        camera.execute(f"insert into FTPServer (Alias) values ('FTP-{number}');"
                       f"insert into SMTPServer (Alias) values ('Mail-{number}')")
    # The lists are empty: the number of stored servers alone decides.
    assert camera.effects("POST", FTP, "<FTPNotificationList/>") == [received]
    assert camera.effects("POST", MAIL, "<MailingNotificationList/>") == [received]


def test_all_servers_of_a_name_are_deleted_and_no_others(camera):
    camera.execute(INSERT_FTP + "(2, 'FTP-1'), (3, 'FTP-3')")
    assert camera.effects("DELETE", FTP + "/FTP-1") == [
        "FTPServer[1] is deleted", "FTPServer[2] is deleted", OK]
