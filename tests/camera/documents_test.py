"""What people copy from the documents works with a running camera: curl commands, the client, the pytest file
and generated classes. And links lead somewhere. A failure names the page and the line."""
import pathlib
import re
import shlex
import subprocess
import sys

import pytest

from simulator.testing import eventually

ROOT = pathlib.Path(__file__).parents[2]
CLIENTS = (ROOT / "docs/clients.md").read_text()
OPTIONS = ["--boot", "1"]
EXAMPLE = ROOT / "docs/examples/camera.py"
PAGES = [*ROOT.glob("*.md"), *sorted((ROOT / "docs").rglob("*.md"))]


def lines_of(page, pattern):
    """(place, match) of the lines. A command that continues on the next line is one line."""
    text = page.read_text()
    joined = re.sub(r"\\\n *", lambda continued: " " * len(continued[0]), text)
    for found in re.finditer(pattern, joined, re.MULTILINE):
        yield f"{page.relative_to(ROOT)}:{text.count(chr(10), 0, found.start()) + 1}", found


def anchors(page):
    headings = re.findall(r"^#+ (.*)$", page.read_text(), re.MULTILINE)
    plain = [re.sub(r"\[([^]]*)\]\([^)]*\)", r"\1", heading).lower() for heading in headings]
    return [re.sub(r"[^\w -]", "", heading).replace(" ", "-") for heading in plain]


def test_links_lead_to_a_file_and_a_heading():
    faults = []
    for page in PAGES:
        for place, found in lines_of(page, r"\]\((?!https?:)([^)\s#]*)#?([^)\s]*)\)"):
            target = page.parent / found[1] if found[1] else page
            if not target.exists():
                faults.append(f"{place}: {found[1]} does not exist")
            elif found[2] and found[2] not in anchors(target):
                faults.append(f"{place}: {found[1]} has no heading {found[2]}")
    assert not faults


def run_curl(camera, command, directory):
    """HTTP status, status of the document, and what went wrong."""
    command = re.sub(r"http://(CAMERA|127\.0\.0\.1:8080|localhost)(?=/)", camera.url, command)
    words = shlex.split(command.replace(":PASSWORD", ":admin"))
    done = subprocess.run([*words, "--silent", "--show-error", "--write-out", "\n%{http_code}"],
                          cwd=directory, capture_output=True, check=False)
    document, _, http = done.stdout.decode(errors="replace").rpartition("\n")
    status = re.search(r"<statusCode>(\d)", document)
    return http, status[1] if status else "", done.stderr.decode()


@pytest.mark.parametrize("page", [page for page in PAGES if next(lines_of(page, r"^ *curl .*://"), None)],
                         ids=lambda page: str(page.relative_to(ROOT)))
def test_curl_commands_give_what_the_comment_behind_them_says(camera, page, tmp_path):
    for place, found in lines_of(page, r"^ *(curl .*://.*?)(?: # *(?:statusCode )?(\d+)?.*)?$"):
        command, expected = found.groups()
        if "/Web/updownload/" in command or "https://" in command:  # what only a set-up of deploy/ answers
            continue
        http, status, error = run_curl(camera, command, tmp_path)
        good = expected in (http, status) if expected else http == "200" and status in ("", "1")
        got = f"HTTP {http}, status {status or 'none'}, not {expected or 1} {error}"
        assert good, f"{place}: {command}\n    gives {got}"
        if "reboot" in command or "factoryReset" in command:
            eventually(lambda: camera.ask("GET", "/PSIA/System/status")[0] == 503, "an outage")
            eventually(lambda: "deviceUpTime" in camera.get("/PSIA/System/status"), "a boot")


def test_the_example_does_what_it_offers(camera, tmp_path):
    def run(*arguments, user="admin:admin", fails=""):
        name, _, password = user.partition(":")
        done = subprocess.run([sys.executable, EXAMPLE, "--user", name, "--password", password,
                               camera.url.removeprefix("http://"), *arguments], cwd=tmp_path, text=True,
                              stdout=subprocess.PIPE, stderr=subprocess.STDOUT, check=False)
        assert (done.returncode != 0) == bool(fails), f"{arguments}: {done.stdout}"
        assert fails in done.stdout and "Traceback" not in done.stdout, f"{arguments}: {done.stdout}"
        return done.stdout

    rule = "CET-1CEST,M3.5.0,M10.5.0/3"
    run("rename", "Entrance")
    run("address", "10.0.0.5", "255.0.0.0", "10.0.0.1", "10.0.0.2")
    run("zone", rule)
    run("clock", "2031-05-01T10:00:00", rule)
    run("add", "guard", "secret")
    run("password", "guard", "better")
    shown = run("show", user="guard:better")
    assert "Entrance, QC-2040" in shown and "2031-05-01T10:0" in shown and "guard" in shown
    assert "10.0.0.5 (static), name server 10.0.0.2" in shown
    run("stream", "1280", "720", "3072", "25")
    run("alarm", "Mail-1", "2", "8", "20")
    run("export", "settings")
    run("remove", "guard")
    run("rename", "a & b", fails="cannot store")
    camera.put("/PSIA/System/deviceInfo", "<DeviceInfo><deviceName>a &amp; b</deviceName></DeviceInfo>")
    run("show", fails="no XML")
    run("import", "settings")
    run("reboot")
    assert "guard" in run("show"), "the imported settings are in effect after the restart"
    for change in ("Network.TimeZone: EST5EDT -> CET", "VideoEncoder[0].Bitrate: 4096 -> 3072",
                   "VideoEncoder[0].Resolution: 5 -> 4", "Event[0].SMTPServerID: -1 -> 1",  # 4: 1280 x 720
                   "Event[0].Week: 62 -> 4", "Event[0].EndTime: 1730 -> 2000"):  # 4: bit 2, for day 2
        assert camera.log(contains=change), change


def test_the_pytest_files_of_the_clients_page_pass(tmp_path):
    for number, block in enumerate(re.findall(r"```python\n(.*?)```", CLIENTS, re.DOTALL)):
        (tmp_path / f"test_{number}.py").write_text(block)
    done = subprocess.run(["pytest-3", "-q", "-p", "no:cacheprovider"], cwd=tmp_path,
                          text=True, capture_output=True, check=False)
    assert done.returncode == 0, done.stdout


def test_generated_classes_read_and_write_the_documents(camera, tmp_path):
    (tmp_path / "docs").symlink_to(ROOT / "docs")
    (tmp_path / "rename.cpp").write_text(re.search(r"```cpp\n(.*?)```", CLIENTS, re.DOTALL)[1])
    commands = re.search(r"^    xsdcxx .*?\n\n", CLIENTS, re.DOTALL | re.MULTILINE)[0]
    commands = commands.replace("http://127.0.0.1:8080", camera.url)
    done = subprocess.run(["sh", "-ec", commands], cwd=tmp_path, text=True, capture_output=True, check=False)
    assert done.returncode == 0 and "1: 1920 x 1080" in done.stdout, done.stdout + done.stderr
    assert camera.log(contains="Network.DDNSHostname: camera-1 -> Entrance")
