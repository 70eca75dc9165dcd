"""The options of the camera for people; help.txt tells what they are for."""
import argparse
import contextlib
import pathlib
from collections.abc import Callable
from typing import NoReturn, TypeVar

from simulator import PROJECT, daemons, device, front

MAX_PORT = 65535
Kind = TypeVar("Kind")
Reader = Callable[[str], Kind]  # raises ValueError where the text is not of the kind


class Parser(argparse.ArgumentParser):
    def error(self, message: str) -> NoReturn:
        self.exit(2, f"{message[:1].upper()}{message[1:]}\n--help lists the options.\n")


def value(kind: Reader[Kind], needs: str, fits: Reader[object] = bool) -> Reader[Kind]:
    """For argparse. Without `fits` any text fits that is not empty."""

    def read_value(text: str) -> Kind:
        with contextlib.suppress(ValueError):
            if fits(text):
                return kind(text)
        raise argparse.ArgumentTypeError(f"it cannot be '{text}'; it needs {needs}.")

    return read_value


def number(least: int, most: int) -> Reader[int]:
    def fits(text: str) -> bool:
        return text.isdecimal() and text.isascii() and least <= int(text) <= most

    return value(int, f"a number from {least} to {most}", fits)


TEXT = value(str, "a value")
PATH = value(pathlib.Path, "a value")
ADDRESS = value(str, "an IPv4 or IPv6 address, for example 0.0.0.0", front.is_ip_address)
RULE = value(daemons.parse_rule, daemons.RULE_FORM)


def read(arguments: list[str]) -> argparse.Namespace:
    """Ends the program where there is a mistake."""
    parser = Parser(add_help=False, allow_abbrev=False)
    parser.add_argument("--port", type=number(0, MAX_PORT))
    parser.add_argument("--listen", type=ADDRESS, default="127.0.0.1")
    parser.add_argument("--allow-host", type=TEXT, action="append", default=[])
    parser.add_argument("--ready-file", type=PATH)
    parser.add_argument("--boot", type=number(0, 3600), default=5)
    parser.add_argument("--keep", type=PATH)
    parser.add_argument("--set", type=TEXT, action="append", default=[])
    parser.add_argument("--cameras", type=number(1, device.MAX_NUMBER), default=1)
    parser.add_argument("--answer", type=RULE, action="append", default=[])
    parser.add_argument("--shell", action="store_true")
    parser.add_argument("--video", action="store_true")
    parser.add_argument("--video-port", type=number(0, MAX_PORT))
    parser.add_argument("--page", type=PATH, default=pathlib.Path(__file__).parent / "page")
    parser.add_argument("--run-directory", type=PATH, default=PROJECT / "build/run")
    parser.add_argument("--socket", type=PATH)
    parser.add_argument("service", type=PATH, nargs="?", default=PROJECT / "build/psia.fcgi")
    parser.set_defaults(number=1, prefix="")  # of several cameras, each has its own
    options = parser.parse_args(arguments)
    if options.cameras > 1 and options.shell:
        parser.error("--shell opens one camera; leave --cameras out.")
    if options.cameras > 1 and options.socket:
        parser.error("--cameras cannot be used with --socket.")
    for name, port in ("--port", options.port), ("--video-port", options.video_port):
        if port and port + options.cameras - 1 > MAX_PORT:
            parser.error(f"Not enough ports above {name} {port} for {options.cameras} cameras.")
    if options.video_port is not None and not options.video:
        parser.error("--video-port needs --video.")
    return options
