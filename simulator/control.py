"""What the camera answers instead of the service: refusals of requests that another web site makes, 503
during an outage, and the interface below /camera/, which docs/clients.md describes."""
import asyncio
import http
import json
import re
import time
import urllib.parse
from typing import Any

from simulator import Fault, clock, daemons, device, fastcgi, settings
from simulator.camera import Camera
from simulator.front import is_ip_address
from simulator.journal import Exchange, credentials, entry_of
from simulator.texts import decoded, for_json, harmless

PREFIX = "/camera/"
MAX_RULES = 4096  # bytes
MAX_WAIT = 30  # seconds for which a request of the log may wait
PATHS = "GET /camera/log, and PUT of /camera/answers, /camera/reset, /camera/sensor and /camera/stop"
LOG_FORM = f"since is the id of an entry, and wait a number of seconds from 0 to {MAX_WAIT}."


class Refusal(Exception):
    """Its arguments are the HTTP status and the reason."""


def level_of(exchange: Exchange) -> int:
    """Of the request's account; 4 when there is none. admin:admin always has level 0 here, so that a test
    that has changed this password can still reset the camera."""
    given = credentials(exchange)
    accounts = settings.query("select UserID, Password, Level from User where Level between 0 and 3")
    levels = [int(level) for user, password, level in accounts if given == f"{user or ''}:{password or ''}"]
    return min(levels + [0 if given == "admin:admin" else 4])


def why_foreign(exchange: Exchange, allowed: list[str]) -> str:
    """Empty, or why a request is refused because a page of another web site may have made a browser send it.
    An unknown host name is refused because the other site's name server could give it this camera's
    address."""
    host, origin = exchange.variables["HTTP_HOST"], exchange.variables["HTTP_ORIGIN"]
    name = host[1:].split("]")[0] if host.startswith("[") else host.split(":")[0]
    names = ["localhost", *(one.lower() for one in allowed)]
    if host and not is_ip_address(name) and name.lower() not in names:
        return f"The Host header names {name}. Start the camera with --allow-host {name} to allow it."
    if origin and origin.lower() not in (f"http://{host.lower()}", f"https://{host.lower()}"):
        return f"A page of {origin} sent this request; only the camera's own pages may."
    return ""


class Control:
    def __init__(self, camera: Camera) -> None:
        self.camera = camera
        self.journal = camera.journal
        self.run = int(time.time() * 1000)  # distinguishes the runs, whose journals all begin with 1

    def answers(self, exchange: Exchange) -> bool:
        if exchange.url.startswith(PREFIX) or not self.camera.up or self.camera.ending:
            return True
        return bool(why_foreign(exchange, self.camera.options.allow_host))

    async def answer(self, exchange: Exchange) -> bytes:
        status, kind = 200, "application/json"
        try:
            answer = for_json(await self.answer_or_refuse(exchange))
            text = json.dumps(answer, ensure_ascii=False, separators=(",", ":"))
        except (Refusal, Fault) as error:
            status, reason = error.args if isinstance(error, Refusal) else (500, str(error))
            kind, text = "text/plain; charset=utf-8", harmless(reason) + "\n"
        body = text.encode()
        header = f"Status: {status} {http.HTTPStatus(status).phrase}\r\nContent-Type: {kind}\r\n"
        header += f"Content-Length: {len(body)}\r\nCache-Control: no-store\r\n\r\n"
        return header.encode() + body

    async def answer_or_refuse(self, exchange: Exchange) -> dict[str, Any]:
        foreign = why_foreign(exchange, self.camera.options.allow_host)
        if foreign or not exchange.url.startswith(PREFIX):
            reason = foreign or ("The camera ends." if self.camera.ending else "The camera restarts.")
            exchange.answer["http"] = 403 if foreign else 503
            exchange.messages.append(f"refused: {reason}")
            self.journal.add(entry_of(exchange))
            raise Refusal(exchange.answer["http"], reason)
        # No WWW-Authenticate: the browser would ask for a password, and the page asks already.
        level = level_of(exchange)
        if level > 3:
            raise Refusal(401, "Unauthorized")
        path, _, query = exchange.url.partition("?")
        if (exchange.method, path) == ("GET", "/camera/log"):
            return await self.log(exchange, query)
        if level > 0:
            raise Refusal(403, "Only an administrator may do this.")
        match f"{exchange.method} {exchange.url}":
            case "PUT /camera/reset":
                self.camera.reset()
            case "PUT /camera/answers":
                self.set_rules(exchange.streams[fastcgi.INPUT])
            case "PUT /camera/sensor":
                self.camera.close_sensor()
            case "PUT /camera/stop":
                self.journal.event("the camera ends, asked for over /camera/stop")
                self.camera.end()
            case _:
                raise Refusal(404, f"There are {PATHS}.")
        return {"last": self.journal.last}

    async def log(self, exchange: Exchange, query: str) -> dict[str, Any]:
        pairs = urllib.parse.parse_qsl(query, keep_blank_values=True, errors="surrogateescape")
        given = {"since": "0", "wait": "0", "contains": ""} | dict(pairs)
        if unknown := sorted(given.keys() - {"since", "wait", "contains"}):
            raise Refusal(400, f"There is no parameter {settings.short(unknown[0])}. {LOG_FORM}")
        since, wait = given["since"], given["wait"]
        if not re.fullmatch("[0-9]{1,19} [0-9]{1,19}", f"{since} {wait}") or int(wait) > MAX_WAIT:
            raise Refusal(400, LOG_FORM)
        while not (entries := self.journal.since(int(since), given["contains"])):
            if self.camera.ending or time.monotonic() >= exchange.arrived + int(wait):
                break
            await asyncio.sleep(0.05)  # until the next look at the journal
        return {"run": self.run, "last": self.journal.last, "now": self.state(), "entries": entries}

    def state(self) -> dict[str, Any]:
        camera = self.camera
        return {
            "up": camera.up,
            "clock": clock.shown(camera.service_zone),
            "zone": camera.service_zone or camera.zone,
            "uptime": int(time.monotonic() - camera.booted_at),
            "address": device.live_address(),
            "nameServers": device.name_servers(),
            "answers": [str(rule) for rule in camera.daemons.rules],
            "relays": camera.alarms.closed_relays(),
            "videoPort": camera.streams.port,
            "tables": camera.watch.shown(),
        }

    def set_rules(self, body: bytes) -> None:
        if len(body) > MAX_RULES:
            raise Refusal(400, f"The rules are longer than {MAX_RULES} bytes.")
        try:
            rules = [daemons.parse_rule(word) for word in decoded(body).split()]
        except ValueError as error:
            raise Refusal(400, f"'{settings.short(error)}' is not {daemons.RULE_FORM}.") from error
        self.camera.daemons.rules = rules
        self.journal.event("the daemons answer as usual" + (f", but for {decoded(body)}" if rules else ""))
