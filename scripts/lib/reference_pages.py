"""The pages of the reference: docs/reference.md and docs/reference/*.md."""

import json
import re
import textwrap
import xml.etree.ElementTree as ElementTree

from openapi import root_of

WHO = {0: "Level 0.", 1: "Levels 0 and 1.", 3: "Levels 0 to 3."}
STATUSES = {1: "OK", 2: "Device Busy", 3: "Device Error", 4: "Invalid Operation", 5: "Invalid XML Format"}
MADE = "<!-- Made by scripts/make-reference; the words are in docs/reference.toml. -->\n"
WIDTH = 100
LONG = 15  # longer answers, in lines, are folded
EXAMPLE_LISTS = ("/PSIA/System/Network/index", "/PSIA/System/Network/description")
USUAL_TYPE = 'application/xml; charset="UTF-8"'


def settle(text):
    """The same text at any time of day, the length of a changed body corrected."""
    end = re.search(r"\r?\n\r?\n", text)
    if end is None:
        return text
    head, body = text[: end.end()], text[end.end() :]
    body = re.sub(r"\d{4}-\d\d-\d\dT\d\d:\d\d:\d\d", "2024-07-01T12:00:00", body)
    body = re.sub(r"(<deviceUpTime>)\d+", r"\g<1>86400", body)
    if body:
        longer = len(body) - (len(text) - end.end())
        head = re.sub(r"(?<=Content-Length: )\d+", lambda length: str(int(length[0]) + longer), head)
    else:
        head = re.sub(r"(Content-length: )\d+", r"\1(length of the file)", head)
    return head + body


def status_body(uri, status):
    return (
        '<?xml version="1.0" encoding="UTF-8" ?>\n<ResponseStatus version="1.0" xmlns="urn:psialliance-org">\n'
        f"<requestURL>{uri}</requestURL>\n<statusCode>{status}</statusCode>\n<!-- O=1-OK, 2-Device Busy, "
        "3-Device Error, 4-Invalid Operation, 5-Invalid XML Format, 6-Invalid XML content; 7-Reboot Required -->\n"
        f"<statusString>{STATUSES[status]}</statusString>\n<id>1</id>\n</ResponseStatus>\n"
    )


def status_document(uri, status):
    text = status_body(uri, status)
    return f'Content-Length: {len(text)}\r\nContent-Type: application/xml; charset="UTF-8"\r\n\r\n{text}'


def fence(text):
    return "```\n" + text.rstrip("\n") + "\n```\n"


def fill(text):
    """Prose of at most WIDTH columns; tables and fences stay as they are."""

    def paragraph(block, indent=""):
        return textwrap.fill(
            " ".join(block.split()),
            WIDTH,
            subsequent_indent=indent,
            break_long_words=False,
            break_on_hyphens=False,
        )

    def outside(part):
        blocks = part.split("\n\n")
        for i, block in enumerate(blocks):
            if block.lstrip("\n").startswith("- "):
                items = re.split(r"^- ", block.strip("\n"), flags=re.MULTILINE)[1:]
                blocks[i] = "\n".join(paragraph("- " + item, "  ") for item in items)
            elif block.strip() and not re.match(r"\n*[|#<]", block):
                blocks[i] = paragraph(block)
        return "\n\n".join(blocks)

    parts = text.split("```")
    parts[::2] = [outside(part).strip("\n") for part in parts[::2]]
    fenced = [f"```{part}```" if i % 2 else part for i, part in enumerate(parts)]
    return "\n\n".join(part for part in fenced if part) + "\n"


def anchor(heading):
    """The anchor that web pages of Markdown give a heading."""
    return re.sub(r"[^\w\- ]", "", heading.lower()).replace(" ", "-")


def wrapped(document):
    """An XML document with a line for each element, indented."""
    lines, depth = [], 0
    for piece in re.findall(
        r"</[^>]+>|<[^/>][^>]*>[^<]*</[^>]+>|<[^>]+>|[^<]+", re.sub(r">\s+<", "><", document.strip())
    ):
        if piece.startswith("</"):
            depth -= 1
        lines.append("  " * depth + piece.replace("\n", "␊"))
        if not re.match(r"<[?/!]|<[^>]*/>|.*</", piece, re.DOTALL):
            depth += 1
    return "\n".join(lines)


def render_answer(example):
    for status, name in STATUSES.items():
        if example["answer"] == status_document(example["uri"], status):
            return f"Answer: status {status}, {name}.\n"
    if not example["answer"] and not example["printed"]:
        return "No answer.\n"
    head, _, body = settle(example["answer"] or example["printed"]).replace("\r", "").partition("\n\n")
    kind = re.search("Content-Type: (.*)", head)[1]
    said = "Printed, not answered" if example["printed"] else "Answer"
    if kind != USUAL_TYPE and not example["printed"]:
        said += f", `{kind}`"
    if not body:
        return f"{said}.\n"
    text = wrapped(body) if body.startswith("<?xml") else body
    count = text.count("\n") + 1
    if count > LONG:
        return f"<details><summary>{said}: {root_of(example)}, {count} lines</summary>\n\n{fence(text)}\n</details>\n"
    return f"{said}:\n\n{fence(text)}"


def heading_of(example):
    return f"{example['method']} {example['path']}".replace("{id}", "ID")


def field_value(kind, meaning):
    name, _, length = kind.partition(" ")
    words = {
        "text": f"text, at most {length} bytes" if length else "text",
        "number": "number",
        "time": "time",
    }.get(name, ", ".join(f"`{word}`" for word in name.split(",")))
    return f"{words}; {meaning}" if meaning else words


def render_example(example):
    parts = [f"### {heading_of(example)}\n"]
    parts.append(f"{WHO[example['level']]} {example.get('says', '').strip()}".strip() + "\n")
    if example["own"]:
        rows = [
            f"| `{path.replace('*', '')}` | {field_value(kind, meaning)} | {without} |"
            for path, kind, meaning, without in example["own"]
        ]
        parts.append("| Field | Value | Without it |\n|---|---|---|\n" + "\n".join(rows) + "\n")
    others = [example[key] for key in ("fields_of", "fields_of_too") if key in example]
    if others and f"(#{anchor(others[0])})" not in example.get("says", ""):
        parts.append(
            "Fields: those of " + " and ".join(f"[{other}](#{anchor(other)})" for other in others) + ".\n"
        )
    request = f"{example['method']} {example['uri']}"
    if example.get("body"):
        request += "" if example["type"] == "application/xml" else f"\nContent-Type: {example['type']}"
        request += "\n\n" + (
            example["body"].strip()
            if "\n" in example["body"].strip() or "root" not in example
            else wrapped(example["body"])
        )
    parts.append(fence(request))
    parts.append(render_answer(example))
    follows = [f"- {change}" for change in example["rows"]]
    follows += [
        f"- the file {name}, {size} bytes"
        for name, size in example["files"].items()
        if not example.get("binary")
    ]
    follows += [f"- {message}" for message in example["messages"]]
    if follows:
        parts.append("What follows:\n\n" + "\n".join(follows) + "\n")
    return "\n".join(parts)


def contents(headings):
    return "\n".join(f"- [{heading}](#{anchor(heading)})" for heading in headings) + "\n"


def render_page(words, page):
    resources = [resource for resource in words["resource"] if resource["page"] == page]
    parts = [
        f"# {words['pages'][page]}\n",
        MADE,
        "What holds for every request, such as truncation and statuses, is in [reference.md](../reference.md).\n",
    ]
    parts.append(
        "\n".join(
            f"- [{resource['title']}](#{anchor(resource['title'])}): "
            + ", ".join(
                f"[{example['method']}](#{anchor(heading_of(example))})" for example in resource["do"]
            )
            for resource in resources
        )
        + "\n"
    )
    if words["introductions"][page].strip():
        parts.append(words["introductions"][page].strip() + "\n")
    for resource in resources:
        parts.append(f"## {resource['title']}\n\n`{resource['url']}{resource.get('id', '')}`\n")
        if "text" in resource:
            parts.append(resource["text"].strip() + "\n")
        parts += [render_example(example) for example in resource["do"]]
    return fill("\n".join(parts))


def resource_names(root):
    """The names of an index document; those below a name in parentheses."""
    names = []
    for resource in root:
        fields = {child.tag.rpartition("}")[2]: child for child in resource}
        below = f" ({resource_names(fields['ResourceList'])})" if "ResourceList" in fields else ""
        names.append(fields["name"].text + below)
    return ", ".join(names)


def render_lists(words):
    """The index and description documents: one of each, and what the others name."""
    resources = [resource for resource in words["resource"] if resource["page"] == "lists"]
    parts = [
        f"# {words['pages']['lists']}\n",
        MADE,
        words["introductions"]["lists"].strip() + "\n",
        "## What they name\n",
    ]
    rows, descriptions, shown = [], [], []
    for resource in resources:
        example = resource["do"][0]
        text = example["answer"] or example["printed"]
        if "/description" in example["uri"]:
            descriptions.append(f"`{example['uri']}`")
        else:
            names = resource_names(ElementTree.fromstring(text[text.index("<?xml") :]))
            rows.append(f"| `{example['uri']}` | {names} |")
        if example["uri"] in EXAMPLE_LISTS:
            shown.append(example)
    parts.append("| URL | Names |\n|---|---|\n" + "\n".join(rows) + "\n")
    parts.append("## Descriptions\n\n" + ", ".join(descriptions) + "\n")
    for example in shown:
        parts.append(f"## GET {example['uri']}\n\n{render_answer(example)}")
    return fill("\n".join(parts))


def render_zones(words):
    zones = words["zones"]
    if not all(selects for _, _, selects in zones):
        note = "A row marked with † cannot be selected: an earlier row begins with its text.\n"
    else:
        note = f"Each of the {len(zones)} rows can be selected by its whole text.\n"
    rows = [f"| `{text}` | {zone}{'' if selects else ' †'} |" for text, zone, selects in zones]
    return fill(
        f"""# Time zones

{MADE}
What to send with [PUT of `/PSIA/System/time/timeZone`](system.md#put-psiasystemtimetimezone), in the order
of the search.

**How to pick.** Find your zone or one with the same rules in the right column. Send the text in the left
column, whole. {note}
The service takes the first row whose text begins with what was sent, without regard to case. A shorter text,
a name or another rule can therefore select a zone that was not meant, or none:

| Sent | Zone that is stored |
|---|---|
"""
        + "\n".join(
            f"| `{sent}` | {next((zone for text, zone, _ in zones if text.lower().startswith(sent.lower())), 'none: status 3')} |"
            for sent in ("EST", "CET", "E", "GMT", "CET-1CEST", "Europe/Paris", "UTC")
        )
        + f"""

- `EST5EDT` alone works, because the rule begins with it. Better send the whole rule.
- Names work only for the rows in which both columns are the same, such as `Israel`.
- The rules that GET shows come from the camera's own zone files. Most of them are not in this table.
- `CST-0` has no zone file. GET shows it as it is.

| Send | Zone that is stored |
|---|---|
"""
        + "\n".join(rows)
        + "\n"
    )


def table(words):
    """All URLs in the order of the pages."""
    lines = ["| URL | Match | Methods and levels |", "|---|---|---|"]
    for resource in words["resource"]:
        if resource["page"] == "lists":
            continue
        for path in dict.fromkeys(example["path"] for example in resource["do"]):
            methods = ", ".join(
                f"[{example['method']}](reference/{resource['page']}.md#{anchor(heading_of(example))}) "
                + (f"0–{example['level']}" if example["level"] else "0")
                for example in resource["do"]
                if example["path"] == path
            )
            match = (
                "exact" if resource["match"] == "kExact" else "begins" if path == resource["path"] else "ends"
            )
            lines.append(f"| `{path.replace('{id}', 'ID')}` | {match} | {methods} |")
    lines.append(
        "| `index`, `description` at every level, `/PSIA/indexr` | begins | [GET](reference/lists.md) 0–3 |"
    )
    return "\n".join(lines) + "\n"


def messages(words):
    """Each command with what sends it, as the examples have shown."""
    senders = {}
    for resource in words["resource"]:
        for example in resource["do"]:
            for message in example["messages"]:
                number = int(re.match(r"command (\d+)", message)[1])
                heading = heading_of(example)
                place = f"reference/{resource['page']}.md#{anchor(heading)}"
                link = f"[{heading.replace('/PSIA/', '')}]({place})"
                senders.setdefault(number, []).append(link)
    lines = ["| Command | What | Payload (offset) | The daemons read | Sent by |", "|---|---|---|---|---|"]
    for name, number in words["commands"].items():
        what, payload, reads = words["messages"][name]
        lines.append(
            f"| {number} | {what} | {payload} | {reads} | {', '.join(dict.fromkeys(senders[number]))} |"
        )
    return "\n".join(lines) + "\n"


def render_reference(words):
    text = words["reference"]["text"]
    headings = re.findall("^## (.*)$", text, re.MULTILINE)
    pages = [f"- [{title}](reference/{page}.md)" for page, title in words["pages"].items()]
    pages.append("- [Time zones: what to send](reference/time-zones.md)")
    return fill(
        "# Reference\n\n"
        + MADE
        + "\n"
        + text.format(
            contents="Pages:\n\n"
            + "\n".join(pages)
            + "\n\nOn this page:\n\n"
            + contents(headings).rstrip("\n"),
            table=table(words).rstrip("\n"),
            messages=messages(words).rstrip("\n"),
            status_document=status_body("/PSIA/System/reboot", 1).rstrip("\n"),
            program=fence("psia.fcgi --help\n\n" + words["help"]),
            **words["facts"],
        ).strip()
        + "\n"
    )


def render_answers(words):
    """Every example to the byte, for programs."""
    entries = []
    for resource in words["resource"]:
        for example in resource["do"]:
            entry = {"method": example["method"], "url": example["uri"]}
            if example.get("body"):
                entry |= {"type": example["type"], "body": example["body"].strip()}
            entry |= {
                "answer": settle(example["answer"]),
                "printed": settle(example["printed"]),
                "rows": example["rows"],
                "messages": example["messages"],
            }
            entries.append(" " + json.dumps(entry, ensure_ascii=False))
    return "[\n" + ",\n".join(entries) + "\n]\n"
