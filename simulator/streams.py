"""The streams of a camera with --video: what the media daemon makes of the settings when it is told of a
change. The RTSP server serves them."""
from typing import Any

from simulator import clock, messages, settings
from simulator.outside import Outside, tell
from simulator.settings import Row, number
from simulator.texts import harmless

WIDE = {0: (704, 480), 1: (704, 240), 2: (352, 240), 3: (144, 112), 4: (1280, 720), 5: (1920, 1080)}
TALL = WIDE | {4: (1280, 1024), 5: (2040, 1536)}  # pictures of 4:3
# Name, quantizer of H.264 and percentage of JPEG of each quality.
QUALITIES = ("best", 18, 95), ("good", 22, 85), ("medium", 26, 70), ("low", 32, 50), ("lowest", 38, 30)
SOUNDS = {
    0: ("G.711 µ-law", "mulawenc ! rtppcmupay"),
    1: ("G.711 A-law", "alawenc ! rtppcmapay"),
    2: ("G.726, 24 kbit/s", "avenc_g726 bitrate=24000 ! rtpg726pay"),
    3: ("G.726, 32 kbit/s", "avenc_g726 bitrate=32000 ! rtpg726pay"),
}
DRESS = """videobalance name=picture ! textoverlay name=words shaded-background=true draw-outline=false
    auto-resize=false valignment=top halignment=left line-alignment=left"""  # what changes while it runs
ACCOUNTS = "select ifnull(UserID, ''), ifnull(Password, '') from User where Level between 0 and 3"
TOLD = (messages.PICTURE, messages.ENCODER, messages.AUDIO, messages.RTSP_PORT)


def within(least: int, value: Any, most: int) -> int:
    """Clients can have stored any number; the daemon keeps to those that it can do."""
    return max(least, min(number(value), most))


def video(row: Row, sizes: dict[int, tuple[int, int]]) -> tuple[str, str, list[str]]:
    """Pipelines of what a stream shows, without its source, and of its encoder; both in words."""
    width, height = sizes.get(row["Resolution"], sizes[4])
    rate = within(1, row["Framerate"], 30)
    form = f"video/x-raw,format=I420,width={width},height={height},framerate={rate}/1"
    shown = f'{form} ! {DRESS} font-desc="Monospace {max(9, height / 32):.1f}px"'
    name, quantizer, percent = QUALITIES[row["Quality"] if row["Quality"] in range(5) else 2]
    codec, quality, encoder = "MJPEG", f"{name} quality", f"jpegenc quality={percent} ! rtpjpegpay"
    if row["Codec"]:
        codec, control = "H.264", f"pass=quant quantizer={quantizer}"
        if row["QualityType"] == 0:
            bitrate = within(64, row["Bitrate"], 10240)
            quality, control = f"{bitrate} kbit/s", f"bitrate={bitrate}"
        control += f" key-int-max={within(1, row['GOPSize'], 300)}"
        # With several threads a picture has several slices, and a client shows the first picture in part.
        encoder = f"x264enc tune=zerolatency speed-preset=ultrafast threads=1 {control}"
        encoder += " ! video/x-h264,profile=baseline ! rtph264pay config-interval=-1"
    return shown, encoder, [f"{codec} {width}x{height}, {rate} frames a second", quality]


def from_settings() -> dict[str, Any]:
    """What the RTSP server is to show: the pipelines of the streams, empty for off, and words about them."""
    tables = settings.current()
    source, audio = tables["VideoSource"].get("0", {}), tables["Audio"].get("0", {})
    names = "Brightness", "Contrast", "Hue"
    bright, contrast, hue = (within(0, source.get(name, 50), 100) for name in names)
    levels = {"brightness": bright / 100 - 0.5, "contrast": contrast / 50, "hue": hue / 50 - 1}
    heard, sound = SOUNDS.get(audio.get("Codec", 0), SOUNDS[0])
    sound = f"audiotestsrc is-live=true wave=ticks ! audio/x-raw,rate=8000,channels=1 ! {sound} name=pay1"
    if not number(audio.get("Enable")):
        heard, sound = "no audio", ""
    state: dict[str, Any] = {"levels": levels, "words": {}}
    for key, row in tables["VideoEncoder"].items():
        name = "Slave-0" if key == "1" else "Master-0"
        shown, encoder, words = video(row, TALL if source.get("CaptureMode") == 1 else WIDE)
        state.setdefault("still", f"videotestsrc num-buffers=1 ! {shown} ! jpegenc ! appsink name=sink")
        pipeline = f"videotestsrc is-live=true horizontal-speed=2 ! {shown} ! {encoder} name=pay0 {sound}"
        words += [heard, f"brightness {bright}, contrast {contrast}, hue {hue}"]
        is_on = row["Enable"] == 1
        state[name] = pipeline if is_on else ""
        state["words"][name] = words if is_on else ["off"]
    return state


class Streams:
    """Without --video there are none."""

    def __init__(self, outside: Outside) -> None:
        self.outside = outside
        self.state: dict[str, Any] = {}  # empty while the camera is down
        self.sent: dict[str, Any] = {}

    def boot(self, zone: str) -> str:
        """Gives words about it."""
        self.stop()
        if not self.outside.port:
            return ""
        self.state = from_settings()
        self.show(zone)
        return f"the streams are {self.outside.url}/Master-0 and {self.outside.url}/Slave-0"

    def stop(self) -> None:
        """Ends all sessions."""
        self.state = {}
        self.show("")
        if self.outside.port:
            settings.query("delete from ClientList")

    def act_on(self, message: messages.Message) -> str:
        """Takes what is stored now. Gives what has changed, in words."""
        before = self.state
        if not before or message.command not in TOLD:
            return ""
        if message.command == messages.RTSP_PORT:
            self.stop()
            self.state = before
            return f"all sessions end; the streams stay at port {self.outside.port}"
        self.state = from_settings()
        pairs = [(name, line) for name, lines in self.state["words"].items() for line in lines]
        new = [f"{name}: {line}" for name, line in pairs if line not in before["words"].get(name, [])]
        return "; ".join(new) or "the streams stay as they are"

    def show(self, zone: str) -> None:
        """Shows the state, with what needs no message: accounts, name, clock."""
        if self.state:
            accounts = settings.query(ACCOUNTS)
            name = next((str(name) for (name,) in settings.query("select DDNSHostname from Network")), "")
            # GStreamer takes no text that is no UTF-8.
            self.state["accounts"] = {user: word for user, word in accounts if f"{user}{word}".isprintable()}
            self.state |= {"camera": harmless(name), "zone": zone, "ahead": clock.ahead()}
        if self.state != self.sent:
            self.sent = dict(self.state)
            tell(self.outside.pipe, state=self.state)

    @staticmethod
    def note(address: str, port: int, watches: str) -> None:
        """Who watches a stream is a row while he does."""
        settings.query(f"delete from ClientList where Address = '{address}' and Port = {port}")
        if watches:
            settings.query(f"insert into ClientList values (null, '{watches}', '{address}', {port})")
