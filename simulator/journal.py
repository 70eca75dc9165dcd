"""What happens in the camera: each request with the rows it changed, the messages it caused and what the
service printed, and every other event. The terminal shows it, and /camera/log gives it."""
import base64
import collections
import os
import re
import signal
import sys
import time
from typing import Any

from simulator import fastcgi
from simulator.texts import decoded, harmless, indented, lines_of

MAX_NOTED = 1 << 17  # bytes of a stream that are looked at; a web server sends far less in variables
MAX_ENTRIES = 1000
MAX_PRINTED = 1 << 18  # characters of one request
MARGIN = " " * 12


class Exchange:
    """A request, and once it has ended its answer."""

    def __init__(self) -> None:
        self.arrived = time.monotonic()
        self.number = 0  # of the request in its records
        self.streams: dict[int, bytes] = collections.defaultdict(bytes)  # by kind; at most MAX_NOTED bytes
        self.ended: set[int] = set()  # kinds of the streams that have arrived whole
        self.variables: dict[str, str] = {}
        self.method = self.url = ""
        # The answer as the client receives it: the web server turns an empty one into 500. Status and words
        # are those of a ResponseStatus document.
        self.answer: dict[str, Any] = {"http": 500, "status": 0, "words": "?", "milliseconds": 0}
        self.messages: list[str] = []  # that it caused, in words
        self.printed = ""  # by the service

    def note(self, kind: int, content: bytes) -> None:
        """A part of a stream; an empty one ends it."""
        self.streams[kind] += content[: MAX_NOTED - len(self.streams[kind])]
        if not content:
            self.ended.add(kind)

    def note_end(self) -> None:
        if output := self.streams[fastcgi.OUTPUT]:
            status = re.match(rb"Status: *([0-9]+)", output)
            self.answer["http"] = int(status[1]) if status else 200
        pattern = rb"<ResponseStatus .*?<statusCode>([0-9]+)<.*?<statusString>([^<]*)"
        if found := re.search(pattern, output, re.DOTALL):
            self.answer |= {"status": int(found[1]), "words": decoded(found[2])}
        self.answer["milliseconds"] = int((time.monotonic() - self.arrived) * 1000)


def credentials(exchange: Exchange) -> str:
    """ "USER:PASSWORD"; empty when there are none that can be read."""
    scheme, _, value = exchange.variables["HTTP_AUTHORIZATION"].partition(" ")
    try:
        # The service does not insist on the padding either.
        return base64.b64decode(value + "==").decode(errors="replace") if scheme.lower() == "basic" else ""
    except ValueError:
        return ""


def printed_lines(text: str) -> list[str]:
    """The header lines joined into one, then the document's. Passwords are not shown."""
    text = re.sub("(<password>)[^<]+(?=<)", r"\1***", text)
    header, end, document = text.partition("\r\n\r\n")
    return [", ".join(lines_of(header)), *indented(document)] if end else indented(text)


Entry = dict[str, Any]  # as /camera/log shows it


def entry_of(exchange: Exchange) -> Entry:
    user = credentials(exchange).split(":")[0] if exchange.variables["HTTP_AUTHORIZATION"] else "-"
    caused = {"messages": exchange.messages, "printed": printed_lines(exchange.printed)}
    return {"user": user, "method": exchange.method, "url": exchange.url} | exchange.answer | caused


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
        self.request: Exchange | None = None  # at the service; messages and printed texts belong to it

    def end_request(self, exchange: Exchange, changes: list[str]) -> None:
        self.request = None
        self.add(entry_of(exchange) | {"changes": changes})

    def message(self, words: str) -> None:
        """A message to the daemons or the daemons' answer."""
        if self.request:
            self.request.messages.append(words)
        else:
            self.event(words)

    def event(self, words: str, details: list[str] | None = None) -> None:
        self.add({"text": words, "changes": details or []})

    def printed(self, text: str) -> None:
        """On the service's standard output: a document with its header lines, or a diagnostic line."""
        if not self.request:
            self.add({"text": "the service printed", "printed": printed_lines(text)})
        elif len(self.request.printed) < MAX_PRINTED:
            self.request.printed += text

    def add(self, what: Entry) -> None:
        self.last += 1
        entry: Entry = {"id": self.last, "time": time.strftime("%H:%M:%S")}
        entry |= {"changes": [], "messages": [], "printed": []} | what
        self.entries.append(entry)
        lines = [f"{entry['time']}  {title(entry)}"]
        lines += [MARGIN + line for line in entry["changes"] + entry["messages"]]
        if entry["printed"] and "url" in entry:
            lines.append(MARGIN + "printed on the service's standard output, not sent to the client:")
        lines += [f"{MARGIN}  {line}" for line in entry["printed"]]
        try:
            print("".join(f"{self.prefix}{harmless(line)}\n" for line in lines), end="", flush=True)
        except BrokenPipeError:  # nobody reads the terminal's lines any more
            sys.stdout = open(os.devnull, "w", encoding="utf-8")
            signal.raise_signal(signal.SIGTERM)

    def since(self, last: int, part: str) -> list[Entry]:
        """The entries with larger ids in which the text occurs, oldest first."""
        found = []
        for entry in [entry for entry in self.entries if entry["id"] > last]:
            texts = [title(entry), *entry["changes"], *entry["messages"], *entry["printed"]]
            if any(part in text for text in texts):
                found.append(entry)
        return found
