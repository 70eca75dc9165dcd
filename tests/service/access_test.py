"""Who may log in: credentials, stored passwords, stored levels."""
import pytest

from camera import UNAUTHORIZED, status

AUDIO = "/PSIA/System/Audio/channels/1"


@pytest.mark.parametrize("user", [
    "", "admin:", "admin", "admin:ADMIN", "admin:admin2", "admin:admi", ":", "nobody:admin",
    "admin'--:admin"])
def test_wrong_credentials_get_the_401_answer_and_nothing_happens(camera, user):
    assert camera.effects("PUT", AUDIO, "<AudioChannel/>", user=user) == [UNAUTHORIZED]


@pytest.mark.parametrize("header, answer", [
    ("DigestYWRtaW46YWRtaW4=", status(4, "/PSIA/x")),    # six characters are skipped, whatever they are
    ("Basic YWRt\taW46YWRt:aW4", status(4, "/PSIA/x")),  # and all that is no base64; the end may be missing
    ("Basic YWRtaW4tYTphZG1pbjphZG1pbg==", status(4, "/PSIA/x")),  # admin-a:admin:admin: of names the second
    ("Basic YW5vbnltb3Vz", status(4, "/PSIA/x")),        # anonymous, whose password is empty
    ("Basic", UNAUTHORIZED),
    ("Basic " + 100000 * "A", UNAUTHORIZED),
])
def test_credentials_in_odd_forms(camera, header, answer):
    assert camera.call("GET", "/PSIA/x", variables={"HTTP_AUTHORIZATION": header}) == answer


def test_31_characters_of_names_and_passwords_count(camera):
    camera.execute(f"insert into User values ('{31 * 'n'}', '{31 * 'p'}', 2)")
    assert camera.call("GET", "/PSIA/x", user=31 * "n" + "more:" + 31 * "p" + "more") == status(4, "/PSIA/x")
    camera.execute(f"update User set Password='{32 * 'p'}' where UserID='{31 * 'n'}'")
    assert camera.call("GET", "/PSIA/x", user=31 * "n" + ":" + 32 * "p") == UNAUTHORIZED


@pytest.mark.parametrize("stored, effects", [
    ("Level=2", ["status 4"]),
    ("Level=1", ["Audio.Enable = 0", "message 3 audio", "status 1"]),
    ("Level='none'", ["Audio.Enable = 0", "message 3 audio", "status 1"]),  # a text reads as 0
    ("Level=-1", []),                                                       # no answer
    ("Level=null", [UNAUTHORIZED]),
    ("Password=null", [UNAUTHORIZED]),
])
def test_the_stored_level_decides(camera, stored, effects):
    camera.execute(f"update User set {stored} where UserID='guest'")
    assert camera.effects("PUT", AUDIO, "<AudioChannel/>", user="guest:guest") == effects


@pytest.mark.parametrize("missing", ["REQUEST_URI", "REQUEST_METHOD"])
def test_a_request_without_uri_or_method_gets_no_answer(camera, missing):
    assert camera.call("GET", "/PSIA/index", variables={missing: None}) == ""
