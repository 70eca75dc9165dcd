import difflib
import os

import pytest

from camera import Camera
from faults import FaultPlan


def pytest_addoption(parser):
    parser.addoption("--update", action="store_true", help="write what was seen into the pages of docs/")


def pytest_configure(config):
    for marker in ["memory: of an optimised program on this machine, without sanitizers",
                   "faults: with the fault library, which cannot be loaded into a program of another machine",
                   "beyond_2038: not for an SQLite that was built with a time_t of 32 bits"]:
        config.addinivalue_line("markers", marker)


def pytest_collection_modifyitems(items):
    for item in items:
        if "faulty_camera" in item.fixturenames:
            item.add_marker("faults")


@pytest.fixture
def unstarted_camera():
    """A camera in its factory state. Findings of a sanitizer show at its end."""
    camera = Camera(os.environ["PSIA_BINARY"])
    yield camera
    camera.end()


@pytest.fixture
def camera(unstarted_camera):
    """The same with the service running."""
    unstarted_camera.start_service()
    unstarted_camera.call("GET", "/PSIA")
    return unstarted_camera


@pytest.fixture
def faulty_camera(unstarted_camera):
    """The same with the fault library in the service; `plan` tells what fails, and how fast time passes."""
    unstarted_camera.plan = FaultPlan.create()
    unstarted_camera.environment = {"LD_PRELOAD": os.environ["PSIA_FAULT_LIBRARY"],
                                    "ASAN_OPTIONS": "verify_asan_link_order=0"}
    unstarted_camera.start_service()
    unstarted_camera.call("GET", "/PSIA")
    return unstarted_camera


def pytest_assertrepr_compare(op, left, right):
    """Effects or answers that are not the expected ones: the lines that differ, an element a line."""
    left, right = ([side] if isinstance(side, str) else side for side in (left, right))
    if op != "==" or not isinstance(left, list) or not isinstance(right, list):
        return None
    got, expected = ([line for text in texts for line in str(text).replace("><", ">\n<").split("\n")]
                     for texts in (left, right))
    differing = list(difflib.unified_diff(expected, got, lineterm="", n=2))[2:]
    request = Camera.last_request.splitlines()[:25]
    return ["what came (+) is not what was expected (-)", *request, *differing[:30]]
