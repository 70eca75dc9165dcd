"""Cameras as people start them. They end with the test, or with its file."""
import pytest

from simulator.testing import RunningCamera


@pytest.fixture
def start(request):
    """Starts a camera with the options of scripts/run."""
    def start_camera(*options, directory=None):
        started = RunningCamera(*options, directory=directory)
        request.addfinalizer(started.stop)
        return started
    return start_camera


@pytest.fixture(scope="module")
def camera_of_the_file(request):
    started = RunningCamera(*getattr(request.module, "OPTIONS", []))
    yield started
    started.stop()


@pytest.fixture
def camera(camera_of_the_file):
    """In its factory state. A file of tests may name OPTIONS of its camera."""
    camera_of_the_file.reset()
    return camera_of_the_file
