"""The NTP server: there is one, an address or a name, whatever id or list a request names."""
import pytest

from answers import elements

SERVERS = "/PSIA/System/time/ntpServers"


@pytest.mark.parametrize("uri", [SERVERS, SERVERS + "/1"])
@pytest.mark.parametrize("stored, shown", [
    pytest.param("'0123456789.'", "0123456789.", id="digits and dots"),
    pytest.param("null", "", id="no character at all"),
])
def test_an_address_is_shown(camera, uri, stored, shown):
    camera.execute("update Network set NTPServer=" + stored)
    assert elements(camera.call("GET", uri)) == {
        "id": "1", "addressingFormatType": "ipaddress", "ipAddress": shown, "portNo": "123"}


@pytest.mark.parametrize("change, shown", [
    pytest.param("update Network set NTPServer='10:0'", "10:0", id="a character that no address has"),
    pytest.param("delete from Network", "pool.ntp.org", id="no row"),
])
def test_a_host_name_is_shown(camera, change, shown):
    camera.execute(change)
    assert camera.shown(SERVERS, "addressingFormatType") == ["hostname"]
    assert camera.shown(SERVERS, "hostName") == [shown]
