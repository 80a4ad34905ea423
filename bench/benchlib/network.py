"""Measurements of transfers, in turn with the peers: throughput, limited rates, a long line, the first byte."""

from .context import interleaved, median

SEGMENT_BYTES = 512000
ROUND_TRIP_MS = 40
CAP = 1_000_000
MIB = 1 << 20


def keep_runs(context, name, runs):
    context.report.keep(name, {key: [vars(run) | {"output": None} for run in each] for key, each in runs.items()})


def rates(runs, size):
    return median([run.rate(size) for run in runs])


def costs(runs, size):
    return median([run.cpu_per_gigabyte(size) for run in runs])


def verify(context, name, url, connections):
    """Outside of what is measured: the right bytes are what is so fast."""
    digest, complaints = context.programs.digest_of_bench(url, connections)
    if complaints or digest != context.origin.digest(name):
        raise RuntimeError(f"wrong bytes over {connections} connections of {url}: {complaints}")


def throughput(context):
    size = context.pick(1024, 128) * MIB
    name = context.origin.file("big", size)
    for scheme in ("http", "https"):
        url = context.origin.url(name, scheme)
        for connections in (1, 5):
            verify(context, name, url, connections)
        runs = interleaved(context.repetitions, throughput_contestants(context, url))
        keep_runs(context, f"throughput {scheme}", runs)
        report_throughput(context.report, scheme, size, runs)


def throughput_contestants(context, url):
    programs = context.programs
    contestants = {"curl": programs.run_curl(url)}
    for count in (1, 2, 5):
        contestants[f"ours {count}"] = programs.run_bench(url, count)
        contestants[f"aria2c {count}"] = programs.run_aria2c(url, count, context.origin.peer_folder)
        contestants[f"zvhttp {count}"] = programs.run_zvhttp(url, count)
    return contestants


def report_throughput(report, scheme, size, runs):
    """The figures that are wanted are those of plain HTTP."""
    plain = scheme == "http"
    where = f"{scheme.upper()} on loopback"
    for program, label in (("ours", ""), ("zvhttp", " (`zvhttp get`)")):
        one = runs[f"{program} 1"]
        for count in (1, 2, 5):
            mine = runs[f"{program} {count}"]
            judged = plain and program == "ours"
            what = f"{where}, {count} connection{'s' * (count > 1)}{label}"
            peers = [("curl", runs["curl"])] if count == 1 else [(f"{program}, 1 connection", one)]
            if program == "ours":
                peers.append((f"aria2c -x{count}", runs[f"aria2c {count}"]))
            for place, (peer_name, peer) in enumerate(peers):
                speed, cost = wanted_throughput(count) if judged and place == 0 else (None, None)
                report.compare(what + ", throughput", "MB/s", rates(mine, size), rates(peer, size), peer_name, least=speed)
                report.compare(what + ", CPU", "s/GB", costs(mine, size), costs(peer, size), peer_name, most=cost)


def wanted_throughput(count):
    """Share of the peer's throughput, and multiple of its CPU time."""
    return {1: (0.85, 1.5), 5: (0.8, 1.6)}.get(count, (None, None))


def limited_rate(context):
    programs = context.programs
    for count, least in ((1, None), (5, 4.7)):
        size = count * context.pick(6, 2) * MIB
        name = context.origin.file(f"limited-{count}", size)
        url = context.origin.url("limited/" + name)
        contestants = {"curl": programs.run_curl(url)} if count == 1 else {}
        contestants["ours"] = programs.run_bench(url, count)
        contestants[f"aria2c -x{count}"] = programs.run_aria2c(url, count, context.origin.peer_folder)
        runs = interleaved(context.repetitions, contestants)
        keep_runs(context, f"limit {count}", runs)
        what = f"nginx `limit_rate 1m`, {count} connection{'s' * (count > 1)}"
        ours = rates(runs.pop("ours"), size)
        if least is not None:
            context.report.value(what, "MB/s", ours, least=least)
        for peer_name, peer in runs.items():
            context.report.compare(what, "MB/s", ours, rates(peer, size), peer_name)


def distance(context):
    relay_itself(context)
    uncapped(context)
    with context.origin.relay(ROUND_TRIP_MS, CAP) as port:
        for count in context.pick((1, 2, 3, 4, 5), (1, 5)):
            capped(context, port, count)


def relay_itself(context):
    """The long line must not be the limit of anything but what it models."""
    size = context.pick(1024, 128) * MIB
    name = context.origin.file("big", size)
    with context.origin.relay(0) as port:
        run = context.programs.run_curl(context.origin.url(name, port=port))
        if run is not None:
            runs = interleaved(context.repetitions, {"curl": run})
            context.report.value("`zvproxy` alone, no delay, no cap, `curl`", "MB/s", rates(runs["curl"], size), least=500)


def uncapped(context):
    size = context.pick(1024, 128) * MIB
    name = context.origin.file("big", size)
    with context.origin.relay(ROUND_TRIP_MS) as port:
        url = context.origin.url(name, port=port)
        contestants = {"curl": context.programs.run_curl(url)}
        for count in (1, 5):
            contestants[f"ours {count}"] = context.programs.run_bench(url, count)
            contestants[f"aria2c {count}"] = context.programs.run_aria2c(url, count, context.origin.peer_folder)
        runs = interleaved(context.repetitions, contestants)
    keep_runs(context, "distance uncapped", runs)
    what = f"{ROUND_TRIP_MS} ms round trip, no cap, "
    report = context.report
    report.compare(what + "1 connection", "MB/s", rates(runs["ours 1"], size), rates(runs["curl"], size), "curl", least=0.95)
    report.compare(what + "1 connection", "MB/s", rates(runs["ours 1"], size), rates(runs["aria2c 1"], size), "aria2c -x1")
    report.compare(what + "5 connections", "MB/s", rates(runs["ours 5"], size), rates(runs["aria2c 5"], size), "aria2c -x5")


def capped(context, port, count):
    """The most that one range at a time allows: each costs its time on the link and one round trip."""
    size = count * context.pick(12, 3) * SEGMENT_BYTES
    url = context.origin.url(context.origin.file(f"capped-{count}", size), port=port)
    contestants = {"ours": context.programs.run_bench(url, count)}
    if count in (1, 5):
        contestants["aria2c"] = context.programs.run_aria2c(url, count, context.origin.peer_folder)
    runs = interleaved(context.repetitions, contestants)
    keep_runs(context, f"distance capped {count}", runs)
    most = count * SEGMENT_BYTES / (SEGMENT_BYTES / CAP + ROUND_TRIP_MS / 1000) / 1e6
    what = f"{ROUND_TRIP_MS} ms round trip, 1 MB/s per connection, n = {count}"
    ours = rates(runs["ours"], size)
    context.report.compare(what, "MB/s", ours, most, "n × S / (S / c + RTT)", least=0.95)
    if "aria2c" in runs:
        context.report.compare(what, "MB/s", ours, rates(runs["aria2c"], size), f"aria2c -x{count}")


def first_byte(context):
    big = context.origin.file("big", context.pick(1024, 128) * MIB)
    small = context.origin.file("small", 16384)
    for scheme in ("http", "https"):
        for label, name in (("16 KiB", small), ("big", big)):
            url = context.origin.url(name, scheme)
            results = interleaved(context.pick(25, 8), {
                "curl": context.programs.curl_first_byte(url),
                "ours": lambda: context.programs.bench("first-byte", "--repeat", 1, url)["median"]})
            context.report.keep(f"first byte {scheme} {label}", results)
            context.report.difference(f"first byte, {scheme.upper()}, {label} file", "ms", median(results["ours"]),
                                      median(results["curl"]), "curl", most=3)
