"""Runs the daemon and its yardsticks side by side, prints how they compare and writes it down."""
import argparse
import collections
import contextlib
import datetime
import json
import os
import pathlib
import platform
import re
import shlex
import shutil
import socket
import statistics
import subprocess
import sys
import tempfile
import time
import urllib.request

ROOT = pathlib.Path(__file__).resolve().parent.parent
BENCH = ROOT / "bench"
BUILT = ROOT / "build/bench"
DAEMON = ROOT / "build/release/feature_toggled"
FLOOR, CEILING, PIECES = (BUILT / "bench" / name for name in ("floor", "ceiling", "pieces"))
STARTED = time.monotonic()


def progress(text):
    print(f"[{time.monotonic() - STARTED:4.0f} s] {text}", file=sys.stderr, flush=True)


def output(*command, **options):
    return subprocess.run(command, check=True, capture_output=True, text=True, **options).stdout


def make_safe(directory):
    """Puts a stand-in for `reboot` first on PATH, and drops the daemon's variables."""
    stand_in = directory / "bin" / "reboot"
    stand_in.parent.mkdir()
    stand_in.write_text("#!/bin/sh\n")
    stand_in.chmod(0o755)
    os.environ["PATH"] = f"{stand_in.parent}:{os.environ['PATH']}"
    if output("sh", "-c", "command -v reboot").strip() != str(stand_in):
        sys.exit("no stand-in for reboot")
    for name in [name for name in os.environ if name.startswith("FEATURE_TOGGLE_")]:
        del os.environ[name]


class Files:
    """The three files for `count` toggles, a tenth of them changed, and the commands over them."""

    def __init__(self, directory, count):
        self.dir = directory / str(count)
        self.dir.mkdir()
        self.primary, self.secondary, self.build, self.script = (
            self.dir / name for name in ("primary", "secondary", "build", "script"))
        # Laid out as people write it, and as the daemon writes it.
        with self.primary.open("w") as file:
            file.write('{\n  "git_revision": "4f2a9c1",\n  "variables": [\n')
            for i in range(count):
                members = (f"{json.dumps(key)}: {json.dumps(value)}"
                           for key, value in self.toggle(i, "off").items())
                file.write("    {\n      " + ",\n      ".join(members) + "\n    }")
                file.write(",\n" if i < count - 1 else "\n")
            file.write("  ]\n}\n")
        changed = [self.toggle(i, "on") for i in range(0, count, 10)]
        self.secondary.write_text(json.dumps({"git_revision": "4f2a9c1", "variables": changed},
                                             separators=(",", ":")))
        self.build.write_text('{"git_revision": "4f2a9c1"}\n')
        self.daemon = [DAEMON, "-r", self.primary, "-b", self.build, "-s", self.secondary,
                       "-o", self.script]
        self.floor = [FLOOR, self.primary, self.build, self.secondary]
        self.jq = ["jq", "--slurp", "--raw-output", "--from-file", BENCH / "export.jq",
                   self.primary, self.secondary]

    @staticmethod
    def toggle(i, value):
        return {"key": f"DEMO_FEATURE_{i:07}", "value": value, "description":
                f"Switches part {i} of the demo", "options": ["off", "on"]}


def time_runs(directory, commands, rounds, runs):
    """The median wall-clock time of each command in ms, all taken in turn in every round."""
    times = [[] for _ in commands]
    report = directory / "hyperfine.json"
    for _ in range(rounds):
        output("hyperfine", "-N", "--warmup", "1" if runs > 1 else "0", "--runs", str(max(runs, 2)),
               "--export-json", report, *(shlex.join(map(str, command)) for command in commands))
        for into, result in zip(times, json.loads(report.read_text())["results"]):
            into.extend(result["times"])
    return [1000 * statistics.median(values) for values in times]


class Server:
    def __init__(self, command, page="/", **options):
        with socket.socket() as probe:
            probe.bind(("127.0.0.1", 0))
            port = str(probe.getsockname()[1])
        self.url = f"http://127.0.0.1:{port}{page}"
        self.process = subprocess.Popen([str(part).replace("PORT", port) for part in command],
                                        stderr=subprocess.DEVNULL, **options)

    def page(self):
        for _ in range(200):
            with contextlib.suppress(OSError):
                with urllib.request.urlopen(self.url, timeout=20) as answer:
                    return answer.read()
            time.sleep(0.05)
        sys.exit(f"no answer from {self.url}")

    def load(self, seconds, meanwhile=lambda: None):
        """Requests, each on a connection of its own: how many were answered, and how many a second."""
        wrk = subprocess.Popen(["wrk", "-t1", "-c4", f"-d{seconds}s", "--timeout", "10s",
                                "-H", "Connection: close", self.url],
                               stdout=subprocess.PIPE, text=True)
        time.sleep(seconds / 2)
        meanwhile()
        report = wrk.communicate()[0]
        if wrk.returncode or re.search("Socket errors|Non-2xx", report):
            sys.exit(f"requests to {self.url} failed:\n{report}")
        return (int(re.search(r"(\d+) requests in", report)[1]),
                float(re.search(r"Requests/sec: +([\d.]+)", report)[1]))

    def footprint(self):
        """Resident and peak memory in kB, threads, open files."""
        process = pathlib.Path("/proc") / str(self.process.pid)
        status = (process / "status").read_text()
        return [*(int(re.search(rf"{name}:\s+(\d+)", status)[1])
                  for name in ("VmRSS", "VmHWM", "Threads")), len(os.listdir(process / "fd"))]

    def close(self):
        self.process.kill()
        self.process.wait()


@contextlib.contextmanager
def serving(files, with_cgi):
    """The daemon, the ceiling and, if asked for, the CGI, all with the same page."""
    with contextlib.ExitStack() as stack:
        daemon = Server([*files.daemon, "-p", "PORT"])
        stack.callback(daemon.close)
        page = files.dir / "page"
        page.write_bytes(daemon.page())
        with page.open() as file:
            ceiling = Server([CEILING, "PORT"], stdin=file)
        servers = [daemon, ceiling]
        stack.callback(ceiling.close)
        if with_cgi:
            (files.dir / "cgi-bin").mkdir(exist_ok=True)
            shutil.copy(BENCH / "page.cgi", files.dir / "cgi-bin")
            servers.append(Server(
                ["busybox", "httpd", "-f", "-p", "127.0.0.1:PORT", "-h", files.dir],
                "/cgi-bin/page.cgi", env={**os.environ, "PAGE_JQ": str(BENCH / "page.jq"),
                                          "PRIMARY": str(files.primary),
                                          "SECONDARY": str(files.secondary)}))
            stack.callback(servers[-1].close)
        if any(server.page() != page.read_bytes() for server in servers):
            sys.exit("the servers disagree about the page")
        yield servers


def rates(servers, rounds, seconds):
    """Pages per second of each server, the median of rounds in which all take turns."""
    answered = [[server.load(seconds)[1] for server in servers] for _ in range(rounds)]
    return [statistics.median(column) for column in zip(*answered)]


def footprints(server, requests):
    rows = [["listening", *server.footprint()]]
    count = 0
    server.load(1, lambda: rows.append(["answering", *server.footprint()]))
    while count < requests:
        count += server.load(1)[0]
        if len(rows) == 2 and count < requests:
            rows.append([f"after {count:,} more pages", *server.footprint()])
    return [*rows, [f"after {count:,} more pages", *server.footprint()]]


def sizes():
    """The shipped executable's bytes by what they are made of, from the symbols of its twin."""
    owners = [("the daemon's own", r"\b(feature_toggle|file_utils)::|^main$"),
              ("cpp-httplib", r"\bhttplib::"), ("CLI11", r"\bCLI::"), ("RapidJSON", r"\brapidjson::"),
              ("C++ runtime: regular expressions", r"\bstd::__detail::|regex"),
              ("C++ runtime: streams and locales",
               r"\b(locale|money|num_|time_|ctype|codecvt|collate|messages|numpunct|ios|[a-z]*stream)"),
              ("C++ runtime: the rest", "")]
    made_of = collections.Counter()
    seen = set()
    for line in output("nm", "--demangle", "--print-size", BUILT / "feature_toggled").splitlines():
        symbol = re.fullmatch(r"(\w{16}) (\w{16}) ([^bB]) (.*)", line)
        if symbol and symbol[1] not in seen:
            seen.add(symbol[1])
            owner = next(owner for owner, pattern in owners if re.search(pattern, symbol[4]))
            made_of[owner] += int(symbol[2], 16)
    for name, size in re.findall(r"^(\.\S+) +(\d+)", output("size", "-A", DAEMON), re.MULTILINE):
        if re.match(r"\.(eh_frame|gcc_except)", name):
            made_of["unwind tables"] += int(size)
        elif re.match(r"\.(rel|dyn|gnu|plt|got|interp|note)", name):
            made_of["what the loader needs"] += int(size)
    total = DAEMON.stat().st_size
    made_of["constants, padding, headers"] = total - sum(made_of.values())
    return total, made_of


def pieces(quick):
    options = ["--benchmark_min_time=0.01", "--benchmark_filter=/1(0|000|00000)$"] * quick
    report = json.loads(output(PIECES, "--benchmark_format=json", *options))
    counts, rows = {}, collections.defaultdict(list)
    for result in report["benchmarks"]:
        name, _, count = result["run_name"].partition("/")
        if result["run_type"] == "iteration":
            counts[f"{int(count):,} toggles"] = True
            rows[name].append(f"{result['cpu_time']:,.1f} µs")
        elif result.get("aggregate_name") == "BigO":
            rows[name].append(result["big_o"].replace("NlgN", "N log N"))
    return table(["Piece", *counts, "Growth"], [[name, *cells] for name, cells in rows.items()])


def table(head, rows):
    lines = [head, ["---"] * len(head), *rows]
    return "\n".join("| " + " | ".join(map(str, line)) + " |" for line in lines)


def machine():
    cpu = re.search(r"model name\s*: (.*)", pathlib.Path("/proc/cpuinfo").read_text())
    system = platform.freedesktop_os_release()["PRETTY_NAME"]
    memory = os.sysconf("SC_PAGE_SIZE") * os.sysconf("SC_PHYS_PAGES") / 2**30
    return (f"{cpu[1] if cpu else platform.machine()}, {os.cpu_count()} cores, {memory:.0f} GiB, "
            f"{system}, Linux {platform.release()}; {output('g++', '--version').splitlines()[0]}, "
            f"{output('jq', '--version').strip()}")


def measure(directory, quick):
    growth = {}
    counts = [10, 100, 200, 1000, 10_000, 50_000, 100_000, 200_000] + [1_000_000] * (not quick)
    for count in counts:
        progress(f"runs over {count:,} toggles")
        files = Files(directory, count)
        subprocess.run(files.daemon, check=True)
        if output(*files.jq) != files.script.read_text():
            sys.exit("jq and the daemon disagree about the script")
        rounds, runs = (1, 3) if quick or count > 200_000 else (5, 3) if count > 1000 else (15, 10)
        growth[count] = time_runs(directory, [files.daemon, files.floor, files.jq], rounds, runs)
        shutil.rmtree(files.dir)
    return growth


def measure_pages(directory, quick):
    rounds = 1 if quick else 5
    progress("pages of 500 toggles")
    with serving(Files(directory, 500), True) as servers:
        feet = [footprints(server, 1000 if quick else 10_000) for server in servers[:2]]
        small = rates(servers, rounds, 2)
    progress("pages of 10,000 toggles")
    with serving(Files(directory, 10_000), False) as servers:
        large = rates(servers, rounds, 2)
    return feet, small, large


def compare(growth, feet, small, large, size):
    """What is compared, how it came out, and the marks: rows of text, "at least" and "aim"."""
    def times(of, against):
        return growth[of][against] / growth[of][0]

    def per_toggle(count):
        return growth[count][0] / count

    rows = [  # measured, at least, aim, unit
        ("run with 200 toggles, against the floor linked the ordinary way",
         1 / times(200, 1), 1.1, 0.8, ""),
        ("the same, against jq", times(200, 2), 10, 20, " times as fast"),
        ("run with 100,000 toggles, against the floor", 1 / times(100_000, 1), 2.2, 1.6, ""),
        ("the same, against jq", times(100_000, 2), 5, 10, " times as fast"),
        ("cost per toggle at 200,000 against 50,000",
         per_toggle(200_000) / per_toggle(50_000), 1.35, 1.1, ""),
        ("pages of 500 toggles per second, against the ceiling", small[0] / small[1], 0.5, 0.75, ""),
        ("pages of 10,000 toggles per second, against the ceiling",
         large[0] / large[1], 0.22, 0.45, ""),
        ("pages of 500 toggles per second, against BusyBox httpd with a jq CGI",
         small[0] / small[2], 50, 100, " times"),
        ("resident memory serving 500 toggles, against the ceiling server",
         feet[0][-1][1] / feet[1][-1][1], 1.4, 1.1, ""),
        ("stripped release executable, C++ runtime included", size / 1e6, 1.5, 1.0, " MB"),
    ]

    def verdict(measured, least, aim):
        sign = 1 if aim > least else -1
        return ("aim reached" if sign * measured >= sign * aim else
                "reached" if sign * measured >= sign * least else "missed")

    return [(what, f"{measured:.3g}{unit}", f"{least:g}{unit}", f"{aim:g}{unit}",
             verdict(measured, least, aim)) for what, measured, least, aim, unit in rows]


def main():
    parser = argparse.ArgumentParser(description=__doc__)
    parser.add_argument("--quick", action="store_true", help="a trial, for figures of no weight")
    quick = parser.parse_args().quick
    # In memory, if there is room: the programs are compared, not what a disk makes of two renames.
    shared = pathlib.Path("/dev/shm")
    roomy = shared.is_dir() and shutil.disk_usage(shared).free > 2**30
    place = shared if roomy else BUILT
    with tempfile.TemporaryDirectory(prefix="feature_toggled.", dir=place) as directory:
        directory = pathlib.Path(directory)
        make_safe(directory)
        load = os.getloadavg()[0]
        growth = measure(directory, quick)
        feet, small, large = measure_pages(directory, quick)
        progress("pieces")
        piece_table = pieces(quick)
        size, made_of = sizes()
        rows = compare(growth, feet, small, large, size)

        into = BUILT if quick else ROOT / "docs"
        into.mkdir(exist_ok=True)
        data = directory / "growth"
        data.write_text("".join(f"{count} {' '.join(map(str, times))}\n"
                                for count, times in growth.items()))
        output("gnuplot", "-e", f"data='{data}'; plot_file='{into / 'performance.svg'}'",
               BENCH / "growth.gnuplot")
    comparison = table(["What", "Measured", "At least", "Aim", ""], rows)
    text = f"""# What it costs

Written by `scripts/bench{' --quick' * quick}` on {datetime.date.today()}, which measures everything
here and draws the plot. The load was {load:.1f} when it started, on: {machine()}.

{comparison}

Ratios are of medians; all that a row compares took turns in one run. Files were in
{'memory (tmpfs)' if roomy else 'the build directory'}. A tenth of the toggles have a value of their own in the secondary schema.

- The floor ([bench/floor.cpp](../bench/floor.cpp)) reads and parses the same three files with the
  same JSON library, and does nothing with them.
- The ceiling ([bench/ceiling.cpp](../bench/ceiling.cpp)) answers one ready-made page, with the same
  HTTP library, settings and linking.
- jq makes the same script ([bench/export.jq](../bench/export.jq)) and, behind BusyBox httpd, the same
  page ([bench/page.cgi](../bench/page.cgi)).
- Pages are asked for by wrk, four at a time, each on a connection of its own.

## Growth

![Run time against the number of toggles](performance.svg)

{table(["Toggles", "feature_toggled", "Floor", "jq"],
       [[f"{count:,}", *(f"{ms:,.2f} ms" for ms in times)] for count, times in growth.items()])}

What the pieces take (processor time, [bench/pieces.cpp](../bench/pieces.cpp)), with the growth that
Google Benchmark fits:

{piece_table}

## Pages per second

{table(["Toggles", "feature_toggled", "Ceiling", "BusyBox httpd, jq"],
       [["500", *(f"{rate:,.0f}" for rate in small)],
        ["10,000", *(f"{rate:,.0f}" for rate in large), ""]])}

## Memory, threads and files, serving 500 toggles

{table(["Server", "When", "Resident", "Peak", "Threads", "Open files"],
       [[name, row[0], f"{row[1]:,} kB", f"{row[2]:,} kB", *row[3:]]
        for name, rows in zip(("feature_toggled", "ceiling"), feet) for row in rows])}

## The executable

{table(["Part", "Bytes"], [[part, f"{count:,}"] for part, count in made_of.most_common()]
       + [["all of it", f"{size:,}"]])}

By the symbols of a build that keeps them; what is inlined counts for its caller.
"""
    (into / "performance.md").write_text(text)
    print(comparison)
    progress(f"all of it is in {into / 'performance.md'}")


if __name__ == "__main__":
    main()
