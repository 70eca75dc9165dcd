"""Answers of the service and replies of the daemons by their names, and whether a user is let in."""
from camera import UNAUTHORIZED, status

# Answers, as Camera.effects tells them.
OK, DEVICE_BUSY, DEVICE_ERROR, INVALID_OPERATION, INVALID_XML_FORMAT = [
    f"status {code}" for code in (1, 2, 3, 4, 5)]
# What a daemon replies to a message.
DONE, BUSY, FAILED = 0, 1, 2

NO_RESOURCE = "/PSIA/no/resource"


def answer(uri, *statuses):
    """The bytes of an answer that consists of these status documents."""
    return "".join(status(int(name.removeprefix("status ")), uri) for name in statuses)


# What a user who is logged in receives for a URL without a resource. Nothing else happens.
LOGGED_IN = answer(NO_RESOURCE, INVALID_OPERATION)


def logged_in(camera, user="admin:admin", **options):
    received = camera.call("GET", NO_RESOURCE, user=user, **options)
    assert received in (LOGGED_IN, UNAUTHORIZED)
    return received == LOGGED_IN
