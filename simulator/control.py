"""What the camera answers instead of the service: refusals of requests that another web site makes, 503
during an outage, and the interface below /camera/ for the page and for test programs, which docs/clients.md
describes."""
import asyncio
import json
import re
import time
import urllib.parse
from typing import Any

from simulator import Fault, clock, daemons, device, settings
from simulator.camera import Camera
from simulator.front import is_ip_address
from simulator.journal import credentials
from simulator.relay import BODY_START, Exchange
from simulator.texts import decoded, for_json, harmless

PREFIX = "/camera/"
MAX_WAIT = 30  # seconds for which a request of the log may wait
MAX_SHOWN = 100  # characters of a mistake
PAUSE = 0.05  # seconds between two looks at the journal for a request that waits
THERE_ARE = (
    "There are GET /camera/log, and PUT of /camera/answers, /camera/reset, /camera/sensor and /camera/stop."
)
LOG_FORM = f"since is the id of an entry, and wait a number of seconds from 0 to {MAX_WAIT}."


class Refusal(Exception):
    def __init__(self, status: str, reason: str) -> None:
        super().__init__(reason)
        self.status = status


def cgi_answer(status: str, kind: str, text: str) -> bytes:
    body = text.encode(errors="replace")
    header = (
        f"Status: {status}\nContent-Type: {kind}\nContent-Length: {len(body)}\nCache-Control: no-store\n\n"
    )
    return header.replace("\n", "\r\n").encode() + body


def level_of(exchange: Exchange) -> int:
    """Of the request's account; 4 when there is none. admin:admin always has level 0 here, so that a test
    that has changed this password can still reset the camera."""
    given = credentials(exchange.authorization)
    accounts = settings.query("select UserID, Password, Level from User where Level between 0 and 3")
    levels = [int(level) for user, password, level in accounts if given == f"{user or ''}:{password or ''}"]
    return min(levels + [0 if given == "admin:admin" else 4])


def why_foreign(exchange: Exchange, allowed: list[str]) -> str:
    """Empty, or why a request is refused because a page of another web site may have made a browser send it.
    An unknown host name is refused because the other site's name server could give it this camera's
    address."""
    host = exchange.host
    name = host[1:].split("]")[0] if host.startswith("[") else host.split(":")[0]
    names = ["localhost", *(one.lower() for one in allowed)]
    if host and not is_ip_address(name) and name.lower() not in names:
        return f"The Host header names {name}. Start the camera with --allow-host {name} to allow it."
    origin = exchange.origin.lower()
    if origin and origin not in (f"http://{host.lower()}", f"https://{host.lower()}"):
        return f"A page of {exchange.origin} sent this request; only the camera's own pages may."
    return ""


def number(text: str, most: int) -> int:
    if not re.fullmatch("[0-9]{1,20}", text) or int(text) > most:
        raise Refusal("400 Bad Request", LOG_FORM)
    return int(text)


class Control:
    def __init__(self, camera: Camera) -> None:
        self.camera = camera
        self.journal = camera.journal
        self.run = int(time.time() * 1000)  # distinguishes the runs, whose journals all begin with 1

    def answers(self, exchange: Exchange) -> bool:
        if exchange.url.startswith(PREFIX) or self.camera.is_down() or self.camera.ending:
            return True
        return bool(why_foreign(exchange, self.camera.options.allow_host))

    async def answer(self, exchange: Exchange) -> bytes:
        try:
            answer = await self.answer_or_refuse(exchange)
        except Refusal as refusal:
            text = harmless(str(refusal)) + "\n"
            return cgi_answer(refusal.status, "text/plain; charset=utf-8", text)
        text = json.dumps(for_json(answer), ensure_ascii=False, separators=(",", ":"))
        return cgi_answer("200 OK", "application/json", text)

    async def answer_or_refuse(self, exchange: Exchange) -> dict[str, Any]:
        if reason := why_foreign(exchange, self.camera.options.allow_host):
            self.refuse(exchange, 403, "Forbidden", reason)
        if not exchange.url.startswith(PREFIX):
            reason = "The camera ends." if self.camera.ending else "The camera restarts."
            self.refuse(exchange, 503, "Service Unavailable", reason)
        # No WWW-Authenticate: the browser would ask for a password, and the page asks already.
        level = level_of(exchange)
        if level > 3:
            raise Refusal("401 Unauthorized", "Unauthorized")
        path, _, query = exchange.url.partition("?")
        if (exchange.method, path) == ("GET", "/camera/log"):
            return await self.answer_log(exchange, query)
        if level > 0:
            raise Refusal("403 Forbidden", "Only an administrator may do this.")
        return self.change(exchange)

    def refuse(self, exchange: Exchange, code: int, words: str, reason: str) -> None:
        exchange.http_status = code
        self.journal.refuse_request(exchange, f"refused: {reason}")
        raise Refusal(f"{code} {words}", reason)

    async def answer_log(self, exchange: Exchange, query: str) -> dict[str, Any]:
        pairs = urllib.parse.parse_qsl(query, keep_blank_values=True, errors="surrogateescape")
        given = {"since": "0", "wait": "0", "contains": ""} | dict(pairs)
        if unknown := sorted(given.keys() - {"since", "wait", "contains"}):
            raise Refusal("400 Bad Request", f"There is no parameter {unknown[0][:MAX_SHOWN]}. {LOG_FORM}")
        since, wait = number(given["since"], 2**64 - 1), number(given["wait"], MAX_WAIT)
        while not (entries := self.journal.since(since, given["contains"])):
            if self.camera.ending or time.monotonic() >= exchange.arrived + wait:
                break
            await asyncio.sleep(PAUSE)
        return {"run": self.run, "last": self.journal.last, "now": self.state(), "entries": entries}

    def state(self) -> dict[str, Any]:
        camera = self.camera
        return {
            "up": not camera.is_down(),
            "clock": clock.shown(camera.service_zone),
            "zone": camera.service_zone or camera.zone,
            "uptime": int(time.monotonic() - camera.booted_at),
            "address": device.live_address(),
            "nameServers": device.name_servers(),
            "answers": [str(rule) for rule in camera.daemons.rules],
            "relays": camera.alarms.closed_relays(),
            "videoPort": camera.outside.port,
            "tables": camera.watch.shown(),
        }

    def change(self, exchange: Exchange) -> dict[str, Any]:
        """Carries out the requests that change the simulation."""
        request = f"{exchange.method} {exchange.url}"
        if request == "PUT /camera/reset":
            try:
                self.camera.reset()
            except Fault as fault:
                raise Refusal("500 Internal Server Error", str(fault)) from fault
        elif request == "PUT /camera/answers":
            self.camera.daemons.rules = self.rules(exchange)
            but = f", but for {decoded(exchange.body_start)}" if self.camera.daemons.rules else ""
            self.journal.event(f"the daemons answer as usual{but}")
        elif request == "PUT /camera/sensor":
            self.camera.close_sensor()
        elif request == "PUT /camera/stop":
            self.journal.event("the camera ends, asked for over /camera/stop")
            self.camera.end()
        else:
            raise Refusal("404 Not Found", THERE_ARE)
        return {"last": self.journal.last}

    @staticmethod
    def rules(exchange: Exchange) -> list[daemons.Rule]:
        if exchange.body_size > BODY_START:
            raise Refusal("400 Bad Request", f"The rules are longer than {BODY_START} bytes.")
        rules = []
        for word in decoded(exchange.body_start).split():
            try:
                rules.append(daemons.parse_rule(word))
            except ValueError as error:
                shown = word[:MAX_SHOWN] + "..." if len(word) > MAX_SHOWN else word
                raise Refusal("400 Bad Request", f"'{shown}' is not {daemons.RULE_FORM}.") from error
        return rules
