"""What is known of a user's notifications while they are written, deleted and read at once, and so what a page of them
may show."""

import threading
from typing import NamedTuple

PAGE_SIZE = 30  # when the client gives no limit


class Look(NamedTuple):
    """What was known when a page was asked for: the page may show more, never less."""
    committed: int
    low: int
    applies: int
    is_applying: bool


class Ledger:
    """One user's rows. They are numbered from 1 in the order of their commits, so that a deletion always takes a first
    part of them: number `deleted` is the last that is gone. A page shows which rows there are, its total how many are
    gone, and both must fit what is known for sure: low <= deleted <= high. One thread writes; any may ask."""

    def __init__(self, name: str, is_administrator: bool = False) -> None:
        self.name, self.is_administrator = name, is_administrator
        self.times = [0]  # of the rows begun, by number
        self.committed = 0
        self.low = self.high = 0
        self.is_applying = False
        self.applies = 0
        self.lock = threading.Lock()

    @property
    def begun(self) -> int:
        return len(self.times) - 1

    @property
    def highest(self) -> int:
        return self.begun if self.is_applying else self.high

    def begin_row(self, time: int) -> None:
        """Notes the row begun + 1, before its commit."""
        self.times.append(time)

    def commit(self) -> None:
        """Notes that all rows begun are stored."""
        self.committed = self.begun

    def begin_apply(self) -> int:
        """Notes that all rows are about to be deleted. Gives what end_apply wants."""
        with self.lock:
            self.is_applying = True
            self.applies += 1
            return self.committed

    def end_apply(self, committed: int, success: bool | None) -> None:
        """Notes what was answered; None for no answer, after which no one knows what was deleted."""
        with self.lock:
            if success is not False:
                self.high = self.begun
            if success:
                self.low = max(self.low, committed)
            self.is_applying = False

    def look(self) -> Look:
        with self.lock:
            return Look(self.committed, self.low, self.applies, self.is_applying)

    def judge_page(self, asked: dict, envelope: dict, before: Look) -> str:
        """What is wrong with the answer to a load that was asked for after the look; "" for nothing. Learns from a
        right one what is deleted."""
        with self.lock:
            problem, deleted = self._check(asked, envelope, before)
            if deleted is not None and not problem:
                self.low = max(self.low, deleted)
                if not before.is_applying and before.applies == self.applies:
                    self.high = min(self.high, deleted)
            return problem

    def _check(self, asked: dict, envelope: dict, before: Look) -> tuple[str, int | None]:
        """The problem, and the last row that was deleted when the page was made, where that shows."""
        if not envelope["success"]:
            return "refused", None
        data, offset = envelope["data"], asked["offset"]
        items, total = data["items"], data["total"]
        numbers = [item.get("numbers", {}).get(self.name) for item in items]
        size = asked["limit"] or PAGE_SIZE
        deleted = None
        if ("admingrpsetmtime" in data) != self.is_administrator:
            return "of another's rights", None
        if None in numbers:
            return "another user's row", None
        if numbers and numbers != list(range(numbers[0], numbers[0] - len(numbers), -1)):
            return "out of order, or a row is missing", None
        if any(number > self.begun or item["time"] != self.times[number] for number, item in zip(numbers, items)):
            return "a row that was never written", None
        if asked["limit"] == 0:
            if total != len(items):
                return "total is not what is on the page", None
        elif len(items) != max(0, min(size, total - offset)):
            return "the page does not fit the total", None
        if numbers:
            newest = numbers[0] + offset
            if not before.committed <= newest <= self.begun or data["newestMsgTime"] != self.times[newest]:
                return "not the newest rows", None
            if asked["limit"] or len(items) < size:
                deleted = newest - total - (0 if asked["limit"] else offset)
            elif numbers[-1] <= before.low:
                return "a deleted row", None
        elif asked["limit"]:
            # Which rows there were is not seen: some first and last of them must fit.
            if max(before.committed, before.low + total) > min(self.begun, self.highest + total):
                return "a total that cannot be", None
        elif before.committed - self.highest > offset:
            return "an empty list for a user who has rows", None
        if deleted is not None and not before.low <= deleted <= self.highest:
            return f"rows to {deleted} are missing, deleted were {before.low} to {self.highest}", None
        return "", deleted

    def judge_rows(self, numbers: list[int]) -> str:
        """What is wrong with these rows as all that are stored while no one writes or deletes; "" for nothing."""
        with self.lock:
            first = numbers[0] if numbers else self.committed + 1
            if numbers == list(range(first, self.committed + 1)) and self.low < first <= self.high + 1:
                return ""
            return (f"{self.name} has {len(numbers)} rows, {first} to {self.committed}; deleted were {self.low} to "
                    f"{self.high}")
