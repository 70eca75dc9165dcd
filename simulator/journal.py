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
from typing import Any

from simulator.relay import Exchange
from simulator.texts import harmless, indented, lines_of

# The texts of a ResponseStatus document's codes from 1 on.
STATUS_WORDS = ["OK", "Device Busy", "Device Error", "Invalid Operation", "Invalid XML Format"]
STATUS_WORDS += ["Invalid XML Content", "Reboot Required"]
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


Entry = dict[str, Any]  # as /camera/log shows it


def entry_of(about: Exchange | str) -> Entry:
    """Of a request, or of any other event in words."""
    entry: Entry = {"id": 0, "time": ""}
    if isinstance(about, str):
        entry["text"] = about
    else:
        user = credentials(about.authorization).split(":")[0] if about.authorization else "-"
        entry |= {"user": user, "method": about.method, "url": about.url}
    return entry | {"changes": [], "messages": [], "printed": []}


def note_answer(entry: Entry, exchange: Exchange) -> None:
    code = exchange.status_code
    entry["http"], entry["status"] = exchange.http_status, code
    entry["words"] = STATUS_WORDS[code - 1] if 0 < code <= len(STATUS_WORDS) else "?"
    entry["milliseconds"] = exchange.milliseconds


def title(entry: Entry) -> str:
    if "text" in entry:
        return str(entry["text"])
    status = ", status {status} {words}" if entry["status"] else ""
    return ("{user}  {method} {url}  {http}" + status + ", {milliseconds} ms").format(**entry)


class Journal:
    def __init__(self, prefix: str) -> None:
        self.prefix = prefix  # of each line on the terminal
        self.entries: collections.deque[Entry] = collections.deque(maxlen=MAX_ENTRIES)
        self.last = 0  # id of the newest entry; ids count from 1
        self.open: Entry | None = None  # of the request that is at the service
        self.printed_text = ""  # by the service during that request

    def begin_request(self, exchange: Exchange) -> None:
        """Until end_request, messages and printed texts belong to this request."""
        self.open = entry_of(exchange)

    def end_request(self, exchange: Exchange, changes: list[str]) -> None:
        if self.open:
            entry, self.open = self.open, None
            note_answer(entry, exchange)
            self.finish(entry | {"changes": changes, "printed": printed_lines(self.printed_text)})
            self.printed_text = ""

    def refuse_request(self, exchange: Exchange, reason: str) -> None:
        """A request that does not reach the service."""
        entry = entry_of(exchange)
        note_answer(entry, exchange)
        self.finish(entry | {"messages": [reason]})

    def message(self, words: str) -> None:
        """A message to the daemons or the daemons' answer."""
        if self.open:
            self.open["messages"].append(words)
        else:
            self.event(words)

    def event(self, words: str, details: list[str] | None = None) -> None:
        self.finish(entry_of(words) | {"changes": details or []})

    def printed(self, text: str) -> None:
        """What the service wrote on its standard output: a document with its header lines, or a diagnostic
        line."""
        if not self.open:
            self.finish(entry_of("the service printed") | {"printed": printed_lines(text)})
        elif len(self.printed_text) < MAX_PRINTED:
            self.printed_text += text

    def finish(self, entry: Entry) -> None:
        self.last += 1
        entry["id"], entry["time"] = self.last, time.strftime("%H:%M:%S")
        self.entries.append(entry)
        margin = " " * 12
        lines = [f"{entry['time']}  {title(entry)}"]
        lines += [margin + line for line in entry["changes"] + entry["messages"]]
        if entry["printed"] and "url" in entry:
            lines.append(margin + "printed on the service's standard output, not sent to the client:")
        lines += [f"{margin}  {line}" for line in entry["printed"]]
        try:
            print("".join(f"{self.prefix}{harmless(line)}\n" for line in lines), end="", flush=True)
        except BrokenPipeError:  # nobody reads the terminal's lines any more
            sys.stdout = open(os.devnull, "w", encoding="utf-8")
            signal.raise_signal(signal.SIGTERM)

    def since(self, last: int, part: str = "") -> list[Entry]:
        """The entries with larger ids in which the text occurs, oldest first."""

        def texts(entry: Entry) -> list[str]:
            return [title(entry), *entry["changes"], *entry["messages"], *entry["printed"]]

        newer = [entry for entry in self.entries if entry["id"] > last]
        return [entry for entry in newer if any(part in text for text in texts(entry))]
