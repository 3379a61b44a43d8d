"""The demo appliance: its texts in three languages agree, and seeding makes what the module and the host expect."""

import contextlib
import json
import os
import sqlite3
import stat
import subprocess
import sys
import tempfile
import unittest
from pathlib import Path

SOURCE = Path(__file__).resolve().parents[2]
sys.dont_write_bytecode = True
sys.path.insert(0, str(SOURCE / "demo"))
import seed  # noqa: E402  (found through the line above)

LANGUAGES = ("enu", "ger", "fre")
TEXTS = ("message", "altMessage", "mail")
KEYS = {"category", "level", "group", "appid", *TEXTS}
LEVELS = {None, "NOTIFICATION_INFO", "NOTIFICATION_WARN", "NOTIFICATION_ERROR"}
NOON = 1_700_000_000 // seed.DAY * seed.DAY + seed.DAY // 2


def catalogue(language):
    return seed.read_catalogue(seed.DEMO / "catalogues" / language / "mails")


class Texts(unittest.TestCase):
    def test_languages_agree(self):
        english = catalogue("enu")
        for language in LANGUAGES:
            other = catalogue(language)
            self.assertEqual(other.sections(), english.sections(), language)
            groups = {}
            for tag in english.sections():
                with self.subTest(language=language, tag=tag):
                    self.assertLessEqual(set(other[tag]), KEYS)
                    self.assertEqual(set(other[tag]), set(english[tag]))
                    for key in ("level", "appid"):
                        self.assertEqual(other[tag].get(key), english[tag].get(key))
                    self.assertIn(other[tag].get("level"), LEVELS)
                    self.assertTrue("message" in other[tag] or "altMessage" in other[tag])
                    for key in TEXTS:
                        text, model = other[tag].get(key, ""), english[tag].get(key, "")
                        self.assertEqual(seed.placeholders({key: text}), seed.placeholders({key: model}), key)
                        self.assertNotRegex(text, r"\{(?![A-Z]+\})|[^A-Z]\}|\\[^n]", key)
                    title = groups.setdefault(english[tag]["group"], other[tag]["group"])
                    self.assertEqual(other[tag]["group"], title)

    def test_other_files_fit_the_catalogue(self):
        english = catalogue("enu")
        own = seed.read_catalogue(seed.DEMO / "mail_templates")
        for tag in own.sections():
            self.assertLessEqual(seed.placeholders(own[tag]), seed.placeholders(english[tag]), tag)
        for package in json.loads((seed.DEMO / "package_config").read_bytes()).values():
            self.assertLessEqual(set(package["keyArray"]), set(english.sections()))
        for user in json.loads((seed.DEMO / "users.json").read_bytes())["users"].values():
            self.assertLessEqual(set(user["hiddenTags"]), set(english.sections()))
        categories = {(english[tag]["group"], english[tag].get("appid", "")) for tag in english.sections()}
        for path in (seed.DEMO / "settings").glob("*/*.json"):
            settings = json.loads(path.read_bytes())["KIVO.ZUI.NEXNotify.Setting.Application"]
            for choice in settings["notifcationSettings"]:
                self.assertIn((choice["category_enu"], choice["app"]), categories, path)


class Notifications(unittest.TestCase):
    def test_parameters_fill_the_texts(self):
        english = catalogue("enu")
        seen = set()
        for item in seed.notifications(english, NOON):
            if item.content and item.content["title"] in english:
                tag = item.content["title"]
                seen.add(tag)
                self.assertEqual(set(json.loads(item.content["msg"][0])), seed.placeholders(english[tag]), tag)
        self.assertEqual(seen, set(english.sections()))

    def test_only_the_newest_depend_on_the_time_of_day(self):
        newest = len(seed.NEWEST)
        noon, later = (seed.notifications(catalogue("enu"), now) for now in (NOON, NOON + 3600))
        self.assertEqual(noon[:-newest], later[:-newest])
        for one, other in zip(noon[-newest:], later[-newest:]):
            self.assertEqual(one.time + 3600, other.time)
            self.assertLess(one.time, NOON)


class Appliance(unittest.TestCase):
    def setUp(self):
        folder = tempfile.TemporaryDirectory()
        self.addCleanup(folder.cleanup)
        self.parent = Path(folder.name)
        self.root = self.parent / "the appliance"
        umask = os.umask(0o077)  # the strictest surroundings
        self.addCleanup(os.umask, umask)

    def run_seed(self, *arguments):
        return subprocess.run([seed.__file__, *arguments, self.root], capture_output=True, text=True)

    def token(self):
        return json.loads((self.root / seed.USERS).read_bytes())["users"]["alice"]["token"]

    def test_modes(self):
        self.assertEqual(self.run_seed().returncode, 0)
        restricted = {seed.DATABASE: 0o600, seed.USERS: 0o640}
        for path in (self.root, *self.root.rglob("*")):
            usual = 0o755 if path.is_dir() else 0o644
            expected = restricted.get(str(path.relative_to(self.root)), usual)
            self.assertEqual(stat.S_IMODE(path.stat().st_mode), expected, path)

    def test_seeding_again(self):
        self.assertEqual(self.run_seed("--tool", "/bin/true").returncode, 0)
        first = self.token()
        again = self.run_seed("--tool", "/bin/false", "--links", "8095")
        self.assertEqual((again.returncode, self.token()), (0, first))
        self.assertIn(f"http://127.0.0.1:8095/#token={first}", again.stdout)
        self.assertEqual((self.root / seed.TOOL).readlink(), Path("/bin/false").resolve())
        self.assertEqual(self.run_seed("--fresh").returncode, 0)
        self.assertNotEqual(self.token(), first)
        self.assertEqual(list(self.parent.iterdir()), [self.root])

    def assert_left_alone(self, *names):
        for option in ([], ["--fresh"]):
            refused = self.run_seed(*option)
            self.assertEqual(refused.returncode, 1)
            self.assertIn(str(self.root), refused.stderr)
            self.assertEqual([path.name for path in self.root.iterdir()], [*names])

    def test_leaves_other_folders_alone(self):
        self.root.mkdir()
        (self.root / "letter").touch()
        self.assert_left_alone("letter")
        elsewhere = self.root.rename(self.parent / "elsewhere")
        self.root.symlink_to(elsewhere)
        self.assert_left_alone("letter")

    def test_an_interrupted_seed_leaves_nothing(self):
        def interrupted(*_):
            raise KeyboardInterrupt
        write_database, seed.write_database = seed.write_database, interrupted
        self.addCleanup(setattr, seed, "write_database", write_database)
        with self.assertRaises(KeyboardInterrupt):
            seed.seed(self.root, fresh=False, account="root", now=NOON)
        self.assertEqual(list(self.parent.iterdir()), [])

    def test_database_and_tool(self):
        self.assertEqual(self.run_seed("--tool", os.environ["NOTIFICATION_UTILS"]).returncode, 0)
        with contextlib.closing(sqlite3.connect(self.root / seed.DATABASE)) as database:
            links = dict(database.execute("""SELECT message.message_id, COUNT(uid) FROM message
                LEFT JOIN nexnotify ON nexnotify.message_id = message.message_id GROUP BY 1"""))
        self.assertGreater(len(links), 200)
        self.assertEqual(set(links.values()), {1, 2, 3})
        # The program reads the catalogues with the reader that serves them.
        for language in LANGUAGES:
            subprocess.run([self.root / seed.TOOL, "--gen_category_file", language],
                           env={**os.environ, "KIVO_ROOT": str(self.root)}, check=True)
            document = json.loads((self.root / "var/cache/texts" / language / "notification_category").read_bytes())
            texts = catalogue(language)
            self.assertEqual([(event["name"], event["group"]) for event in document["All"]],
                             [(tag, texts[tag]["group"]) for tag in texts.sections()])


if __name__ == "__main__":
    unittest.main()
