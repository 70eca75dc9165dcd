"""The options of the camera for people; help.txt tells what they are for."""
import argparse
import pathlib
from typing import NoReturn

from simulator import daemons, device, front

PROJECT = pathlib.Path(__file__).parents[1]
MAX_PORT = 65535
MAX_BOOT = 3600  # seconds


class Parser(argparse.ArgumentParser):
    def error(self, message: str) -> NoReturn:
        self.exit(2, f"{message[:1].upper()}{message[1:]}\n--help lists the options.\n")


class Number:
    """A whole number within bounds."""

    def __init__(self, least: int, most: int) -> None:
        self.least, self.most = least, most

    def __call__(self, text: str) -> int:
        if not (text.isdecimal() and text.isascii()) or not self.least <= int(text) <= self.most:
            raise argparse.ArgumentTypeError(
                f"it cannot be '{text}'; it needs a number from {self.least} to {self.most}."
            )
        return int(text)


def given(text: str) -> str:
    if not text:
        raise argparse.ArgumentTypeError("it cannot be empty.")
    return text


def address(text: str) -> str:
    if not front.is_ip_address(text):
        raise argparse.ArgumentTypeError(
            f"it cannot be '{text}'; it needs an IPv4 or IPv6 address, for example 0.0.0.0."
        )
    return text


def rule(text: str) -> daemons.Rule:
    try:
        return daemons.parse_rule(text)
    except ValueError as error:
        raise argparse.ArgumentTypeError(f"it cannot be '{text}'; it needs {daemons.RULE_FORM}.") from error


def path(text: str) -> pathlib.Path:
    return pathlib.Path(given(text))


class Options(argparse.Namespace):
    port: int | None
    listen: str
    allow_host: list[str]
    ready_file: pathlib.Path | None
    boot: int
    keep: pathlib.Path | None
    set: list[str]
    cameras: int
    answer: list[daemons.Rule]
    shell: bool
    page: pathlib.Path
    run_directory: pathlib.Path
    socket: pathlib.Path | None
    service: pathlib.Path
    number: int  # of the first camera


def read(arguments: list[str]) -> Options:
    """Ends the program where there is a mistake."""
    parser = Parser(prog="scripts/run", add_help=False, allow_abbrev=False)
    parser.add_argument("--port", type=Number(0, MAX_PORT))
    parser.add_argument("--listen", type=address, default="127.0.0.1")
    parser.add_argument("--allow-host", type=given, action="append", default=[])
    parser.add_argument("--ready-file", type=path)
    parser.add_argument("--boot", type=Number(0, MAX_BOOT), default=5)
    parser.add_argument("--keep", type=path)
    parser.add_argument("--set", type=given, action="append", default=[])
    parser.add_argument("--cameras", type=Number(1, device.MAX_NUMBER), default=1)
    parser.add_argument("--answer", type=rule, action="append", default=[])
    parser.add_argument("--shell", action="store_true")
    parser.add_argument("--page", type=path, default=pathlib.Path(__file__).parent / "page")
    parser.add_argument("--run-directory", type=path, default=PROJECT / "build/run")
    parser.add_argument("--socket", type=path)
    parser.add_argument("service", type=path, nargs="?", default=PROJECT / "build/psia.fcgi")
    options = parser.parse_args(arguments, Options(number=1))
    if options.cameras > 1 and options.shell:
        parser.error("--shell opens one camera; leave --cameras out.")
    if options.cameras > 1 and options.socket:
        parser.error("--cameras cannot be used with --socket.")
    if options.port and options.port + options.cameras - 1 > MAX_PORT:
        parser.error(f"Not enough ports above --port {options.port} for {options.cameras} cameras.")
    return options
