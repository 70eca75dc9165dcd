"""Cameras side by side differ, and other addresses than 127.0.0.1 reach them with --listen."""
import re
import subprocess

from simulator import device
from simulator.testing import RunningCamera


def run(*command):
    return subprocess.run(command, check=True, capture_output=True, text=True).stdout


def get(url, *options):
    return run("curl", "-sS", "-u", "admin:admin", *options, url)


def test_three_cameras_differ_and_answer_at_each_address_of_the_machine():
    device.enter_namespaces()
    for address in "127.0.0.1/8", "192.0.2.1/24", "2001:db8::1/64":
        run("ip", "address", "replace", address, "dev", "lo")
    run("ip", "link", "set", "lo", "up")
    cameras = RunningCamera("--listen", "::", "--allow-host", "gate", "--cameras", "3", "--port", "20000")
    assert cameras.urls == [f"http://127.0.0.1:{port}" for port in (20000, 20001, 20002)]
    seen = []
    for port in (20000, 20001, 20002):
        info = get(f"http://192.0.2.1:{port}/PSIA/System/deviceInfo")
        address = get(f"http://[2001:db8::1]:{port}/PSIA/System/Network/interfaces/eth0/ipAddress")
        seen.append(re.findall("<(?:deviceName|deviceID|serialNumber|macAddress)>([^<]+)", info) +
                    re.findall("<ipAddress>([^<]+)", address)[:1])
    assert len(seen[0]) == 5  # four values of deviceInfo, and the address
    assert all(len(set(values)) == 3 for values in zip(*seen)), f"each value differs in each camera: {seen}"
    cameras.shows("OTHER MACHINES CAN REACH THIS")
    assert "--allow-host other" in get("http://192.0.2.1:20000/PSIA/index", "-H", "Host: other")
    log = "http://192.0.2.1:20000/camera/log"
    assert "of http://other sent this" in get(log, "-H", "Origin: http://other")
    assert "ResourceList" in get("http://192.0.2.1:20000/PSIA/index", "-H", "Host: gate")
    ready_file = cameras.ready_file
    assert cameras.stop() == 0 and not ready_file.exists()
