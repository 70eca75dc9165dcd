"""Who may log in: credentials, stored passwords, stored levels."""
import base64

import pytest

from answers import NO_RESOURCE, OK, UNAUTHORIZED, logged_in

AUDIO = "/PSIA/System/Audio/channels/1"
AUDIO_OFF = "<AudioChannel><enabled>false</enabled></AudioChannel>"
LONGEST = 31 * "n"  # the longest user name and the longest password
MAY_READ = 2  # a level


def base64_of(text):
    return base64.b64encode(text.encode()).decode()


@pytest.mark.parametrize("user", [
    pytest.param("", id="no header"),
    pytest.param("nobody:admin", id="unknown name"),
    pytest.param("admin'--:admin", id="quote in the name"),
    pytest.param("admin", id="no password"),
    pytest.param("admin:ADMIN", id="password in capitals"),
    pytest.param("admin:admin2", id="password too long"),
    pytest.param("admin:admi", id="password too short"),
])
def test_wrong_credentials_get_the_401_answer_and_nothing_happens(camera, user):
    assert camera.effects("PUT", AUDIO, AUDIO_OFF, user=user) == [UNAUTHORIZED]


@pytest.mark.parametrize("header", [
    pytest.param("Digest" + base64_of("admin:admin"), id="any six characters stand for the scheme"),
    pytest.param("Basic " + base64_of("admin:admin").replace("a", "\ta:").rstrip("="),
                 id="other characters are skipped and padding is not needed"),
    # The last text is the password. The second colon cuts the name to the length of the text before it.
    pytest.param("Basic " + base64_of("admin-cut:12345:admin"), id="several colons"),
    pytest.param("Basic " + base64_of("anonymous"), id="no colon: an empty password, as anonymous has"),
])
def test_credentials_in_odd_forms_are_accepted(camera, header):
    assert logged_in(camera, variables={"HTTP_AUTHORIZATION": header})


def test_a_header_that_ends_before_the_six_characters_of_a_scheme_is_refused(camera):
    assert not logged_in(camera, variables={"HTTP_AUTHORIZATION": "Basic"})  # the sixth is the space


def test_names_and_passwords_are_truncated_to_31_characters(camera):
    camera.execute(f"insert into User values ('{LONGEST}', '{LONGEST}', {MAY_READ})")
    assert logged_in(camera, f"{LONGEST}more:{LONGEST}more")


def test_nobody_has_the_right_password_when_the_stored_one_is_too_long(camera):
    camera.execute(f"insert into User values ('guard', '{LONGEST}x', {MAY_READ})")
    assert not logged_in(camera, f"guard:{LONGEST}")
    assert not logged_in(camera, f"guard:{LONGEST}x")


@pytest.mark.parametrize("stored, effects", [
    pytest.param("Level='none'", ["Audio.Enable = 0", "message 3 audio", OK],
                 id="a text counts as 0, the administrator"),
    pytest.param("Level=-1", [], id="a negative level gets no answer"),
    pytest.param("Level=null", [UNAUTHORIZED], id="null is refused"),
    pytest.param("Password=null", [UNAUTHORIZED], id="a password of null is not the one sent"),
])
def test_the_stored_level_decides(camera, stored, effects):
    camera.execute(f"update User set {stored} where UserID='guest'")
    assert camera.effects("PUT", AUDIO, AUDIO_OFF, user="guest:guest") == effects


@pytest.mark.parametrize("missing", ["REQUEST_URI", "REQUEST_METHOD"])
def test_a_request_without_uri_or_method_gets_no_answer(camera, missing):
    assert camera.call("GET", NO_RESOURCE, variables={missing: None}) == ""
