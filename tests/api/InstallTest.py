"""Installs the build into a folder, moves that folder, builds the README's example against it, through find_package and
through pkg-config, and lets both programs fetch a file from a server on this machine.

InstallTest.py CMAKE BUILD_DIR CONSUMER_DIR EXAMPLE C_COMPILER WORK_DIR
"""
import http.server
import os
import pathlib
import shutil
import subprocess
import sys
import threading

MEDIA = bytes((p * 7 + p // 251) % 256 for p in range(1_500_000))


class Handler(http.server.BaseHTTPRequestHandler):
    def do_GET(self):
        self.send_response(200)
        self.send_header("Content-Length", str(len(MEDIA)))
        self.end_headers()
        self.wfile.write(MEDIA)

    def log_message(self, *_):
        pass


def run(*command, **options):
    result = subprocess.run([str(word) for word in command], stdout=subprocess.PIPE, stderr=subprocess.STDOUT, **options)
    if result.returncode != 0:
        sys.exit("%s\nfailed with %d:\n%s" % (" ".join(map(str, command)), result.returncode, result.stdout.decode()))
    return result.stdout


def build_with_cmake(cmake, consumer, example, compiler, work, prefix):
    run(cmake, "-S", consumer, "-B", work / "consumer", "-DCMAKE_PREFIX_PATH=%s" % prefix, "-DSOURCE=%s" % example,
        "-DCMAKE_C_COMPILER=%s" % compiler)
    run(cmake, "--build", work / "consumer")
    return work / "consumer" / "consumer"


def build_with_pkg_config(example, compiler, work, prefix):
    (pc,) = prefix.rglob("zvhttpbase.pc")
    environment = dict(os.environ, PKG_CONFIG_PATH=str(pc.parent))
    flags = run("pkg-config", "--cflags", "--libs", "zvhttpbase", env=environment).decode().split()
    run(compiler, "-std=c11", "-Wall", "-Werror", example, "-o", work / "pkg", *flags,
        "-Wl,-rpath,%s" % pc.parent.parent)
    return work / "pkg"


def main(cmake, build, consumer, example, compiler, work):
    work = pathlib.Path(work)
    shutil.rmtree(work, ignore_errors=True)
    run(cmake, "--install", build, "--prefix", work / "first")
    prefix = (work / "first").rename(work / "moved")
    programs = [build_with_cmake(cmake, consumer, example, compiler, work, prefix),
                build_with_pkg_config(example, compiler, work, prefix)]
    server = http.server.ThreadingHTTPServer(("127.0.0.1", 0), Handler)
    threading.Thread(target=server.serve_forever, daemon=True).start()
    for program in programs:
        got = run(program, "http://127.0.0.1:%d/media" % server.server_port, timeout=60)
        if got != MEDIA:
            sys.exit("%s: %d bytes, not the %d of the file" % (program, len(got), len(MEDIA)))
    server.shutdown()
    for program in [prefix / "bin" / "zvhttp"]:
        if program.exists():
            run(program, "--help")


main(*sys.argv[1:])
