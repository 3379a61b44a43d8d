"""The soak's oracle finds what may not be, and lets pass what may."""

import sys
import unittest
from pathlib import Path

sys.dont_write_bytecode = True
sys.path.insert(0, str(Path(__file__).resolve().parent))
from ledger import Ledger  # noqa: E402  (found through the line above)


def time_of(number):
    return 1000 + number


def row(number, name="bob"):
    return {"time": time_of(number), "numbers": {name: number}}


def page(last, first, offset=0, total=None):
    """The rows from the newest of the page down to the oldest, by default as the whole list."""
    items = [row(number) for number in range(last, first - 1, -1)]
    return {"success": True, "data": {"items": items, "total": len(items) if total is None else total,
                                      "newestMsgTime": time_of(last + offset) if items else 0}}


def empty(total=0):
    return page(0, 1, total=total)


def load(limit=30, offset=0):
    return {"action": "load", "limit": limit, "offset": offset}


class LedgerTest(unittest.TestCase):
    def setUp(self):
        """A hundred rows, of which the first forty are deleted."""
        self.ledger = Ledger("bob")
        self.write(40)
        self.ledger.end_apply(self.ledger.begin_apply(), success=True)
        self.write(60)

    def write(self, count):
        for _ in range(count):
            self.ledger.begin_row(time_of(self.ledger.begun + 1))
            self.ledger.commit()

    def judge(self, asked, envelope, before=None):
        return self.ledger.judge_page(asked, envelope, before or self.ledger.look())

    def assert_problems(self, *cases):
        for problem, asked, envelope in cases:
            with self.subTest(problem=problem, asked=asked):
                self.assertRegex(self.judge(asked, envelope), problem or "^$")

    def test_what_is_there_passes(self):
        self.assert_problems(
            ("", load(), page(100, 71, total=60)),
            ("", load(offset=40), page(60, 41, 40, total=60)),
            ("", load(offset=70), empty(total=60)),
            ("", load(0), page(100, 71)),
            ("", load(0, offset=40), page(60, 41, 40)),
            ("", load(0, offset=60), empty()))

    def test_what_is_not_there_is_found(self):
        missing, doubled, swapped, foreign, late = (page(100, 71, total=60) for _ in range(5))
        del missing["data"]["items"][10]
        doubled["data"]["items"][10] = doubled["data"]["items"][9]
        swapped["data"]["items"].reverse()
        foreign["data"]["items"][10] = row(90, "alice")
        late["data"]["items"][10]["time"] += 1
        wrong_newest = page(100, 71, total=60)
        wrong_newest["data"]["newestMsgTime"] -= 1
        of_admin = page(100, 71, total=60)
        of_admin["data"]["admingrpsetmtime"] = "0"
        self.assert_problems(
            ("refused", load(), {"success": False, "error": {"code": 117}}),
            ("another's rights", load(), of_admin),
            ("another user's row", load(), foreign),
            ("row is missing", load(), missing),
            ("row is missing", load(), doubled),
            ("out of order", load(), swapped),
            ("never written", load(), late),
            ("never written", load(), page(101, 72, total=60)),
            ("does not fit the total", load(), page(100, 72, total=60)),
            ("does not fit the total", load(), empty(total=60)),
            ("not what is on the page", load(0), page(100, 71, total=60)),
            ("not the newest", load(), page(99, 70, total=60)),
            ("not the newest", load(offset=1), page(100, 71, total=60)),
            ("not the newest", load(), wrong_newest),
            # A total that is wrong by one, where the page shows rows, and where it shows none.
            ("rows to 39 are missing", load(), page(100, 71, total=61)),
            ("rows to 41 are missing", load(), page(100, 71, total=59)),
            ("cannot be", load(offset=70), empty(total=61)),
            ("cannot be", load(offset=70), empty(total=59)),
            # Deleted rows that are still there, and rows that are gone though no one deleted them.
            ("rows to 39 are missing", load(0, offset=40), page(60, 40, 40)),
            ("a deleted row", load(0, offset=31), page(69, 40, 31)),
            ("rows to 42 are missing", load(0, offset=40), page(60, 43, 40)),
            ("an empty list", load(0, offset=59), empty()))

    def test_a_page_may_be_older_than_its_answer(self):
        before = self.ledger.look()
        self.write(1)
        self.ledger.begin_row(time_of(102))
        for newest in (100, 101, 102):  # those at work at the time, seen or not
            self.assertEqual(self.judge(load(), page(newest, newest - 29, total=newest - 40), before), "")
        self.assertEqual(self.judge(load(offset=70), empty(total=60), before), "")
        self.assertEqual(self.judge(load(0, offset=60), empty(), before), "")
        self.assert_problems(("not the newest", load(), page(100, 71, total=60)))

    def test_while_rows_are_deleted(self):
        there, gone = (load(), page(100, 71, total=60)), (load(), empty())
        long_there = [there, (load(0), page(100, 71)), (load(offset=70), empty(total=60))]
        before = self.ledger.look()
        committed = self.ledger.begin_apply()
        meanwhile = self.ledger.look()
        self.assert_problems(("", *there), ("", *gone), ("", load(0), empty()), ("", *there))
        self.write(1)
        self.assert_problems(("", load(), page(101, 101)), ("rows to 40 .* were 100", load(), page(101, 72, total=61)))
        self.ledger.end_apply(committed, success=True)
        for asked, envelope in [gone, *long_there]:
            for look in before, meanwhile:
                self.assertEqual(self.judge(asked, envelope, look), "")
        # From now on they are gone for good; the row written meanwhile may be or not.
        self.assert_problems(("", load(), empty()), ("", load(), page(101, 101)),
                             ("rows to 40 .* were 100 to 100", load(), page(101, 72, total=61)),
                             ("a deleted row", load(0, offset=2), page(99, 70, 2)))

    def test_after_a_deletion_that_failed(self):
        self.ledger.end_apply(self.ledger.begin_apply(), success=False)
        self.assert_problems(("cannot be", load(), empty()), ("", load(), page(100, 71, total=60)))

    def test_after_a_deletion_without_an_answer(self):
        """Nobody knows what was deleted until a page or a row tells."""
        for is_gone in False, True:
            with self.subTest(is_gone=is_gone):
                self.setUp()
                self.ledger.end_apply(self.ledger.begin_apply(), success=None)
                self.assert_problems(("", load(), empty()))
                self.write(1)
                there, gone = (load(), page(101, 72, total=61)), (load(), page(101, 101))
                right, wrong = (gone, there) if is_gone else (there, gone)
                self.assert_problems(("", *right), ("rows to .* are missing", *wrong), ("", *right))

    def test_what_is_stored(self):
        numbers = list(range(41, 101))
        for stored in numbers[1:], numbers[:-1], numbers[:9] + numbers[10:], [40, *numbers], [*numbers, 101], []:
            self.assertRegex(self.ledger.judge_rows(stored), "deleted were 40 to 40")
        self.assertEqual(self.ledger.judge_rows(numbers), "")
        self.ledger.end_apply(self.ledger.begin_apply(), success=None)
        self.assertEqual((self.ledger.judge_rows(numbers), self.ledger.judge_rows([])), ("", ""))


if __name__ == "__main__":
    unittest.main()
