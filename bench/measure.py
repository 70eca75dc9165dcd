"""Runs every measurement of scripts/bench and writes docs/performance.md and docs/performance.svg."""

import concurrent.futures
import os
import pathlib
import re
import shutil
import socket
import subprocess
import sys
import time

SERVICE, FLOOR = "build/psia.fcgi", "build/bench-floor"
OUT = pathlib.Path("build/bench")
ANSWERS = OUT / "answers"

# The resources in the table, as bench-load names them, and in words.
KINDS = {
    "index": "index",
    "indexr": "recursive index",
    "401": "401, no credentials",
    "unknown": "unknown URL",
    "time": "time",
    "deviceInfo": "deviceInfo",
    "interfaces": "interfaces",
    "channels": "channels",
    "capabilities": "capabilities",
    "users-3": "users, 3 rows",
    "users-100": "users, 100 rows",
    "users-1000": "users, 1,000 rows",
    "status-0": "status, no viewer",
    "status-100": "status, 100 viewers",
    "status-1000": "status, 1,000 viewers",
    "put-audio": "PUT audio",
    "put-schedule": "PUT schedule",
    "post-user": "POST user",
}
BODIES = {"put-audio", "put-schedule", "post-user"}
MAX_BYTES = 165 * 1024
START = time.monotonic()


def say(text):
    print(f"[{time.monotonic() - START:4.0f} s] {text}", flush=True)


def load(*arguments, servers=(SERVICE,)):
    """Runs bench-load and gives its figures, a dictionary for each server."""
    command = ["build/bench-load", *map(str, arguments)]
    for server in servers:
        command += ["--", *([server] if isinstance(server, str) else server)]
    done = subprocess.run(command, stdout=subprocess.PIPE, text=True, check=False)
    if done.returncode != 0:
        sys.exit(f"{' '.join(command)} failed; see above.")
    figures = []
    for line in done.stdout.splitlines():
        name, value = line.split(" ", 1)
        if name == "server":
            figures.append({})
        else:
            figures[-1][name] = float(value)
    return figures


def check_answers(kind):
    """Records the service's answer to each kind and sees that the floor's, which uses it, is the same."""
    floor_answers = OUT / "floor-answers"
    for attempt in range(5):  # the time may pass from one second to the next
        for server, directory in ((SERVICE, ANSWERS), (FLOOR, floor_answers)):
            directory.mkdir(parents=True, exist_ok=True)
            load("--kind", kind, "--requests", 1, "--record", directory, servers=[server])
        if (ANSWERS / kind).read_bytes() == (floor_answers / kind).read_bytes():
            return
    sys.exit(f"Service and floor answer {kind} differently: compare {ANSWERS / kind} and {floor_answers / kind}.")


def counted(kind, server, what):
    """Instructions or system calls of a run; the difference of two lengths leaves out start and end."""
    short, long = (4, 14) if kind.endswith("-1000") else (10, 60)
    totals = []
    for requests in (short, long):
        path = OUT / f"{what}-{kind}-{pathlib.Path(server).name}-{requests}"
        if what == "instructions":
            tool = ["valgrind", "-q", "--tool=callgrind", f"--callgrind-out-file={path}"]
            pattern = r"^(?:summary|totals): (\d+)"
        else:
            tool = ["strace", "-D", "-c", "-U", "calls,name", "-o", str(path)]
            pattern = r"^ *(\d+) total$"
        load("--kind", kind, "--requests", requests, servers=[[*tool, server]])
        totals.append(int(re.search(pattern, path.read_text(), re.MULTILINE).group(1)))
    return (totals[1] - totals[0]) / (long - short)


def count_all(what, digits):
    """A dictionary of (service, floor) for each kind; counts do not suffer from running side by side."""
    with concurrent.futures.ThreadPoolExecutor(os.cpu_count()) as pool:
        jobs = {k: [pool.submit(counted, k, s, what) for s in (SERVICE, FLOOR)] for k in KINDS}
        return {k: [round(job.result(), digits) for job in both] for k, both in jobs.items()}


def through_web_server(server, uri):
    """Requests per second of the server behind lighttpd, which is set up as in scripts/run."""
    with socket.socket() as probe:
        probe.bind(("127.0.0.1", 0))
        port = probe.getsockname()[1]
    path, conf = "build/bench/psia.socket", OUT / "lighttpd.conf"
    conf.write_text(
        f"""server.modules = ("mod_fastcgi")
server.bind = "127.0.0.1"
server.port = {port}
server.document-root = var.CWD + "/build/bench"
server.errorlog = var.CWD + "/build/bench/lighttpd.log"
fastcgi.server = ("/PSIA" => (("socket" => "{path}", "check-local" => "disable")))
"""
    )
    quiet = {"stdout": subprocess.DEVNULL, "stderr": subprocess.DEVNULL}
    camera = subprocess.Popen([sys.executable, "simulator", "camera", "--socket", path, "--", server], **quiet)
    while not os.path.exists(path):
        if camera.poll() is not None:
            sys.exit("The simulated camera does not start; try scripts/run.")
        time.sleep(0.05)
    web_server = subprocess.Popen(["lighttpd", "-D", "-f", conf], **quiet)
    try:
        time.sleep(0.5)
        command = ["wrk", "-t1", "-c4", "-d2", "-H", "Authorization: Basic YWRtaW46YWRtaW4="]
        done = subprocess.run([*command, f"http://127.0.0.1:{port}{uri}"], capture_output=True, text=True, check=True)
        if "Non-2xx" in done.stdout or "Socket errors" in done.stdout:
            sys.exit(f"The web server had faults:\n{done.stdout}\nSee build/bench/lighttpd.log.")
        return float(re.search(r"Requests/sec: *([\d.]+)", done.stdout).group(1))
    finally:
        for process in (web_server, camera):
            process.terminate()
            process.wait()


def ratio(pair):
    return pair[0] / pair[1]


def goals(rows):
    """(goal, kinds or figures that miss it) for each goal that was measured."""
    found = []

    def goal(text, misses):
        found.append((text, misses))

    instructions = {k: r["instructions"] for k, r in rows.items()}
    misses = [f"{KINDS[k]} {ratio(p):.2f}" for k, p in instructions.items() if k != "401" and ratio(p) > 0.904]
    goal("instructions at most 0.90 of the floor on every resource with a statement", misses)
    refused = ratio(instructions["401"])
    goal("instructions at most 1.02 of the floor on the 401", [f"{refused:.2f}"] if refused > 1.024 else [])
    misses = []
    for name, first, before in (("users", "users-3", 3), ("status", "status-0", 0)):
        few = (instructions[f"{name}-100"][0] - instructions[first][0]) / (100 - before)
        many = (instructions[f"{name}-1000"][0] - instructions[f"{name}-100"][0]) / 900
        say(f"{name}: {few:.0f} instructions a row up to 100 rows, {many:.0f} from there to 1,000")
        if not 0.9 < many / few < 1.1:
            misses.append(f"{name} {few:.0f} and then {many:.0f}")
    goal("cost of a row constant from 100 to 1,000 rows, within a tenth", misses)
    if "cpu" in rows["index"]:
        misses = [f"{KINDS[k]} {ratio(r['cpu']):.2f}" for k, r in rows.items() if ratio(r["cpu"]) > 1.004]
        goal("processor time at most 1.00 of the floor", misses)
        misses = [f"{KINDS[k]} {r['calls'][0] - r['calls'][1]:.1f}" for k, r in rows.items()
                  if r["calls"][0] - r["calls"][1] > 4.04]
        goal("at most 4 system calls above the floor", misses)
    return found


def table(rows):
    head = ["resource", "instructions", "floor", "ratio"]
    full = "cpu" in rows["index"]
    if full:
        head += ["processor µs", "floor", "ratio", "requests/s", "floor", "ratio", "system calls", "floor"]
    lines = [head, ["---", *["---:"] * (len(head) - 1)]]
    for kind, row in rows.items():
        cells = [KINDS[kind], *(f"{n:,.0f}" for n in row["instructions"]), f"{ratio(row['instructions']):.2f}"]
        if full:
            cells += [*(f"{n:.1f}" for n in row["cpu"]), f"{ratio(row['cpu']):.2f}"]
            cells += [*(f"{n:,.0f}" for n in row["rate"]), f"{ratio(row['rate']):.2f}"]
            cells += [f"{n:.1f}" for n in row["calls"]]
        lines.append(cells)
    return "\n".join("| " + " | ".join(cells) + " |" for cells in lines)


def chart(rows):
    """The ratios of instructions as bars, with the floor and the goal as lines."""
    left, scale, step = 230, 300, 22
    height = step * len(rows) + 50
    parts = [
        f'<svg xmlns="http://www.w3.org/2000/svg" width="720" height="{height}" font-family="sans-serif" font-size="13">',
        '<rect width="100%" height="100%" fill="white"/>',
        '<text x="8" y="20">Instructions per request: the floor is 1, the goal 0.90 (dashed), on the 401 1.02</text>',
    ]
    for i, (kind, row) in enumerate(rows.items()):
        value, y = ratio(row["instructions"]), 34 + i * step
        colour = "#3b6ea5" if value <= (1.024 if kind == "401" else 0.904) else "#c0504d"
        parts.append(f'<text x="{left - 8}" y="{y + 13}" text-anchor="end">{KINDS[kind]}</text>')
        parts.append(f'<rect x="{left}" y="{y}" width="{min(value, 1.4) * scale:.0f}" height="16" fill="{colour}"/>')
        parts.append(f'<text x="{left + min(value, 1.4) * scale - 6:.0f}" y="{y + 13}" text-anchor="end" fill="white">{value:.2f}</text>')
    for value, dash in ((0.9, "4 3"), (1.0, "none")):
        x = left + value * scale
        parts.append(f'<line x1="{x}" x2="{x}" y1="28" y2="{height - 14}" stroke="black" stroke-dasharray="{dash}"/>')
    return "\n".join([*parts, "</svg>"]) + "\n"


def versions():
    packages = ["libsqlite3-0", "libxml2", "libfcgi0ldbl", "libc6"]
    query = ["dpkg-query", "-W", "-f", "${Package} ${Version}\n", *packages]
    done = subprocess.run(query, capture_output=True, text=True, check=False) if shutil.which("dpkg-query") else None
    return ", ".join(done.stdout.split("\n")).strip(", ") if done else "unknown"


def stripped_bytes():
    path = OUT / "psia.stripped"
    subprocess.run(["strip", "-o", path, SERVICE], check=True)
    return path.stat().st_size


def verdicts(found):
    return [f"- {text}: " + ("**holds**" if not misses else "**does not hold**: " + ", ".join(misses)) for text, misses in found]


def measure(quick):
    os.environ["BENCH_ANSWERS"] = str(ANSWERS.resolve())
    OUT.mkdir(parents=True, exist_ok=True)
    say("Comparing the answers of service and floor")
    for kind in [*KINDS, "delete-users"]:
        check_answers(kind)
    say("Counting instructions with callgrind")
    rows = {k: {"instructions": pair} for k, pair in count_all("instructions", 0).items()}
    if quick:
        print(table(rows), *verdicts(goals(rows)), sep="\n")
        return
    say("Counting system calls with strace")
    for kind, pair in count_all("calls", 1).items():
        rows[kind]["calls"] = pair
    for kind, row in rows.items():
        requests = round(max(2000, min(20000, 3e9 / row["instructions"][0])))
        say(f"Processor time: {kind}, {requests} requests in 40 alternating rounds")
        both = load("--kind", kind, "--requests", requests, "--rounds", 40, "--in-flight", 3, servers=[SERVICE, FLOOR])
        row["cpu"], row["rate"] = ([figures[name] for figures in both] for name in ("cpu_us", "per_second"))
    say("Start-up to the first answer, 30 times each")
    starts = load("--kind", "index", "--starts", 30, servers=[SERVICE, FLOOR])
    say("Memory over 10,000 mixed requests")
    memory = load("--requests", 10000, servers=[SERVICE, FLOOR])
    web = {}
    for uri in ("/PSIA/index", "/PSIA/System/time", "/PSIA/Security/AAA/users"):
        say(f"Through lighttpd, with wrk: {uri}")
        rounds = [[through_web_server(server, uri) for server in (SERVICE, FLOOR)] for _ in range(3)]
        web[uri] = [max(rates) for rates in zip(*rounds)]
    write(rows, starts, memory, web)


def write(rows, starts, memory, web):
    found = goals(rows)
    size = stripped_bytes()
    found.append((f"the stripped program has at most 165 KB ({size:,} bytes)", [f"{size:,}"] if size > MAX_BYTES else []))
    lines = [[name.replace("_", " ").replace(" kb", ", kB"), *(f"{figures[name]:,.0f}" for figures in memory)]
             for name in ("private_start_kb", "private_first_kb", "private_end_kb", "peak_kb")]
    lines.insert(0, ["start to first answer, ms", *(f"{figures['first_answer_us'] / 1000:.2f}" for figures in starts)])
    lines += [[f"GET {uri} through lighttpd, requests/s", *(f"{n:,.0f}" for n in both)] for uri, both in web.items()]
    text = (pathlib.Path("bench/performance.md.in").read_text()
            .replace("@GOALS@", "\n".join(verdicts(found)))
            .replace("@TABLE@", table(rows))
            .replace("@PROCESS@", "\n".join("| " + " | ".join(cells) + " |" for cells in lines))
            .replace("@VERSIONS@", versions()))
    pathlib.Path("docs").mkdir(exist_ok=True)
    pathlib.Path("docs/performance.md").write_text(text)
    pathlib.Path("docs/performance.svg").write_text(chart(rows))
    print(table(rows), *verdicts(found), sep="\n")
    say("Written: docs/performance.md and docs/performance.svg")


measure(sys.argv[1:] == ["--quick"])
