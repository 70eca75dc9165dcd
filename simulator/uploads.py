"""Settings that a client has uploaded: they are checked when they come, and take effect with the next
boot."""
from simulator import Fault, device, settings

PATH = device.EXCHANGE / "psia_config.dat"  # where the service stores an upload


class Uploads:
    def __init__(self) -> None:
        self.known = self.state()
        self.waiting = False  # a good one

    @staticmethod
    def state() -> tuple[int, int, int] | None:
        """Changes with every upload."""
        try:
            found = PATH.stat()
        except OSError:
            return None
        return found.st_ino, found.st_size, found.st_mtime_ns

    def news(self) -> str:
        """About an upload since it was asked last, in words."""
        before, self.known = self.known, self.state()
        if self.known in (None, before):
            return ""
        try:
            settings.check(PATH)
        except Fault as fault:
            self.waiting = False
            return f"the uploaded settings are refused: {fault}"
        self.waiting = True
        return "the uploaded settings are good; they take effect with the next boot"

    def apply(self) -> str:
        """Called at a boot."""
        if not self.waiting:
            return ""
        try:
            settings.check(PATH)
            settings.take_rows(PATH)
        except Fault as fault:
            return f"the uploaded settings could not be taken: {fault}"
        finally:
            self.forget()
        return "the uploaded settings are in effect"

    def forget(self) -> None:
        self.waiting = False
        PATH.unlink(missing_ok=True)
