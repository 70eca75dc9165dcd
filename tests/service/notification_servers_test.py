"""The mail and FTP servers that notifications go to. Only a deletion looks at the id in the URL."""
import pytest

from answers import DEVICE_ERROR, OK

FTP = "/PSIA/Custom/Event/notification/ftp"
MAIL = "/PSIA/Custom/Event/notification/mailing"
LONGEST = 127 * "s"  # the longest text of a server that is stored
INSERT_FTP = "insert into FTPServer (FTPServerID, Alias, Address, Port) values "


def test_servers_are_shown_in_the_order_of_their_numbers(camera):
    camera.execute(INSERT_FTP + "(3, 'third', 'name.example', 21), (0, 'before', '1.2.3.4', 2121)")
    assert camera.shown(FTP, "id") == ["before", "FTP-1", "third"]


def test_the_server_that_the_body_names_is_changed_and_texts_are_truncated(camera):
    camera.execute(INSERT_FTP + f"(5, '{LONGEST}', '', 1)")
    too_long = LONGEST + "x"
    assert camera.effects("PUT", FTP + "/FTP-1", f"""
        <FTPNotification>
          <id>{too_long}</id>
          <ipAddress>{too_long}</ipAddress>
          <userName>{too_long}</userName>
          <password>{too_long}</password>
          <uploadPath>{too_long}</uploadPath>
        </FTPNotification>""") == [
            f"FTPServer[5].Address = {LONGEST}", "FTPServer[5].Port = 21",
            f"FTPServer[5].UserID = {LONGEST}", f"FTPServer[5].Password = {LONGEST}",
            f"FTPServer[5].Path = {LONGEST}", OK]


@pytest.mark.parametrize("stored, received", [(2, OK), (3, DEVICE_ERROR)])
def test_servers_are_added_to_at_most_two(camera, stored, received):
    camera.execute("delete from FTPServer; delete from SMTPServer")
    for number in range(stored):
        camera.execute(f"insert into FTPServer (Alias) values ('FTP-{number}');"
                       f"insert into SMTPServer (Alias) values ('Mail-{number}')")
    assert camera.effects("POST", FTP, "<FTPNotificationList/>") == [received]
    assert camera.effects("POST", MAIL, "<MailingNotificationList/>") == [received]


def test_all_servers_of_a_name_are_deleted_and_no_others(camera):
    camera.execute(INSERT_FTP + "(2, 'FTP-1', '', 1), (3, 'FTP-3', '', 1)")
    assert camera.effects("DELETE", FTP + "/FTP-1") == [
        "FTPServer[1] is deleted", "FTPServer[2] is deleted", OK]
