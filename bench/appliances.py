#!/usr/bin/python3
"""Builds the appliances that the benchmarks run on. The same arguments build the same appliances."""

import argparse
import json
import os
import random
import sqlite3
import subprocess
from pathlib import Path

SCHEMA = Path(__file__).resolve().parent.parent / "platform/sysnotify/schema.sql"

# For each appliance, the number of tags in its catalogues and of stored notifications.
APPLIANCES = [(500, 100), (500, 200), (500, 1_000), (500, 10_000), (500, 100_000), (50, 0), (500, 0), (5_000, 0)]

# alice's notifications are loaded, bob's are deleted.
USERS = {
    "users": {
        "alice": {"uid": 1026, "gid": 100, "language": "enu", "groups": ["users"],
                  "apps": [f"KIVO.App.{number}" for number in range(9)],
                  "hiddenTags": [f"Event{number:05}" for number in range(7, 500, 10)],
                  "token": "alice-signs-in-with-this"},
        "bob": {"uid": 1027, "gid": 100, "language": "enu", "groups": ["users"]},
    }
}

LEVELS = ["NOTIFICATION_INFO", "NOTIFICATION_WARN", "NOTIFICATION_ERROR"]
WORDS = ("volume backup of the shared folder has finished after a check that found no fault in any copy "
         "disk and pool are healthy größer Gerät über Netzwerk").split()


def sentence(rng: random.Random, length: int) -> str:
    return " ".join(rng.choices(WORDS, k=length)) + " {NAME}."


def catalogue(language: str, tags: int) -> str:
    """One section a tag, each of a category of its own; some belong to an application, and some have no message but
    its alternative."""
    rng = random.Random(f"{language} {tags}")
    sections = []
    for number in range(tags):
        lines = [f"[Event{number:05}]",
                 "category=" + ("system" if number % 3 else f"title:{number}"),
                 f"group=Category {language} {number}",
                 ("altMessage=" if number % 8 == 0 else "message=") + sentence(rng, 12),
                 "mail=" + "\\n".join(sentence(rng, 15) for _ in range(3))]
        if number % 4:
            lines.append(f"level={rng.choice(LEVELS)}")
        if number % 2:
            lines.append(f"appid=KIVO.App.{number % 10}")
        sections.append("\n".join(lines) + "\n")
    return "\n".join(sections)


def notification(rng: random.Random, tags: int, time: int) -> dict:
    """Most are of a known tag; a tenth bring their texts along, which a ':' tells, and a few are of a tag that is no
    more or have no time."""
    kind = rng.random()
    if kind < 0.1:
        title = f"app{rng.randrange(20)}:event_{rng.randrange(5)}"
    elif kind < 0.13:
        title = f"Former{rng.randrange(50):05}"
    else:
        title = f"Event{rng.randrange(tags):05}"
    parameters = {"NAME": " ".join(rng.choices(WORDS, k=3)), "SIZE": f"{rng.randrange(1, 900)} GB",
                  "HOSTNAME": "atlas", "ADDRESS": f"192.0.2.{rng.randrange(1, 255)}"}
    stored = {"title": title, "time": time, "msg": [json.dumps(parameters, ensure_ascii=False)],
              "app": f"KIVO.App.{rng.randrange(10)}", "level": rng.choice(LEVELS), "isRead": kind < 0.5,
              "link": {"page": "log", "arguments": [rng.randrange(10_000), rng.random()]}}
    if kind > 0.99:
        del stored["time"]
    return stored


def write_database(path: Path, tags: int, rows: int) -> None:
    rng = random.Random(rows)
    start = 1_700_000_000
    connection = sqlite3.connect(path)
    connection.executescript(SCHEMA.read_text(encoding="utf-8"))
    with connection:
        for number in range(rows):
            time = start + 60 * number
            content = json.dumps(notification(rng, tags, time), ensure_ascii=False, separators=(",", ":"))
            connection.execute("INSERT INTO message VALUES(?, ?, ?)", (number + 1, content, time))
            connection.execute("INSERT INTO nexnotify VALUES(?, ?)", (USERS["users"]["alice"]["uid"], number + 1))
    connection.close()


def build(root: Path, tool: Path, tags: int, rows: int) -> None:
    tag_names = [f"Event{number:05}" for number in range(tags)]
    choices = [{"category_enu": f"Category enu {number}", "app": f"KIVO.App.{number % 10}" if number % 2 else "",
                "nexnotify": "off"} for number in range(0, tags, 10)]
    files = {
        "etc/kivo/users.json": json.dumps(USERS),
        "etc/kivo/settings/users/alice.json":
            json.dumps({"KIVO.ZUI.NEXNotify.Setting.Application": {"notifcationSettings": choices}}),
        "usr/local/share/notification/config":
            json.dumps({"Backup": {"keyArray": tag_names[::10]}, "Sync": {"keyArray": tag_names[5::10]}}),
        "usr/kivo/etc/notification/mails": "".join(f"[Template{number}]\nmail=Nothing.\n" for number in range(20)),
        "var/log/kivo/events.jsonl": "",
        "var/lib/kivo/nexnotify.db": "",
        "var/cache/texts/enu/mails": catalogue("enu", tags),
        "var/cache/texts/ger/mails": catalogue("ger", tags),
    }
    for name, content in files.items():
        path = root / name
        path.parent.mkdir(parents=True, exist_ok=True)
        path.write_text(content, encoding="utf-8")
    for language in ("enu", "ger"):
        subprocess.run([tool, "--gen_category_file", language], env={**os.environ, "KIVO_ROOT": str(root)}, check=True)
    write_database(root / "var/lib/kivo/nexnotify.db", tags, rows)


def appliance(folder: Path, tags: int, rows: int) -> Path:
    return folder / f"{tags}-tags-{rows}-rows"


def main() -> None:
    parser = argparse.ArgumentParser(description=__doc__)
    parser.add_argument("folder", metavar="FOLDER", type=Path, help="where to build them")
    parser.add_argument("--tool", metavar="FILE", type=Path, required=True, help="the notification_utils program")
    arguments = parser.parse_args()
    for tags, rows in APPLIANCES:
        build(appliance(arguments.folder, tags, rows), arguments.tool, tags, rows)


if __name__ == "__main__":
    main()
