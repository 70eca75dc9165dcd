"""The NTP server: there is one, an address or a name, whatever id or list a request names."""
import pytest

from camera import elements

SERVERS = "/PSIA/System/time/ntpServers"


@pytest.mark.parametrize("change, shown", [
    # Digits and dots make an address, and so does no character at all.
    ("update Network set NTPServer='0123456789.'", "0123456789."),
    ("update Network set NTPServer=null", ""),
])
def test_the_server_is_shown_as_an_address(camera, change, shown):
    camera.execute(change)
    for uri in (SERVERS, SERVERS + "/1"):
        assert elements(camera.call("GET", uri)) == {
            "id": "1", "addressingFormatType": "ipaddress", "ipAddress": shown, "portNo": "123"}


@pytest.mark.parametrize("change, shown", [
    ("update Network set NTPServer='10:0'", "10:0"),
    ("delete from Network", "pool.ntp.org"),
])
def test_the_server_is_shown_as_a_name(camera, change, shown):
    camera.execute(change)
    assert elements(camera.call("GET", SERVERS))["hostName"] == shown


@pytest.mark.parametrize("server, stored", [
    # The address is stored with any addressingFormatType but "NTP", even with "hostname".
    ("""<addressingFormatType>hostname</addressingFormatType>
        <hostName>h</hostName><ipAddress>1.2.3.4</ipAddress>""", "1.2.3.4"),
    ("<addressingFormatType/><addressingFormatType>nTp</addressingFormatType><hostName>h</hostName>", "h"),
    (f"<HOSTNAME>{31 * 'n'}x</HOSTNAME><ipAddress>1.2.3.4</ipAddress>", 31 * "n"),
])
def test_one_server_is_stored(camera, server, stored):
    assert camera.effects("PUT", SERVERS + "/7", f"<ntpserver>{server}</ntpserver>") == [
        f"Network.NTPServer = {stored}", "status 1"]


@pytest.mark.parametrize("servers, effects", [
    ("""<NTPServer><hostName>a</hostName></NTPServer>
        <ntpserver><addressingFormatType>ipaddress</addressingFormatType><hostName>b</hostName></ntpserver>
        <NTPServer><ipAddress>1.2.3.4</ipAddress></NTPServer>""", ["Network.NTPServer = b", "status 1"]),
    ("<NTPServer><hostName>it's</hostName></NTPServer>", ["status 3"]),
])
def test_of_a_list_the_last_name_is_stored(camera, servers, effects):
    assert camera.effects("PUT", SERVERS, f"<ntpserverLIST>{servers}</ntpserverLIST>") == effects
