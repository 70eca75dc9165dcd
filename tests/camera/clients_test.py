#!/usr/bin/env python3
"""The pytest file of docs/clients.md works as it is printed there: clients_test.py SIMULATOR SERVICE PAGE."""
import os
import pathlib
import re
import subprocess
import sys
import tempfile

simulator, service, page = (os.path.abspath(path) for path in sys.argv[1:4])
document = pathlib.Path(__file__).parents[2] / "docs/clients.md"
example = re.search(r"```python\n(.*?)```", document.read_text(encoding="utf-8"), re.DOTALL).group(1)

with tempfile.TemporaryDirectory() as scratch:
    directory = pathlib.Path(scratch)
    (directory / "test_camera.py").write_text(example, encoding="utf-8")
    # Stands for scripts/run, which would build first.
    run = directory / "run"
    run.write_text(f'#!/bin/sh\nexec {simulator} "$@" --page {page} --run-directory {scratch}/run.d -- {service}\n')
    run.chmod(0o755)
    sys.exit(subprocess.run(["pytest-3", "-q", "-p", "no:cacheprovider", "test_camera.py"],
                            cwd=scratch, env={**os.environ, "CAMERA": str(run)}, check=False).returncode)
