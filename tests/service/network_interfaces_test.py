"""The network interface: documents show its live state; a change is stored and left to the daemons."""
import subprocess

import pytest

from camera import RESOLVER

INTERFACE = "/PSIA/System/Network/interfaces/eth0"
ADDRESS = INTERFACE + "/ipAddress"


@pytest.fixture
def ip():
    """Runs commands of ip(8), and at the end those that put the factory state of eth0 back."""
    def run(*commands):
        subprocess.run(["ip", "-batch", "-"], input="\n".join(commands), text=True, check=True)
    yield run
    run("address flush dev eth0", "address add 192.168.1.10/24 broadcast + dev eth0",
        "route add default via 192.168.1.1 dev eth0")


@pytest.mark.parametrize("commands, resolver, mask, addresses", [
    (["address add 10.1.2.3/9 dev eth0", "route add default via 10.20.30.40 dev eth0"],
     "search example\nnameserver 10.0.0.2", "255.128.0.0", ["10.1.2.3", "10.20.30.40", "10.0.0.2", ""]),
    ([], "", "0.0.0.0", ["0.0.0.0", "0.0.0.0", "", ""]),
])
def test_the_live_state_is_shown(camera, ip, commands, resolver, mask, addresses):
    ip("address flush dev eth0", *commands)
    RESOLVER.write_text(resolver)
    assert camera.shown(INTERFACE, "subnetMask") == [mask]
    assert camera.shown(INTERFACE, "ipAddress") == addresses  # interface, gateway, name servers


def test_without_a_row_the_type_shown_is_dynamic(camera):
    camera.execute("delete from Network")
    assert camera.shown(ADDRESS, "addressingType") == ["dynamic"]


def test_later_elements_count_and_texts_are_cut_at_31_characters(camera):
    kept, given = "7" * 31, "7" * 32
    assert camera.effects("PUT", INTERFACE, f"""
        <NetworkInterface>
          <id>ETH0</id>
          <IPAddress>
            <ipVersion>V4</ipVersion>
            <addressingType>STATIC</addressingType>
            <ipAddress>{given}</ipAddress>
            <subnetMask>{given}</subnetMask>
            <DefaultGateway><ipAddress>b</ipAddress><ipAddress>{given}</ipAddress></DefaultGateway>
            <DefaultGateway></DefaultGateway>
            <PrimaryDNS><ipAddress>c</ipAddress></PrimaryDNS>
            <PrimaryDNS></PrimaryDNS>
            <SecondaryDNS><ipAddress>{given}</ipAddress></SecondaryDNS>
          </IPAddress>
        </NetworkInterface>
        """) == [f"Network.IPAddress = {kept}", f"Network.SubnetMask = {kept}", f"Network.Gateway = {kept}",
                 "message 31 addressing", f"message 33 name servers: servers = -{kept}", "status 1"]


def test_a_static_address_ends_the_dynamic_one(camera):
    camera.execute("update Network set ConnectionType=1")
    assert camera.effects("PUT", ADDRESS, """
        <IPAddress>
          <addressingType>static</addressingType>
          <ipAddress>192.168.1.10</ipAddress>
        </IPAddress>""")[0] == "Network.ConnectionType = 0"


@pytest.mark.parametrize("kind, replies, effects", [
    ("static", [0, 1], ["message 31 addressing", "message 33 name servers: servers = %s'%%n-", "status 2"]),
    ("static", [1], ["message 31 addressing", "status 2"]),
    ("static1", [2], ["Network.ConnectionType = 1", "message 31 addressing", "status 3"]),  # that is dynamic
])
def test_the_reply_to_the_last_message_is_the_answer(camera, kind, replies, effects):
    camera.execute("update Network set IPAddress='a', SubnetMask='', Gateway=''")
    assert camera.effects("PUT", ADDRESS, f"""
        <IPAddress>
          <addressingType>{kind}</addressingType>
          <ipAddress>a</ipAddress>
          <PrimaryDNS><ipAddress>%s'%%n</ipAddress></PrimaryDNS>
          <SecondaryDNS><ipAddress>b</ipAddress></SecondaryDNS>
          <SecondaryDNS></SecondaryDNS>
        </IPAddress>""", replies) == effects


def test_failures_of_the_kernel_are_printed(camera, ip):
    ip("link set eth0 down", "link set eth0 name eth9")
    interface, device = (camera.effects("GET", uri)[0] for uri in (INTERFACE, "/PSIA/System/deviceInfo"))
    ip("link set eth9 name eth0", "link set eth0 up")
    assert interface == "printed Unable to read subnet mask!\n"
    assert device == "printed Unable to read MAC address!\n"


@pytest.mark.parametrize("uri, body, code", [
    (INTERFACE, "<IPAddress/>", 5),
    (ADDRESS, "<IPAddress><addressingType>static</addressingType><ipAddress>'</ipAddress></IPAddress>", 3),
])
def test_a_change_that_is_refused_does_nothing(camera, uri, body, code):
    assert camera.effects("PUT", uri, body) == [f"status {code}"]
