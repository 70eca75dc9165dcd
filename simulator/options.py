"""The options of the camera for people; help.txt tells what they are for."""
import argparse
import pathlib
from collections.abc import Callable
from typing import NoReturn

from simulator import daemons, device, front

PROJECT = pathlib.Path(__file__).parents[1]
MAX_PORT = 65535
MAX_BOOT = 3600  # seconds


class Parser(argparse.ArgumentParser):
    def error(self, message: str) -> NoReturn:
        self.exit(2, f"{message[:1].upper()}{message[1:]}\n--help lists the options.\n")


def refusal(text: str, needs: str) -> argparse.ArgumentTypeError:
    return argparse.ArgumentTypeError(f"it cannot be '{text}'; it needs {needs}.")


def number(least: int, most: int) -> Callable[[str], int]:
    def read_number(text: str) -> int:
        if not (text.isdecimal() and text.isascii() and least <= int(text) <= most):
            raise refusal(text, f"a number from {least} to {most}")
        return int(text)

    return read_number


def given(text: str) -> str:
    if not text:
        raise refusal(text, "a value")
    return text


def path(text: str) -> pathlib.Path:
    return pathlib.Path(given(text))


def address(text: str) -> str:
    if not front.is_ip_address(text):
        raise refusal(text, "an IPv4 or IPv6 address, for example 0.0.0.0")
    return text


def rule(text: str) -> daemons.Rule:
    try:
        return daemons.parse_rule(text)
    except ValueError as error:
        raise refusal(text, daemons.RULE_FORM) from error


def read(arguments: list[str]) -> argparse.Namespace:
    """Ends the program where there is a mistake."""
    parser = Parser(prog="scripts/run", add_help=False, allow_abbrev=False)
    parser.add_argument("--port", type=number(0, MAX_PORT))
    parser.add_argument("--listen", type=address, default="127.0.0.1")
    parser.add_argument("--allow-host", type=given, action="append", default=[])
    parser.add_argument("--ready-file", type=path)
    parser.add_argument("--boot", type=number(0, MAX_BOOT), default=5)
    parser.add_argument("--keep", type=path)
    parser.add_argument("--set", type=given, action="append", default=[])
    parser.add_argument("--cameras", type=number(1, device.MAX_NUMBER), default=1)
    parser.add_argument("--answer", type=rule, action="append", default=[])
    parser.add_argument("--shell", action="store_true")
    parser.add_argument("--video", action="store_true")
    parser.add_argument("--video-port", type=number(0, MAX_PORT))
    parser.add_argument("--page", type=path, default=pathlib.Path(__file__).parent / "page")
    parser.add_argument("--run-directory", type=path, default=PROJECT / "build/run")
    parser.add_argument("--socket", type=path)
    parser.add_argument("service", type=path, nargs="?", default=PROJECT / "build/psia.fcgi")
    options = parser.parse_args(arguments, argparse.Namespace(number=1))  # of the first camera
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
