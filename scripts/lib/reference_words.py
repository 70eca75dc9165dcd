"""What the reference is made of: routes and numbers of the source, and the words of docs/reference.toml."""

import pathlib
import re
import sys
import tomllib

ROOT = pathlib.Path(__file__).resolve().parent.parent.parent
LEVELS = {"kAdministrator": 0, "kOperator": 1, "kAnyone": 3}

# The numbers that the words may name, and where each stands in the source. 1LL << 20 is worked out.
FACTS = {
    "user": ("security/users.cpp", r"FixedText<(\d+)> name;"),
    "short_user": ("security/users.cpp", r"kLongestNumber = (\d+)"),
    "device_name": ("system/device_info.cpp", r"optional<FixedText<(\d+)>> name"),
    "ntp_server": ("system/ntp_servers.cpp", r"ServerText = FixedText<(\d+)>"),
    "zone_rule": ("frame/environment.h", r'sizeof\("TZ="\) \+ (\d+)>'),
    "zone_file": ("system/time.cpp", r"kMaxZoneFile = ([^;]+)"),
    "address": ("network/interfaces.cpp", r"FixedText<(\d+)> address;"),
    "alias": ("event/notification_servers.cpp", r"FixedText<(\d+)> alias;"),
    "bit_string": ("event/schedule.cpp", r"FixedText<(\d+)> hours;"),
    "event_interval": ("event/triggers.cpp", r"interval_between_events = (\d+)"),
    "notification_interval": ("event/linked_notifications.h", r"interval = (\d+);  // seconds"),
    "mail_port": (
        "event/notification_servers.cpp",
        r"\.default_port = (\d+),\s+\.append_content = append_mail",
    ),
    "ftp_port": (
        "event/notification_servers.cpp",
        r"\.default_port = (\d+),\s+\.append_content = append_ftp",
    ),
    "max_servers": ("event/notification_servers.cpp", r"kMaxServers = (\d+)"),
    "rtsp_port": ("media/streaming_documents.h", r"kDefaultRtspPort = (\d+)"),
    "bit_rate": ("media/streaming_updates.cpp", r"bit_rate = (\d+)"),
    "frame_rate": ("media/streaming_updates.cpp", r"frame_rate = (\d+)"),
    "shown_frame_rate": ("media/streaming_documents.cpp", r"frame_rate = (\d+)"),
    "max_body": ("frame/body.h", r"kMaxBodyInMemory = ([^;]+)"),
    "max_file": ("frame/body.h", r"kMaxBodyInFile = ([^;]+)"),
    "max_elements": ("frame/xml.h", r"kMaxElements = (\d+)"),
    "max_attributes": ("frame/xml.h", r"kMaxAttributes = (\d+)"),
    "max_unusual": ("frame/xml.h", r"kMaxUnusualDocument = ([^;]+)"),
    "max_latin": ("frame/xml.h", r"kMaxLatinDocument = ([^;]+)"),
    "body_timeout": ("frame/stop.h", r"kPeerTimeoutMilliseconds = (\d+)"),
    "stop_timeout": ("frame/stop.h", r"kTimeoutAfterStopMilliseconds = (\d+)"),
    "lock_step": ("frame/database.cpp", r"sleep_milliseconds\((\d+) \* \(calls \+ 1\)\)"),
    "lock_retries": ("frame/database.cpp", r"if \(calls > (\d+)"),
    "poll": ("frame/control_queue.cpp", r"kPollMilliseconds = (\d+)"),
    "seconds_short": ("frame/control_queue.h", r"int seconds = (\d+)"),
    "seconds_long": ("frame/control_queue.h", r"kExportConfiguration\{\d+, (\d+)}"),
    "max_messages": ("frame/control_queue.h", r"kMaxMessagesPerRequest = (\d+)"),
    "query": ("system/maintenance.cpp", r"strnlen\(behind_mark, (\d+)\)"),
    "query_part": ("system/maintenance.cpp", r"std::array<char, (\d+)> name"),
}


class Fact(int):
    """A number of the source, printed with its unit: {name:MiB}. {name:text} is the length of a buffer's text."""

    def __format__(self, form):
        match form:
            case "text":
                return str(self - 1)  # the terminating zero
            case "MiB":
                return f"{self >> 20} MiB"
            case "KiB":
                return f"{self >> 10} KiB"
            case "s":
                return f"{self / 1000:g} s"
        return format(int(self), form)


def source(name):
    return (ROOT / "src" / name).read_text()


def read_facts():
    facts, missing = {}, []
    for name, (file, pattern) in FACTS.items():
        found = re.search(pattern, source(file))
        if found is None:
            missing.append(f"{name}: nothing in src/{file} matches {pattern}")
            continue
        factors = [int(part) for part in re.findall(r"\d+", found[1])]
        facts[name] = Fact(factors[0] << factors[1] if "<<" in found[1] else factors[0])
    if missing:
        sys.exit(
            "Numbers were not found in the source; see FACTS in scripts/lib/reference_words.py:\n  "
            + "\n  ".join(missing)
        )
    realm = re.search(r'realm=\\"([^"\\]+)', source("frame/access_control.cpp"))[1]
    # The service looks once more than it waits.
    wait = {
        f"{which}_wait": f"{facts['seconds_' + which] + facts['poll'] / 1000:.1f}"
        for which in ("short", "long")
    } | {"polls_long": facts["seconds_long"] * 1000 // facts["poll"]}
    retries = facts["lock_retries"] + 1
    return (
        facts
        | wait
        | {
            "database_wait": facts["lock_step"]
            * retries
            * (retries + 1)
            / 2
            / 1000,  # each wait is a step longer
            "realm": realm,
            "slave_status_url": len("/PSIA/Streaming/channels/Slave-0/status"),
            "waits": "The status follows [the daemons' reply](../reference.md#waiting-for-the-daemons).",
        }
    )


def read_routes():
    """{(prefix, match): {method: level}} in the order of the table."""
    table = re.search(r"kRoutes = .*?\n}\);", source("routes.cpp"), re.DOTALL)[0]
    routes = {}
    for prefix, match, methods in re.findall(r'\{"(/PSIA[^"]*)", (\w+),\s*\{\{(.*?)\}\}\}', table, re.DOTALL):
        found = re.findall(r"\b(get|put|post|del)\((\w+),", methods)
        routes[prefix, match] = {
            name.upper().replace("DEL", "DELETE"): LEVELS[level] for name, level in found
        }
    if len(routes) != table.count('{"/PSIA') or not all(routes.values()):
        sys.exit(
            "Some rows of the route table could not be read; see scripts/lib/reference_words.py."
        )
    return routes


def read_commands():
    """{name: number} of the messages to the daemons."""
    rows = re.findall(r"CommandRow (\w+)\{(\d+)", source("frame/control_queue.h"))
    return {name: int(number) for name, number in rows}


def read_time_zones():
    """[(text, zone)] in the order of the table, each with whether the text selects its own row."""
    rows = re.findall(r'^    \{"([^"]+)", "([^"]+)"\},$', source("system/time_zone_table.cpp"), re.MULTILINE)
    count = int(re.search(r"std::size\(kZones\) == (\d+)", source("system/time_zone_table.cpp"))[1])
    if len(rows) != count:
        sys.exit(
            f"{len(rows)} of the {count} time zones could be read; see scripts/lib/reference_words.py."
        )

    def selected(text):
        return next(zone for key, zone in rows if key.lower().startswith(text.lower()))

    return [(text, zone, selected(text) == zone) for text, zone in rows]


def index_resources(routes):
    """The index and description documents, which need no words."""
    for prefix, match in routes:
        parent, _, name = prefix.rpartition("/")
        of = "the root" if parent == "/PSIA" else parent.rpartition("/")[2]
        if name in ("index", "indexr"):
            yield {
                "page": "lists",
                "url": prefix,
                "title": f"Resources of {of}" + (", recursive" if name == "indexr" else ""),
                "group": "Index and description",
                "do": [{"method": "GET"}],
            }
        elif name == "description":
            yield {
                "page": "lists",
                "url": prefix,
                "title": f"Description of {of}",
                "group": "Index and description",
                "do": [{"method": "GET"}],
            }


def read_fields(text, facts):
    """[(path, type, meaning, value without it)] of the lines of `fields`."""
    lines = text.format(**facts).strip().splitlines()
    return [tuple(part.strip() for part in line.split("|")) for line in lines]


def resolve_fields(resources, facts):
    """Gives each example its own fields and those that it shares with another, as a list of fields."""
    examples = {
        f"{example['method']} {example['path']}".replace("{id}", "ID"): example
        for resource in resources
        for example in resource["do"]
    }

    def shared(example, suffix=""):
        if "fields_of" + suffix not in example:
            return []
        without = example.get("fields_without", "")
        below = example.get("fields_below" + suffix, "")
        fields = examples[example["fields_of" + suffix]]["own"]
        return [
            (f"{below}/{path}" if below else path.removeprefix(without).lstrip("/"), *rest)
            for path, *rest in fields
            if path.startswith(without)
        ]

    for example in examples.values():
        example["own"] = read_fields(example.get("fields", ""), facts)
    for example in examples.values():
        example["takes"] = example["own"] + shared(example) + shared(example, "_too")


def read_words():
    """The words with what comes from the source: resources with their routes, examples with their fields."""
    routes, facts = read_routes(), read_facts()
    words = tomllib.loads((ROOT / "docs/reference.toml").read_text())
    words["resource"] += index_resources(routes)
    faults, left = [], dict(routes)
    for resource in words["resource"]:
        matches = [match for prefix, match in routes if prefix == resource["url"]]
        resource["match"] = resource.get("match", matches[0] if matches else "")
        route = left.pop((resource["url"], resource["match"]), None)
        if route is None:
            faults.append(f"{resource['url']} has no route left")
            continue
        resource["levels"] = route
        resource.setdefault("path", resource["url"])
        if "text" in resource:
            resource["text"] = resource["text"].format(**facts)
        if {example["method"] for example in resource["do"]} != set(route):
            faults.append(f"{resource['url']}: the route table has {sorted(route)}")
        for example in resource["do"]:
            example.setdefault("uri", resource["url"] + resource.get("id", ""))
            example.setdefault("path", resource["path"])
            example.setdefault("type", "application/xml")
            example["level"] = route.get(example["method"])
            if "says" in example:
                example["says"] = example["says"].format(**facts)
    faults += [f"{prefix} has no entry" for prefix, _ in left]
    if faults:
        sys.exit("docs/reference.toml and the route table disagree:\n  " + "\n  ".join(faults))
    resolve_fields(words["resource"], facts)
    words["introductions"] = {page: text.format(**facts) for page, text in words["introductions"].items()}
    return words | {
        "facts": facts,
        "order": list(routes),
        "commands": read_commands(),
        "zones": read_time_zones(),
    }
