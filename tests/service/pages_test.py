"""The pages of the reference, executed as they stand. To write what was seen into the pages, and look at the
differences:  PYTEST_ADDOPTS=--update ctest --test-dir build -R pages_test;  git diff docs"""
import difflib
import json
import os
import re

import lxml.etree
import pytest

import pages
from answers import status
from camera import REQUESTS
from pages import ROOT, rows_of

SCHEMA = lxml.etree.XMLSchema(file=ROOT / "docs/psia.xsd")
EXAMPLES = [example for page in pages.PAGES for example in pages.read(page)]
BLOCKS = [example for example in EXAMPLES if example.kind == "block"]


def check(good, place, what):
    """Fails with what is wrong and where, without the lines of this file."""
    if not good:
        pytest.fail(f"{place}: {what}", pytrace=False)


@pytest.fixture(scope="module")
def updates(request):
    """{page: [(first line, last line, new lines)]}, which --update writes at the end."""
    found = {}
    yield found
    for page, parts in found.items() if request.config.getoption("--update") else ():
        lines = page.read_text().split("\n")
        for first, last, new in sorted(parts, reverse=True):
            lines[first:last] = new
        page.write_text("\n".join(lines))


@pytest.mark.parametrize("example", EXAMPLES, ids=str)
def test_a_request_has_the_result_that_its_page_shows(camera, updates, example):
    body = example.body
    camera.execute(example.statements())
    if example.kind == "echo":
        body = re.split(r"\r?\n\r?\n", camera.effects("GET", example.uri)[-1], maxsplit=1)[1]
    variables = {"HTTP_" + name.upper(): value for name, value in example.headers.items()}
    effects = camera.effects(example.method, example.uri, body, variables=variables)
    says, shows = example.says(), example.shows(effects)
    if says != shows:
        updates.setdefault(example.page, []).append((example.first, example.last, shows))
        equal = len(os.path.commonprefix([says, shows]))
        lines = difflib.unified_diff(says, shows, "the page", "what came", lineterm="", n=1)
        check(False, example.place(equal), "\n".join([f"{example.method} {example.uri}", *lines]))


def documents():
    """The documents of the requests and answers."""
    for example in BLOCKS:
        if example.body.startswith("<"):
            yield example, example.body
        says = "\n".join(example.says())
        answer = re.search(r"<\?xml.*?\?>[␍␊]*\n(.*?)\n(?:```|Content-)", says, re.DOTALL)
        if answer:
            yield example, re.sub("[␍␊␠]", " ", answer[1])


@pytest.mark.parametrize("example, text", [pytest.param(*found, id=str(found[0])) for found in documents()])
def test_every_document_is_valid(example, text):
    with_namespace = re.sub(r"<(\w+)(?![^>]* xmlns)", r'<\1 xmlns="urn:psialliance-org"', text, count=1)
    document = lxml.etree.fromstring(with_namespace)
    check(SCHEMA.validate(document), example, f"docs/psia.xsd: {SCHEMA.error_log}")


def resource(name):
    kind = "service" if name[0].isupper() else "resource"
    return f'<Resource version="1.0"><name>{name}</name><version>1.0</version><type>{kind}</type></Resource>'


def test_every_index_has_the_names_of_its_row(camera):
    """Byte by byte: the two documents that the page shows are the patterns of all."""
    page = ROOT / "docs/reference/lists.md"
    patterns = re.findall(r"<\?xml.*?(?=\n```)", page.read_text(), re.DOTALL)
    index, description = [re.sub("\n *", "", pattern) for pattern in patterns]
    for place, (url, _, _, line_break, names) in rows_of(page, "`/PSIA/.*`"):
        uri, expected = url.strip("`"), description
        if not uri.endswith("description"):
            entries = re.sub(r"[\w/]+", lambda name: resource(name[0]), names)
            entries = entries.replace("</Resource> (", '<ResourceList version="1.0">').replace(", ", "")
            entries = entries.replace(")", "</ResourceList></Resource>")
            expected = re.sub("<Resource .*</Resource>", entries, index)
        if uri == "/PSIA/System/Video/index":
            expected = re.sub(' xmlns:xsi=.*? xsi:schemaLocation=".*?"', "", expected)
        if line_break != "nothing":
            expected = expected.replace("?>", "?>\r\n", 1)
        answer = camera.effects("GET", uri)[-1].partition("\r\n\r\n")[2]
        check(answer == expected, place, f"{uri} answers\n{answer}\nand not\n{expected}")


def test_the_time_zone_tables_tell_what_each_text_selects(camera):
    REQUESTS.remove()  # no daemon is waited for
    uri = "/PSIA/System/time/timeZone"
    pairs = [(place, *pair) for place, cells in rows_of(ROOT / "docs/reference/time-zones.md", "`.*`")
             for pair in zip(cells[::2], cells[1::2])]
    for place, text, zone in pairs:
        refused = camera.call("PUT", uri, text.strip("`")) == status(3, uri)
        [(stored,)] = camera.rows("select TimeZone from Network")
        selected = "none: status 3" if refused else stored
        check(zone == selected, place, f"{text} selects {selected}, not {zone}")


def test_the_page_of_the_simulated_camera_offers_the_requests_of_the_reference():
    file = "simulator/page/resources.json"
    offered = {(method, resource["url"]): body.split() for resource in json.loads((ROOT / file).read_text())
               for method, body in resource["methods"].items()}
    first = {(example.method, example.uri): example for example in reversed(BLOCKS)}
    for example in first.values():
        if example.page.parent.name == "reference":
            found = offered.get((example.method, example.uri), [])
            check("".join(found) == "".join(example.body.split()), example, f"{file} offers something else")


def test_the_limits_are_those_of_the_source():
    values = {}
    for file in (ROOT / "src").rglob("*.*"):
        for name, number, shift in re.findall(r"\bconstexpr [\w: ]+ (k\w+) = (\d+)[UL]*(?: << (\d+))?;",
                                              file.read_text()):
            values[file.suffix, name] = f"{int(number) << int(shift or 0):,}"
    left = {name for suffix, name in values if suffix == ".h" and name.startswith("kMax")}
    for place, (name, value, *_) in rows_of(ROOT / "docs/reference.md", "`k[A-Z].*`"):
        expected = values.get((".h", name.strip("`"))) or values.get((".cpp", name.strip("`")))
        check(value == expected, place, f"{name} is {expected or 'nowhere'} in the source, not {value}")
        left.discard(name.strip("`"))
    check(not left, place, f"the table ends here, but the headers also have {left}")
