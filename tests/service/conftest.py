import difflib
import os

import pytest

from camera import Camera, FaultPlan


@pytest.fixture
def camera():
    """A camera in its factory state, with the service running. Findings of a sanitizer show at its end."""
    started = Camera(os.environ["PSIA_BINARY"])
    started.start_service()
    started.call("GET", "/PSIA")
    yield started
    started.end()


@pytest.fixture
def faulty_camera():
    """The same with the fault library in the service; `plan` tells what fails, and how fast time passes."""
    started = Camera(os.environ["PSIA_BINARY"])
    started.plan = FaultPlan.create()
    started.environment = {"LD_PRELOAD": os.environ["PSIA_FAULT_LIBRARY"],
                           "ASAN_OPTIONS": "verify_asan_link_order=0"}
    started.start_service()
    started.call("GET", "/PSIA")
    yield started
    started.end()


def pytest_assertrepr_compare(op, left, right):
    """Effects that are not the expected ones: the lines that differ, a document with an element a line."""
    if op != "==" or not isinstance(left, list) or not isinstance(right, list):
        return None
    got, expected = ([line for text in texts for line in str(text).replace("><", ">\n<").splitlines()]
                     for texts in (left, right))
    differing = list(difflib.unified_diff(expected, got, lineterm="", n=2))[2:]
    request = Camera.last_request.splitlines()[:25]
    return ["the effects (+) are not those expected (-)", *request, *differing[:30]]
