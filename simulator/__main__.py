"""The commands of the simulated camera: python3 -m simulator COMMAND, or python3 FOLDER COMMAND."""
import importlib
import os
import sys

if not __package__:  # started by the folder's path
    sys.path[0] = os.path.dirname(os.path.dirname(os.path.abspath(__file__)))

from simulator import Fault

# By their modules, of which only the one that is needed is loaded.
COMMANDS = {"camera": "people", "inside": "inside", "daemons": "board"}

name, *arguments = sys.argv[1:] or [""]
if name not in COMMANDS:
    print(f"Usage: python3 -m simulator {'|'.join(COMMANDS)} [--help] ...", file=sys.stderr)
    sys.exit(2)
try:
    sys.exit(importlib.import_module(f"simulator.{COMMANDS[name]}").main(arguments))
except Fault as fault:
    sys.exit(str(fault))
