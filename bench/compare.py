"""Measures the daemon beside an empty program and beside what would be used instead of it, and
writes the tables between the two markers of docs/performance.md."""
import argparse
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
sys.path.append(str(ROOT / "scripts"))
from daemon import path_with_stand_in

BENCH = ROOT / "bench"
BUILT = ROOT / "build/bench"
DOCUMENT = ROOT / "docs/performance.md"
MARKERS = "<!-- scripts/bench writes from here -->\n", "<!-- to here -->\n"
DAEMON = ROOT / "build/release/feature_toggled"
STATIC_DAEMON = ROOT / "build/static/feature_toggled"
EMPTY, STATIC_EMPTY = BUILT / "empty", BUILT / "empty-static"


def output(*command, **options):
    return subprocess.run(command, check=True, capture_output=True, text=True, **options).stdout


class Files:
    """The files for `count` toggles, a tenth of them changed, and what is run over them."""

    def __init__(self, directory, count):
        self.dir = directory / str(count)
        self.dir.mkdir()
        self.primary, self.secondary, self.build, self.script = (
            self.dir / name for name in ("primary", "secondary", "build", "script"))
        revision = {"git_revision": "4f2a9c1"}
        self.build.write_text(json.dumps(revision))
        # Laid out as people write it, and as the daemon writes it.
        defaults = [self.toggle(i, "off") for i in range(count)]
        self.primary.write_text(json.dumps({**revision, "variables": defaults}, indent=2))
        changed = [self.toggle(i, "on") for i in range(0, count, 10)]
        self.secondary.write_text(json.dumps({**revision, "variables": changed},
                                             separators=(",", ":")))
        self.arguments = ["-r", self.primary, "-b", self.build, "-s", self.secondary,
                          "-o", self.script]
        self.jq = ["jq", "--slurp", "--raw-output", "--from-file", BENCH / "export.jq",
                   self.primary, self.secondary]

    @staticmethod
    def toggle(i, value):
        return {"key": f"DEMO_FEATURE_{i:07}", "value": value, "options": ["off", "on"],
                "description": f"Switches part {i} of the demo"}


def time_runs(files, commands, rounds, runs):
    """The median time of a run of each command in ms. All take turns in every round."""
    subprocess.run([DAEMON, *files.arguments], check=True)
    if output(*files.jq) != files.script.read_text():
        sys.exit("jq and the daemon disagree about the script")
    times = [[] for _ in commands]
    report = files.dir / "hyperfine.json"
    for _ in range(rounds):
        output("hyperfine", "-N", "--warmup", "1", "--runs", str(runs), "--export-json", report,
               *(shlex.join(map(str, command)) for command in commands))
        for into, result in zip(times, json.loads(report.read_text())["results"]):
            into.extend(result["times"])
    return [1000 * statistics.median(values) for values in times]


def size(program):
    """Bytes of a program and of its libraries; but the C library, which a device has already."""
    found = subprocess.run(["ldd", program], capture_output=True, text=True).stdout
    libraries = re.findall(r"=> (/\S*/lib(?!c\.|m\.)\S+)", found)
    return sum(pathlib.Path(file).stat().st_size for file in [program, *libraries])


def resident(process):
    """The memory in kB that a process has in use."""
    status = pathlib.Path(f"/proc/{process.pid}/status").read_text()
    return int(re.search(r"VmRSS:\s+(\d+)", status)[1])


@contextlib.contextmanager
def running(command, **options):
    process = subprocess.Popen(command, stderr=subprocess.DEVNULL, **options)
    try:
        yield process
    finally:
        process.kill()
        process.wait()


def free_port():
    with socket.socket() as probe:
        probe.bind(("127.0.0.1", 0))
        return str(probe.getsockname()[1])


def get(url):
    for _ in range(200):
        with contextlib.suppress(OSError), urllib.request.urlopen(url, timeout=20) as answer:
            return answer.read()
        time.sleep(0.05)
    sys.exit(f"no answer from {url}")


def pages_per_second(url, seconds):
    report = output("wrk", "-t1", "-c4", f"-d{seconds}s", "--timeout", "10s",
                    "-H", "Connection: close", url)
    if re.search("Socket errors|Non-2xx", report):
        sys.exit(f"requests to {url} failed:\n{report}")
    return float(re.search(r"Requests/sec: +([\d.]+)", report)[1])


def serve(files, rounds, seconds):
    """The memory and the pages per second of the daemon and of BusyBox httpd with jq as its CGI.
    Both take turns in every round; the memory is what is in use after all of them."""
    cgi = files.dir / "cgi-bin" / "page.cgi"
    cgi.parent.mkdir()
    shutil.copy(BENCH / "page.cgi", cgi)
    environment = {**os.environ, "PAGE_JQ": str(BENCH / "page.jq"),
                   "PRIMARY": str(files.primary), "SECONDARY": str(files.secondary)}
    port, cgi_port = free_port(), free_port()
    urls = f"http://127.0.0.1:{port}/", f"http://127.0.0.1:{cgi_port}/cgi-bin/page.cgi"
    with running([DAEMON, *files.arguments, "-p", port]) as daemon, \
            running(["busybox", "httpd", "-f", "-p", f"127.0.0.1:{cgi_port}", "-h", files.dir],
                    env=environment) as httpd:
        if get(urls[0]) != get(urls[1]):
            sys.exit("the servers disagree about the page")
        rates = [[pages_per_second(url, seconds) for url in urls] for _ in range(rounds)]
        return ([resident(daemon), resident(httpd)],
                [statistics.median(column) for column in zip(*rates)])


def measure(directory, quick):
    """The rows of both tables: what is measured, by whom, the figures and their unit."""
    jq = "jq, the same script"
    programs = {"feature_toggled": DAEMON, "feature_toggled, static": STATIC_DAEMON,
                "an empty program": EMPTY, "an empty program, static": STATIC_EMPTY}
    files = Files(directory, 200)
    times = time_runs(files, [[DAEMON, *files.arguments], [STATIC_DAEMON, *files.arguments],
                              [EMPTY], [STATIC_EMPTY], files.jq], 1 if quick else 15, 10)
    sizes = {name: size(program) / 1000 for name, program in programs.items()}
    sizes["jq and its libraries"] = size(shutil.which("jq")) / 1000
    with running([EMPTY, "wait"]) as empty:
        time.sleep(0.1)
        least = resident(empty)
    (daemon, httpd), rates = serve(files, 1 if quick else 5, 2)
    rows = [
        ("Time of a run (shorter is better)", " ms", "long", dict(zip([*programs, jq], times))),
        ("Executable (smaller is better)", " kB", "large", sizes),
        ("Memory while serving (less is better)", " kB", "much", {
            "feature_toggled": daemon, "an empty program": least, "BusyBox httpd": httpd}),
        ("Pages per second (more is better)", "", "many", {
            "feature_toggled": rates[0], "BusyBox httpd with jq, the same page": rates[1]})]

    growth = []
    for count in [10, 100, 1000, 10_000, 100_000] + [1_000_000] * (not quick):
        files = Files(directory, count)
        turns = (1, 3) if quick or count > 100_000 else (5, 3) if count > 1000 else (5, 10)
        own, others = time_runs(files, [[DAEMON, *files.arguments], files.jq], *turns)
        growth.append([f"{count:,}", f"{own:,.2f} ms", f"{others:,.2f} ms",
                       f"{1000 * own / count:,.2f} µs"])
        shutil.rmtree(files.dir)
    return rows, growth


def table(head, rows):
    lines = [head, ["---"] * len(head), *rows]
    return "".join("| " + " | ".join(map(str, line)) + " |\n" for line in lines)


def compared(measurements):
    """Each figure, and how many times the daemon's it is: the first of its measurement."""
    for what, unit, word, figures in measurements:
        (daemon, own), *others = figures.items()
        yield what, daemon, quantity(own, unit), ""
        for name, figure in others:
            ratio = figure / own
            times = f"{ratio:.2g} times" if ratio >= 0.1 else f"1/{own / figure:.0f}"
            yield "", name, quantity(figure, unit), f"{times} as {word}"


def quantity(figure, unit):
    return f"{figure:,.{2 if figure < 100 else 0}f}{unit}"


def machine():
    cpu = re.search(r"model name\s*: (.*)", pathlib.Path("/proc/cpuinfo").read_text())
    system = platform.freedesktop_os_release()["PRETTY_NAME"]
    memory = os.sysconf("SC_PAGE_SIZE") * os.sysconf("SC_PHYS_PAGES") / 2**30
    return (f"{cpu[1] if cpu else platform.machine()}, {os.cpu_count()} cores, {memory:.0f} GiB, "
            f"{system}, Linux {platform.release()}; {output('g++', '--version').splitlines()[0]}, "
            f"{output('jq', '--version').strip()}")


def main():
    parser = argparse.ArgumentParser(description=__doc__)
    parser.add_argument("--quick", action="store_true", help="a trial, for figures of no weight")
    quick = parser.parse_args().quick
    # In memory, if there is room: the programs are compared, not what a disk makes of two renames.
    shared = pathlib.Path("/dev/shm")
    roomy = shared.is_dir() and shutil.disk_usage(shared).free > 2**30
    load = os.getloadavg()[0]
    with tempfile.TemporaryDirectory(prefix="feature_toggled.",
                                     dir=shared if roomy else BUILT) as directory:
        os.environ["PATH"] = path_with_stand_in(pathlib.Path(directory))
        for variable in [name for name in os.environ if name.startswith("FEATURE_TOGGLE_")]:
            del os.environ[variable]
        rows, growth = measure(pathlib.Path(directory), quick)
    measured = f"""
On {datetime.date.today()}, on {machine()}; \
files in {"memory" if roomy else "the build directory"}; \
load {load:.1f} at the start{"; a trial, its figures have no weight" * quick}.

{table(["What", "Of", "Measured", "Against feature_toggled"], compared(rows))}
How the time of a run grows with the number of toggles:

{table(["Toggles", "feature_toggled", "jq", "feature_toggled, per toggle"], growth)}
"""
    before, _, rest = DOCUMENT.read_text().partition(MARKERS[0])
    _, end, after = rest.partition(MARKERS[1])
    if not end:
        sys.exit(f"{DOCUMENT} has no markers")
    into = BUILT / "performance.md" if quick else DOCUMENT
    into.write_text(before + MARKERS[0] + measured + MARKERS[1] + after)
    print(measured, f"These tables are in {into}.", sep="\n")


if __name__ == "__main__":
    main()
