"""Text of other people's bytes, made fit to be shown: on a terminal, in JSON, an XML element a line."""
import re
from typing import Any

# Control characters, which begin a terminal's commands, characters that turn the direction of writing, and
# bytes that are no UTF-8 (decoded with "surrogateescape").
UNSAFE = "[\0-\x08\x0a-\x1f\x7f-\x9f\u061c\u200e\u200f\u2028-\u202e\u2066-\u2069\ufeff\ud800-\udfff]"
# Of XML: an opened element with its text and, where nothing else is in it, its end; another tag; a text.
PIECE = "(<(?![/?!])[^>]*(?<!/)>)([^<]*)(</[^>]*>?)?|(<[^>]*>?|[^<]+)"
DEEPEST = 40  # levels that are indented; a document may have many more


def decoded(data: bytes) -> str:
    return data.decode(errors="surrogateescape")


def harmless(text: str) -> str:
    """The text with "?" for each character that a terminal must not receive."""
    return re.sub(UNSAFE, "?", text)


def for_json(value: Any) -> Any:
    """The value with every text in it made harmless; lines stay lines."""
    if isinstance(value, str):
        return "\n".join(harmless(line) for line in value.split("\n"))
    if isinstance(value, dict):
        return {for_json(key): for_json(part) for key, part in value.items()}
    return [for_json(part) for part in value] if isinstance(value, list) else value


def lines_of(text: str) -> list[str]:
    return [line.rstrip("\r") for line in text.removesuffix("\n").split("\n")] if text else []


def indented(document: str) -> list[str]:
    """The lines of XML, an element each, also when it is not well-formed. Any other text stays as it is."""
    if not document.lstrip(" \t\r\n").startswith("<"):
        return lines_of(document)
    lines: list[str] = []
    depth = 0
    for opened, text, end, other in re.findall(PIECE, document):
        if line := (opened + text.strip() + end + other).strip():
            depth = max(0, depth - line.startswith("</"))
            lines.append("  " * min(depth, DEEPEST) + line)
            depth += bool(opened and not end)
    return lines
