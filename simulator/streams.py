"""The streams of a camera with --video: what the media daemon makes of the settings when it is told of a
change. And the process outside, which a camera has in the machine's network because its own leads nowhere:
with --video it is the RTSP server (rtsp.py), and always it takes the pictures of alarms to servers."""

import json
import os
import socket
from argparse import Namespace
from collections.abc import Iterator
from typing import Any

from simulator import PROJECT, Fault, clock, front, messages, settings
from simulator.alarms import MAX_MESSAGE, deliver, tell
from simulator.processes import die_with, start
from simulator.settings import Row, number
from simulator.texts import harmless

STILL = PROJECT / "simulator/page/scene.jpg"  # the picture of an alarm without --video

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
        state[name], state["words"][name] = (pipeline, words) if row["Enable"] == 1 else ("", ["off"])
    return state


def listen(options: Namespace) -> socket.socket:
    """At --video-port, or at the first port that is free."""
    for port in range(8554, 8755) if options.video_port is None else [options.video_port]:
        try:
            return front.listen(options.listen, port)
        except OSError as error:
            reason = error.strerror
    raise Fault(f"Cannot listen at {front.authority(options.listen, port)} for --video: {reason}")


class Streams:
    def __init__(self, options: Namespace) -> None:
        """Starts the process outside; this one must not have entered the device yet."""
        self.pipe, theirs = socket.socketpair(type=socket.SOCK_SEQPACKET)
        self.port, self.url = 0, ""  # of the RTSP server
        self.state: dict[str, Any] = {}  # what it shows; empty while the camera is down
        parent = os.getpid()
        if options.video:
            listener = listen(options)
            self.port = listener.getsockname()[1]
            self.url = f"rtsp://{front.authority(front.reachable(options.listen), self.port)}"
            # Debian's Python, for GStreamer's bindings. The list of plugins would be in the home directory.
            command = ["/usr/bin/python3", "-m", "simulator.rtsp", str(listener.fileno())]
            own = {"PYTHONPATH": str(PROJECT), "GST_REGISTRY": str(PROJECT / "build/gstreamer.registry")}
            start(command, stdin=theirs, pass_fds=[listener.fileno()], env=os.environ | own)
        elif os.fork() == 0:
            try:
                die_with(parent)
                os.setpgid(0, 0)  # no key on the terminal reaches it
                os.closerange(3, theirs.fileno())
                os.closerange(theirs.fileno() + 1, os.sysconf("SC_OPEN_MAX"))
                while message := theirs.recv(MAX_MESSAGE):
                    deliver(json.loads(message)["alarm"], STILL.read_bytes, theirs)
            finally:
                os._exit(1)
        theirs.close()

    def heard(self) -> Iterator[str]:
        """What the process tells: words for the journal, and who watches, which is a row while he does."""
        try:
            while message := self.pipe.recv(MAX_MESSAGE, socket.MSG_DONTWAIT):
                match json.loads(message):
                    case {"words": words}:
                        yield words
                    case {"address": address, "port": port, "watches": stream}:
                        viewer = f"Address = '{address}' and Port = {port}"
                        settings.query(f"delete from ClientList where {viewer}")
                        if stream:
                            row = f"null, '{stream}', '{address}', {port}"
                            settings.query(f"insert into ClientList values ({row})")
        except BlockingIOError:
            return
        except ConnectionResetError:
            pass  # it has ended with messages unread
        raise Fault("The RTSP server has ended. scripts/run --video installs what it needs.")

    def boot(self, zone: str) -> str:
        """Gives words about it."""
        self.stop()
        if not self.port:
            return ""
        self.state = from_settings()
        self.show(zone)
        return f"the streams are {self.url}/Master-0 and {self.url}/Slave-0"

    def stop(self) -> None:
        """Ends all sessions."""
        self.state = {}
        if self.port:
            tell(self.pipe, state={})
            settings.query("delete from ClientList")

    def act_on(self, message: messages.Message) -> str:
        """Takes what is stored now. Gives what has changed, in words."""
        before = self.state
        if not before or message.command not in TOLD:
            return ""
        if message.command == messages.RTSP_PORT:
            self.stop()
            self.state = before
            return f"all sessions end; the streams stay at port {self.port}"
        self.state = from_settings()
        pairs = [(name, line) for name, lines in self.state["words"].items() for line in lines]
        new = [f"{name}: {line}" for name, line in pairs if line not in before["words"].get(name, [])]
        return "; ".join(new) or "the streams stay as they are"

    def show(self, zone: str) -> None:
        """Shows the state, with what needs no message: accounts, name, clock."""
        if self.state:
            name = next((str(name) for (name,) in settings.query("select DDNSHostname from Network")), "")
            self.state.update(camera=harmless(name), zone=zone, ahead=clock.ahead())
            accounts = settings.query(ACCOUNTS)
            # GStreamer takes no text that is no UTF-8.
            self.state["accounts"] = {user: word for user, word in accounts if f"{user}{word}".isprintable()}
            tell(self.pipe, state=self.state)
