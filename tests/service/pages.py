"""The requests that the pages of the reference show, each with what the page says about its result.

Four forms are executed:

- A fenced block that begins with "GET /PSIA/..." (or another method), header lines and an empty line before a
  body. Directly below it the page shows the answer and, under "What follows:", everything else that happens.
- A row of a table with the columns Request, Body, Status, What follows. Without a method or a URL of its own,
  the row uses those of the block above it.
- A row of a table with the columns Resource, "Sent back as read, it changes": the document that GET shows is
  sent back with PUT.
- A row of a table with the columns Stored, Request, Shown: with these values in the database, or without rows
  or a table, the document of GET has these elements, and no others of the same names. Or the answer is this
  status.

`shown` writes a result in the words of the page. It loses nothing, so a page that equals it is right to the
byte: a line break of the page stands for nothing, ␍ ␊ ␠ stand for characters that were sent, and headers are
left out only when they are exactly the usual ones.
"""
import dataclasses
import itertools
import pathlib
import re

from answers import STATUSES, status

ROOT = pathlib.Path(__file__).parents[2]
DOCS = ROOT / "docs"
PAGES = [DOCS / "reference.md", *sorted((DOCS / "reference").glob("*.md")), DOCS / "clients.md"]
REQUEST = re.compile(r"(GET|PUT|POST|DELETE) (/PSIA\S*)$")
RESULT = re.compile(r"(No answer|(<details><summary>)?(Answer|Printed)|What follows:|- `|</details>|$)")
LONG = 15  # lines of an answer; longer ones are folded
ROW_HEADER = ["Request", "Body", "Status", "What follows"]
ECHO_HEADER = ["Resource", "Sent back as read, it changes"]
STORED_HEADER = ["Stored", "Request", "Shown"]


@dataclasses.dataclass
class Example:
    """A request of a page. Its lines `first` to before `last`, counted from 0, tell the result."""
    page: pathlib.Path
    kind: str  # block, row, echo, stored
    method: str
    uri: str
    headers: dict
    body: str
    first: int
    last: int

    def place(self, line=0):
        return f"{self.page.relative_to(ROOT)}:{self.first + 1 + line}"

    __str__ = place

    def says(self):
        return self.page.read_text().split("\n")[self.first:self.last]

    def statements(self):
        """They store what the row says."""
        stored = cells(self.says()[0])[0] if self.kind == "stored" else ""
        statements = {"no row of": "delete from", "no table": "drop table"}
        return "".join([f"{statements[what]} {table};"
                        for what, table in re.findall(r"(no row of|no table) `(\w+)`", stored)] +
                       [f"update {table} set {column}='{'' if value == '(empty)' else value}';"
                        for table, column, value in re.findall(r"`(\w+)\.(\w+) = (.*?)`", stored)])

    def shows(self, effects):
        """The lines of the page as they should be."""
        if effects[-1:] and effects[-1][:6] == "status" and any("<Response" in line for line in self.says()):
            effects[-1] = status(int(effects[-1][-1]), self.uri)
        if self.kind == "block":
            return shown(effects)
        row = cells(self.says()[0])
        if self.kind == "row":
            row[2:4] = summary(effects), changes(effects)
        elif self.kind == "stored":
            names = "|".join(set(re.findall(r"`<(\w+)", row[2])))
            found = re.finditer(rf"<({names})\b[^>]*>.*?</\1>", effects[-1])
            row[2] = ", ".join(f"`{element[0]}`" for element in found) or effects[-1]
        else:
            row[1] = changes(effects)
        return ["|" + "|".join(f" {cell} " if cell else " " for cell in row) + "|"]


def cells(line):
    return [cell.strip() for cell in line.strip().strip("|").split("|")]


def rows_of(page, first_cell):
    """(place, cells) of the rows of all tables of a page whose first cell matches."""
    for number, line in enumerate(page.read_text().split("\n"), 1):
        if line.startswith("|") and re.fullmatch(first_cell, cells(line)[0]):
            yield f"{page.relative_to(ROOT)}:{number}", cells(line)


def read(page):
    """All examples of a page."""
    lines, examples = page.read_text().split("\n"), []
    block, table, i = None, None, 0
    while i < len(lines):
        line = lines[i]
        request = REQUEST.match(lines[i + 1]) if line == "```" else None
        if request:
            end = lines.index("```", i + 1)
            head = list(itertools.takewhile(bool, lines[i + 2:end]))
            headers = dict(header.split(": ", 1) for header in head)
            body = "\n".join(lines[i + 3 + len(head):end])
            i = end_of_result(lines, end + 1)
            block = Example(page, "block", *request.groups(), headers, body, end + 1, i)
            examples.append(block)
            continue
        if line.startswith("```"):
            i = lines.index("```", i + 1)
        elif not line.startswith("|"):
            table = None
        elif table is None:
            table = cells(line)
        elif table[:4] == ROW_HEADER and not line.startswith("|-"):
            given, body = (cell.strip("`") for cell in cells(line)[:2])
            method, _, uri = given.rpartition(" ")
            above = [method or block.method, uri or block.uri] if block else [method, uri]
            examples.append(Example(page, "row", *above, {}, body, i, i + 1))
        elif table[:2] == ECHO_HEADER and not line.startswith("|-"):
            uri = "/PSIA/" + cells(line)[0].strip("`")
            examples.append(Example(page, "echo", "PUT", uri, {}, "", i, i + 1))
        elif table[:3] == STORED_HEADER and not line.startswith("|-"):
            uri = cells(line)[1].strip("`")
            examples.append(Example(page, "stored", "GET", uri, {}, "", i, i + 1))
        i += 1
    return examples


def end_of_result(lines, i):
    """The line behind what `shown` writes below a request."""
    last = i
    while i < len(lines):
        if lines[i] == "```" and not REQUEST.match(lines[i + 1]):
            i = lines.index("```", i + 1)
        elif not RESULT.match(lines[i]):
            break
        i += 1
        if lines[i - 1]:
            last = i
    return last


def split(effects):
    """What happened besides, what was printed, the answer."""
    answered = bool(effects) and re.match(r"status \d$|Status: |Content-", effects[-1])
    answer = effects[-1] if answered else ""
    rest = effects[:-1] if answered else effects
    printed = "".join(line.removeprefix("printed ") for line in rest if line.startswith("printed "))
    return [line for line in rest if not line.startswith("printed ")], printed, answer


def shown(effects):
    rest, printed, answer = split(effects)
    if re.match(r"status \d$", answer):
        lines = ["", f"Answer: status {answer[-1]}, {STATUSES[int(answer[-1])]}."]
    elif not answer and not printed:
        lines = ["", "No answer."]
    else:
        title = "Answer" if answer else "Printed, not answered"
        usual = 'application/xml; charset="UTF-8"' if answer else "application/xml"
        text = answer or printed
        body = text.partition("\r\n\r\n")[2]
        if text.startswith(f"Content-Length: {len(body.encode())}\r\nContent-Type: {usual}\r\n\r\n"):
            text = body
        block = ["```", *fold(settle(text)), "```"]
        lines = ["", f"{title}:", "", *block]
        if len(block) > LONG + 2:
            lines = ["", f"<details><summary>{title}: {root(text)}</summary>", "", *block, "", "</details>"]
    if rest and len(lines) == 2:  # an answer in one line
        lines[1] += " What follows:"
    elif rest:
        lines += ["", "What follows:"]
    if rest:
        lines += ["", *(f"- `{settle(line)}`" for line in rest)]
    return lines


def summary(effects):
    """An answer in short: its status, the root element of its document, none."""
    _, printed, answer = split(effects)
    codes = re.findall(r"^status (\d)$|<statusCode>(\d)", answer)
    if codes:
        return ", then ".join(code or in_document for code, in_document in codes)
    return root(answer) if answer else "printed " + root(printed) if printed else "none"


def changes(effects):
    return ", ".join(f"`{settle(line)}`" for line in split(effects)[0]) or "nothing"


def root(text):
    found = re.search(r"<(\w+)", re.sub(r"<\?.*?\?>", "", text))
    return found[1] if found else "text"


def settle(text):
    """The same text at any time of day; empty values are named."""
    text = re.sub(r" = (?=,|$)", " = (empty)", text)
    text = re.sub(r"(<(?:currentDeviceTime|localTime)>|\r\n\r\n|^)\d{4}(-\d\d){2}T\d\d(:\d\d){2}(?=<|$)",
                  r"\g<1>2024-07-01T12:00:00", text)
    text = re.sub(r"(mode = 2, .*), year = .*", r"\1, the time of the camera", text)
    return re.sub(r"(<deviceUpTime>)[1-9]\d*", r"\g<1>86400", text)


PIECE = re.compile(r"[ ␠]*<(\w+)[^>]*>[^<]*</\1>[␍␊]*|[ ␠]*<[^>]*>[^<␠]*|[^<]+")


def fold(text):
    """The lines that show a text: an element a line. All but those behind a sent line break are indented."""
    marked = re.sub("> +<", lambda gap: gap[0].replace(" ", "␠"), text.replace("\r", "␍"))
    lines, depth, as_sent = [], 0, False
    for sent in marked.replace("\n", "␊\n").removesuffix("\n").split("\n"):
        for piece in [found[0] for found in PIECE.finditer(sent)] or [sent]:
            depth -= piece.lstrip(" ␠").startswith("</")
            lines.append(piece if as_sent else "  " * depth + piece)
            depth += bool(re.match(r"[ ␠]*<\w", piece)) and not re.search(r"/>|</", piece)
            as_sent = piece.endswith("␊")
    return lines
