"""The server that everybody fetches from: nginx with its own folder on free ports of loopback, and the relay before it."""

import contextlib
import os
import pathlib
import random
import shutil
import signal
import socket
import subprocess
import tempfile
import time

from .programs import digest_of, plain_environment

START_SECONDS = 10
NEEDED_BYTES = 4 << 30
BLOCK_BYTES = 1 << 20

CONFIGURATION = """
{user}
worker_processes 1;
error_log {root}/error.log warn;
pid {root}/nginx.pid;
events {{ worker_connections 1024; }}
http {{
  access_log off;
  sendfile on;
  tcp_nopush on;
  keepalive_timeout 65;
  default_type application/octet-stream;
  client_body_temp_path {root}/tmp;
  proxy_temp_path {root}/tmp;
  fastcgi_temp_path {root}/tmp;
  uwsgi_temp_path {root}/tmp;
  scgi_temp_path {root}/tmp;
  ssl_certificate {root}/certificate.pem;
  ssl_certificate_key {root}/key.pem;
  server {{
    listen 127.0.0.1:{http};
    listen 127.0.0.1:{https} ssl;
    root {root}/files;
    location /limited/ {{
      alias {root}/files/;
      limit_rate 1m;
    }}
  }}
}}
"""


def free_ports(count):
    with contextlib.ExitStack() as stack:
        sockets = [stack.enter_context(socket.socket()) for _ in range(count)]
        for each in sockets:
            each.bind(("127.0.0.1", 0))
        return [each.getsockname()[1] for each in sockets]


def answers(port):
    with socket.socket() as probe:
        return probe.connect_ex(("127.0.0.1", port)) == 0


def stop(process):
    if process.poll() is None:
        process.send_signal(signal.SIGTERM)
    try:
        process.wait(START_SECONDS)
    except subprocess.TimeoutExpired:
        process.kill()
        process.wait()


def memory_folder():
    """Where files do not reach a disk, or None (the usual temporary folder) where there is too little room."""
    folder = pathlib.Path("/dev/shm")
    if os.access(folder, os.W_OK) and shutil.disk_usage(folder).free >= NEEDED_BYTES:
        return folder
    return None


class Origin:
    """Starts the server on entry; ends it and removes its folder on exit."""

    def __init__(self, programs):
        self.programs = programs
        self.process = None
        self.root = None
        self.ports = {}

    def __enter__(self):
        if self.programs.nginx is None or self.programs.openssl is None:
            raise SystemExit("bench: nginx and openssl are needed")
        self.root = pathlib.Path(tempfile.mkdtemp(prefix="zvbench-", dir=memory_folder()))
        try:
            for name in ("files", "tmp", "peer"):
                (self.root / name).mkdir()
            self.make_certificate()
            self.start()
        except BaseException:
            self.__exit__()
            raise
        return self

    def __exit__(self, *_):
        if self.process is not None:
            stop(self.process)
        shutil.rmtree(self.root, ignore_errors=True)

    def make_certificate(self):
        subprocess.run([self.programs.openssl, "req", "-x509", "-newkey", "rsa:2048", "-nodes", "-days", "2",
                        "-subj", "/CN=localhost", "-keyout", self.root / "key.pem",
                        "-out", self.root / "certificate.pem"], check=True, capture_output=True)

    def start(self):
        """Another process may take a port between its choice and nginx: then new ones are tried."""
        for _ in range(5):
            self.ports = dict(zip(("http", "https"), free_ports(2)))
            user = "user root;" if os.geteuid() == 0 else ""
            text = CONFIGURATION.format(root=self.root, user=user, **self.ports)
            (self.root / "nginx.conf").write_text(text)
            self.process = subprocess.Popen(
                [self.programs.nginx, "-p", self.root, "-c", self.root / "nginx.conf", "-e", self.root / "error.log",
                 "-g", "daemon off;"], stdin=subprocess.DEVNULL, env=plain_environment())
            if self.await_start():
                return
            stop(self.process)
        raise SystemExit("bench: nginx does not start: " + (self.root / "error.log").read_text()[-500:])

    def await_start(self):
        deadline = time.monotonic() + START_SECONDS
        while time.monotonic() < deadline and self.process.poll() is None:
            if all(answers(port) for port in self.ports.values()):
                return True
            time.sleep(0.01)
        return False

    def file(self, name, size):
        """Makes the file, if it is not there yet, out of blocks that all differ; gives its name."""
        path = self.root / "files" / name
        if not path.exists():
            block = random.Random(size).randbytes(BLOCK_BYTES)
            with open(path, "wb") as out:
                for position in range(0, size, BLOCK_BYTES):
                    turn = position // BLOCK_BYTES * 4099 % BLOCK_BYTES
                    out.write((block[turn:] + block[:turn])[:size - position])
        return name

    def url(self, name, scheme="http", port=None):
        return f"{scheme}://127.0.0.1:{port or self.ports[scheme]}/{name}"

    def digest(self, name):
        with open(self.root / "files" / name, "rb") as source:
            return digest_of(source)

    @property
    def peer_folder(self):
        return self.root / "peer"

    @contextlib.contextmanager
    def relay(self, round_trip_ms, rate=0):
        """The port of a relay with this delay, and this many bytes per second for each connection."""
        command = [self.programs.own("zvproxy"), "--listen", "0", "--to", str(self.ports["http"]),
                   "--rtt-ms", str(round_trip_ms), "--rate", str(rate)]
        process = subprocess.Popen(command, stdin=subprocess.DEVNULL, stdout=subprocess.PIPE, text=True)
        try:
            port = process.stdout.readline().strip()
            if not port:
                raise RuntimeError("zvproxy does not start")
            yield int(port)
        finally:
            stop(process)
            process.stdout.close()
