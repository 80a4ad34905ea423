"""Collects the figures and writes them as a table for people and as raw numbers for programs."""

import dataclasses
import datetime
import json
import os
import platform
import re
import sys

NOTES = (
    "Ours is `zvbench fetch`, which reads in order, drops the bytes and waits 1 ms when Read gives nothing, or "
    "`zvhttp get -o /dev/null`, where it says so. `curl` writes to the null device; `aria2c` cannot, so it writes a "
    "file to memory (or to the temporary folder where memory is short), and its figures contain that.",
    "Times and rates are those of whole processes, from start to exit, measured in turn; CPU is user and system time "
    "of the client. MB is 10^6 bytes.",
    "The kernels here have no netem. The long line is `zvproxy`, a relay in the same machine that delays both "
    "directions by half the round trip, the connection's set-up included, and paces each connection; TCP's slow start "
    "and losses are not modelled.",
    "nginx lets each request have a second's worth at once before `limit_rate` acts. A whole range fits into that, so with "
    "several connections the limit hardly acts on ours; the paced relay shows what a limited line gives.",
    "One range at a time and connection: without a cap, a long line gives n connections at most n ranges per round trip.",
    "Resume is timed from outside and contains emptying the buffer by reading.",
    "The caches keep their files in the system's temporary folder, and so does `ffmpeg cache:`. Filling is timed inside the process, "
    "from Open until everything is in the cache; what the disk and the system's memory take is one file written in blocks of 512 KiB, each flushed to "
    "the system. `ffmpeg` reads bytes as bytes (`-f data`) and drops them. mpv keeps demuxed "
    "packets and plays them, it does not hand out bytes: it is no peer.",
    "The session: 256 MiB that last 600 s, over a line of 5 or 20 MiB/s; half of the seeks go at most 30 s back or forth, half "
    "anywhere; up to 20 s of media are read after each, as fast as they come. Bytes count as sent when the server's socket has "
    "taken them.",
    "Segments are MPEG-TS of 2 s made by `ffmpeg`. Ours gets their URLs and drops the bytes; `ffmpeg -i list.m3u8 -c copy -f "
    "null -` fetches the playlist as well and takes the packets apart. Both are timed as whole processes.",
)


@dataclasses.dataclass
class Row:
    what: str
    ours: str
    peer: str = "-"
    ratio: str = "-"
    wanted: str = "-"
    reached: str = "-"


class Report:
    def __init__(self, programs, short):
        self.rows = []
        self.raw = {}
        self.failures = []
        self.short = short
        self.machine = describe_machine(programs)

    def compare(self, what, unit, ours, peer, peer_name, least=None, most=None):
        """Ours over the peer's; the ratio is wanted to be at least or at most the number given.

        A peer without a figure (None) is one that is not installed.
        """
        if peer is None:
            self.rows.append(Row(what, number(ours, unit), f"{peer_name}: not installed"))
            return
        ratio = ours / peer if peer else float("nan")
        wanted, reached = judge(ratio, least, most, "of it")
        self.rows.append(Row(what, number(ours, unit), f"{number(peer, unit)} ({peer_name})", f"{ratio:.2f}", wanted,
                             reached))

    def value(self, what, unit, ours, least=None, most=None):
        """A figure that is wanted to be at least or at most the number given, in its own unit."""
        wanted, reached = judge(ours, least, most, unit)
        self.rows.append(Row(what, number(ours, unit), wanted=wanted, reached=reached))

    def text(self, what, ours):
        self.rows.append(Row(what, ours))

    def difference(self, what, unit, ours, peer, peer_name, most):
        """Ours is wanted to be at most this much more than the peer's."""
        if peer is None:
            self.rows.append(Row(what, number(ours, unit), f"{peer_name}: not installed"))
            return
        wanted, reached = judge(ours - peer, None, most, f"{unit} more")
        self.rows.append(Row(what, number(ours, unit), f"{number(peer, unit)} ({peer_name})",
                             f"{ours - peer:+.2f} {unit}", wanted, reached))

    def keep(self, name, figures):
        self.raw[name] = figures

    def failed(self, name, problem):
        print(f"bench: {name}: {problem}", file=sys.stderr)
        self.failures.append(f"{name}: {problem}")

    def markdown(self):
        lines = [f"- {name}: {text}" for name, text in self.machine.items()]
        lines += ["- repetitions: " + ("two, small files: a trial run, in which starting up weighs more than it should" if self.short else "medians of at least five"), ""]
        lines += ["| what | ours | peer | ratio | wanted | reached |", "|---|---|---|---|---|---|"]
        lines += ["| " + " | ".join(dataclasses.astuple(row)) + " |" for row in self.rows]
        lines += ["", *(f"- {note}" for note in NOTES)]
        lines += [f"- Not measured: {failure}" for failure in self.failures]
        return "\n".join(lines) + "\n"

    def write(self, path):
        text = self.markdown()
        print(text, end="", flush=True)
        path.parent.mkdir(parents=True, exist_ok=True)
        path.write_text(text)
        rows = [dataclasses.asdict(row) for row in self.rows]
        raw = {"machine": self.machine, "short": self.short, "rows": rows, "raw": self.raw, "failures": self.failures}
        path.with_suffix(".json").write_text(json.dumps(raw, indent=1) + "\n")


def number(value, unit):
    digits = 0 if abs(value) >= 100 else 1 if abs(value) >= 10 else 2
    return f"{value:.{digits}f} {unit}".strip()


def judge(value, least, most, unit):
    if least is None and most is None:
        return "-", "-"
    bound, word = (least, "at least") if least is not None else (most, "at most")
    reached = value >= bound if least is not None else value <= bound
    return f"{word} {bound:g} {unit}".strip(), "yes" if reached else "no"


def describe_machine(programs):
    versions = programs.versions()
    with open("/proc/cpuinfo", encoding="utf-8") as cpuinfo:
        models = [line.split(":", 1)[1].strip() for line in cpuinfo if line.startswith("model name")]
    libcurl = re.search(r"libcurl/\S+", versions["curl"])
    return {
        "date": datetime.datetime.now(datetime.timezone.utc).strftime("%Y-%m-%d %H:%M UTC"),
        "machine": f"{os.cpu_count()} cores, {models[0] if models else platform.machine()}",
        "kernel": f"{platform.system()} {platform.release()}",
        "libcurl": libcurl.group(0) if libcurl else "unknown",
        "others": ", ".join([short_version(name, text) for name, text in versions.items()]),
        "load at the start": "%.1f" % os.getloadavg()[0],
    }


def short_version(name, text):
    found = re.search(r"\d+\.\d+[\w.]*", text)
    return f"{name} {found.group(0)}" if found else f"{name} {text}"
