"""Measurements of the progressive cache: filling it, reading and seeking meanwhile, what it costs at rest."""

from .alone import gained
from .context import interleaved, median

MIB = 1 << 20
ROUND_TRIP_MS = 40


def big_file(context):
    return context.origin.file("big", context.pick(1024, 128) * MIB)


def inner_rate(runs):
    """MB/s by the clock of the process itself, from Open on."""
    return median([run.figures["bytes"] / run.figures["seconds"] / 1e6 for run in runs])


def fill(context):
    size = context.pick(1024, 128) * MIB
    url = context.origin.url(big_file(context))
    programs = context.programs
    runs = interleaved(context.repetitions, {
        "fetch": lambda: programs.run_own("fetch", url),
        "fill": lambda: programs.run_own("fill", url),
        "through": lambda: programs.run_own("fill", "--read", url),
        "disk": lambda: programs.run_own("disk", "--bytes", size),
        "ffmpeg": programs.run_ffmpeg_raw("cache:" + url)})
    context.report.keep("fill", {name: [run.raw() for run in each] for name, each in runs.items()})
    report_fill(context.report, size, runs)


def report_fill(report, size, runs):
    """Wanted is 0.6 of the downloader or 0.8 of the disk, whichever is less: only that one is judged. The disk's own rate is
    the one with everything flushed to it; what the system takes into its memory says nothing about a disk."""
    filled, fetched, written = (inner_rate(runs[name]) for name in ("fill", "fetch", "disk"))
    synced = median([run.figures["bytes"] / run.figures["syncedSeconds"] / 1e6 for run in runs["disk"]])
    by_downloader = 0.6 * fetched <= 0.8 * synced
    what = "filling the cache, loopback"
    report.compare(what, "MB/s", filled, fetched, "plain downloader", least=0.6 if by_downloader else None)
    report.compare(what, "MB/s", filled, written, "system's memory, each block flushed to it")
    report.compare(what, "MB/s", filled, synced, "disk, flushed to it at the end", least=None if by_downloader else 0.8)
    through = inner_rate(runs["through"])
    report.compare("reading through the cache, loopback", "MB/s", through, fetched, "plain downloader")
    what = "reading through the cache, whole process"
    peer = runs["ffmpeg"]
    rates = [median([run.rate(size) for run in each]) for each in (runs["through"], peer)]
    costs = [median([run.cpu_per_gigabyte(size) for run in each]) for each in (runs["through"], peer)]
    report.compare(what + ", throughput", "MB/s", *rates, "ffmpeg cache:")
    report.compare(what + ", CPU", "s/GB", *costs, "ffmpeg cache:")


def read_latency(context):
    url = context.origin.url(big_file(context))
    runs = [context.programs.bench("read-latency", url) for _ in range(context.repetitions)]
    context.report.keep("read latency", runs)
    samples = sorted(sample for run in runs for sample in run["samples"])
    share = lambda part: samples[min(int(part * len(samples)), len(samples) - 1)]  # noqa: E731
    what = f"Read while the cache fills at full speed ({len(samples)} calls)"
    context.report.value(what + ": median", "ms", share(0.5))
    context.report.value(what + ": 99th percentile", "ms", share(0.99), most=10)
    context.report.value(what + ": worst", "ms", samples[-1], most=50)


def seek(context):
    repeat = context.pick(30, 3)
    cached_seek(context)
    url = context.origin.url(big_file(context))
    seek_from(context, url, 0, repeat, most=15)
    with context.origin.relay(ROUND_TRIP_MS) as port:
        url = context.origin.url(big_file(context), port=port)
        # The transfer is in the middle of an answer: its connection cannot be used again.
        seek_from(context, url, ROUND_TRIP_MS, repeat, most=2 * ROUND_TRIP_MS + 15)


def seek_from(context, url, round_trip, repeat, most):
    for state in ("running", "paused"):
        figures = context.programs.bench("seek", "--repeat", repeat, *["--paused"] * (state == "paused"), url)
        context.report.keep(f"seek {state} {round_trip}", figures)
        what = f"seek, transfer {state}, {round_trip} ms round trip, to the first byte, "
        for kind, label, wanted in (("uncached", "outside of the cache", most), ("cached", "inside", 1)):
            context.report.value(what + label + ": median", "ms", figures[kind]["median"], most=wanted)
            context.report.value(what + label + ": worst", "ms", figures[kind]["max"])


def cached_seek(context):
    figures = context.programs.bench("cached-seek", "--repeat", context.pick(200, 50))
    context.report.keep("cached seek", figures)
    for state, label in (("running", "while the transfer runs"), ("complete", "all is fetched")):
        what = f"seek within one stretch of the cache, {label}: "
        context.report.value(what + "median", "ms", figures[state]["median"], most=1)
        context.report.value(what + "requests", "", figures[state]["requests"], most=0)


def session(context):
    """Over a line of twelve times the media's rate, and over a fast one, where most seeks start from a full cache."""
    seeks = context.pick(100, 20)
    for rate, seeds in context.pick(((5, (1,)), (20, (1, 2, 3))), ((20, (1,)),)):
        runs = [context.programs.bench("session", "--seed", seed, "--seeks", seeks, "--rate", rate * MIB) for seed in seeds]
        context.report.keep(f"session {rate}", runs)
        for run in runs:
            report_session(context.report, f"session of {seeks} seeks, {rate} MiB/s, seed {run['seed']}: ", run)


def report_session(report, what, run):
    sent = run["sentBytes"] / 1e6
    report.text(what + "answered by the cache / requests / sent", f"{run['cached']} / {run['requests']} / {sent:.0f} MB")
    report.value(what + "sent twice", "%", run["twicePercent"], most=2)


def handles(context):
    url = context.origin.url(context.origin.file("through", 16 * MIB))
    idle = context.programs.bench("cache-idle", "--seconds", context.pick(3, 2), url)
    context.report.keep("cache idle", idle)
    for state, label in (("paused", "paused on a full cache"), ("complete", "all is fetched")):
        context.report.value(f"wake-ups of a cache, {label}", "per second", idle[state]["perSecond"], most=0)
    figures = {count: context.programs.bench("cache-handles", "--count", count, url) for count in (1, 10)}
    context.report.keep("cache handles", figures)
    for state, label in (("plain", "before SetLocalCache"), ("idle", "with its file cache on"), ("after", "after playing 16 MiB")):
        each = gained(figures[10], state, "residentKib") / 10
        context.report.value(f"memory of each of 10 progressive caches, {label}", "KiB", each)
    for count, each in figures.items():
        threads = [gained(each, state, "threads") for state in ("plain", "idle", "after")]
        context.report.text(f"threads of {count} progressive cache{'s' * (count > 1)}, before SetLocalCache / with / after playing",
                            " / ".join(map(str, threads)))
