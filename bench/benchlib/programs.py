"""Runs ours and the peers, and counts what the kernel charges them for."""

import dataclasses
import hashlib
import json
import os
import pathlib
import shutil
import subprocess
import tempfile
import threading
import time

# The longest run takes about ten seconds; one that takes this long hangs.
LIMIT_SECONDS = 90


@dataclasses.dataclass
class Run:
    """One finished process."""

    seconds: float
    cpu_seconds: float
    output: str

    @property
    def figures(self):
        """What zvbench printed."""
        return json.loads(self.output)

    def raw(self):
        """For the raw numbers: of a peer's output nothing is kept."""
        return {"seconds": self.seconds, "cpu_seconds": self.cpu_seconds} | (self.figures if self.output.startswith("{") else {})

    def rate(self, size):
        """Megabytes (10^6) per second, the start of the process included."""
        return size / self.seconds / 1e6

    def cpu_per_gigabyte(self, size):
        return self.cpu_seconds / (size / 1e9)


def plain_environment():
    """Without what would send a client through a proxy or give it other defaults."""
    return {key: value for key, value in os.environ.items() if not key.lower().endswith("_proxy")} | {"LC_ALL": "C"}


def run_timed(command):
    """Runs command to its end; RuntimeError when it fails or takes too long."""
    with tempfile.TemporaryFile() as output, tempfile.TemporaryFile() as complaints:
        start = time.perf_counter()
        process = subprocess.Popen(command, stdin=subprocess.DEVNULL, stdout=output, stderr=complaints,
                                   env=plain_environment())
        watchdog = threading.Timer(LIMIT_SECONDS, process.kill)
        watchdog.start()
        try:
            _, status, usage = os.wait4(process.pid, 0)
            seconds = time.perf_counter() - start
            process.returncode = os.waitstatus_to_exitcode(status)
        finally:
            watchdog.cancel()
            if process.returncode is None:
                process.kill()
        output.seek(0)
        complaints.seek(0)
        if process.returncode != 0:
            said = complaints.read().decode(errors="replace").strip()[-500:]
            how = f"ended with {process.returncode}" if seconds < LIMIT_SECONDS else f"hung for {LIMIT_SECONDS} s"
            raise RuntimeError(" ".join([pathlib.Path(command[0]).name, *command[1:], how + ":", said]))
        return Run(seconds, usage.ru_utime + usage.ru_stime, output.read().decode())


class Programs:
    """Command lines of every client. A peer that is not installed gives None instead of something to run."""

    def __init__(self, directory):
        self.directory = pathlib.Path(directory)
        self.curl = shutil.which("curl")
        self.aria2c = shutil.which("aria2c")
        self.ffmpeg = shutil.which("ffmpeg")
        self.openssl = shutil.which("openssl")
        self.nginx = shutil.which("nginx", path=os.environ.get("PATH", "") + ":/usr/sbin:/usr/local/sbin")

    def own(self, name):
        path = self.directory / name
        if not path.is_file():
            raise RuntimeError(f"{name} is not built in {self.directory}")
        return str(path)

    def bench(self, *arguments):
        """What a command of zvbench found."""
        return self.run_own(*arguments).figures

    def run_own(self, *arguments):
        return run_timed([self.own("zvbench"), *map(str, arguments)])

    def run_bench(self, url, connections):
        return lambda: run_timed([self.own("zvbench"), "fetch", "-n", str(connections), url])

    def digest_of_bench(self, url, connections):
        """SHA-256 of what arrives, and what went wrong ("" when nothing did)."""
        command = [self.own("zvbench"), "fetch", "--write", "-n", str(connections), url]
        with tempfile.TemporaryFile() as told, subprocess.Popen(
                command, stdin=subprocess.DEVNULL, stdout=subprocess.PIPE, stderr=told, env=plain_environment()) as process:
            watchdog = threading.Timer(LIMIT_SECONDS, process.kill)
            watchdog.start()
            digest = digest_of(process.stdout)
            process.wait()
            watchdog.cancel()
            told.seek(0)
            complaints = told.read().decode(errors="replace").strip()
            return digest, (complaints or f"ended with {process.returncode}") if process.returncode else ""

    def run_zvhttp(self, url, connections):
        return lambda: run_timed([self.own("zvhttp"), "get", "--quiet", "-o", "/dev/null", "-n", str(connections), url])

    def run_curl(self, url):
        if self.curl is None:
            return None
        return lambda: run_timed([self.curl, "-q", "-f", "-s", "-S", "-k", "-o", "/dev/null", url])

    def curl_first_byte(self, url):
        """Milliseconds from curl's start of the transfer to the first byte of the answer."""
        if self.curl is None:
            return None
        command = [self.curl, "-q", "-f", "-s", "-S", "-k", "-o", "/dev/null", "-w", "%{time_starttransfer}", url]
        return lambda: float(run_timed(command).output) * 1000

    def run_aria2c(self, url, connections, folder):
        """aria2c needs a real file: it goes to folder, which is best in memory, and is removed at once."""
        if self.aria2c is None:
            return None

        def run():
            with tempfile.TemporaryDirectory(dir=folder) as target:
                return run_timed([self.aria2c, "--no-conf", "--quiet", "--check-certificate=false",
                                  "--file-allocation=none", "--min-split-size=1M", f"--max-connection-per-server={connections}",
                                  f"--split={connections}", "--no-netrc", f"--dir={target}", "--out=file", url])
        return run

    def run_ffmpeg(self, *arguments):
        if self.ffmpeg is None:
            return None
        return lambda: run_timed([self.ffmpeg, "-nostdin", "-v", "error", *map(str, arguments)])

    def run_ffmpeg_raw(self, url):
        """Reads bytes as bytes and drops them."""
        return self.run_ffmpeg("-f", "data", "-raw_packet_size", 65536, "-i", url, "-map", 0, "-c", "copy", "-f", "data",
                               "-y", "/dev/null")

    def versions(self):
        """{name: version line} of what takes part, "not installed" for the others."""
        asked = {"curl": (self.curl, "--version"), "aria2c": (self.aria2c, "--version"), "nginx": (self.nginx, "-v"),
                 "ffmpeg": (self.ffmpeg, "-version")}
        return {name: first_line(path, option) for name, (path, option) in asked.items()}


def digest_of(source):
    digest = hashlib.sha256()
    while block := source.read(1 << 20):
        digest.update(block)
    return digest.hexdigest()


def first_line(path, option):
    if path is None:
        return "not installed"
    done = subprocess.run([path, option], capture_output=True, text=True, check=False)
    return (done.stdout or done.stderr).strip().split("\n")[0]
