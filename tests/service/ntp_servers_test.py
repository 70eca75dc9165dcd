"""The NTP server: there is one, an address or a name, whatever id or list a request names."""
import pytest

from answers import OK, elements

SERVERS = "/PSIA/System/time/ntpServers"
LONGEST = 31 * "n"  # the longest server that is stored


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


@pytest.mark.parametrize("server, stored", [
    pytest.param("""
        <addressingFormatType>hostname</addressingFormatType>
        <hostName>name</hostName>
        <ipAddress>1.2.3.4</ipAddress>""", "1.2.3.4", id="the address, even with the type hostname"),
    pytest.param("""
        <addressingFormatType/>
        <addressingFormatType>nTp</addressingFormatType>
        <hostName>name</hostName>
        <ipAddress>1.2.3.4</ipAddress>""", "name", id="the name with the type NTP"),
    pytest.param(f"""
        <HOSTNAME>{LONGEST}x</HOSTNAME>
        <ipAddress>1.2.3.4</ipAddress>""", LONGEST, id="the name without a type, truncated"),
])
def test_one_server_is_stored(camera, server, stored):
    assert camera.effects("PUT", SERVERS + "/7", f"<ntpserver>{server}</ntpserver>") == [
        f"Network.NTPServer = {stored}", OK]


def test_of_a_list_the_last_name_is_stored_whatever_its_type(camera):
    assert camera.effects("PUT", SERVERS, """
        <ntpserverLIST>
          <NTPServer><hostName>first</hostName></NTPServer>
          <ntpserver>
            <addressingFormatType>ipaddress</addressingFormatType>
            <hostName>last</hostName>
          </ntpserver>
          <NTPServer><ipAddress>1.2.3.4</ipAddress></NTPServer>
        </ntpserverLIST>""") == ["Network.NTPServer = last", OK]
