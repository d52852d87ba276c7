"""Network namespaces of a test's own: the test moves into an empty one, peers live in others.

Call enter() before anything else of the script runs: it starts the script again inside a new namespace (and a
user namespace, for those who are not root). Nothing here touches the interfaces of the machine."""

import json
import os
import subprocess
import sys
import time

MARK = "MIX_TEST_OWN_NETWORK"


def enter(own_sys=False):
    """Returns inside a network namespace of the test's own; ends with 77 where that is not allowed.

    own_sys: with a /sys that shows the interfaces of that namespace."""
    if os.environ.get(MARK):
        if own_sys and subprocess.run(["mount", "-t", "sysfs", "sysfs", "/sys"], check=False,
                                      stderr=subprocess.DEVNULL).returncode != 0:
            print("skipped: /sys can't be mounted here")
            sys.exit(77)
        subprocess.run(["ip", "link", "set", "lo", "up"], check=True)
        return
    user = [] if os.geteuid() == 0 else ["--user", "--map-root-user"]
    if subprocess.run(["unshare", *user, "--net", "true"], check=False, stderr=subprocess.DEVNULL).returncode != 0:
        print("skipped: network namespaces are not allowed here")
        sys.exit(77)
    os.environ[MARK] = "1"
    mounts = ["--mount"] if own_sys else []
    os.execvp("unshare", ["unshare", *user, *mounts, "--net", sys.executable, *sys.argv])


def run(*words, check=True, text_in=None):
    """A command; its output."""
    return subprocess.run(words, check=check, input=text_in, capture_output=True, text=True).stdout


def ip(words, **how):
    return run("ip", *words.split(), **how)


def ip_json(words):
    return json.loads(run("ip", "-j", *words.split()) or "[]")


def bridge_json(words):
    return json.loads(run("bridge", "-j", *words.split()) or "[]")


def ping(address, *, count=1, wait=1):
    return subprocess.run(["ping", "-c", str(count), "-W", str(wait), "-i", "0.2", address], check=False,
                          stdout=subprocess.DEVNULL).returncode == 0


class Peer:
    """Another namespace, with one veth into this one."""

    def __init__(self, here, there="eth0", mac=None, addresses=()):
        self.holder = subprocess.Popen(["unshare", "--net", "sleep", "1000"])
        self.here, self.there = here, there
        self.wait_until_apart()
        ip(f"link add {here} type veth peer name {there} netns {self.holder.pid}")
        if mac:
            self.ip(f"link set {there} address {mac}")
        self.ip("link set lo up")
        self.ip(f"link set {there} up")
        ip(f"link set {here} up")
        for address in addresses:
            self.ip(f"addr add {address} dev {there} nodad" if ":" in address else f"addr add {address} dev {there}")

    def wait_until_apart(self):
        mine = os.readlink("/proc/self/ns/net")
        if until(lambda: os.readlink(f"/proc/{self.holder.pid}/ns/net") != mine, True) != (True, True):
            raise RuntimeError("the peer's namespace does not come up")

    def ip(self, words):
        return self.run("ip", *words.split())

    def run(self, *words):
        return run("nsenter", "-t", str(self.holder.pid), "-n", *words)

    def mac(self):
        return json.loads(self.ip(f"-j link show {self.there}"))[0]["address"]

    def remove(self):
        ip(f"link del {self.here}", check=False)
        self.holder.kill()
        self.holder.wait()


def until(found, expected):
    """Asks again until it is as expected; the last answer. For what is told by events, which take their time: a minute
    is nobody's limit, but what a machine may need that has nearly no time for this test."""
    end = time.monotonic() + 60
    while True:
        answer = found()
        wanted = expected() if callable(expected) else expected
        if answer == wanted or time.monotonic() > end:
            return answer, wanted
        time.sleep(0.02)
