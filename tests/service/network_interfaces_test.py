"""The network interface: documents show its live state; a change is stored and left to the daemons."""
import subprocess

import pytest

from answers import DEVICE_BUSY
from camera import RESOLVER
from simulator.messages import BUSY, DONE

INTERFACE = "/PSIA/System/Network/interfaces/eth0"
ADDRESS = INTERFACE + "/ipAddress"


def run_ip(*commands):
    subprocess.run(["ip", "-batch", "-"], input="\n".join(commands), text=True, check=True)


@pytest.fixture
def no_eth0():
    run_ip("link set eth0 down", "link set eth0 name eth9")
    yield
    run_ip("link set eth9 name eth0", "link set eth0 up")


def test_the_live_state_is_shown(camera):
    run_ip("address flush dev eth0", "address add 10.1.2.3/9 dev eth0",
           "route add default via 10.20.30.40 dev eth0")
    RESOLVER.write_text("nameserver 10.0.0.2")
    # The interface's, the gateway's and those of two name servers, in this order.
    assert camera.shown(INTERFACE, "ipAddress") == ["10.1.2.3", "10.20.30.40", "10.0.0.2", ""]
    assert camera.shown(INTERFACE, "subnetMask") == ["255.128.0.0"]


def test_without_addresses_zeros_are_shown(camera):
    run_ip("address flush dev eth0")
    RESOLVER.write_text("")
    assert camera.shown(INTERFACE, "ipAddress") == ["0.0.0.0", "0.0.0.0", "", ""]  # own, gateway, two servers
    assert camera.shown(INTERFACE, "subnetMask") == ["0.0.0.0"]


@pytest.mark.usefixtures("no_eth0")
@pytest.mark.parametrize("uri, line", [
    (INTERFACE, "Unable to read subnet mask!"),
    ("/PSIA/System/deviceInfo", "Unable to read MAC address!"),
])
def test_failures_of_the_kernel_are_printed(camera, uri, line):
    assert camera.effects("GET", uri)[0] == f"printed {line}\n"


@pytest.mark.parametrize("replies, later_effects", [
    pytest.param([DONE, BUSY], ["message 33 name servers: servers = 1.2.3.4-", DEVICE_BUSY],
                 id="the reply to the last message is the answer"),  # behind the hyphen no second server
    pytest.param([BUSY], [DEVICE_BUSY], id="without the addressing no name servers are sent"),
])
def test_name_servers_are_sent_when_the_addressing_was_done(camera, replies, later_effects):
    # Addresses that the body omits are stored as empty texts. They are that already.
    camera.execute("update Network set ConnectionType=1, IPAddress='', SubnetMask='', Gateway=''")
    assert camera.effects("PUT", ADDRESS, """
        <IPAddress><addressingType>static</addressingType>
          <PrimaryDNS><ipAddress>1.2.3.4</ipAddress></PrimaryDNS></IPAddress>""", replies) == [
            "Network.ConnectionType = 0", "message 31 addressing", *later_effects]
