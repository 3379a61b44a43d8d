"""The demo appliance: its files fit each other, and seeding makes what the module and the host expect."""

import contextlib
import itertools
import json
import os
import re
import sqlite3
import stat
import subprocess
import sys
import tempfile
import unittest
import unittest.mock
from pathlib import Path

sys.dont_write_bytecode = True
sys.path.insert(0, str(Path(__file__).resolve().parents[2] / "demo"))
import seed  # noqa: E402  (found through the line above)

NOON = 1_700_000_000 // seed.DAY * seed.DAY + seed.DAY // 2
CATALOGUES = {folder.name: seed.read_catalogue(folder / "mails") for folder in (seed.DEMO / "catalogues").iterdir()}
ENGLISH = CATALOGUES["enu"]
HOST = Path(os.environ["WEBAPI_HOST"])
TAGS = set(ENGLISH.sections())


def read_json(path):
    return json.loads(path.read_bytes())


class Files(unittest.TestCase):
    def test_they_fit_the_catalogue(self):
        mails = seed.read_catalogue(seed.DEMO / "mail_templates")
        for tag in mails.sections():
            self.assertLessEqual(seed.placeholders(mails[tag]), seed.placeholders(ENGLISH[tag]), tag)
        for package in read_json(seed.DEMO / "package_config").values():
            self.assertLessEqual(set(package["keyArray"]), TAGS)
        for user in read_json(seed.DEMO / "users.json")["users"].values():
            self.assertLessEqual(set(user["hiddenTags"]), TAGS)
        categories = {(ENGLISH[tag]["group"], ENGLISH[tag].get("appid", "")) for tag in TAGS}
        for path in (seed.DEMO / "settings").glob("*/*.json"):
            for choice in read_json(path)["KIVO.ZUI.NEXNotify.Setting.Application"]["notifcationSettings"]:
                self.assertIn((choice["category_enu"], choice["app"]), categories, path)


class Notifications(unittest.TestCase):
    def test_parameters_fill_the_texts(self):
        contents = [item.content for item in seed.notifications(ENGLISH, NOON) if item.content]
        known = [content for content in contents if content["title"] in TAGS]
        for content in known:
            self.assertEqual(set(json.loads(content["msg"][0])), seed.placeholders(ENGLISH[content["title"]]), content)
        self.assertEqual({content["title"] for content in known}, TAGS - seed.SERVER_TAGS)

    def test_only_the_newest_depend_on_the_time_of_day(self):
        newest = len(seed.NEWEST)
        noon, later = (seed.notifications(ENGLISH, now) for now in (NOON, NOON + 3600))
        self.assertEqual(noon[:-newest], later[:-newest])
        for one, other in zip(noon[-newest:], later[-newest:]):
            self.assertEqual(one.time + 3600, other.time)
            self.assertLess(one.time, NOON)


class Appliance(unittest.TestCase):
    def setUp(self):
        self.parent = Path(self.enterContext(tempfile.TemporaryDirectory()))
        self.root = self.parent / "the appliance"
        self.addCleanup(os.umask, os.umask(0o077))  # the strictest surroundings

    def run_seed(self, *arguments):
        return subprocess.run([seed.__file__, *arguments, HOST, self.root], capture_output=True, text=True)

    def token(self):
        return read_json(self.root / seed.USERS)["users"]["alice"]["token"]

    def test_modes(self):
        self.assertEqual(self.run_seed().returncode, 0)
        restricted = {seed.DATABASE: 0o600, seed.USERS: 0o640, seed.TOOL: 0o755}
        for path in (self.root, *self.root.rglob("*")):
            expected = restricted.get(str(path.relative_to(self.root)), 0o755 if path.is_dir() else 0o644)
            self.assertEqual(stat.S_IMODE(path.stat().st_mode), expected, path)

    def test_seeding_again(self):
        self.assertEqual(self.run_seed().returncode, 0)
        first = self.token()
        (self.root / seed.TOOL).unlink()
        (self.root / seed.TOOL).symlink_to("/nowhere")
        again = self.run_seed("--links", "8095")
        self.assertEqual((again.returncode, self.token()), (0, first))
        self.assertEqual(len(re.findall(r"http://127.0.0.1:8095/#code=\S+", again.stdout)), 3)
        self.assertEqual((self.root / seed.TOOL).readlink(), HOST.with_name("notification_utils").resolve())
        self.assertEqual(self.run_seed("--fresh").returncode, 0)
        self.assertNotEqual(self.token(), first)
        self.assertEqual(list(self.parent.iterdir()), [self.root])

    def test_leaves_other_folders_alone(self):
        folder, link = self.parent / "folder", self.parent / "link"
        folder.mkdir()
        (folder / "letter").touch()
        link.symlink_to(folder)
        for self.root, option in itertools.product((folder, link), ([], ["--fresh"])):
            refused = self.run_seed(*option)
            self.assertEqual(refused.returncode, 1)
            self.assertIn(str(self.root), refused.stderr)
            self.assertEqual([path.name for path in self.root.iterdir()], ["letter"])

    def test_an_interrupted_seed_leaves_nothing(self):
        with (unittest.mock.patch.object(seed, "write_database", side_effect=KeyboardInterrupt),
              self.assertRaises(KeyboardInterrupt)):
            seed.seed(self.root, HOST, fresh=False, account="root", now=NOON)
        self.assertEqual(list(self.parent.iterdir()), [])

    def test_database_and_tool(self):
        self.assertEqual(self.run_seed().returncode, 0)
        with contextlib.closing(sqlite3.connect(self.root / seed.DATABASE)) as database:
            links = dict(database.execute("""SELECT message.message_id, COUNT(uid) FROM message
                LEFT JOIN nexnotify ON nexnotify.message_id = message.message_id GROUP BY 1"""))
        self.assertGreater(len(links), 200)
        self.assertEqual(set(links.values()), {1, 2, 3})
        # The program reads the catalogues with the reader that serves them.
        for language, catalogue in CATALOGUES.items():
            subprocess.run([self.root / seed.TOOL, "--gen_category_file", language],
                           env={**os.environ, "KIVO_ROOT": str(self.root)}, check=True)
            document = read_json(self.root / "var/cache/texts" / language / "notification_category")
            self.assertEqual([(event["name"], event["group"]) for event in document["All"]],
                             [(tag, catalogue[tag]["group"]) for tag in catalogue.sections()])


if __name__ == "__main__":
    unittest.main()
