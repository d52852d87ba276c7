"""A mixd of a test's own: in a private run directory, gone at the end of the test.

The programs are those of the build: MIX_BIN names their directory."""

import os
import shutil
import signal
import socket
import subprocess
import tempfile

BIN = os.environ.get("MIX_BIN", "")


def program(name):
    """The path of a program of the build."""
    path = os.path.join(BIN, name)
    if not os.path.exists(path):
        raise FileNotFoundError(f"{path}: set MIX_BIN to the directory of the built programs")
    return path


class Mixd:
    """Starts mixd and waits until it answers. Use as a context manager, or call stop()."""

    def __init__(self, *options, scenario=None, directory=None, start=True, catalogue=False, board=None):
        self.mine = directory is None
        self.directory = directory or tempfile.mkdtemp(prefix="mixd-test-")
        self.run_dir = os.path.join(self.directory, "run")
        self.store = os.path.join(self.directory, "store.db")
        # There is one application catalogue on a machine: only on a /dev/shm of the test's own is it touched.
        self.options = list(options) if catalogue else ["--no-catalogue", *options]
        self.board = {"MIX_BOARD": board} if board else {} # of mixd itself; clients say their own
        self.process = None
        if scenario is not None:
            path = os.path.join(self.directory, "scenario.toml")
            with open(path, "w", encoding="utf-8") as file:
                file.write(scenario)
            self.options += ["--scenario", path]
        if start:
            self.start()

    def environment(self, **more):
        """What a client needs to find this mixd, and nothing of the tester's own settings."""
        kept = {name: value for name, value in os.environ.items() if not name.startswith("MIX_")}
        kept.update(MIX_RUN_DIR=self.run_dir, LC_ALL="C.UTF-8", **more)
        return kept

    def start(self, wait=60):
        """Returns when mixd says that it is ready; raises with its words when it ends instead."""
        ready = os.path.join(self.directory, "ready.sock")
        if os.path.exists(ready):
            os.unlink(ready)
        log = open(os.path.join(self.directory, "mixd.log"), "ab")
        with socket.socket(socket.AF_UNIX, socket.SOCK_DGRAM) as notices, log:
            notices.bind(ready)
            notices.settimeout(0.1)
            self.process = subprocess.Popen(
                [program("mixd"), "--run-dir", self.run_dir, "--store", self.store, *self.options],
                env=self.environment(NOTIFY_SOCKET=ready, **self.board), stdin=subprocess.DEVNULL, stdout=log, stderr=log)
            for _ in range(wait * 10):
                try:
                    if b"READY=1" in notices.recv(4096):
                        return self
                except TimeoutError:
                    if self.process.poll() is not None:
                        raise RuntimeError(f"mixd ended with {self.process.returncode}: {self.log()}") from None
        raise RuntimeError(f"mixd is not ready after {wait} s: {self.log()}")

    def log(self):
        with open(os.path.join(self.directory, "mixd.log"), encoding="utf-8", errors="replace") as file:
            return file.read()

    def kill(self):
        """As a power cut does."""
        self.process.send_signal(signal.SIGKILL)
        self.process.wait()
        self.process = None

    def stop(self):
        """Ends it as the system does; the result is its exit status."""
        result = None
        if self.process is not None:
            self.process.terminate()
            try:
                result = self.process.wait(60)
            except subprocess.TimeoutExpired:
                self.kill()
            self.process = None
        return result

    def remove(self):
        self.stop()
        if self.mine:
            shutil.rmtree(self.directory, ignore_errors=True)

    def __enter__(self):
        return self

    def __exit__(self, *_):
        self.remove()


def mixsh(mixd, *commands, options=(), stdin=None, **environment):
    """Runs mixsh with -c for each command (or a script on its standard input); the finished process."""
    words = [program("mixsh"), *options]
    for command in commands:
        words += ["-c", command]
    return subprocess.run(words, env=mixd.environment(**environment), input=stdin or "", text=True,
                          capture_output=True, timeout=30, check=False)
