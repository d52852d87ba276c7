"""Gratuitous-ARP senders: the list, and what peers hear of them on the cable."""

import json
import os
import subprocess
import sys
import unittest

from own_network import Peer, enter, ip
from shell_case import ShellCase

LISTENER = """
import json, socket, sys, time
heard = socket.socket(socket.AF_PACKET, socket.SOCK_RAW, socket.htons(0x0806))
heard.bind((sys.argv[1], 0x0806))
print("ready", flush=True)
end = time.monotonic() + float(sys.argv[2])
while (left := end - time.monotonic()) > 0:
    heard.settimeout(left)
    try:
        frame = heard.recv(2000)
        print(json.dumps([time.monotonic(), frame.hex()]), flush=True)
    except TimeoutError:
        break
"""


class Listener:
    """What a peer hears on its end of the cable: (time, frame) of each ARP frame."""

    def __init__(self, peer, seconds):
        self.process = subprocess.Popen(["nsenter", "-t", str(peer.holder.pid), "-n", sys.executable, "-c", LISTENER,
                                         peer.there, str(seconds)], stdout=subprocess.PIPE, text=True)
        assert self.process.stdout.readline() == "ready\n"

    def frames(self):
        """Waits until the time is over."""
        output, _ = self.process.communicate(timeout=30)
        return [(when, bytes.fromhex(frame)) for when, frame in map(json.loads, output.splitlines())]

    def announcements(self, mac):
        return [(when, frame) for when, frame in self.frames() if frame[6:12] == bytes.fromhex(mac.replace(":", ""))]


def frame(operation, mac, address):
    """The frame that announces an address, byte for byte."""
    station = bytes.fromhex(mac.replace(":", ""))
    number = bytes(map(int, address.split(".")))
    target = station if operation == 2 else bytes(6)
    head = b"\xff" * 6 + station + b"\x08\x06" + b"\x00\x01\x08\x00\x06\x04" + bytes([0, operation])
    return (head + station + number + target + number).ljust(60, b"\0")


MAC = "02:00:5e:00:00:01"


class Kept(ShellCase):
    """Without --apply: the list is kept, nothing is sent."""

    def test_is_added_shown_and_deleted(self):
        self.ok(f"add gratuitous-arp 10.9.0.1 {MAC} interface ge0",
                f"add gratuitous-arp 10.9.0.1 {MAC} interface ge1 seconds 86400 form both",
                f"add gratuitous-arp 10.9.0.2 {MAC} interface ge0 seconds 1 form reply")
        row = {"address": "10.9.0.1", "interface": "ge0", "mac": MAC, "interval_s": 60, "form": "request",
               "state": "configured", "sent": 0, "virtual_router": 1, "error": None}
        self.assertEqual(self.json("show gratuitous-arp"), [
            row, {**row, "interface": "ge1", "interval_s": 86400, "form": "both"},
            {**row, "address": "10.9.0.2", "interval_s": 1, "form": "reply"}])
        self.assertEqual([each["interface"] for each in self.json("show gratuitous-arp 10.9.0.1")], ["ge0", "ge1"])
        self.ok("delete gratuitous-arp 10.9.0.1 interface ge0")
        self.assertEqual([each["interface"] for each in self.json("show gratuitous-arp")], ["ge1", "ge0"])

    def test_is_shown_in_columns(self):
        self.ok(f"add gratuitous-arp 10.9.0.1 {MAC} interface ge0")
        head, row = self.ok("show gratuitous-arp").stdout.splitlines()
        self.assertEqual(head.split(), ["Address", "Interface", "MAC", "address", "Every", "s", "Form", "State",
                                        "Sent", "VR", "Error"])
        self.assertEqual(row.split(), ["10.9.0.1", "ge0", MAC, "60", "request", "configured", "0", "1", "-"])

    def test_outlives_a_killed_mixd_and_so_does_a_deletion(self):
        self.ok(f"add gratuitous-arp 10.9.0.1 {MAC} interface ge0", f"add gratuitous-arp 10.9.0.2 {MAC} interface ge0")
        self.restart()
        self.ok("delete gratuitous-arp 10.9.0.1 interface ge0")
        self.restart()
        self.assertEqual([each["address"] for each in self.json("show gratuitous-arp")], ["10.9.0.2"])

    def test_of_more_than_a_page_is_listed_once_each(self):
        self.ok(*(f"add gratuitous-arp 10.9.{i // 200}.{i % 200 + 1} {MAC} interface ge0" for i in range(60)))
        found = [each["address"] for each in self.json("show gratuitous-arp")]
        self.assertEqual(found, [f"10.9.{i // 200}.{i % 200 + 1}" for i in range(60)])

    def test_that_can_not_be_is_refused_in_the_callers_language(self):
        self.ok(f"add gratuitous-arp 10.9.0.1 {MAC} interface ge0")
        for command, reason in {
                f"add gratuitous-arp 224.0.0.1 {MAC} interface ge0": "the address is not one of a host",
                "add gratuitous-arp 10.9.0.3 00:00:00:00:00:00 interface ge0":
                    "the MAC address is zero, or one of a group",
                "add gratuitous-arp 10.9.0.3 01:00:5e:00:00:01 interface ge0":
                    "the MAC address is zero, or one of a group",
                f"add gratuitous-arp 10.9.0.1 {MAC} interface ge0": "this interface announces the address already",
                "delete gratuitous-arp 10.9.0.1 interface ge1": "there is no such sender"}.items():
            self.refused(command, reason)
        self.refused("delete gratuitous-arp 10.9.0.9 interface ge0", "免费ARP发送表项不存在",
                     options=["--language", "chinese"])
        self.refused("show gratuitous-arp 10.9.0.9", "Gratuitous ARP send show failed, ret is -2")
        self.assertEqual(len(self.json("show gratuitous-arp")), 1)

    def test_reports_a_daemon_that_does_not_answer(self):
        self.mixd.stop()
        self.refused("show gratuitous-arp", "ipcmsg send failed")
        self.refused(f"add gratuitous-arp 10.9.0.1 {MAC} interface ge0", "management gateway does not answer")


class Described(ShellCase):
    scenario = f"""
[[network.virtual_router]]
id = 2
name = "branch"
[[network.interface]]
name = "ge1"
virtual_router = 2
[[gratuitous_arp.sender]]
address = "10.9.0.1"
mac = "{MAC}"
interface = "ge0"
[[gratuitous_arp.sender]]
address = "10.9.0.2"
mac = "{MAC}"
interface = "ge1"
seconds = 5
form = "both"
"""

    def test_is_what_the_scenario_says(self):
        self.assertEqual([(row["address"], row["interval_s"], row["form"], row["virtual_router"], row["state"])
                          for row in self.json("show gratuitous-arp")],
                         [("10.9.0.1", 60, "request", 1, "configured"), ("10.9.0.2", 5, "both", 2, "configured")])
        self.assertEqual([row["address"] for row in self.json("show gratuitous-arp vr 2")], ["10.9.0.2"])
        self.assertEqual(self.json("show gratuitous-arp vr 3"), [])
        self.refused("show gratuitous-arp 10.9.0.2 vr 1", "Gratuitous ARP send show failed, ret is -2")

    def test_stays_deleted_until_the_scenario_changes(self):
        self.ok("delete gratuitous-arp 10.9.0.1 interface ge0", f"add gratuitous-arp 10.9.0.3 {MAC} interface ge0")
        self.restart()
        self.assertEqual([row["address"] for row in self.json("show gratuitous-arp")], ["10.9.0.2", "10.9.0.3"])
        path = os.path.join(self.mixd.directory, "scenario.toml")
        with open(path, "w", encoding="utf-8") as file:
            file.write(f'[[gratuitous_arp.sender]]\naddress = "10.9.0.1"\nmac = "{MAC}"\ninterface = "ge0"\n'
                       'seconds = 61\n')
        self.restart()
        self.assertEqual([row["address"] for row in self.json("show gratuitous-arp")], ["10.9.0.1", "10.9.0.3"],
                         "a changed row comes again, one that is gone goes, a committed one stays")


class Applied(ShellCase):
    options = ["--apply"]

    def peer(self):
        peer = Peer("v0", addresses=["10.9.0.2/24"])
        self.addCleanup(peer.remove)
        return peer

    def row(self):
        return {key: self.json("show gratuitous-arp")[0][key] for key in ("state", "error")}

    def test_is_heard_at_once_and_again_at_its_interval(self):
        peer = self.peer()
        ear = Listener(peer, 3.5)
        self.ok(f"add gratuitous-arp 10.9.0.1 {MAC} interface v0 seconds 1")
        heard = ear.announcements(MAC)
        self.assertGreaterEqual(len(heard), 3)
        self.assertEqual({each for _, each in heard}, {frame(1, MAC, "10.9.0.1")})
        between = [later[0] - earlier[0] for earlier, later in zip(heard, heard[1:])]
        self.assertTrue(all(0.8 < each < 1.5 for each in between), between)
        shown = self.json("show gratuitous-arp")[0]
        self.assertEqual((shown["state"], shown["error"]), ("announcing", None))
        self.assertGreaterEqual(shown["sent"], len(heard))

    def test_is_heard_as_a_reply_or_as_both(self):
        ear = Listener(self.peer(), 1.5)
        other = "02:00:5e:00:00:02"
        self.ok(f"add gratuitous-arp 10.9.0.1 {MAC} interface v0 form reply",
                f"add gratuitous-arp 10.9.0.7 {other} interface v0 form both")
        self.assertEqual([each for _, each in ear.frames() if each[6:8] == b"\x02\0"],
                         [frame(2, MAC, "10.9.0.1"), frame(1, other, "10.9.0.7"), frame(2, other, "10.9.0.7")])

    def test_changes_what_a_peer_has_learned(self):
        peer = self.peer()
        peer.ip("neigh add 10.9.0.1 lladdr 02:00:00:00:00:99 dev eth0 nud stale")
        self.ok(f"add gratuitous-arp 10.9.0.1 {MAC} interface v0")
        self.assert_becomes(lambda: MAC in peer.ip("neigh show 10.9.0.1"), True)

    def test_is_silent_once_it_is_deleted(self):
        peer = self.peer()
        self.ok(f"add gratuitous-arp 10.9.0.1 {MAC} interface v0 seconds 1")
        self.assert_becomes(lambda: self.row()["state"], "announcing")
        self.ok("delete gratuitous-arp 10.9.0.1 interface v0")
        self.assertEqual(Listener(peer, 1.5).announcements(MAC), [])

    def test_waits_for_its_interface_and_announces_when_it_comes(self):
        self.ok(f"add gratuitous-arp 10.9.0.1 {MAC} interface v0 seconds 3600")
        self.assert_becomes(self.row, {"state": "waiting", "error": None})
        peer = self.peer()
        self.assert_becomes(self.row, {"state": "announcing", "error": None})
        peer.remove()
        self.assert_becomes(self.row, {"state": "waiting", "error": None})

    def test_that_can_not_be_sent_says_why(self):
        self.peer()
        ip("link set v0 down")
        self.ok(f"add gratuitous-arp 10.9.0.1 {MAC} interface v0 seconds 1")
        self.assert_becomes(self.row, {"state": "failing", "error": os.strerror(100)})
        ip("link set v0 up")
        self.assert_becomes(self.row, {"state": "announcing", "error": None})

    def test_is_announced_again_after_a_restart(self):
        peer = self.peer()
        self.ok(f"add gratuitous-arp 10.9.0.1 {MAC} interface v0 seconds 3600")
        self.mixd.kill()
        ear = Listener(peer, 3)
        self.mixd.start()
        self.assertEqual([each for _, each in ear.announcements(MAC)], [frame(1, MAC, "10.9.0.1")])


if __name__ == "__main__":
    enter()
    unittest.main(verbosity=1)
