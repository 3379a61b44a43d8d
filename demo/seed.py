#!/usr/bin/python3
"""Builds the demo appliance: its folders, texts, users and stored notifications below one root folder."""

import argparse
import configparser
import datetime
import json
import os
import random
import re
import secrets
import shlex
import shutil
import sqlite3
import stat
import subprocess
import sys
import tempfile
import time
from pathlib import Path
from typing import NamedTuple

DEMO = Path(__file__).resolve().parent

# Tells a folder that this script made, and may replace, from all others.
MARKER = ".kivo-demo-appliance"

DATABASE = "var/lib/kivo/nexnotify.db"
USERS = "etc/kivo/users.json"
TOOL = "usr/kivo/bin/notification_utils"

EPOCH = datetime.date(1970, 1, 1)
DAY = 24 * 60 * 60
DAYS = 35
NOTIFICATIONS_PER_DAY = 9

# Who is told of the events of a category.
AUDIENCE = {
    "Storage": ["alice"],
    "Backup": ["alice", "bob"],
    "File sync": ["bob", "carol"],
    "Security": ["alice", "carol"],
    "System update": ["alice", "bob", "carol"],
    "Packages": ["alice", "bob", "carol"],
    "System": ["alice"],
}

# How often a tag comes up, beside 1 for every other.
WEIGHTS = {
    "BackupFinished": 12,
    "LoginFailed": 5,
    "SyncConflict": 5,
    "PackageUpdated": 4,
    "SyncResumed": 4,
    "BackupVerified": 3,
    "LoginNewDevice": 3,
    "PackageUpdateAvailable": 3,
    "VolumeAlmostFull": 3,
}

# What a server's own event sources tell of, and no appliance.
SERVER_TAGS = {"UnitFailed", "DiskTrouble", "ArrayDegraded", "FileSystemFilling", "PackageUpdatesWaiting",
               "BackupScriptFinished", "BackupScriptFailed"}

# What fills a placeholder. One set of parameters serves every language, so the values are names and numbers.
VALUES = {
    "ADDRESS": ["192.0.2.17", "192.0.2.140", "198.51.100.8", "203.0.113.25", "2001:db8::5:1"],
    "COUNT": ["37", "118", "540", "2406"],
    "DAYS": ["3", "7", "14", "21"],
    "DESTINATION": ["vault-usb", "backup.example.net", "Atlas-2"],
    "DEVICE": ["ThinkPad", "Pixel 8", "Studio PC", "iPad"],
    "DISK": ["1", "2", "3", "4"],
    "DOMAIN": ["atlas.example.net", "files.example.net"],
    "DURATION": ["14 min", "52 min", "2 h 10 min", "6 h 35 min"],
    "ERROR": ["1203", "1417", "2308"],
    "FAN": ["1", "2"],
    "FILE": ["Budget 2025.ods", "Menü & Gäste.odt", "offer_v7.pdf", "IMG_2041.jpg"],
    "FOLDER": ["Projects", "Photos/2025", "Büro/Verträge", "Music"],
    "FREE": ["4 GB", "17 GB", "38 GB"],
    "HOSTNAME": ["atlas"],
    "INTERFACE": ["LAN 1", "LAN 2"],
    "LIMIT": ["50 GB", "200 GB"],
    "MAXIMUM": ["75"],
    "MINUTES": ["5", "15", "30"],
    "MODEL": ["Meridian M8000", "Norda Pro 12T", "Castor SE 4T"],
    "NEEDED": ["2 GB", "5 GB"],
    "OLDVERSION": ["4.1.7", "4.2.0"],
    "PACKAGE": ["Kivo Backup", "Kivo Sync", "Kivo Photos", "Kivo Mail"],
    "PERCENT": ["85", "90", "95", "98"],
    "POOL": ["Pool 1", "Pool 2"],
    "SIZE": ["640 MB", "3 GB", "12 GB", "48 GB"],
    "TASK": ["Photos", "Office", "Home folders", "Café & Küche"],
    "TEMPERATURE": ["61", "66", "70"],
    "TIME": ["02:30", "03:15", "04:00"],
    "USER": ["alice", "bob", "carol"],
    "VERSION": ["4.2.1", "4.2.2", "4.3.0"],
    "VOLUME": ["Media", "Office", "Archive"],
}

# Where those of any tag could not be true.
TAG_VALUES = {
    "AccountLocked": {"COUNT": ["5", "10"]},
    "AddressBlocked": {"COUNT": ["5", "10"]},
    "BackupVersionsRemoved": {"COUNT": ["3", "4", "12"]},
    "DiskAdded": {"SIZE": ["4 TB", "8 TB", "12 TB"]},
    "DiskFailed": {"SIZE": ["4 TB", "8 TB", "12 TB"]},
    "DiskHealthWarning": {"COUNT": ["2", "8", "24"]},
    "LoginFailed": {"COUNT": ["3", "4", "7"]},
    "PackageStopped": {"COUNT": ["3", "5"]},
}

# The day that {DATE} names, seen from the notification's: the day before it unless listed here.
DATE_OFFSET_DAYS = {"UpdateScheduled": 1, "ShutdownUnexpected": 0}

# The newest notifications: minutes before the seeding.
NEWEST = [(48, "SyncConflict"), (26, "VolumeAlmostFull"), (11, "PackageUpdateAvailable"), (3, "BackupFinished")]


class Notification(NamedTuple):
    """A stored notification and the names of the users who are told of it."""

    time: int
    users: list[str]
    content: dict | None


class Refused(Exception):
    """A folder that is left alone."""


def read_catalogue(path: Path) -> configparser.ConfigParser:
    catalogue = configparser.ConfigParser(delimiters=["="], comment_prefixes=["#"], interpolation=None)
    catalogue.optionxform = str  # keys keep their case
    with path.open(encoding="utf-8") as file:
        catalogue.read_file(file)
    return catalogue


def placeholders(section) -> set[str]:
    """The names of all placeholders in the texts of one tag."""
    texts = " ".join(section.get(key, "") for key in ("message", "altMessage", "mail"))
    return set(re.findall(r"\{([A-Z]+)\}", texts))


def notifications(catalogue: configparser.ConfigParser, now: int) -> list[Notification]:
    """The stored notifications, oldest first. All but the newest few are the same for every `now` of a day (UTC)."""
    rng = random.Random(8095)
    today = now - now % DAY

    def notification(tag: str, when: int) -> Notification:
        date = EPOCH + datetime.timedelta(days=when // DAY + DATE_OFFSET_DAYS.get(tag, -1))
        parameters = {
            name: date.isoformat() if name == "DATE" else rng.choice(TAG_VALUES.get(tag, {}).get(name, VALUES[name]))
            for name in sorted(placeholders(catalogue[tag]))
        }
        content = {"title": tag, "time": when, "msg": [json.dumps(parameters, ensure_ascii=False)]}
        return Notification(when, AUDIENCE[catalogue[tag]["group"]], content)

    tags = [tag for tag in catalogue.sections() if tag not in SERVER_TAGS]
    weights = [WEIGHTS.get(tag, 1) for tag in tags]
    seconds_ago = sorted((rng.randrange(DAYS * DAY) for _ in range(DAYS * NOTIFICATIONS_PER_DAY)), reverse=True)
    stored = [notification(tag, today - ago)
              for tag, ago in zip(rng.choices(tags, weights, k=len(seconds_ago)), seconds_ago)]

    # What a long-lived database also holds: tags of other components, whose texts are not in the catalogue, tags
    # that an older version raised, a notification without time and one whose text is gone.
    everyone = ["alice", "bob", "carol"]
    for days, title, parameters in (
        (2, "nexnotify:system_event", {"EVENT": "MaintenanceFinished", "HOSTNAME": "atlas"}),
        (9, "nexnotify:system_event", {"EVENT": "ClockAdjusted", "HOSTNAME": "atlas"}),
        (16, "photos:index_finished", {"COUNT": "1840"}),
        (5, "TapeEjected", {"DEVICE": "Tape 1"}),
        (20, "ModemDisconnected", {"INTERFACE": "Modem"}),
    ):
        when = today - days * DAY
        content = {"title": title, "time": when, "msg": [json.dumps(parameters)]}
        stored.append(Notification(when, everyone, content))
    stored.append(Notification(today - 12 * DAY, everyone, None))
    timeless = notification("UpdateInstalled", today - 25 * DAY)
    del timeless.content["time"]
    stored.append(timeless)

    stored += [notification(tag, now - minutes * 60) for minutes, tag in NEWEST]
    return sorted(stored, key=lambda item: item.time)


def write_database(path: Path, stored: list[Notification], uids: dict[str, int]) -> None:
    connection = sqlite3.connect(path)
    with connection:
        for item in stored:
            content = None if item.content is None else json.dumps(item.content, ensure_ascii=False)
            message_id = connection.execute("INSERT INTO message(message_content, timestamp) VALUES(?, ?)",
                                            (content, item.time)).lastrowid
            connection.executemany("INSERT INTO nexnotify(uid, message_id) VALUES(?, ?)",
                                   [(uids[name], message_id) for name in item.users])
    connection.close()


def copy(source: Path, target: Path) -> None:
    """Copies a file or a folder's files, with new folders' modes: those of the checkout may shut others out."""
    if source.is_dir():
        for entry in source.iterdir():
            copy(entry, target / entry.name)
    else:
        target.parent.mkdir(parents=True, exist_ok=True)
        shutil.copyfile(source, target)


def build(root: Path, host: Path, account: str, now: int) -> None:
    """Builds an appliance in the existing empty folder."""
    subprocess.run([host, "--root", root, "--account", account, "init", "--catalogues", DEMO / "catalogues"],
                   check=True, stdout=subprocess.DEVNULL)
    document = json.loads((DEMO / "users.json").read_text(encoding="utf-8"))
    users = document["users"]
    for user in users.values():
        user["token"] = secrets.token_urlsafe(24)

    for source, target in (("settings", "etc/kivo/settings"),
                           ("mail_templates", "usr/kivo/etc/notification/mails"),
                           ("package_config", "usr/local/share/notification/config")):
        copy(DEMO / source, root / target)
    (root / USERS).write_text(json.dumps(document, indent=4) + "\n", encoding="utf-8")

    stored = notifications(read_catalogue(DEMO / "catalogues/enu/mails"), now)
    write_database(root / DATABASE, stored, {name: user["uid"] for name, user in users.items()})
    (root / MARKER).write_text("Made by demo/seed.py, which may replace this whole folder.\n", encoding="utf-8")


def is_appliance(root: Path) -> bool:
    """True for a demo appliance of ours, False when there is nothing yet. Raises Refused for anything else."""
    try:
        status = root.lstat()
    except FileNotFoundError:
        return False
    if not stat.S_ISDIR(status.st_mode):
        raise Refused(f"{root} is not a folder.")
    if status.st_uid != os.geteuid() or status.st_mode & 0o022:
        raise Refused(f"{root} belongs to another account or can be written by others; choose another folder.")
    if (root / MARKER).is_file():
        return True
    if any(root.iterdir()):
        raise Refused(f"{root} is not empty and not a demo appliance; choose another folder.")
    return False


def seed(root: Path, host: Path, fresh: bool, account: str, now: int) -> bool:
    """Makes the appliance, or with `fresh` makes it anew. Returns whether it did: without `fresh`, one that is there
    stays as it is. It is built beside its place and moved there when complete."""
    there = is_appliance(root)
    if there and not fresh:
        return False
    os.umask(0o022)
    root.parent.mkdir(parents=True, exist_ok=True)
    with tempfile.TemporaryDirectory(dir=root.parent, prefix=f".{root.name}-") as staging:
        new = Path(staging, "new")
        new.mkdir()
        build(new, host, account, now)
        if there:
            root.rename(Path(staging, "old"))
        new.rename(root)
    return True


def link_tool(root: Path, tool: Path) -> None:
    """Points the appliance's notification tool at a program of this machine, which finds its libraries from there."""
    place = root / TOOL
    with tempfile.TemporaryDirectory(dir=place.parent) as staging:
        link = Path(staging, place.name)
        link.symlink_to(tool.resolve(strict=True))
        link.replace(place)


def print_links(root: Path, host: Path, port: int) -> None:
    users = json.loads((root / USERS).read_text(encoding="utf-8"))["users"]
    address = f"http://127.0.0.1:{port}"
    print("Sign in as:")
    for name, user in users.items():
        role = "administrator" if "administrators" in user["groups"] else "user"
        link = subprocess.check_output([host, "--root", root, "sign-in", name, "--url", address], text=True)
        print(f"  {name:6} {role:14} {user['language']}  {link.strip()}")
    print("The links work for 15 minutes. Another one:",
          f"{host} --root {shlex.quote(str(root))} sign-in USER --url {address}")
    token = next(iter(users.values()))["token"]
    print("Or ask from the command line:")
    print(f"  ROOT={shlex.quote(str(root))} TOKEN={token}")
    print("  curl --json '{\"action\":\"load\",\"limit\":5}' -H \"Authorization: Bearer $TOKEN\" "
          f"{address}/webapi/KIVO.Core.NEXNotify/1/notify", flush=True)


def main() -> None:
    parser = argparse.ArgumentParser(description=__doc__)
    parser.add_argument("host", metavar="HOST", type=Path,
                        help="the webapi-host program, which makes the appliance, with its tools beside it")
    parser.add_argument("root", metavar="ROOT", type=Path, help="the appliance's root folder")
    parser.add_argument("--fresh", action="store_true",
                        help="replace the demo appliance at ROOT; without it, one that is there stays as it is")
    parser.add_argument("--account", metavar="NAME", default="nobody",
                        help="the account whose group may read the users file, which holds tokens (default: nobody)")
    parser.add_argument("--links", metavar="PORT", type=int, help="print the users' sign-in links for this port")
    arguments = parser.parse_args()
    root = Path(os.path.abspath(arguments.root))

    try:
        if seed(root, arguments.host, arguments.fresh, arguments.account, int(time.time())):
            print(f"Seeded the demo appliance at {root}")
        link_tool(root, arguments.host.with_name("notification_utils"))
        if arguments.links:
            print_links(root, arguments.host, arguments.links)
    except (Refused, OSError, subprocess.CalledProcessError) as error:
        sys.exit(f"{parser.prog}: {error}")


if __name__ == "__main__":
    main()
