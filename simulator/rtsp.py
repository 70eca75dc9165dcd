"""The RTSP server of a camera with --video, a process with GStreamer in it. Each message from the camera has
the state that the streams are to show, {} while it is down, or an alarm to deliver with a picture."""

import ctypes
import html
import json
import os
import socket
import sys
import time
from typing import Any

import gi  # type: ignore[import]

gi.require_versions({"Gst": "1.0", "GstRtsp": "1.0", "GstRtspServer": "1.0"})
from gi.repository import Gio, GLib, Gst, GstRtsp, GstRtspServer  # type: ignore[import]  # noqa: E402

from simulator.alarms import MAX_MESSAGE, deliver, tell  # noqa: E402

VIEWER = "viewer, media.factory.access=true, media.factory.construct=true"


class Server:
    def __init__(self, pipe: socket.socket, listener: socket.socket) -> None:
        self.pipe, self.listener = pipe, listener
        self.state: dict[str, Any] = {}
        self.pipelines: dict[str, Any] = {}  # by stream, of those that are watched
        self.clients: dict[Any, str] = {}  # with the stream that each has asked for
        self.server = GstRtspServer.RTSPServer.new()
        self.server.get_thread_pool().set_max_threads(0)  # so that the main loop calls everything below
        self.server.connect("client-connected", self.connected)
        # Connections inherit both options: one to a silent machine ends.
        listener.setsockopt(socket.IPPROTO_TCP, 18, 10000)  # TCP_USER_TIMEOUT of tcp(7), in milliseconds
        listener.setsockopt(socket.SOL_SOCKET, socket.SO_KEEPALIVE, 1)
        # The camera's newest state first, so that no connection is closed after a boot.
        GLib.io_add_watch(pipe.fileno(), GLib.PRIORITY_HIGH, GLib.IOCondition.IN, self.hear)
        GLib.io_add_watch(listener.fileno(), GLib.PRIORITY_DEFAULT, GLib.IOCondition.IN, self.accept)
        GLib.timeout_add(250, self.show)

    def hear(self, *_: Any) -> bool:
        if not (message := self.pipe.recv(MAX_MESSAGE)):
            os._exit(0)  # the camera has ended
        heard = json.loads(message)
        if "alarm" in heard:
            deliver(heard["alarm"], self.still, self.pipe)
            return True
        before, self.state = self.state, heard["state"]
        if self.state and before.get("accounts") != self.state["accounts"]:
            self.server.set_auth(self.accounts())
        for name in "Master-0", "Slave-0":
            if before.get(name) != self.state.get(name):
                self.change(name, self.state.get(name, ""))
        return self.show()

    def accounts(self) -> Any:
        auth = GstRtspServer.RTSPAuth.new()
        auth.set_realm("Quellan Smart IP Device Authentication")
        token = GstRtspServer.RTSPToken()
        token.set_string(GstRtspServer.RTSP_TOKEN_MEDIA_FACTORY_ROLE, "viewer")
        for user, password in self.state["accounts"].items():
            auth.add_basic(GstRtspServer.RTSPAuth.make_basic(user, password), token)
            auth.add_digest(user, password, token)
        # The bindings' own function takes one method only, not two.
        methods = GstRtsp.RTSPAuthMethod.BASIC | GstRtsp.RTSPAuthMethod.DIGEST
        library = ctypes.CDLL("libgstrtspserver-1.0.so.0")
        library.gst_rtsp_auth_set_supported_methods(ctypes.c_void_p(hash(auth)), methods)
        return auth

    def change(self, name: str, pipeline: str) -> None:
        """Whoever watches needs a new session description, so his connection is closed."""
        for client in [client for client, stream in self.clients.items() if stream == name]:
            client.close()
        self.pipelines.pop(name, None)
        self.server.get_mount_points().remove_factory(f"/{name}")
        if pipeline:
            factory = GstRtspServer.RTSPMediaFactory.new()
            factory.set_launch(f"( {pipeline} )")
            factory.set_shared(True)
            factory.connect("media-configure", self.configure, name)
            factory.add_role_from_structure(Gst.Structure.new_from_string(VIEWER))
            self.server.get_mount_points().add_factory(f"/{name}", factory)

    def configure(self, _factory: Any, media: Any, name: str) -> None:
        self.pipelines[name] = media.get_element()
        self.show()

    def show(self) -> bool:
        for name, pipeline in self.pipelines.items():
            self.dress(pipeline, name)
        return True

    def dress(self, pipeline: Any, name: str) -> None:
        """Gives the picture its levels and words."""
        for level, value in self.state["levels"].items():
            pipeline.get_by_name("picture").set_property(level, value)
        os.environ["TZ"] = self.state["zone"]
        time.tzset()
        now = time.strftime("%Y-%m-%d %H:%M:%S %Z", time.localtime(time.time() + self.state["ahead"]))
        words = [f"{self.state['camera']}  {name}", now, *self.state["words"][name]]
        pipeline.get_by_name("words").set_property("text", html.escape("\n".join(words)))

    def still(self) -> bytes:
        """A JPEG of what the Master stream shows now, also when it is off."""
        pipeline = Gst.parse_launch(self.state["still"])
        self.dress(pipeline, "Master-0")
        pipeline.set_state(Gst.State.PLAYING)
        buffer = pipeline.get_by_name("sink").emit("pull-sample").get_buffer()
        pipeline.set_state(Gst.State.NULL)
        return bytes(buffer.extract_dup(0, buffer.get_size()))

    def accept(self, *_: Any) -> bool:
        peer, self.address = self.listener.accept()
        if self.state:  # a camera that is down closes the connection
            self.server.transfer_connection(Gio.Socket.new_from_fd(peer.detach()), *self.address[:2], None)
        return True

    def connected(self, _server: Any, client: Any) -> None:
        where = {"address": self.address[0].removeprefix("::ffff:"), "port": self.address[1]}

        def asks(_client: Any, context: Any, watches: bool) -> None:
            self.clients[client] = "Slave-0" if "Slave-0" in context.uri.abspath else "Master-0"
            if watches:
                tell(self.pipe, **where, watches=self.clients[client])

        def leaves(_client: Any) -> None:
            if self.clients.pop(client, ""):
                tell(self.pipe, **where, watches="")

        client.connect("describe-request", asks, False)
        client.connect("play-request", asks, True)
        client.connect("closed", leaves)


if __name__ == "__main__":
    Gst.init(None)
    server = Server(socket.socket(fileno=0), socket.socket(fileno=int(sys.argv[1])))
    GLib.MainLoop().run()
