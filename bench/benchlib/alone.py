"""Measurements inside one process, without a peer: Close, resume, memory, wake-ups, Init and Release."""

MIB = 1 << 20


def close(context):
    figures = context.programs.bench("close", "--repeat", context.pick(200, 20))
    context.report.keep("close", figures)
    for state, times in figures.items():
        context.report.value(f"Close, {state}: median", "ms", times["median"], most=3)
        context.report.value(f"Close, {state}: 99th percentile", "ms", times["p99"], most=20)


def resume(context):
    figures = context.programs.bench("resume", "--repeat", context.pick(100, 20))
    context.report.keep("resume", figures)
    context.report.value("resume of a paused transfer: median", "ms", figures["median"], most=2)
    context.report.value("resume of a paused transfer: 99th percentile", "ms", figures["p99"])


def handles(context):
    """The first handle of a process also starts libcurl and its TLS library, so only several tell what one costs."""
    url = context.origin.url(context.origin.file("handles", 8 * MIB))
    figures = {count: context.programs.bench("handles", "--count", count, "--url", url) for count in (1, 10, 100)}
    context.report.keep("handles", figures)
    for state, label, most in (("idle", "before its first Open", 400), ("after", "after a download", None)):
        first = gained(figures[1], state, "residentKib")
        context.report.value(f"memory of the first handle, the start of libcurl included, {label}", "KiB", first)
        for count in (10, 100):
            each = gained(figures[count], state, "residentKib") / count
            context.report.value(f"memory of each of {count} handles, {label}", "KiB", each, most=most)
    for count, each in figures.items():
        threads = [gained(each, state, "threads") for state in ("idle", "after")]
        context.report.text(f"threads of {count} handle{'s' * (count > 1)}, idle / after a download",
                            " / ".join(map(str, threads)))


def gained(figures, state, key):
    return figures[state][key] - figures["before"][key]


def idle(context):
    figures = context.programs.bench("idle", "--seconds", 3)
    context.report.keep("idle", figures)
    context.report.value("wake-ups of an idle handle", "per second", figures["perSecond"], most=0)


def init(context):
    figures = context.programs.bench("init", "--repeat", context.pick(50, 20))
    context.report.keep("init", figures)
    context.report.value("Init and Release together: median", "ms", figures["median"], most=5)
