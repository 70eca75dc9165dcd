"""The mail and FTP servers that notifications go to. Only a deletion looks at the id in the URL."""
import pytest

FTP = "/PSIA/Custom/Event/notification/ftp"


def test_servers_are_shown_in_the_order_of_their_numbers(camera):
    camera.execute("insert into FTPServer values (0, '%%%%%', '1.2.3', 2121, '', '', '')")
    assert camera.shown(FTP, "id") == ["%%", "FTP-1"]  # of two percent signs one is shown, twice over
    assert camera.shown(FTP, "hostName") == ["1.2.3"]


def test_the_body_names_the_server_and_texts_are_cut_at_127_characters(camera):
    kept, given = "s" * 127, "s" * 128
    camera.execute(f"insert into FTPServer values (5, '{kept}', '', 1, '', '', '')")
    assert camera.effects("PUT", FTP + "/FTP-1", f"""
        <FTPNotification>
          <id>{given}</id>
          <hostName>mx</hostName>
          <ipAddress>{given}</ipAddress>
          <portNo> 9x</portNo>
          <userName>{given}</userName>
          <password>{given}</password>
          <uploadPath>{given}</uploadPath>
        </FTPNotification>
        """) == [f"FTPServer[5].Address = {kept}", "FTPServer[5].Port = 9", f"FTPServer[5].UserID = {kept}",
                 f"FTPServer[5].Password = {kept}", f"FTPServer[5].Path = {kept}", "status 1"]


def test_servers_of_a_list_keep_nothing_of_the_one_before(camera):
    camera.execute("update FTPServer set Port=1; update SMTPServer set Port=1")
    assert camera.effects("PUT", "/PSIA/Custom/Event/notification", """
        <EventNotificationMethods>
          <FTPNotificationList>
            <FTPNotification><id>nobody</id><hostName>h</hostName><portNo>9</portNo></FTPNotification>
            <FTPNotification><id>FTP-1</id><password>it</password></FTPNotification>
            <MailingNotification><id>FTP-1</id></MailingNotification>
          </FTPNotificationList>
          <MailingNotificationList>
            <MailingNotification><id>Mail-1</id><accountName>it</accountName></MailingNotification>
          </MailingNotificationList>
        </EventNotificationMethods>
        """) == ["FTPServer.Address = ", "FTPServer.Port = 21", "FTPServer.UserID = ",
                 "FTPServer.Password = it", "FTPServer.Path = ",
                 "SMTPServer.Address = ", "SMTPServer.Port = 25", "SMTPServer.UserID = it",
                 "SMTPServer.Password = ", "status 1"]


def test_the_limit_of_three_is_looked_at_before_the_first_is_added(camera):
    camera.execute("insert into FTPServer values (2, 'FTP-2', 'h', 1, '', '', '')")
    body = """
        <FTPNotificationList>
          <FTPNotification><id>a</id><hostName>&lt;h&gt;</hostName><portNo>1</portNo></FTPNotification>
          <FTPNotification><id>it's no statement</id></FTPNotification>
          <FTPNotification><userName>%s</userName></FTPNotification>
        </FTPNotificationList>"""
    assert camera.effects("POST", FTP, body)[-1] == "status 1"
    assert camera.rows("select * from FTPServer where FTPServerID>2") == [
        (3, "a", "<h>", 1, "", "", ""), (4, "", "", 21, "%s", "", "")]
    camera.execute("delete from FTPServer where FTPServerID=4")
    assert camera.effects("POST", FTP, body) == ["status 3"]


@pytest.mark.parametrize("uri, effects", [
    ("/FTP-1", ["FTPServer[1] is deleted", "FTPServer[2] is deleted", "status 1"]),  # all of this name
    ("/ftp-1", ["status 1"]),
    ("/", ["status 1"]),  # the one without a name, not all
])
def test_a_deletion_is_of_the_servers_named_in_the_url(camera, uri, effects):
    camera.execute("""
        insert into FTPServer values (2, 'FTP-1', '', 1, '', '', '');
        insert into FTPServer values (3, 'FTP-3', '', 1, '', '', '')""")
    assert camera.effects("DELETE", FTP + uri) == effects


def test_a_fourth_mail_server_is_refused(camera):
    camera.execute("insert into SMTPServer (Alias) values ('Mail-2'), ('Mail-3')")
    assert camera.effects(
        "POST", "/PSIA/Custom/Event/notification/mailing", "<MailingNotificationList/>") == ["status 3"]
