"""What happens in the camera: each request with the rows it changed, the messages it caused and what the
service printed, and every other event. It is shown on the terminal and kept for the page and for test
programs."""
import base64
import binascii
import collections
import os
import re
import signal
import sys
import time
from dataclasses import dataclass, field
from typing import Any

from simulator.relay import Exchange
from simulator.texts import harmless, indented, lines_of

# The texts of a ResponseStatus document's codes.
STATUS_WORDS = [
    "",
    "OK",
    "Device Busy",
    "Device Error",
    "Invalid Operation",
    "Invalid XML Format",
    "Invalid XML Content",
    "Reboot Required",
]
MAX_ENTRIES = 1000
MAX_PRINTED = 1 << 18  # characters of one request


def credentials(authorization: str) -> str:
    """ "USER:PASSWORD" of an Authorization header's value; empty when it is no Basic one."""
    scheme, _, value = authorization.partition(" ")
    if scheme.lower() != "basic":
        return ""
    text = re.match("[A-Za-z0-9+/]*", value)
    digits = text[0] if text else ""
    try:
        return base64.b64decode(digits[: len(digits) - (len(digits) % 4 == 1)] + "==").decode(
            errors="replace"
        )
    except binascii.Error:
        return ""


def printed_lines(text: str) -> list[str]:
    """The header lines joined into one, then the document's. Passwords are not shown."""
    text = re.sub("(<password>)[^<]+(?=<)", r"\1***", text)
    header, end, document = text.partition("\r\n\r\n")
    return [", ".join(lines_of(header)), *indented(document)] if end else indented(text)


@dataclass
class Entry:
    text: str = ""  # of an event; a request has an exchange instead
    exchange: Exchange | None = None
    changes: list[str] = field(default_factory=list)
    messages: list[str] = field(default_factory=list)
    printed: list[str] = field(default_factory=list)
    id: int = 0
    time: str = ""  # of the machine, not of the camera

    @property
    def title(self) -> str:
        if self.exchange is None:
            return self.text
        request = self.exchange
        title = f"{self.user}  {request.method} {request.url}  {request.http_status}"
        if request.status_code:
            title += f", status {request.status_code} {self.words}"
        return f"{title}, {request.milliseconds} ms"

    @property
    def user(self) -> str:
        authorization = self.exchange.authorization if self.exchange else ""
        return credentials(authorization).split(":")[0] if authorization else "-"

    @property
    def words(self) -> str:
        code = self.exchange.status_code if self.exchange else 0
        return STATUS_WORDS[code] if 0 <= code < len(STATUS_WORDS) else "?"

    def holds(self, part: str) -> bool:
        return any(part in text for text in (self.title, *self.changes, *self.messages, *self.printed))

    def as_object(self) -> dict[str, Any]:
        about: dict[str, Any] = {"text": self.text}
        if request := self.exchange:
            about = {
                "user": self.user,
                "method": request.method,
                "url": request.url,
                "http": request.http_status,
            }
            about |= {
                "status": request.status_code,
                "words": self.words,
                "milliseconds": request.milliseconds,
            }
        lists = {"changes": self.changes, "messages": self.messages, "printed": self.printed}
        return {"id": self.id, "time": self.time} | about | lists


class Journal:
    def __init__(self, prefix: str) -> None:
        self.prefix = prefix  # of each line on the terminal
        self.entries: collections.deque[Entry] = collections.deque(maxlen=MAX_ENTRIES)
        self.last = 0  # id of the newest entry; ids count from 1
        self.open: Entry | None = None  # of the request that is at the service
        self.printed_text = ""  # by the service during that request

    def begin_request(self, exchange: Exchange) -> None:
        """Until end_request, messages and printed texts belong to this request."""
        self.open = Entry(exchange=exchange)

    def end_request(self, changes: list[str]) -> None:
        if self.open:
            entry, self.open = self.open, None
            entry.changes = changes
            entry.printed = printed_lines(self.printed_text)
            self.printed_text = ""
            self.finish(entry)

    def refuse_request(self, exchange: Exchange, reason: str) -> None:
        """A request that does not reach the service."""
        self.finish(Entry(exchange=exchange, messages=[reason]))

    def message(self, words: str) -> None:
        """A message to the daemons or the daemons' answer."""
        if self.open:
            self.open.messages.append(words)
        else:
            self.event(words)

    def event(self, words: str, details: list[str] | None = None) -> None:
        self.finish(Entry(text=words, changes=details or []))

    def printed(self, text: str) -> None:
        """What the service wrote on its standard output: a document with its header lines, or a diagnostic
        line."""
        if not self.open:
            self.finish(Entry(text="the service printed", printed=printed_lines(text)))
        elif len(self.printed_text) < MAX_PRINTED:
            self.printed_text += text

    def finish(self, entry: Entry) -> None:
        self.last += 1
        entry.id, entry.time = self.last, time.strftime("%H:%M:%S")
        self.entries.append(entry)
        lines = [f"{entry.time}  {entry.title}"]
        margin = " " * 12
        lines += [margin + line for line in (*entry.changes, *entry.messages)]
        if entry.printed and entry.exchange:
            lines.append(margin + "printed on the service's standard output, not sent to the client:")
        lines += [f"{margin}  {line}" for line in entry.printed]
        try:
            print("".join(f"{self.prefix}{harmless(line)}\n" for line in lines), end="", flush=True)
        except BrokenPipeError:  # nobody reads the terminal's lines any more
            sys.stdout = open(os.devnull, "w", encoding="utf-8")
            signal.raise_signal(signal.SIGTERM)

    def since(self, last: int, part: str = "") -> list[dict[str, Any]]:
        """The entries with larger ids in which the text occurs, oldest first."""
        return [entry.as_object() for entry in self.entries if entry.id > last and entry.holds(part)]
