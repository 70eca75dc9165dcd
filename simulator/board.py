"""Plays the daemons of a camera on a development board that has none, until it is ended.

Makes the settings, the exchange directory and both message queues where they are missing, prints each message
of the service, and answers that it is done. Exports, factory resets and the time mode are carried out; the
board's address, name servers, clock and zone stay as they are.

It refuses where a morvid.db exists that it did not make: that is a camera. To begin with the factory's rows
again, end this program and the service, and remove the folder of the settings, /usr/local/orvid unless the
package was built for another one."""
import argparse
import fcntl
import os
import signal
import time

from simulator import Fault, daemons, device, messages, settings
from simulator.texts import harmless

# "PSIA": marks the databases that this program made, in the place that SQLite has for it.
OWN_MARK = 1347635521
FOREIGN = """{path} was not made by camera-daemons. On a camera with daemons of its own there is nothing to do
for it. Where the file is a left-over, remove it and {defaults}."""
WELCOME = """The settings and both message queues are there. Accounts, name:password:
  admin:admin  operator:operator  viewer:viewer  guest:guest"""


def main(arguments: list[str]) -> int:
    form = argparse.RawDescriptionHelpFormatter
    argparse.ArgumentParser("camera-daemons", description=__doc__, formatter_class=form).parse_args(arguments)
    for number in (signal.SIGINT, signal.SIGTERM, signal.SIGHUP):
        signal.signal(number, lambda *_: exit(0))
    try:
        settings.DEFAULTS.parent.mkdir(parents=True, exist_ok=True)
        device.EXCHANGE.mkdir(parents=True, exist_ok=True)
        lock = os.open(settings.DEFAULTS.parent, os.O_RDONLY | os.O_DIRECTORY)  # as long as this program runs
        fcntl.flock(lock, fcntl.LOCK_EX | fcntl.LOCK_NB)
        prepare_settings()
        # Queues that are there stay: a service that runs knows them by their ids.
        messages.REQUESTS.make()
        messages.REPLIES.make()
    except BlockingIOError as error:
        raise Fault("camera-daemons runs already.") from error
    except OSError as error:
        raise Fault(f"{error}. The kernel needs CONFIG_SYSVIPC for message queues.") from error
    print(WELCOME, flush=True)
    played = daemons.Daemons(act_on, tell=tell)
    while True:
        played.step()
        time.sleep(0.01)  # the queue cannot be waited for with a timeout


def prepare_settings() -> None:
    """Makes both databases, or takes those of an earlier run."""
    found = [path for path in (settings.DATABASE, settings.DEFAULTS) if path.exists()]
    for path in found:
        if settings.query("pragma application_id", path) != [(OWN_MARK,)]:
            raise Fault(FOREIGN.format(path=path, defaults=settings.DEFAULTS))
    if len(found) < 2:
        settings.create(f"pragma application_id={OWN_MARK};")


def act_on(message: messages.Message) -> str:
    """What of a message can be done without changing the board."""
    if message.command == messages.CLOCK:
        settings.execute(f"update Network set DateTimeSync={message.fields['mode']}")
        return "the mode is stored, the board's clock stays"
    if message.command == messages.FACTORY_RESET:
        settings.take_rows()
        return "the factory's rows are back"
    if message.command == messages.EXPORT:
        daemons.export()
        return ""
    return "nothing on this board changes"


def tell(words: str, how: str) -> None:
    print(harmless(f"{words}; {how}" if how else words), flush=True)
