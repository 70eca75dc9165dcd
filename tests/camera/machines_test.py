#!/usr/bin/env python3
"""Cameras side by side differ, and other addresses than 127.0.0.1 reach them with --listen: machines_test.py
SIMULATOR SERVICE PAGE."""
import os
import re
import subprocess
import sys
import tempfile

sys.dont_write_bytecode = True
sys.path.insert(0, os.path.dirname(os.path.abspath(__file__)) + "/../../scripts/lib")
from simulated_camera import end_with_test, eventually

simulator, service, page = sys.argv[1:4]
if os.environ.get("PSIA_PRIVATE_NETWORK") is None:
    alone = ["unshare", "--net"] + ([] if os.geteuid() == 0 else ["--user", "--map-root-user"])
    os.execvpe(alone[0], alone + [sys.executable, *sys.argv], {**os.environ, "PSIA_PRIVATE_NETWORK": "yes"})


def run(*command):
    return subprocess.run(command, check=True, capture_output=True, text=True).stdout


def get(url, *options):
    return run("curl", "-sS", "-u", "admin:admin", *options, url)


def check_cameras(ports, terminal):
    seen = []
    for port in ports:
        info = get(f"http://192.0.2.1:{port}/PSIA/System/deviceInfo")
        address = get(f"http://[2001:db8::1]:{port}/PSIA/System/Network/interfaces/eth0/ipAddress")
        seen.append(re.findall("<(?:deviceName|deviceID|serialNumber|macAddress)>([^<]+)", info) +
                    re.findall("<ipAddress>([^<]+)", address)[:1])
    for values in zip(*seen):
        assert len(set(values)) == 3, f"cameras share {values}"
    assert len(seen[0]) == 5, seen
    with open(terminal, encoding="utf-8") as file:
        assert "OTHER MACHINES CAN REACH THIS" in file.read(), "the terminal does not say so"
    assert "--allow-host other" in get(f"http://192.0.2.1:{ports[0]}/PSIA/index", "-H", "Host: other"), "a foreign name"
    assert "of http://other sent this" in get(f"http://192.0.2.1:{ports[0]}/camera/log", "-H", "Origin: http://other")
    assert "ResourceList" in get(f"http://192.0.2.1:{ports[0]}/PSIA/index", "-H", "Host: gate"), "an allowed name"


for address in "127.0.0.1/8", "192.0.2.1/24", "2001:db8::1/64":
    run("ip", "address", "replace", address, "dev", "lo")
run("ip", "link", "set", "lo", "up")



def check_that_named_directories_stay(scratch):
    """Of what a person names only the run's own files are removed."""
    kept = [f"{scratch}/{name}/kept" for name in ("ready", "run/mine", "run/owned")]
    for path in kept:
        os.makedirs(os.path.dirname(path))
        open(path, "w", encoding="ascii").close()
    with open(f"{scratch}/run/owned/owner", "w", encoding="ascii") as owner:
        owner.write("somebody else\n")
    refused = subprocess.run([simulator, "--ready-file", scratch + "/ready", "--", service], capture_output=True,
                             text=True, timeout=10)
    assert refused.returncode == 1 and "is a directory" in refused.stderr, refused
    ended = subprocess.run([simulator, "--port", "0", "--ready-file", scratch + "/none/ready", "--page", page,
                            "--run-directory", scratch + "/run", "--", service], capture_output=True, timeout=20)
    assert ended.returncode == 1, ended
    for path in kept:
        assert os.path.exists(path), f"{path} was removed"


with tempfile.TemporaryDirectory() as scratch:
    check_that_named_directories_stay(scratch)
with tempfile.TemporaryDirectory() as scratch, open(scratch + "/terminal", "wb") as output:
    cameras = subprocess.Popen([simulator, "--listen", "::", "--allow-host", "gate", "--cameras", "3", "--port", "20000",
                                "--ready-file", scratch + "/ready", "--run-directory", scratch + "/run",
                                "--page", page, "--", service], stdout=output, preexec_fn=end_with_test)
    try:
        eventually(lambda: os.path.exists(scratch + "/ready") or cameras.poll() is not None, "three cameras")
        check_cameras([20000, 20001, 20002], output.name)
    finally:
        cameras.terminate()
        status = cameras.wait()
    assert status == 0 and not os.path.exists(scratch + "/ready"), "the cameras do not end well"
