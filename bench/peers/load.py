#!/usr/bin/python3
"""The answer of action "load" in plain CPython, to compare the module with.

Usage: load.py ROOT USER PARAMETERS COUNT

Prints the answer, and then the median of COUNT loads in seconds of the processor.
"""

import json
import os
import re
import sqlite3
import statistics
import sys
import time

SQL = ("SELECT message_content FROM nexnotify INNER JOIN message ON nexnotify.message_id = message.message_id "
       "WHERE uid = ? ORDER BY message.timestamp ASC")


class Kept:
    """What a file says, read again only when the file has changed."""

    def __init__(self, path, parse):
        self.path = path
        self.parse = parse
        self.identity = None

    def get(self):
        status = os.stat(self.path)
        identity = (status.st_dev, status.st_ino, status.st_size, status.st_mtime_ns)
        if identity != self.identity:
            with open(self.path, encoding="utf-8") as file:
                self.value = self.parse(file.read())
            self.identity = identity
        return self.value


def parse_users(text):
    users = json.loads(text)["users"]
    for user in users.values():
        user["hiddenTags"] = set(user.get("hiddenTags", ()))
    return users


def parse_tags(text):
    return set(re.findall(r"^\[(.+)\]$", text, re.MULTILINE))


def load(database, users, tags, name, parameters):
    known_tags = tags.get()
    user = users.get()[name]
    hidden_tags = user["hiddenTags"]
    everything = parameters.get("all", False)

    filtered = []
    newest = 0.0
    for (content,) in database.execute(SQL, (user["uid"],)):
        row = json.loads(content)
        tag = row.get("title", "")
        if ":" not in tag and tag not in known_tags:
            continue
        if not everything and tag in hidden_tags:
            continue
        if "time" in row:
            newest = max(newest, float(row["time"]))
        filtered.append(row)

    limit = parameters.get("limit", 0)
    page_size = limit if limit > 0 else 30
    offset = max(parameters.get("offset", 0), 0)
    page = []
    listed = 0
    skipped = 0
    for row in reversed(filtered):
        if "time" not in row:
            skipped += 1
            continue
        if len(page) >= page_size:
            break
        if listed >= offset:
            page.append(row)
        listed += 1
    answer = {
        "total": len(filtered) - skipped if limit > 0 else len(page),
        "items": page,
        "newestMsgTime": newest,
        "priorityMap": None,
    }
    return json.dumps(answer, ensure_ascii=False, separators=(",", ":"))


def main():
    root, name, parameters, count = sys.argv[1], sys.argv[2], json.loads(sys.argv[3]), int(sys.argv[4])
    users = Kept(os.path.join(root, "etc/kivo/users.json"), parse_users)
    tags = Kept(os.path.join(root, "var/cache/texts/enu/mails"), parse_tags)
    database = sqlite3.connect(os.path.join(root, "var/lib/kivo/nexnotify.db"))
    print(load(database, users, tags, name, parameters))
    seconds = []
    for _ in range(count):
        start = time.process_time()
        load(database, users, tags, name, parameters)
        seconds.append(time.process_time() - start)
    if seconds:
        print(statistics.median(seconds))


main()
