"""Runs clang-tidy over the sources that it has not yet found clean, those changed last first.

Sources of one folder are checked together, as one source that includes them, so that the headers they share are
parsed and analysed once; those that use a name twice are parted. Generated sources, which lie in build/, are left out.
What was found clean is noted in build/tidy/ by the content of all files that it includes.
"""

import concurrent.futures
import hashlib
import json
import os
import pathlib
import re
import shutil
import subprocess
import sys
import time

ROOT = pathlib.Path.cwd()
NOTES = ROOT / "build/tidy"
# So that all processors have something to do until the end.
MOST_TOGETHER = 8
HEADERS = r"/(src|simulator|tests|bench|fuzz)/.*\.(h|cpp)$"
# The static analyser looks into included sources only when the main one is named so.
TOGETHER = "UnifiedSource"


def compile_commands():
    """The compile command of each source of the project, without its input and output."""
    commands = {}
    for entry in json.loads((ROOT / "build/compile_commands.json").read_text()):
        source = pathlib.Path(entry["file"])
        if source.is_relative_to(ROOT) and not source.is_relative_to(ROOT / "build"):
            commands[source] = re.sub(r" -o \S+| -c \S+", "", entry["command"])
    return commands


def files_read():
    """What each source includes, itself among it, as the compiler has told."""
    deps = subprocess.run(["ninja", "-C", "build", "-t", "deps"], capture_output=True, text=True, check=True).stdout
    read = {}
    for block in deps.split("\n\n"):
        files = [ROOT / "build" / line.strip() for line in block.splitlines()[1:]]
        if files:
            read[pathlib.Path(os.path.normpath(files[0]))] = files
    return read


def digest(files, setting, cache={}):
    """Stands for the content of the files and the setting."""
    total = hashlib.sha256(setting.encode())
    for file in files:
        if file not in cache:
            cache[file] = hashlib.sha256(file.read_bytes()).digest()
        total.update(cache[file])
    return total.hexdigest()


def note_of(source):
    return NOTES / source.relative_to(ROOT).with_suffix(".clean")


def unchecked(commands):
    """The sources to check, each with the digest to note, the one changed last first."""
    version = subprocess.run(["clang-tidy", "--version"], capture_output=True, text=True, check=True).stdout
    settings = "".join(path.read_text() for path in sorted([ROOT / ".clang-tidy", *ROOT.glob("*/.clang-tidy")]))
    read = files_read()
    left = {}
    for source, command in commands.items():
        now = digest(read.get(source, [source]), version + settings + command)
        note = note_of(source)
        if not note.exists() or note.read_text() != now:
            left[source] = now
    return dict(sorted(left.items(), key=lambda item: -item[0].stat().st_mtime))


def groups(sources, commands):
    """Sources of the same folder and the same compile command, in pieces."""
    together = {}
    for source in sources:
        together.setdefault((source.parent, commands[source]), []).append(source)
    for members in together.values():
        for begin in range(0, len(members), MOST_TOGETHER):
            yield members[begin : begin + MOST_TOGETHER]


def run(source, command, *options):
    return subprocess.run(
        ["clang-tidy", "--quiet", f"--header-filter={HEADERS}", *options, str(source), "--",
         *command.split()[1:], "-Wno-unknown-warning-option"],
        capture_output=True, text=True, check=False)


def as_one(members, number):
    """A source that includes all of them."""
    folder = NOTES / "together" / members[0].parent.relative_to(ROOT)
    folder.mkdir(parents=True, exist_ok=True)
    # clang-tidy takes the settings of the folder that the source is in.
    settings = ROOT / members[0].relative_to(ROOT).parts[0] / ".clang-tidy"
    if settings.exists():
        shutil.copy(settings, folder)
    source = folder / f"{TOGETHER}-{number}.cpp"
    source.write_text("".join(f'#include "{member}"\n' for member in members))
    return source


def check(members, number, commands):
    """Gives those of the group that are clean, and what clang-tidy says of the others."""
    command = commands[members[0]].replace('\\"', '"')
    if len(members) == 1:
        done = run(members[0], command)
    else:
        source = as_one(members, number)
        compiler = [*command.split(), "-w", "-fsyntax-only", str(source)]
        if subprocess.run(compiler, capture_output=True, check=False).returncode != 0:
            half = len(members) // 2
            first, second = (check(part, number, commands) for part in (members[:half], members[half:]))
            return first[0] + second[0], first[1] + second[1]
        done = run(source, command, "--checks=-bugprone-suspicious-include")
    return (members, "") if done.returncode == 0 else ([], done.stdout)


def main():
    commands = compile_commands()
    left = unchecked(commands)
    pieces = list(groups(left, commands))
    print(f"{len(commands)} sources, {len(left)} new or changed, checked in {len(pieces)} groups", flush=True)
    start, done, failed = time.monotonic(), 0, False
    with concurrent.futures.ThreadPoolExecutor(os.cpu_count()) as pool:
        waiting = {pool.submit(check, piece, number, commands): piece for number, piece in enumerate(pieces)}
        for finished in concurrent.futures.as_completed(waiting):
            clean, said = finished.result()
            for source in clean:
                note_of(source).parent.mkdir(parents=True, exist_ok=True)
                note_of(source).write_text(left[source])
            done += len(waiting[finished])
            rest = (time.monotonic() - start) * (len(left) - done) / done
            names = ", ".join(sorted(source.name for source in waiting[finished]))
            folder = waiting[finished][0].parent.relative_to(ROOT)
            print(f"[{done}/{len(left)}, {rest:.0f} s left] {folder}: {names}", flush=True)
            if said:
                failed = True
                print(said, flush=True)
    if failed:
        sys.exit("clang-tidy has findings; see above. .clang-tidy says what is checked.")


main()
