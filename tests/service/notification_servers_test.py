"""The mail and FTP servers that notifications go to. Only a deletion looks at the id in the URL."""
import pytest

from answers import DEVICE_ERROR, OK

METHODS = "/PSIA/Custom/Event/notification"
FTP = METHODS + "/ftp"
MAIL = METHODS + "/mailing"
LONGEST = 127 * "s"  # the longest text of a server that is stored
INSERT_FTP = "insert into FTPServer (FTPServerID, Alias, Address, Port) values "


def test_servers_are_shown_in_the_order_of_their_numbers(camera):
    camera.execute(INSERT_FTP + "(3, 'third', 'name.example', 21), (0, 'before', '1.2.3', 2121)")
    assert camera.shown(FTP, "id") == ["before", "FTP-1", "third"]
    assert camera.shown(FTP, "hostName")[0] == "1.2.3"  # this is no address, which has four numbers


def test_the_server_that_the_body_names_is_changed_and_texts_are_truncated(camera):
    camera.execute(INSERT_FTP + f"(5, '{LONGEST}', '', 1)")
    too_long = LONGEST + "x"
    assert camera.effects("PUT", FTP + "/FTP-1", f"""
        <FTPNotification>
          <id>{too_long}</id>
          <hostName>replaced by the address</hostName>
          <ipAddress>{too_long}</ipAddress>
          <portNo> 9x</portNo>
          <userName>{too_long}</userName>
          <password>{too_long}</password>
          <uploadPath>{too_long}</uploadPath>
        </FTPNotification>""") == [
            f"FTPServer[5].Address = {LONGEST}", "FTPServer[5].Port = 9",
            f"FTPServer[5].UserID = {LONGEST}", f"FTPServer[5].Password = {LONGEST}",
            f"FTPServer[5].Path = {LONGEST}", OK]


def test_servers_of_a_list_keep_nothing_of_the_one_before(camera):
    camera.execute("update FTPServer set Port=1; update SMTPServer set Port=1")
    assert camera.effects("PUT", METHODS, """
        <EventNotificationMethods>
          <FTPNotificationList>
            <FTPNotification><id>nobody</id><hostName>h</hostName><portNo>9</portNo></FTPNotification>
            <FTPNotification><id>FTP-1</id><password>sent</password></FTPNotification>
            <MailingNotification><id>FTP-1</id></MailingNotification>
          </FTPNotificationList>
          <MailingNotificationList>
            <MailingNotification><id>Mail-1</id><accountName>sent</accountName></MailingNotification>
          </MailingNotificationList>
        </EventNotificationMethods>""") == [
            "FTPServer.Address = ", "FTPServer.Port = 21", "FTPServer.UserID = ",
            "FTPServer.Password = sent", "FTPServer.Path = ",
            "SMTPServer.Address = ", "SMTPServer.Port = 25", "SMTPServer.UserID = sent",
            "SMTPServer.Password = ", OK]


THREE_SERVERS = """
    <FTPNotificationList>
      <FTPNotification><id>new</id><hostName>&lt;h&gt;</hostName><portNo>1</portNo></FTPNotification>
      <FTPNotification><id>it's refused</id></FTPNotification>
      <FTPNotification><userName>%s</userName></FTPNotification>
    </FTPNotificationList>"""


def test_a_list_is_added_as_a_whole_to_two_servers(camera):
    camera.execute(INSERT_FTP + "(2, 'FTP-2', 'h', 1)")
    assert camera.effects("POST", FTP, THREE_SERVERS) == [
        "FTPServer[3] is added: FTPServerID = 3, Alias = new, Address = <h>, Port = 1, "
        "UserID = , Password = , Path = ",
        "FTPServer[4] is added: FTPServerID = 4, Alias = , Address = , Port = 21, "
        "UserID = %s, Password = , Path = ", OK]


def test_to_three_servers_none_is_added(camera):
    camera.execute(INSERT_FTP + "(2, 'FTP-2', 'h', 1), (3, 'FTP-3', 'h', 1)")
    assert camera.effects("POST", FTP, THREE_SERVERS) == [DEVICE_ERROR]
    camera.execute("insert into SMTPServer (Alias) values ('Mail-2'), ('Mail-3')")
    assert camera.effects("POST", MAIL, "<MailingNotificationList/>") == [DEVICE_ERROR]


@pytest.mark.parametrize("uri, effects", [
    pytest.param("/FTP-1", ["FTPServer[1] is deleted", "FTPServer[2] is deleted", OK], id="all of this name"),
    pytest.param("/ftp-1", [OK], id="names are case-sensitive"),
    pytest.param("/", [OK], id="the one without a name, which there is not"),
])
def test_the_servers_named_in_the_url_are_deleted(camera, uri, effects):
    camera.execute(INSERT_FTP + "(2, 'FTP-1', '', 1), (3, 'FTP-3', '', 1)")
    assert camera.effects("DELETE", FTP + uri) == effects
