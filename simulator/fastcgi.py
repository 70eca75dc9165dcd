"""The records of FastCGI."""
import collections
import io
import struct

from simulator.texts import decoded

BEGIN, END, PARAMETERS, INPUT, OUTPUT, ERRORS = 1, 3, 4, 5, 6, 7
HEADER = struct.Struct(">BBHHBx")  # version, kind, request, bytes of content, bytes of padding


def stream(kind: int, content: bytes, end: bool = True, request: int = 1) -> bytes:
    """The records of a stream; an empty one ends it."""
    pieces = [content[i : i + 65535] for i in range(0, len(content), 65535)] + [b""] * end
    return b"".join(HEADER.pack(1, kind, request, len(piece), 0) + piece for piece in pieces)


def variables(parameters: bytes) -> dict[str, str]:
    """The variables of a whole parameter stream. One that is missing is empty."""
    found: dict[str, str] = collections.defaultdict(str)
    rest = io.BytesIO(parameters)

    def length() -> int:
        first = rest.read(1)
        return int.from_bytes(first if first < b"\x80" else first + rest.read(3)) & 0x7FFFFFFF

    while rest.tell() < len(parameters):
        name, value = (decoded(rest.read(size)) for size in (length(), length()))
        found[name] = value
    return found


def answer_records(request: int, text: bytes) -> bytes:
    return stream(OUTPUT, text, False, request) + stream(END, bytes(8), False, request)
