#!/usr/bin/env python3
"""A session with the simulated camera: session_test.py SIMULATOR SERVICE PAGE. Each change is to be seen in the
next read, on the terminal and in what the page is told; a killed run leaves nothing behind."""
import json
import os
import pathlib
import re
import sys
import tempfile
import threading

sys.dont_write_bytecode = True
sys.path.insert(0, os.path.dirname(os.path.abspath(__file__)) + "/../../scripts/lib")
from simulated_camera import Camera, eventually


def expect(condition, what, camera):
    if not condition:
        sys.exit(f"{what}\n{camera.log()}")


def wait_for_boot(camera, boots):
    """The outage is real, and ends."""
    eventually(lambda: camera.ask("GET", "/PSIA/System/status")[0] == 503, "an outage")
    eventually(lambda: camera.log().count("the camera boots") == boots and camera.get("/System/status"), "a boot")
    seconds = int(re.search(r"<deviceUpTime>(\d+)", camera.get("/System/status")).group(1))
    expect(seconds < 60 or "no time namespaces" in camera.log(), f"the time since start is {seconds} s", camera)


def change(camera):
    camera.put("/System/Network/interfaces/eth0/ipAddress",
               "<IPAddress><addressingType>static</addressingType><ipAddress>10.0.0.5</ipAddress>"
               "<subnetMask>255.0.0.0</subnetMask></IPAddress>")
    camera.put("/System/time", "<Time><timeMode>manual</timeMode><localTime>2031-05-01T10:00:00</localTime>"
                               "<timeZone>CET-1</timeZone></Time>")
    camera.put("/System/time/timeZone", "CET-1")
    camera.put("/Security/AAA/users", "<User><userName>bob</userName><password>secret</password></User>", "POST")
    camera.logs("Network.IPAddress: 192.168.1.10 -> 10.0.0.5", "command 31", "User[bob] added: Level 2",
                "command 6: set the clock manually to 2031-05-01 10:00:00")
    expect("secret" not in camera.log(), "a password is shown", camera)
    now = json.loads(camera.ask("GET", "/camera/log?since=0")[1])["now"]
    expect(now["address"] == "10.0.0.5 255.0.0.0" and now["clock"].startswith("2031-05-01T10:0"), str(now), camera)


def check_session(camera):
    change(camera)
    exported = camera.ask("GET", "/PSIA/System/configurationData")[1]
    camera.put("/System/configurationData", exported[:5000])
    camera.logs("the uploaded settings are refused")
    camera.put("/System/factoryReset?MODE=FULL")
    wait_for_boot(camera, 2)
    expect("192.168.1.10<" in camera.get("/System/Network/interfaces/eth0/ipAddress"), "another address", camera)
    expect("EST5EDT" in camera.get("/System/time"), "the zone is not the factory's", camera)

    camera.put("/System/configurationData", exported)
    expect("bob" not in camera.get("/Security/AAA/users"), "an upload takes effect before the boot", camera)
    camera.put("/System/reboot")
    wait_for_boot(camera, 3)
    expect("10.0.0.5<" in camera.get("/System/Network/interfaces/eth0/ipAddress"), "the address is not restored", camera)
    # Set at 10:00 by CET-1; Africa/Algiers, which CET-1 names, is one hour ahead of UTC too.
    expect("2031-05-01T10:0" in camera.get("/System/time/localTime"), "the zone is not that of message 7", camera)


def check_served_files(camera):
    for path in ("/lighttpd.conf", "/lighttpd.log", "/owner", "/Web/updownload/settings.db", "/../run/lock"):
        expect(camera.ask("GET", path)[0] in (400, 404), path + " is served", camera)
    expect(camera.ask("GET", "/camera/log?since=0", user="admin:wrong")[0] == 401, "the feed is open to all", camera)


def leave_a_change_unanswered(camera):
    """Returns while the service waits for its daemons."""
    camera.ask("PUT", "/camera/answers", b"3=never")
    settings = pathlib.Path(f"/proc/{camera.process.pid}/root/usr/local/orvid/morvid.db")
    before = settings.read_bytes()
    body = b"<AudioChannel><enabled>false</enabled></AudioChannel>"
    threading.Thread(target=camera.ask, args=("PUT", "/PSIA/System/Audio/channels/1", body)).start()
    eventually(lambda: settings.read_bytes() != before, "the stored change")


with tempfile.TemporaryDirectory() as scratch:
    simulated = Camera(*sys.argv[1:4], scratch)
    try:
        check_session(simulated)
        check_served_files(simulated)
        pid = simulated.process.pid
        with open(f"/proc/{pid}/task/{pid}/children", encoding="ascii") as file:
            children = file.read().split()
        expect(len(children) == 3, "not the web server, the service and what removes the directory: " + str(children),
               simulated)
        simulated.process.kill()
        simulated.process.wait()
        for child in children:
            eventually(lambda: not os.path.exists("/proc/" + child) or
                       ") Z" in open(f"/proc/{child}/stat", encoding="ascii").read(), "the end of a child")
        eventually(lambda: next(os.walk(scratch + "/run"))[1] == [], "the end of the killed run's directory")
        simulated = Camera(*sys.argv[1:4], scratch, simulated.port)
        leave_a_change_unanswered(simulated)
    finally:
        simulated.process.terminate()
        expect(simulated.process.wait() == 0, "the camera does not end well", simulated)
    expect("service ended with exit status 0" in simulated.log(), "the service is killed while it waits", simulated)
    expect(next(os.walk(scratch + "/run"))[1] == [], "the run's directory is still there", simulated)
