"""The camera's settings: two SQLite databases, uploads of them, and what has changed in them."""
import collections
import contextlib
import os
import pathlib
import sqlite3
import urllib.parse
from collections.abc import Iterator
from typing import Any

from simulator import Fault
from simulator.texts import decoded

# The variables are those of the build: another board may have other paths.
DIRECTORY = pathlib.Path(os.environ.get("PSIA_SETTINGS_DIR", "/usr/local/orvid"))
DATABASE = DIRECTORY / "morvid.db"
DEFAULTS = DIRECTORY / "conf/default.db"  # what a factory reset restores

SCHEMA = pathlib.Path(__file__).with_name("schema.sql").read_text()
FACTORY_ROWS = pathlib.Path(__file__).with_name("factory.sql").read_text()
COLUMNS = """select t.name, c.name from sqlite_master t, pragma_table_info(t.name) c
    where t.type = 'table' order by t.name, c.cid"""
TABLES = """select t.name, (select c.name from pragma_table_info(t.name) c where c.pk = 1)
    from sqlite_master t where t.type = 'table' order by t.name"""  # with their keys, null for none

MAX_VALUE = 100  # characters shown of a value
MAX_CHANGES = 60  # lines shown of one change

Row = dict[str, Any]  # by column
Tables = dict[str, dict[str, Row]]  # rows by table and key


def connect(path: pathlib.Path = DATABASE, mode: str = "rw") -> sqlite3.Connection:
    """Opens a database that is there. Statements take effect at once."""
    url = f"file:{urllib.parse.quote(str(path))}?mode={mode}"
    connection = sqlite3.connect(url, uri=True, timeout=1, isolation_level=None)
    connection.text_factory = decoded
    return connection


@contextlib.contextmanager
def opened(path: pathlib.Path = DATABASE, mode: str = "rw") -> Iterator[sqlite3.Connection]:
    """For a few statements; what SQLite refuses is a fault."""
    try:
        with contextlib.closing(connect(path, mode)) as database:
            yield database
    except (sqlite3.Error, sqlite3.Warning) as error:
        raise Fault(f"{path}: {error}") from error


def execute(sql: str, path: pathlib.Path = DATABASE) -> None:
    with opened(path) as database:
        database.executescript(sql)


def query(sql: str, path: pathlib.Path = DATABASE) -> list[tuple[Any, ...]]:
    """The rows that a statement gives; none when it fails."""
    with contextlib.suppress(Fault), opened(path) as database:
        return database.execute(sql).fetchall()
    return []


def create(own_rows: str = "") -> None:
    """Makes both databases anew; `own_rows` are statements about what this camera alone has."""
    for path in (DEFAULTS, DATABASE):
        for suffix in ("", "-journal", "-wal", "-shm"):
            pathlib.Path(f"{path}{suffix}").unlink(missing_ok=True)
        path.touch()
        execute(f"pragma synchronous=off; begin; {SCHEMA}{FACTORY_ROWS}{own_rows} commit;", path)


def take_rows(source: pathlib.Path = DEFAULTS) -> None:
    """Replaces all rows of the camera by those of another database."""
    with opened() as database:
        database.execute("pragma trusted_schema=off")
        database.execute("attach ? as source", (str(source),))
        database.execute("begin immediate")
        for table, _ in database.execute(TABLES).fetchall():
            database.execute(f"delete from main.{table}")
            database.execute(f"insert into main.{table} select * from source.{table}")
        database.execute("commit")


def check(path: pathlib.Path) -> None:
    """Raises a fault unless the file is a database with this camera's tables."""
    try:
        with opened(path, "ro") as database, contextlib.closing(sqlite3.connect(":memory:")) as own:
            database.execute("pragma trusted_schema=off")
            verdict = database.execute("pragma quick_check(1)").fetchall()
            columns = database.execute(COLUMNS).fetchall()
            own.executescript(SCHEMA)
            expected = own.execute(COLUMNS).fetchall()
    except Fault as fault:
        raise Fault("it is no SQLite database") from fault
    if verdict != [("ok",)]:
        raise Fault("the database is damaged")
    if columns != expected:
        raise Fault("its tables are not those of this camera")


def read(database: sqlite3.Connection) -> Tables:
    """All rows. Those of a table without a key have the keys "", "1", "2" and so on."""
    tables: Tables = collections.defaultdict(dict)  # a table that somebody has removed has no rows
    database.row_factory = sqlite3.Row
    for table, key in database.execute(TABLES).fetchall():
        rows = [dict(row) for row in database.execute(f'select * from "{table}"')]
        tables[table] = {str(row[key] if key else place or ""): row for place, row in enumerate(rows)}
    return tables


def current() -> Tables:
    with opened(DATABASE, "ro") as database:
        return read(database)


def number(value: Any) -> int:
    """A value as the daemons read it: clients and --set can store texts in columns of numbers."""
    return value if isinstance(value, int) else 0


def differences(before: Tables, after: Tables) -> Iterator[tuple[str, str, str, Any, Any]]:
    """What has changed: table, key and column with the old and the new value. Without a column the values are
    whole rows, None for one that is not there."""
    for table, new_rows in after.items():
        old_rows = before.get(table, {})
        for key in old_rows | new_rows:
            old, new = old_rows.get(key), new_rows.get(key)
            if old is None or new is None:
                yield table, key, "", old, new
                continue
            for column, value in old.items():
                if value != new.get(column):
                    yield table, key, column, value, new.get(column)


def public(row: Row) -> dict[str, str]:
    """The values as texts, without passwords."""
    return {name: "" if value is None else str(value) for name, value in row.items() if name != "Password"}


def short(value: Any) -> str:
    shown = "" if value is None else str(value)
    return shown[:MAX_VALUE] + "..." if len(shown) > MAX_VALUE else shown


def in_words(table: str, key: str, column: str, old: Any, new: Any) -> str:
    """As "Audio[0].Enable: 1 -> 0". Passwords are not shown."""
    place = f"{table}[{key}]" if key else table
    if column:
        change = "changed, not shown" if column == "Password" else f"{short(old)} -> {short(new)}"
        return f"{place}.{column}: {change}"
    if new is None:
        return f"{place} removed"
    added = [f" {name} {short(value)}" for name, value in public(new).items() if value not in ("", key)]
    return f"{place} added:" + "".join(added)


class Watch:
    """Tells what has changed in the settings since it was asked last."""

    def __init__(self) -> None:
        self.database = connect(DATABASE, "ro")
        self.version: Any = None
        self.tables: Tables = {}
        self.changes()

    def changes(self) -> list[str]:
        try:
            version = self.database.execute("pragma data_version").fetchone()[0]
            if version == self.version:
                return []
            tables = read(self.database)
        except sqlite3.Error:
            return []  # locked or replaced: seen the next time
        lines = [in_words(*change) for change in differences(self.tables, tables)]
        self.version, self.tables = version, tables
        more = len(lines) - MAX_CHANGES
        return lines[:MAX_CHANGES] + [f"and {more} more"] * (more > 0)

    def shown(self) -> dict[str, list[dict[str, str]]]:
        """All rows without passwords, for the page and for test programs."""
        tables = self.tables.items()
        return {table: [public(row) for _, row in sorted(rows.items())] for table, rows in tables}
