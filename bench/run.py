#!/usr/bin/python3
"""Measures the module beside its floors, its peers and a static file, and writes the ratios as Markdown.

Everything is measured in rounds, one after the other in each, so that what slows the machine for a while slows all of
them; a ratio is the median of the rounds' ratios. Times are those of the processor, which other work on the machine
disturbs least; only those of apply, which waits for the disk, are of the clock.
"""

import argparse
import json
import os
import platform
import re
import shutil
import statistics
import subprocess
import sys
import tempfile
import urllib.request
from pathlib import Path

import plot
from appliances import USERS, appliance

BENCH = Path(__file__).resolve().parent
METHOD = "KIVO.Core.NEXNotify/1/notify"
USER = "alice"
ROWS = [100, 1_000, 10_000, 100_000]
SIZES = [50, 500, 5_000]
PEERS = {"PHP": ["php", BENCH / "peers/load.php"], "CPython": [sys.executable, BENCH / "peers/load.py"]}
WORKERS = 2
CONNECTIONS = 16


def load_parameters(everything: bool = False, offset: int = 0) -> str:
    return json.dumps({"action": "load", "limit": 30, "all": everything, "offset": offset})


def output_of(*command: object, **variables: object) -> str:
    environment = {**os.environ, **{name: str(value) for name, value in variables.items()}}
    return subprocess.run([str(part) for part in command], env=environment, check=True, text=True,
                          stdout=subprocess.PIPE).stdout


class Results:
    """What the rounds measured, by the names of the benchmarks."""

    def __init__(self) -> None:
        self.seconds: dict[str, list[float]] = {}
        self.other: dict[str, dict] = {}

    def add(self, name: str, seconds: float, other: dict) -> None:
        self.seconds.setdefault(name, []).append(seconds)
        self.other[name] = other

    def median(self, name: str) -> float:
        return statistics.median(self.seconds[name])

    def items(self, name: str) -> int:
        """How many rows or tags one request goes over."""
        return round(self.other[name]["items_per_second"] * self.seconds[name][-1])

    def ratio(self, name: str, base: str) -> float:
        return statistics.median(a / b for a, b in zip(self.seconds[name], self.seconds[base]))


class Bench:
    def __init__(self, build: Path, folder: Path, account: str, quick: bool) -> None:
        self.build = build
        self.folder = folder
        self.host = ["--account", account, "--module", build / "lib/dev/KIVO.Core.NEXNotify.so"]
        self.quick = quick
        self.results = Results()

    def root(self, rows: int) -> Path:
        return appliance(self.folder, 500, rows)

    def ask_peer(self, peer: str, rows: int, parameters: str, count: int) -> list[str]:
        return output_of(*PEERS[peer], self.root(rows), USER, parameters, count).splitlines()

    def compare_answers(self) -> None:
        """The peers are only worth a comparison when they do the same."""
        for rows in ROWS:
            for everything in (False, True):
                for offset in (0, rows // 2):
                    parameters = load_parameters(everything, offset)
                    ours = json.loads(output_of(self.build / "bin/webapi-host", *self.host, "--root", self.root(rows),
                                                "call", "--user", USER, METHOD, parameters))["data"]
                    for peer in PEERS:
                        theirs = json.loads(self.ask_peer(peer, rows, parameters, 0)[0])
                        for member in ("items", "total", "newestMsgTime"):
                            if theirs[member] != ours[member]:
                                sys.exit(f"The answers to {parameters} with {rows} rows differ in \"{member}\": "
                                         f"ours {ours[member]}, {peer} {theirs[member]}")

    def run_program(self, pattern: str) -> None:
        report = json.loads(output_of(
            self.build / "bin/nexnotify_bench", "--benchmark_format=json", f"--benchmark_filter={pattern}",
            f"--benchmark_min_time={0.02 if self.quick else 0.1}", KIVO_BENCH_APPLIANCES=self.folder))
        for run in report["benchmarks"]:
            time = run["real_time" if run["name"].endswith("/real_time") else "cpu_time"]
            self.results.add(run["name"].removesuffix("/real_time"), time / 1e9, run)

    def run_rounds(self) -> None:
        for round_number in range(2 if self.quick else 9):
            print(f"Round {round_number + 1}", file=sys.stderr)
            for rows in ROWS:
                self.run_program(f"^(load(_floor)?|news)/rows:{rows}(/|$)")
                for peer in PEERS:
                    lines = self.ask_peer(peer, rows, load_parameters(), max(1, 10_000 // rows))
                    self.results.add(f"{peer}/rows:{rows}", float(lines[1]), {})
            self.run_program("^(apply|loadHave|Strings|MailContent|catalogue)")

    def measure_http(self) -> tuple[int, dict[str, dict[str, float]]]:
        """The size of the answer, and for it and for a file of that size what wrk measured."""
        with tempfile.TemporaryDirectory(dir=self.folder) as prefix:
            return self.measure_host(Path(prefix))

    def measure_host(self, prefix: Path) -> tuple[int, dict[str, dict[str, float]]]:
        prefix.chmod(0o755)
        page = prefix / "share/notification-centre"
        page.mkdir(parents=True)
        # A program of its own folder, beside which it finds the file and its libraries.
        (prefix / "bin").mkdir()
        (prefix / "lib").symlink_to(self.build.resolve() / "lib")
        shutil.copy(self.build / "bin/webapi-host", prefix / "bin")
        token = USERS["users"][USER]["token"]
        parameters = load_parameters()
        answer = output_of(self.build / "bin/webapi-host", *self.host, "--root", self.root(200), "call", "--user",
                           USER, METHOD, parameters)
        size = len(json.dumps(json.loads(answer), ensure_ascii=False, separators=(",", ":")).encode())
        (page / "answer.js").write_text("x" * size, encoding="ascii")

        command = [prefix / "bin/webapi-host", *self.host, "--root", self.root(200), "serve", "--port", 0,
                   "--workers", WORKERS]
        with subprocess.Popen([str(part) for part in command], stdout=subprocess.PIPE, text=True) as host:
            try:
                address = host.stdout.readline().split()[-1]
                url = f"{address}/webapi/{METHOD}"
                request = urllib.request.Request(url, parameters.encode(), {
                    "Authorization": f"Bearer {token}", "Content-Type": "application/json"})
                with urllib.request.urlopen(request) as response:
                    body = response.read()
                if not json.loads(body)["success"] or abs(len(body) - size) > size / 100:
                    sys.exit(f"The host does not answer as expected: {body[:200]!r}")
                targets = {"load": [url, "--", token, parameters], "file": [f"{address}/answer.js"]}
                runs: dict[str, list[dict]] = {name: [] for name in targets}
                for _ in range(1 if self.quick else 5):
                    for name, target in targets.items():
                        output = output_of("wrk", "--threads", 1, "--connections", CONNECTIONS, "--duration",
                                           "1s" if self.quick else "4s", "--script", BENCH / "http.lua", *target)
                        runs[name].append(json.loads(output.splitlines()[-1]))
                        if runs[name][-1]["errors"]:
                            sys.exit(f"wrk met errors: {output}")
            finally:
                host.terminate()
        return size, {name: {key: statistics.median(run[key] for run in runs[name]) for key in runs[name][0]}
                      for name in targets}


def machine(build: Path) -> list[str]:
    def first(pattern: str, path: Path | str) -> str:
        return re.search(pattern, Path(path).read_text(encoding="utf-8"), re.MULTILINE)[1]

    compiler = first(r"^CMAKE_CXX_COMPILER:\w+=(.+)$", build / "CMakeCache.txt")
    memory = int(first(r"^MemTotal:\s+(\d+)", "/proc/meminfo")) / 2**20
    lines = [f"- {os.cpu_count()} cores, {first('^model name.*: (.+)$', '/proc/cpuinfo')}, {memory:.0f} GiB of memory",
             f"- {platform.freedesktop_os_release()['PRETTY_NAME']}, Linux {platform.release()}",
             f"- {output_of(compiler, '--version').splitlines()[0]}; CPython {platform.python_version()}; "
             + " ".join(output_of("php", "--version").split()[:2])]
    busy = os.getloadavg()[0]
    if busy > 1:
        lines.append(f"- **The machine had other work when the run began (load average {busy:.1f}).**")
    return lines


def size_of(count: float) -> str:
    return f"{count / 2**20:.1f} MiB" if abs(count) >= 2**20 else f"{count / 2**10:.0f} KiB"


def table(results: Results) -> list[str]:
    """One line a benchmark, beside its floor and its peers."""
    lines = ["| Request | Time | Floor | ÷ floor | Rows or tags/s | Allocations | Memory: peak | kept "
             "| Floor's peak | PHP ÷ ours | CPython ÷ ours |", "|---|--:|--:|--:|--:|--:|--:|--:|--:|--:|--:|"]

    def add(title: str, name: str, floor: str = "", peers_at: int = 0) -> None:
        other = results.other[name]
        cells = [title, plot.duration(results.median(name))]
        cells += [plot.duration(results.median(floor)), f"**{results.ratio(name, floor):.2f}**"] if floor else ["", ""]
        items = results.items(name)
        cells += [f"{items / results.median(name):,.0f}" if items > 1 else "", f"{other['allocations']:,.0f}"]
        cells += [size_of(other["peak_bytes"]), size_of(other["kept_bytes"])]
        cells += [size_of(results.other[floor]["peak_bytes"]) if floor else ""]
        cells += [f"**{results.ratio(f'{peer}/rows:{peers_at}', name):.1f}**" if peers_at else "" for peer in PEERS]
        lines.append("| " + " | ".join(cells) + " |")

    for rows in ROWS:
        floor = f"load_floor/rows:{rows}"
        add(f"looking for news, {rows:,} rows", f"news/rows:{rows}", floor)
        for everything, all_title in ((0, ""), (1, ", all")):
            for offset, offset_title in ((0, ""), (rows // 2, ", from the middle")):
                add(f"load, {rows:,} rows{all_title}{offset_title}",
                    f"load/rows:{rows}/all:{everything}/offset:{offset}", floor,
                    0 if everything or offset else rows)
    for rows in (1_000, 10_000):
        add(f"apply, {rows:,} rows", f"apply/rows:{rows}", f"apply_floor/rows:{rows}")
    for name, argument, variant, variant_title in (
            ("loadHaveNtAppList", "events", "translated", ", translated"),
            ("Strings", "tags", "package", ", of a package")):
        for is_variant in (0, 1):
            for size in SIZES:
                arguments = f"/{argument}:{size}/{variant}:{is_variant}"
                add(f"{name}, {size:,} {argument}{variant_title if is_variant else ''}", name + arguments,
                    f"{name}_floor{arguments}")
    for size in SIZES:
        add(f"one pass over the catalogue, {size:,} tags", f"catalogue/tags:{size}")
    for size in SIZES:
        add(f"MailContent, {size:,} tags", f"MailContent/tags:{size}")
    return lines


def growth(results: Results) -> str:
    def times(name: str) -> str:
        return f"{results.ratio(name.format(5_000), name.format(500)):.1f} times"

    return ("From 500 to 5,000 events or tags the time of a request grows: "
            f"loadHaveNtAppList {times('loadHaveNtAppList/events:{}/translated:0')} "
            f"(translated {times('loadHaveNtAppList/events:{}/translated:1')}), "
            f"Strings {times('Strings/tags:{}/package:0')} (of a package {times('Strings/tags:{}/package:1')}).")


def http_table(size: int, measured: dict[str, dict[str, float]]) -> list[str]:
    load, file = measured["load"], measured["file"]

    def line(title: str, run: dict[str, float]) -> str:
        return (f"| {title} | {run['requestsPerSecond']:,.0f} | {plot.duration(run['p50'] / 1e6)} "
                f"| {plot.duration(run['p99'] / 1e6)} |")

    ratios = (f"**{load[key] / file[key]:.2f}**" for key in ("requestsPerSecond", "p50", "p99"))
    return [f"| HTTP, {WORKERS} workers, {CONNECTIONS} connections | Requests/s | p50 | p99 |", "|---|--:|--:|--:|",
            line(f"load, 200 rows, limit 30 ({size_of(size)})", load), line("static file of that size", file),
            f"| load ÷ file | {' | '.join(ratios)} |"]


def main() -> None:
    parser = argparse.ArgumentParser(description=__doc__, formatter_class=argparse.RawDescriptionHelpFormatter)
    parser.add_argument("--build", metavar="DIR", type=Path, required=True, help="the build folder")
    parser.add_argument("--appliances", metavar="DIR", type=Path, required=True, help="what appliances.py built")
    parser.add_argument("--account", metavar="NAME", default="nobody", help="with whose rights the host calls")
    parser.add_argument("--plot", metavar="FILE", type=Path, required=True, help="where to draw cost over rows")
    parser.add_argument("--quick", action="store_true", help="few and short rounds: for trying out only")
    arguments = parser.parse_args()

    description = machine(arguments.build)
    bench = Bench(arguments.build, arguments.appliances, arguments.account, arguments.quick)
    bench.compare_answers()
    bench.run_rounds()
    http = bench.measure_http()

    results = bench.results
    series = {"this module": "load/rows:{}/all:0/offset:0", "query alone": "load_floor/rows:{}",
              "PHP": "PHP/rows:{}", "CPython": "CPython/rows:{}"}
    arguments.plot.write_text(plot.draw(
        "One load of 30 notifications, by what the database holds",
        {name: {rows: results.median(key.format(rows)) for rows in ROWS} for name, key in series.items()}),
        encoding="utf-8")
    print("\n".join(description + [""] + table(results) + ["", growth(results), ""] + http_table(*http)))


if __name__ == "__main__":
    main()
