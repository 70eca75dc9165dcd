"""Measures what each request costs, and writes the figures into the tables of docs/performance.md or compares
them with those that are there."""
import concurrent.futures
import os
import pathlib
import re
import shutil
import subprocess
import sys
import tempfile
import time

from load import KINDS

PROJECT = pathlib.Path(__file__).parents[1]
PAGE = PROJECT / "docs/performance.md"
SERVICE = "build/psia.fcgi"
DEARER = 1.03  # the same code varies less, with the places of its data in memory
BEHIND_LIGHTTPD = ("index", "time", "users, 3 rows")
MEMORY = {  # the figures of bench/load.py by the rows of the page
    "waiting for the first request, kB": "private_start_kb",
    "after it, kB": "private_first_kb",
    "after 10,000 requests, kB": "private_end_kb",
    "peak, with libraries, kB": "peak_kb",
}
START = time.monotonic()



def say(text: str) -> None:
    print(f"[{time.monotonic() - START:4.0f} s] {text}", flush=True)


def load(*arguments: object, tool: list[str] | None = None) -> dict[str, float]:
    """The figures that bench/load.py prints."""
    command = [sys.executable, "simulator", "inside", "--without-daemons", sys.executable, "bench/load.py"]
    command += [*map(str, arguments), "--", *(tool or []), SERVICE]
    done = subprocess.run(command, cwd=PROJECT, stdout=subprocess.PIPE, text=True, check=False)
    if done.returncode != 0:
        sys.exit(f"{' '.join(command)} failed; see above.")
    return {name: float(value) for name, value in map(str.split, done.stdout.splitlines())}


def count(kind: str, tool: list[str], option: str, pattern: str) -> float:
    """Instructions or system calls of one request: the difference of two runs leaves out start and end."""
    short, long = (4, 14) if "1,000" in kind else (10, 60)
    totals = []
    for requests in (short, long):
        with tempfile.NamedTemporaryFile() as file:
            load("--kind", kind, "--requests", requests, tool=[*tool, option + file.name])
            totals.append(int(re.search(pattern, pathlib.Path(file.name).read_text(), re.MULTILINE)[1]))
    return (totals[1] - totals[0]) / (long - short)


def count_all(tool: list[str], option: str, pattern: str) -> dict[str, float]:
    """Counts do not suffer from running side by side."""
    with concurrent.futures.ThreadPoolExecutor(os.cpu_count()) as pool:
        return dict(zip(KINDS, pool.map(lambda kind: count(kind, tool, option, pattern), KINDS)))


def instructions() -> dict[str, float]:
    say("Counting instructions with callgrind")
    tool = ["valgrind", "-q", "--vgdb=no", "--tool=callgrind"]
    return count_all(tool, "--callgrind-out-file=", r"^(?:summary|totals): (\d+)")


def system_calls() -> dict[str, float]:
    say("Counting system calls with strace")
    return count_all(["strace", "-D", "-c", "-U", "calls,name"], "-o", r"^ *(\d+) total$")


def stripped_bytes() -> int:
    with tempfile.NamedTemporaryFile() as file:
        subprocess.run(["strip", "-o", file.name, SERVICE], check=True)
        return os.path.getsize(file.name)


def measured_with() -> str:
    """The last line of the page."""
    def output(*command: str) -> str:
        if not shutil.which(command[0]):
            return ""
        return subprocess.run(command, capture_output=True, text=True, check=False).stdout.strip()

    commit = output("git", "rev-parse", "--short", "HEAD") or "unknown"
    libraries = ["libsqlite3-0", "libxml2", "libfcgi0ldbl", "libc6"]
    versions = output("dpkg-query", "-W", "-f", "${Package} ${Version}\n", *libraries).splitlines()
    machine = os.uname().machine
    return f"Measured at commit {commit} with {', '.join(versions) or 'unknown libraries'} ({machine})."


def rows_of(page: str) -> dict[str, list[str]]:
    """The cells behind the first one of each row of the page's tables."""
    lines = [line.strip("| ").split("|") for line in page.splitlines() if line.startswith("|")]
    return {first.strip(): [cell.strip() for cell in others] for first, *others in lines}


def write(rows: dict[str, list[str]]) -> None:
    page = PAGE.read_text()
    if missing := sorted(rows.keys() - rows_of(page).keys()):
        sys.exit(f"{PAGE} has no row for {', '.join(missing)}.")
    lines = []
    for line in page.splitlines():
        name = line.strip("| ").split("|")[0].strip()
        if line.startswith("|") and name in rows:
            line = f"| {' | '.join([name, *rows[name]])} |"
        if line.startswith("Measured at commit "):
            line = measured_with()
        lines.append(line)
    PAGE.write_text("\n".join(lines) + "\n")
    say("Written: docs/performance.md")


def measure() -> None:
    figures = {kind: [f"{number:,.0f}"] for kind, number in instructions().items()}
    for kind, number in system_calls().items():
        figures[kind].append(f"{number:.0f}")
    say("Processor time and memory of each request")
    for kind in KINDS:
        costs = load("--kind", kind, "--requests", 2000, "--rounds", 20)
        figures[kind] += [f"{costs['cpu_us']:.0f}", f"{costs['private_end_kb']:.0f}"]
    say("The process: its start, and 10,000 requests of all kinds")
    start = load("--kind", "index", "--starts", 30)["first_answer_ms"]
    figures["start to first answer, ms"] = [f"{start:.1f}"]
    costs = load("--requests", 10000)
    for label, name in MEMORY.items():
        figures[label] = [f"{costs[name]:,.0f}"]
    figures["program, stripped, bytes"] = [f"{stripped_bytes():,}"]
    for kind in BEHIND_LIGHTTPD:
        say(f"Through lighttpd, with wrk: {kind}")
        rate = load("--kind", kind, "--web")["per_second"]
        figures[f"{kind}, through lighttpd, requests/s"] = [f"{rate:,.0f}"]
    write(figures)


def libraries_of(line: str) -> str:
    """Libraries and machine in the last line of the page: what a count of instructions depends on besides."""
    return line.partition(" with ")[2]


def compare() -> None:
    page = rows_of(PAGE.read_text())
    then, now = libraries_of(PAGE.read_text().splitlines()[-1]), libraries_of(measured_with())
    dearer = []
    for kind, number in instructions().items():
        before = int(page[kind][0].replace(",", ""))
        print(f"{kind:24} {number:12,.0f}, {number / before:.2f} of the {before:,} in docs/performance.md")
        if number > DEARER * before:
            dearer.append(kind)
    if then != now:
        print(f"No verdict: other libraries cost other instructions. The page was measured with {then}")
    elif dearer:
        sys.exit(f"Dearer by more than {DEARER - 1:.0%}: {'; '.join(dearer)}")
    else:
        print(f"Nothing became dearer by more than {DEARER - 1:.0%}.")


if __name__ == "__main__":
    os.chdir(PROJECT)
    if sys.argv[1:] == ["--quick"]:
        compare()
    else:
        measure()
