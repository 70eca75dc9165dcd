"""The camera's daemons: what they do about each control message, and the rules by which they misbehave."""
import os
import re
import shutil
import time
from collections.abc import Callable, Sequence
from typing import NamedTuple

from simulator import Fault, clock, device, messages, settings
from simulator.messages import REPLIES, REQUESTS, Message, reply

EXPORT_NAME = "settings.db"  # within the exchange directory
LATE = 6  # seconds, a little more than the service waits for most commands
MAX_LATE = 24 * 60 * 60
RULE_FORM = (
    "COMMAND=ok|busy|failed|never|late[:SECONDS], for example 3=busy, with a COMMAND of "
    + ", ".join(map(str, list(messages.COMMANDS)[:-1]))
    + f" or {list(messages.COMMANDS)[-1]}"
)


class Rule(NamedTuple):
    """How the daemons answer one command."""

    command: int
    kind: str  # ok, busy, failed, late or never
    delay: int = 0  # seconds until a late answer

    def __str__(self) -> str:
        return f"{self.command}={self.kind}" + (f":{self.delay}" if self.kind == "late" else "")


def parse_rule(text: str) -> Rule:
    """Reads a text of RULE_FORM; raises ValueError when it is none."""
    found = re.fullmatch("([0-9]{1,9})=(?:(ok|busy|failed|never)|late(?::([0-9]{1,9}))?)", text)
    if not found or int(found[1]) not in messages.COMMANDS or int(found[3] or 0) > MAX_LATE:
        raise ValueError(text)
    return Rule(int(found[1]), found[2]) if found[2] else Rule(int(found[1]), "late", int(found[3] or LATE))


class Deed(NamedTuple):
    """What came of a message: a remark about it, and the reply's payload."""

    remark: str = ""
    payload: bytes = b""


Act = Callable[[Message], Deed]  # does what a message asks for; raises Fault when it cannot


def export(_: Message) -> Deed:
    try:
        shutil.copyfile(settings.DATABASE, device.EXCHANGE / EXPORT_NAME)
    except OSError as error:
        raise Fault(f"Cannot export the settings: {error.strerror}") from error
    return Deed(payload=EXPORT_NAME.encode())


def factory_reset(_: Message) -> Deed:
    settings.take_rows()
    device.write_resolver(*device.NAME_SERVERS)
    return Deed()


def change_addressing(_: Message) -> Deed:
    device.apply_addressing()
    leased = settings.query("select 1 from Network where ConnectionType = 1")
    return Deed("no DHCP server is asked; the lease is always the same" if leased else "")


def change_name_servers(message: Message) -> Deed:
    primary, hyphen, secondary = message.text(messages.PAYLOAD, 256).partition("-")
    if not hyphen:
        raise Fault("No hyphen between the name servers")
    device.write_resolver(primary, secondary)
    return Deed()


def set_time(message: Message, zone: str) -> Deed:
    """A time that is set by hand is a local time in the zone, a TZ text; empty for the camera's own."""
    mode = message.number(messages.PAYLOAD)
    settings.execute(f"update Network set DateTimeSync={mode}")
    if mode == messages.BY_NTP:
        clock.set_ahead(0)
    else:
        year, month, day, hour, minute, second = (message.number(field.offset) for field in messages.TIME)
        clock.set_to((year, month, day, hour, minute, second), zone)
    if not clock.faketime_library():
        return Deed("libfaketime is missing; the clock stays the machine's")
    return Deed("no NTP server is asked; the clock is the machine's" if mode == messages.BY_NTP else "")


NOT_SIMULATED = {
    messages.PICTURE: "there is no sensor; the page draws the picture",
    messages.ENCODER: "there is no encoder; no stream changes",
    messages.AUDIO: "there is no microphone; no sound changes",
    messages.TIME_ZONE: "takes effect with the next boot",
    messages.RTSP_PORT: "there is no RTSP server",
}
ACTS: dict[int, Act] = {
    messages.FACTORY_RESET: factory_reset,
    messages.EXPORT: export,
    messages.ADDRESSING: change_addressing,
    messages.NAME_SERVERS: change_name_servers,
}


def act_on(message: Message, zone: str = "") -> Deed:
    """Does what a message asks for, as far as that is seen from outside. The reboot that follows a message is
    left to the caller."""
    if message.command == messages.CLOCK:
        return set_time(message, zone)
    if message.command in ACTS:
        return ACTS[message.command](message)
    return Deed(NOT_SIMULATED.get(message.command, ""))


def has_ended(process: int) -> bool:
    try:
        os.kill(process, 0)
    except (ProcessLookupError, OverflowError):
        return True
    except PermissionError:
        pass  # of another user
    return False


class Daemons:
    """Answers the messages of the service. `hear` is given each when it comes, `tell` what it was in words
    and how it was answered."""

    def __init__(
        self,
        act: Act,
        rules: Sequence[Rule] = (),
        hear: Callable[[Message], None] = lambda message: None,
        tell: Callable[[str, str], None] = lambda words, how: None,
    ) -> None:
        self.act = act
        self.hear = hear
        self.tell = tell
        self.rules = list(rules)
        self.refuses = False  # everything: the service stops, and must not wait
        self.late: list[tuple[float, Message]] = []  # with the times when they are due
        self.never: list[Message] = []
        self.unsent: list[tuple[Message, bytes]] = []  # while the reply queue is full

    def step(self) -> None:
        """Answers what can be answered without waiting."""
        while self.unsent:
            message, record = self.unsent[0]
            gone = has_ended(message.type)
            if not gone and not REPLIES.send(record):
                break
            what = "who asked has ended, the answer is dropped" if gone else "the waiting answer is sent"
            self.tell(f"command {message.command}: {what}", "")
            self.unsent.pop(0)
        while received := REQUESTS.receive():
            self.hear(received)
            self.serve(received)
        for entry in self.late[:]:
            due, message = entry
            if due <= time.monotonic():
                self.late.remove(entry)
                self.tell(f"command {message.command}, the late answer: {self.act_and_answer(message)}", "")

    def serve(self, message: Message) -> None:
        rule = Rule(message.command, "ok")
        for given in self.rules:
            rule = given if given.command == message.command else rule
        kind = "failed" if self.refuses else rule.kind
        results = {"busy": messages.BUSY, "failed": messages.FAILED}
        if kind in results:
            how = self.answer(message, results[kind], kind)
        elif kind == "late":
            how = f"follows in {rule.delay} s"
            self.late.append((time.monotonic() + rule.delay, message))
        elif kind == "never":
            how = "never"
            self.never.append(message)
        else:
            how = self.act_and_answer(message)
        self.tell(message.describe(), how)

    def act_and_answer(self, message: Message) -> str:
        try:
            remark, payload = self.act(message)
        except Fault as fault:
            return self.answer(message, messages.FAILED, "failed") + f" ({fault})"
        return self.answer(message, messages.DONE, "done", payload) + (f" ({remark})" if remark else "")

    def answer(self, message: Message, result: int, how: str, payload: bytes = b"") -> str:
        record = reply(message, result, payload)
        if not self.unsent and REPLIES.send(record):
            return how
        self.unsent.append((message, record))
        return how + "; the reply queue is full, the answer waits"

    def answer_all_waiting(self) -> None:
        """Refuses what a rule has left without an answer, so that the service can stop at once."""
        for message in [*self.never, *(message for _, message in self.late)]:
            if not has_ended(message.type):
                how = self.answer(message, messages.FAILED, "failed")
                self.tell(f"command {message.command}, before the service stops", how)
        self.late, self.never = [], []

    def forget(self) -> None:
        """Nobody waits for an answer any more."""
        self.late, self.never, self.unsent = [], [], []
