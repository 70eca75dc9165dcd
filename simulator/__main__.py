"""The commands of the simulated camera: python3 -m simulator COMMAND, or python3 PATH-OF-THIS-FOLDER
COMMAND."""
import os
import sys

if not __package__:  # started by the folder's path
    sys.path[0] = os.path.dirname(os.path.dirname(os.path.abspath(__file__)))

from simulator import Fault, board, inside, people

COMMANDS = {"inside": inside.main, "daemons": board.main, "camera": people.main}


def main() -> int:
    name, *arguments = sys.argv[1:] or [""]
    if name not in COMMANDS:
        print(f"Usage: {' | '.join(COMMANDS)}", file=sys.stderr)
        return 2
    try:
        return COMMANDS[name](arguments)
    except Fault as fault:
        print(fault, file=sys.stderr)
        return 1


if __name__ == "__main__":
    sys.exit(main())
