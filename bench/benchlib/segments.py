"""Measurements of the segment cache: playing a list, opening, Release, what it costs at rest."""

import subprocess

from .alone import gained
from .context import interleaved, median
from .programs import plain_environment

ROUND_TRIP_MS = 40
CAP = 1_000_000
SECONDS_EACH = 2


class Rendition:
    """Segments made by ffmpeg in a folder of the server's, with a playlist of them."""

    def __init__(self, context, name, count, kilobits):
        self.origin = context.origin
        self.name = name
        self.folder = context.origin.root / "files" / name
        if not self.folder.exists():
            self.make(context.programs.ffmpeg, count, kilobits)
        self.files = sorted(self.folder.glob("*.ts"))[:count]
        self.size = sum(path.stat().st_size for path in self.files)

    def make(self, ffmpeg, count, kilobits):
        if ffmpeg is None:
            raise RuntimeError("ffmpeg, which makes the segments, is not installed")
        self.folder.mkdir()
        rate = f"{kilobits}k"
        subprocess.run([
            ffmpeg, "-nostdin", "-v", "error", "-f", "lavfi", "-i", "testsrc2=s=640x360:r=25", "-f", "lavfi", "-i", "sine",
            "-t", str(count * SECONDS_EACH), "-c:v", "mpeg2video", "-b:v", rate, "-minrate", rate, "-maxrate", rate,
            "-bufsize", f"{kilobits // 2}k", "-g", "50", "-c:a", "aac", "-f", "hls", "-hls_time", str(SECONDS_EACH),
            "-hls_list_size", "0", "-hls_segment_filename", self.folder / "s%03d.ts", self.folder / "list.m3u8",
        ], check=True, env=plain_environment())

    def list_file(self, prefix, port=None):
        """A file with the URLs for ours."""
        path = self.origin.root / "list"
        path.write_text("".join(f"{self.url(prefix, file.name, port)}\n" for file in self.files))
        return path

    def url(self, prefix, name, port=None):
        return self.origin.url(f"{prefix}{self.name}/{name}", port=port)


def usual(context):
    return Rendition(context, "segments", context.pick(60, 12), 1800)


def play(context):
    at_once(context)
    far_away(context)
    limited(context)
    paced(context)


def contest(context, label, rendition, repetitions, prefix="", port=None, single=True):
    """Runs ours with 1 and 5 workers and ffmpeg in turn: {"1": [Run], "5": [Run], "ffmpeg": [Run]}."""
    urls = rendition.list_file(prefix, port)
    run_own = context.programs.run_own
    contestants = {"5": lambda: run_own("segments", "--workers", 5, urls)}
    if single:
        contestants["1"] = lambda: run_own("segments", "--workers", 1, urls)
    contestants["ffmpeg"] = context.programs.run_ffmpeg(
        "-i", rendition.url(prefix, "list.m3u8", port), "-c", "copy", "-f", "null", "-")
    runs = interleaved(repetitions, contestants)
    if any(run.figures["bytes"] != rendition.size for name in ("1", "5") if name in runs for run in runs[name]):
        raise RuntimeError("not all bytes of the segments came")
    context.report.keep("segments " + label, {name: [run.raw() for run in each] for name, each in runs.items()})
    return runs


def seconds(runs):
    return median([run.seconds for run in runs])


def report_seconds(report, what, runs, most=None):
    peer = seconds(runs["ffmpeg"])
    for workers in ("1", "5"):
        if workers in runs:
            label = f"{what}, {workers} worker{'s' * (workers != '1')}"
            report.compare(label, "s", seconds(runs[workers]), peer, "ffmpeg", most=most if workers == "5" else None)


def describe(rendition):
    return f"{len(rendition.files)} segments, {rendition.size / 1e6:.0f} MB"


def at_once(context):
    rendition = usual(context)
    runs = contest(context, "0", rendition, context.repetitions)
    report_seconds(context.report, f"{describe(rendition)}, no delay", runs)
    peer = median([run.cpu_per_gigabyte(rendition.size) for run in runs["ffmpeg"]])
    for workers in ("1", "5"):
        cost = median([run.cpu_per_gigabyte(rendition.size) for run in runs[workers]])
        label = f"{describe(rendition)}, {workers} worker{'s' * (workers != '1')}, CPU"
        context.report.compare(label, "s/GB", cost, peer, "ffmpeg")


def far_away(context):
    rendition = usual(context)
    with context.origin.relay(ROUND_TRIP_MS) as port:
        runs = contest(context, "40", rendition, context.repetitions, port=port)
    report_seconds(context.report, f"{describe(rendition)}, {ROUND_TRIP_MS} ms round trip", runs, most=0.5)


def report_rates(report, what, size, runs, least=None):
    peer = median([run.rate(size) for run in runs["ffmpeg"]])
    for workers in ("1", "5"):
        if workers in runs:
            label = f"{what}, {workers} worker{'s' * (workers != '1')}"
            rate = median([run.rate(size) for run in runs[workers]])
            if workers == "5":
                report.value(label, "MB/s", rate, least=least)
            report.compare(label, "MB/s", rate, peer, "ffmpeg")


def limited(context):
    """Segments of more than a second's worth, or the limit would not act."""
    rendition = Rendition(context, "large", context.pick(20, 6), 9000)
    runs = contest(context, "limit", rendition, context.pick(2, 1), prefix="limited/", single=not context.short)
    report_rates(context.report, f"{describe(rendition)}, nginx `limit_rate 1m`", rendition.size, runs, least=4.5)


def paced(context):
    rendition = Rendition(context, "segments-paced", context.pick(30, 6), 1800)
    with context.origin.relay(ROUND_TRIP_MS, CAP) as port:
        runs = contest(context, "paced", rendition, context.pick(2, 1), port=port, single=not context.short)
    what = f"{describe(rendition)}, {ROUND_TRIP_MS} ms round trip, 1 MB/s per connection"
    report_rates(context.report, what, rendition.size, runs)


def open_segment(context):
    rendition = usual(context)
    repeat = context.pick(200, 50)
    opened(context, "0 ms round trip", rendition.list_file(""), repeat)
    with context.origin.relay(ROUND_TRIP_MS) as port:
        opened(context, f"{ROUND_TRIP_MS} ms round trip", rendition.list_file("", port), repeat)
    for workers in (1, 5):
        figures = context.programs.bench("segment-silent", "--workers", workers, "--repeat", context.pick(50, 10))
        context.report.keep(f"segment silent {workers}", figures)
        what = f"Open of an uncached segment while {workers} worker{'s wait' if workers > 1 else ' waits'} for a silent server, to its request: "
        context.report.value(what + "median", "ms", figures["median"])
        context.report.value(what + "worst", "ms", figures["max"], most=20)


def opened(context, label, urls, repeat):
    figures = context.programs.bench("segment-open", "--repeat", repeat, urls)
    context.report.keep("segment open " + label, figures)
    for kind, most in (("cached", 1), ("uncached", None)):
        what = f"Open of {'a' if kind == 'cached' else 'an'} {kind} segment, {label}, to the first byte: "
        context.report.value(what + "median", "ms", figures[kind]["median"], most=most)
        context.report.value(what + "worst", "ms", figures[kind]["max"])


def release(context):
    figures = context.programs.bench("segment-release", "--repeat", context.pick(50, 10))
    context.report.keep("segment release", figures)
    for state, times in figures.items():
        context.report.value(f"Release, 5 workers {state}: median", "ms", times["median"])
        context.report.value(f"Release, 5 workers {state}: worst", "ms", times["max"], most=100)


def handles(context):
    rendition = Rendition(context, "few", 10, 1800)
    urls = rendition.list_file("")
    idle = context.programs.bench("segment-idle", "--seconds", context.pick(3, 2), urls)
    context.report.keep("segment idle", idle)
    context.report.value("wake-ups of a segment cache, all cached", "per second", idle["perSecond"], most=0)
    figures = {count: context.programs.bench("segment-handles", "--count", count, urls) for count in (1, 10)}
    context.report.keep("segment handles", figures)
    states = (("plain", "before SetLocalCache"), ("idle", "with its local cache on"), ("after", "after playing 10 segments"))
    for state, label in states:
        each = gained(figures[10], state, "residentKib") / 10
        context.report.value(f"memory of each of 10 segment caches, {label}", "KiB", each)
    for count, each in figures.items():
        threads = [gained(each, state, "threads") for state, _ in states]
        context.report.text(f"threads of {count} segment cache{'s' * (count > 1)}, before SetLocalCache / with / after playing",
                            " / ".join(map(str, threads)))
