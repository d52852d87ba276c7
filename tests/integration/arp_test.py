"""The ARP table against the kernel's own view, in network namespaces; and scenarios of any size."""

import contextlib
import sqlite3
import subprocess
import threading
import time
import unittest

from mixd import mixsh
from own_network import Peer, bridge_json, enter, ip, ip_json, ping, run, until
from shell_case import ShellCase, STATES


def kernel_view(family="-4"):
    """(address, interface) to (MAC, state), as the kernel's tool has it."""
    return {(row["dst"], row["dev"]): (row.get("lladdr"), STATES[row["state"][0]])
            for row in ip_json(f"{family} neigh show")}


class WithMixd(ShellCase):
    def shown(self, words="show arp"):
        found = self.json(words)
        view = {(row["address"], row["interface"]): (row["mac"], row["state"]) for row in found}
        self.assertEqual(len(view), len(found), "a row was shown twice")
        return view

    def assert_agrees(self):
        return self.assert_becomes(self.shown, kernel_view)

    def peer(self, here="v0", network=9, **how):
        peer = Peer(here, addresses=[f"10.{network}.0.2/24", f"10.{network}.0.3/24"], **how)
        self.addCleanup(peer.remove)
        ip(f"addr add 10.{network}.0.1/24 dev {here}")
        return peer


class AgainstTheKernel(WithMixd):
    def test_agrees_through_pings_static_entries_and_clears(self):
        peer = self.peer()
        self.assertEqual(self.assert_agrees(), {})
        self.assertTrue(ping("10.9.0.2"))
        self.assertEqual(self.assert_agrees(), {("10.9.0.2", "v0"): (peer.mac(), "reachable")})
        ping("10.9.0.77")
        self.assertIn(self.assert_agrees()[("10.9.0.77", "v0")][1], ("incomplete", "failed"))
        ip("neigh add 10.9.0.50 lladdr 02:00:00:00:00:50 dev v0 nud permanent")
        ip("neigh add 10.9.0.51 lladdr 02:00:00:00:00:51 dev v0 nud stale")
        ip("neigh add 10.9.0.52 dev v0 nud noarp lladdr 02:00:00:00:00:52")
        self.assertEqual(len(self.assert_agrees()), 4, "entries that need no resolution are not neighbours")
        ip("neigh change 10.9.0.51 lladdr 02:00:00:00:00:99 dev v0 nud reachable")
        self.assertEqual(self.assert_agrees()[("10.9.0.51", "v0")][0], "02:00:00:00:00:99")
        ip("neigh del 10.9.0.50 dev v0")
        self.assertNotIn(("10.9.0.50", "v0"), self.assert_agrees())
        self.assertEqual(self.json("clear arp")[0]["cleared"], 3)
        self.assert_agrees()
        self.assertTrue(ping("10.9.0.3"))
        self.assertIn(("10.9.0.3", "v0"), self.assert_agrees())

    def test_agrees_on_several_interfaces_and_when_one_goes(self):
        self.peer("v0", 9)
        second = self.peer("v1", 8)
        self.assertTrue(ping("10.9.0.2") and ping("10.8.0.2"))
        self.assertEqual(len(self.assert_agrees()), 2)
        ip("link set v1 name renamed0", check=False)
        ip("link set v1 down", check=False)
        ip("link set v1 name renamed0", check=False)
        self.assert_agrees()
        second.here = "renamed0"
        second.remove()
        self.assertEqual({interface for _, interface in self.assert_agrees()}, {"v0"})

    def test_a_mixd_that_starts_later_knows_what_was_there_before(self):
        self.peer()
        self.assertTrue(ping("10.9.0.2"))
        self.restart()
        self.assertEqual(self.shown(), kernel_view(), "at once: it looked before it was ready")

    def test_agrees_after_more_events_than_fit_a_socket(self):
        self.peer()
        lines = "".join(f"neigh add 10.9.{i // 250 + 1}.{i % 250} lladdr 02:00:00:00:{i >> 8:02x}:{i & 255:02x} "
                        "dev v0 nud permanent\n" for i in range(5000))
        for _ in range(4):
            run("ip", "-batch", "-", text_in=lines)
            run("ip", "-batch", "-", text_in=lines.replace("neigh add", "neigh del"))
        run("ip", "-batch", "-", text_in=lines)
        self.assertEqual(len(self.assert_agrees()), 5000)

    def test_a_listing_is_stable_while_the_table_changes(self):
        self.peer()
        stay = {f"10.9.{1 + i // 125}.{2 * (i % 125)}" for i in range(3000)}

        def batch(what, addresses):
            run("ip", "-batch", "-", text_in="".join(
                f"neigh {what} {each} lladdr 02:00:00:00:00:01 dev v0 nud permanent\n" for each in addresses))
        batch("add", sorted(stay))
        come_and_go = sorted(f"10.9.{1 + i // 125}.{2 * (i % 125) + 1}" for i in range(3000))
        over = threading.Event()

        def keep_changing():
            while not over.is_set():
                batch("add", come_and_go)
                batch("del", come_and_go)
        changing = threading.Thread(target=keep_changing)
        changing.start()
        try:
            between = 0
            for _ in range(20):
                found = [row["address"] for row in self.json("show arp")]
                self.assertEqual(len(found), len(set(found)), "a row came twice")
                self.assertLessEqual(stay, set(found), "a row that was there all along was missed")
                between += 3000 < len(found) < 6000
            self.assertGreater(between, 0, "the table did not change under any listing")
        finally:
            over.set()
            changing.join()

    def test_counts_and_summary_are_the_kernels(self):
        self.peer()
        self.assertTrue(ping("10.9.0.2") and ping("10.9.0.3"))
        ip("neigh add 10.9.0.50 lladdr 02:00:00:00:00:50 dev v0 nud permanent")
        ip("neigh add proxy 10.9.0.60 dev v0")
        ip("neigh add proxy 10.9.0.70 dev v0")
        self.assert_agrees()
        self.assertEqual(self.json("show arp count"), [{"entries": 3}])
        self.assertEqual(self.json("show arp count address 10.9.0.3"), [{"entries": 1}])
        self.assertEqual(self.json("show arp summary"), [{"entries": 3, "static": 0, "dynamic": 2,
                                                          "incomplete": 0, "failed": 0, "proxies": 2}])
        self.assertEqual(self.json("show arp proxies"), [{"entries": 2}])
        self.assertEqual(self.json("show arp proxies prefix 10.9.0.60/32"), [{"entries": 1}])
        self.assertEqual(self.json("show arp proxies interface lo"), [{"entries": 0}])

    def test_filters_select(self):
        peer = self.peer()
        self.assertTrue(ping("10.9.0.2"))
        ip("neigh add 10.9.0.50 lladdr 02:00:00:00:00:50 dev v0 nud permanent")
        ip("neigh add 10.9.0.51 lladdr 02:00:00:00:00:51 dev v0 nud stale")
        self.assert_agrees()

        def addresses(words):
            return sorted(address for address, _ in self.shown("show arp " + words))
        self.assertEqual(addresses("address 10.9.0.50"), ["10.9.0.50"])
        self.assertEqual(addresses("prefix 10.9.0.50/31"), ["10.9.0.50", "10.9.0.51"])
        self.assertEqual(addresses(f"mac {peer.mac()}"), ["10.9.0.2"])
        self.assertEqual(addresses("state stale"), ["10.9.0.51"])
        self.assertEqual(addresses("kind permanent"), ["10.9.0.50"])
        self.assertEqual(addresses("interface v0 kind dynamic"), ["10.9.0.2", "10.9.0.51"])
        self.assertEqual(addresses("interface lo"), [])
        self.assertEqual(addresses("vr 1"), ["10.9.0.2", "10.9.0.50", "10.9.0.51"])
        self.assertEqual(addresses("vr 7"), [])
        self.assertEqual(addresses("vsys 3"), [])

    def test_duplicates_are_counted(self):
        peer = self.peer()
        self.assertTrue(ping("10.9.0.2"))
        self.assert_agrees()
        self.assertEqual(self.json("show arp duplicates"), [{"addresses": 0}])
        self.assertTrue(ping("10.9.0.3"))
        ip("neigh add 10.9.0.50 lladdr 02:00:00:00:00:50 dev v0 nud permanent")
        self.assert_agrees()
        self.assertEqual(self.json("show arp duplicates"), [{"addresses": 2}])
        self.assertEqual(self.json(f"show arp duplicates mac {peer.mac()}"), [{"addresses": 2}])
        self.assertEqual(self.json("show arp duplicates mac 02:00:00:00:00:50"), [{"addresses": 0}])
        self.json("clear arp")
        self.assertEqual(self.json("show arp duplicates"), [{"addresses": 0}])

    def test_a_scan_finds_who_is_there(self):
        peer = self.peer()
        self.assertEqual(self.json("set arp scan 10.9.0.1 10.9.0.9"), [{"addresses": 8}])
        there = {("10.9.0.2", "v0"): (peer.mac(), "reachable"), ("10.9.0.3", "v0"): (peer.mac(), "reachable")}
        shown, wanted = until(lambda: self.shown("show arp state reachable"), there)
        self.assertEqual(shown, wanted)
        self.assert_agrees()

    def test_a_scan_of_a_network_that_is_not_ours_is_refused(self):
        self.refused("set arp scan 10.200.0.1", "answered with status -101")

    def test_joined_rows_tell_the_bridge_port(self):
        ip("link add br0 type bridge")
        self.addCleanup(ip, "link del br0", check=False)
        ip("link set br0 up")
        peers = [Peer(f"p{i}", addresses=[f"10.7.0.{i + 2}/24"]) for i in range(2)]
        for peer in peers:
            self.addCleanup(peer.remove)
            ip(f"link set {peer.here} master br0")
        ip("addr add 10.7.0.1/24 dev br0")
        for i in range(2):
            until(lambda i=i: ping(f"10.7.0.{i + 2}"), True)
        self.assert_agrees()
        ports = {row["mac"]: row["ifname"] for row in bridge_json("fdb show br br0") if row.get("master") == "br0"}

        def joined():
            return {row["address"]: (row["bridge"], row["port"]) for row in self.json("show arp mac-table")}
        expected = {f"10.7.0.{i + 2}": ("br0", ports[peer.mac()]) for i, peer in enumerate(peers)}
        shown, wanted = until(joined, expected)
        self.assertEqual(shown, wanted)
        self.assertEqual(len(self.json("show arp mac-table port p1")), 1)
        self.assertEqual(len(self.json("show arp mac-table bridge br0")), 2)
        self.assertEqual(len(self.json("show arp mac-table interface lo,br0")), 2)
        self.assertEqual(len(self.json("show arp mac-table rows not-in-mac-table")), 0)
        self.assertEqual(self.json("show arp mac-table count port p0"), [{"entries": 1}])
        ip("neigh add 10.7.0.99 lladdr 02:00:00:00:00:99 dev br0 nud permanent")
        shown, wanted = until(lambda: [row["address"] for row in
                                       self.json("show arp mac-table rows not-in-mac-table")], ["10.7.0.99"])
        self.assertEqual(shown, wanted)

    def test_routing_domains_of_the_kernel_are_virtual_routers(self):
        if subprocess.run(["ip", "link", "add", "blue", "type", "vrf", "table", "10"], check=False,
                          stderr=subprocess.DEVNULL).returncode != 0:
            self.skipTest("this kernel has no VRFs; recorded messages stand in, in the unit tests")
        self.addCleanup(ip, "link del blue", check=False)
        ip("link set blue up")
        self.peer()
        ip("link set v0 master blue")
        ip("neigh add 10.9.0.50 lladdr 02:00:00:00:00:50 dev v0 nud permanent")
        shown, _ = until(lambda: [row["virtual_router"] for row in self.json("show arp")], [10])
        self.assertEqual(shown, [10])
        self.assertEqual(self.json("show virtual-router 10"), [{"virtual_router": 10, "name": "blue"}])


class StaticEntries(WithMixd):
    def test_are_shown_but_not_written_without_apply(self):
        self.peer()
        self.assertTrue(ping("10.9.0.2"))
        kernel = self.assert_agrees()
        self.ok("add arp 10.9.0.2 02:00:00:00:00:22", "add arp 172.16.0.1 02:00:00:00:00:23")
        self.assertEqual(kernel_view().keys(), kernel.keys())
        found = {row["address"]: (row["mac"], row["kind"], row["interface"]) for row in self.json("show arp")}
        self.assertEqual(found, {"10.9.0.2": ("02:00:00:00:00:22", "static", "v0"),
                                 "172.16.0.1": ("02:00:00:00:00:23", "idle", None)})
        self.ok("delete arp 10.9.0.2", "delete arp 172.16.0.1")
        self.assert_agrees()

    def test_outlive_a_killed_mixd(self):
        self.ok("add arp 172.16.0.1 02:00:00:00:00:23 option 9")
        self.restart()
        self.assertEqual([row["address"] for row in self.json("show arp kind idle")], ["172.16.0.1"])
        self.ok("delete arp 172.16.0.1")
        self.restart()
        self.assertEqual(self.json("show arp"), [])

    def test_that_can_not_be_are_refused_in_the_callers_language(self):
        self.peer()
        cases = {"add arp 10.9.0.1 02:00:00:00:00:01": "the address is the appliance's own",
                 "add arp 224.0.0.1 02:00:00:00:00:01": "the address is not one of a host",
                 "add arp 127.0.0.1 02:00:00:00:00:01": "the address is not one of a host",
                 "add arp 10.9.0.5 00:00:00:00:00:00": "the MAC address is zero, or one of a group",
                 "add arp 10.9.0.5 01:00:5e:00:00:01": "the MAC address is zero, or one of a group",
                 "add arp 10.9.0.5 02:00:00:00:00:01 vr 5": "there is no such virtual router",
                 "delete arp 10.9.0.5": "there is no such static ARP entry"}
        until(lambda: mixsh(self.mixd, "add arp 10.9.0.1 02:00:00:00:00:01").returncode, 1)
        for command, reason in cases.items():
            self.refused(command, reason)
        self.refused("delete arp 10.9.0.5", "静态ARP表项不存在", options=["--language", "chinese"])

    def test_all_of_a_virtual_router_go_in_each_way(self):
        for command in "delete arp all", "delete arp listed", "delete arp configuration":
            self.ok(*(f"add arp 172.16.{i}.1 02:00:00:00:00:{i:02x}" for i in range(1, 120)))
            self.assertEqual(self.json("show arp count"), [{"entries": 119}])
            self.ok(command)
            self.assertEqual(self.json("show arp"), [], command)

    def test_describe_their_mac(self):
        self.ok("add arp 172.16.0.1 02:00:00:00:00:23 description 'the printer'")
        self.assertEqual([(row["mac"], row["description"]) for row in self.json("show mac description")],
                         [("02:00:00:00:00:23", "the printer")])
        self.assertEqual([row["description"] for row in self.json("show arp mac-table")], ["the printer"])


class ManyStaticEntries(WithMixd):
    scenario = ""

    def test_are_bounded_and_go_in_one_change(self):
        self.mixd.stop()
        with contextlib.closing(sqlite3.connect(self.mixd.store)) as store, store:
            store.execute("WITH RECURSIVE n(i) AS (SELECT 0 UNION ALL SELECT i + 1 FROM n WHERE i < 65534) "
                          "INSERT INTO arp_static SELECT 1, 0, 0x0b000000 + i, x'020000000001', 0 FROM n")
        self.mixd.start()
        self.ok("add arp 172.16.0.1 02:00:00:00:00:23")
        self.refused("add arp 172.16.0.2 02:00:00:00:00:23", "there are 65536 static ARP entries already")
        self.ok("add arp 172.16.0.1 02:00:00:00:00:24")
        self.assertEqual(self.json("show arp summary")[0]["static"], 65536)
        self.ok("delete arp all")
        self.assertEqual(self.json("show arp count"), [{"entries": 0}])
        self.restart()
        self.assertEqual(self.json("show arp count"), [{"entries": 0}])


class StaticEntriesApplied(WithMixd):
    options = ["--apply"]

    def permanent(self):
        return {where: entry for where, entry in kernel_view().items() if entry[1] == "permanent"}

    def test_are_the_kernels_too(self):
        self.peer()
        until(lambda: mixsh(self.mixd, "add arp 10.9.0.50 02:00:00:00:00:50").returncode == 0
              and bool(self.permanent()), True)
        self.assertEqual(self.permanent(), {("10.9.0.50", "v0"): ("02:00:00:00:00:50", "permanent")})
        self.ok("add arp 10.9.0.50 02:00:00:00:00:51")
        self.assertEqual(self.permanent(), {("10.9.0.50", "v0"): ("02:00:00:00:00:51", "permanent")})
        self.assert_agrees()
        self.ok("delete arp 10.9.0.50")
        self.assertEqual(self.permanent(), {})
        self.assert_agrees()

    def test_come_into_force_with_their_interface(self):
        self.ok("add arp 10.9.0.50 02:00:00:00:00:50")
        self.assertEqual([row["kind"] for row in self.json("show arp")], ["idle"])
        self.peer()
        there = {("10.9.0.50", "v0"): ("02:00:00:00:00:50", "permanent")}
        self.assertEqual(until(self.permanent, there)[0], there)
        self.assertEqual([row["kind"] for row in self.json("show arp")], ["static"])
        self.assert_agrees()

    def test_follow_their_network_to_another_interface(self):
        self.peer("v0", 9)
        self.peer("v1", 8)
        self.ok("add arp 10.9.0.50 02:00:00:00:00:50")
        there = {("10.9.0.50", "v0"): ("02:00:00:00:00:50", "permanent")}
        self.assertEqual(until(self.permanent, there)[0], there)
        ip("addr del 10.9.0.1/24 dev v0")
        self.assertEqual(until(self.permanent, {})[0], {}, "nothing is left where the network was")
        ip("addr add 10.9.0.1/24 dev v1")
        there = {("10.9.0.50", "v1"): ("02:00:00:00:00:50", "permanent")}
        self.assertEqual(until(self.permanent, there)[0], there)
        ip("addr del 10.9.0.1/24 dev v1")
        self.assertEqual(until(self.permanent, {})[0], {})
        self.ok("delete arp 10.9.0.50")
        self.assert_agrees()

    def test_are_what_they_were_when_a_change_can_not_be_stored(self):
        self.peer()
        self.ok("add arp 10.9.0.50 02:00:00:00:00:50")
        there = {("10.9.0.50", "v0"): ("02:00:00:00:00:50", "permanent")}
        self.assertEqual(until(self.permanent, there)[0], there)
        with self.full_store():
            self.refused("add arp 10.9.0.50 02:00:00:00:00:51", "no space left for the store")
            self.refused("add arp 10.9.0.60 02:00:00:00:00:60", "no space left for the store")
            self.refused("delete arp 10.9.0.50", "no space left for the store")
            self.assertEqual(self.permanent(), there)
            self.assertEqual([row["mac"] for row in self.json("show arp")], ["02:00:00:00:00:50"])
        self.ok("delete arp 10.9.0.50")
        self.assertEqual(self.permanent(), {})

    def test_are_written_again_after_a_restart(self):
        self.peer()
        until(lambda: mixsh(self.mixd, "add arp 10.9.0.50 02:00:00:00:00:50").returncode == 0
              and bool(self.permanent()), True)
        self.mixd.kill()
        ip("neigh del 10.9.0.50 dev v0")
        self.mixd.start()
        self.assertEqual(self.permanent(), {("10.9.0.50", "v0"): ("02:00:00:00:00:50", "permanent")})


class WithoutMixd(WithMixd):
    def test_every_question_fails_and_says_so(self):
        self.mixd.stop()
        for words in ("", " count", " summary", " mac-table", " mac-table count", " duplicates", " proxies",
                      " state stale"):
            self.refused("show arp" + words, "is mixd running")


class Descriptions(WithMixd):
    def test_are_added_shown_changed_and_deleted(self):
        self.ok("add mac description 02:00:00:00:00:01 one", "add mac description 02:00:00:00:00:02 'number two'",
                "add mac description 02:00:00:00:00:01 changed")
        self.assertEqual([(row["mac"], row["description"]) for row in self.json("show mac description")],
                         [("02:00:00:00:00:01", "changed"), ("02:00:00:00:00:02", "number two")])
        self.assertEqual(len(self.json("show mac description 02:00:00:00:00:02")), 1)
        self.assertEqual(self.json("show mac description 02:00:00:00:00:03"), [])
        self.restart()
        self.ok("delete mac description 02:00:00:00:00:01")
        self.refused("delete mac description 02:00:00:00:00:01", "this MAC address has no description")
        self.assertEqual(len(self.json("show mac description")), 1)
        self.ok("delete mac description all")
        self.assertEqual(self.json("show mac description"), [])

    def test_many_pages_are_listed_in_order(self):
        self.ok(*(f"add mac description 02:00:00:00:00:{i:02x} text{i}" for i in range(35)))
        self.assertEqual([row["description"] for row in self.json("show mac description")],
                         [f"text{i}" for i in range(35)])


class Scenario(WithMixd):
    scenario = """
[[network.virtual_router]]
id = 2
name = "branch"
[[network.interface]]
name = "ge0"
address = "10.0.0.1"
prefix = 8
[[network.interface]]
name = "ge1"
address = "192.168.1.1"
virtual_router = 2
[[network.interface]]
name = "ge2"
virtual_system = 4
[[arp.many]]
count = 200000
first = "10.0.0.2"
mac = "02:00:00:00:00:00"
interface = "ge0"
[[arp.entry]]
address = "192.168.1.2"
mac = "02:00:00:00:00:05"
interface = "ge1"
state = "stale"
[[arp.entry]]
address = "192.168.1.2"
mac = "02:00:00:00:00:05"
interface = "ge2"
[[arp.entry]]
address = "192.168.1.3"
interface = "ge1"
state = "incomplete"
[[arp.proxy]]
address = "192.168.1.9"
interface = "ge1"
[[arp.host]]
address = "192.168.1.77"
mac = "02:00:00:00:00:77"
interface = "ge1"
"""

    def test_200000_entries_are_listed_completely_without_holding_up_others(self):
        found = [row["address"] for row in self.json("show arp vr 1")]
        self.assertEqual(len(found), 200000)
        self.assertEqual(len(set(found)), 200000)
        self.assertEqual(found[0], "10.0.0.2")
        self.assertEqual(found[-1], "10.3.13.65")
        self.json("show arp mac-table vr 2")
        self.json("show arp count")
        self.json("show arp state failed")
        self.assertLess(self.slowest(4), 20000, "no request may hold up the others for 20 ms")

    def test_other_clients_are_answered_while_a_large_table_is_listed(self):
        listing = subprocess.Popen(["sh", "-c", "for i in 1 2 3 4 5; do mixsh -c 'show arp'; done"],
                                   env=self.mixd.environment(PATH=self.path()), stdout=subprocess.DEVNULL)
        took = []
        while listing.poll() is None:
            start = time.monotonic()
            self.ok("show virtual-router 2")
            took.append(time.monotonic() - start)
        self.assertGreater(len(took), 5)
        self.assertLess(sorted(took)[len(took) // 2], 0.05, "starting the shell included")

    def path(self):
        import os
        return os.environ["MIX_BIN"] + ":" + os.environ["PATH"]

    def test_virtual_routers_and_systems_are_apart(self):
        self.assertEqual([(row["address"], row["interface"], row["virtual_router"]) for row in
                          self.json("show arp vr 2")],
                         [("192.168.1.2", "ge1", 2), ("192.168.1.3", "ge1", 2)])
        self.assertEqual([(row["address"], row["interface"]) for row in self.json("show arp vsys 4")],
                         [("192.168.1.2", "ge2")])
        self.assertEqual(self.json("show arp summary vr 2"), [{"entries": 2, "static": 0, "dynamic": 2,
                                                               "incomplete": 1, "failed": 0, "proxies": 1}])
        self.assertEqual(self.json("show virtual-router 2"), [{"virtual_router": 2, "name": "branch"}])
        self.refused("show virtual-router 3", "there is no such virtual router")
        self.ok("add arp 192.168.1.4 02:00:00:00:00:44 vr 2")
        self.assertEqual([row["interface"] for row in self.json("show arp kind static")], ["ge1"])
        self.ok("add arp 192.168.1.4 02:00:00:00:00:44")
        self.assertEqual([row["virtual_router"] for row in self.json("show arp kind idle")], [1])

    def test_clears_and_scans_work_on_the_described_network(self):
        self.assertEqual(self.json("clear arp vr 2 unresolved"), [{"cleared": 1}])
        self.assertEqual(self.json("clear arp vr 2"), [{"cleared": 1}])
        self.assertEqual(self.json("set arp scan 192.168.1.70 192.168.1.80"), [{"addresses": 11}])
        self.assertEqual([row["mac"] for row in self.json("show arp vr 2")], ["02:00:00:00:00:77"])

    def test_a_very_large_table_is_cleared_as_a_whole(self):
        self.assertEqual(self.json("clear arp vr 1"), [{"cleared": 200000}])
        self.assertEqual(self.json("show arp count vr 1"), [{"entries": 0}])


class Boards(WithMixd):
    scenario = """
[[board]]
slot = 0
role = "main"
this = true
[[board]]
slot = 3
[[arp.entry]]
address = "10.1.1.1"
mac = "02:00:00:00:00:01"
interface = "ge0"
[[arp.entry]]
slot = 3
address = "10.1.1.3"
mac = "02:00:00:00:00:03"
interface = "ge3"
virtual_router = 1
"""

    def test_each_has_its_own_table(self):
        self.assertEqual([row["address"] for row in self.json("show arp")], ["10.1.1.1"])
        self.assertEqual([row["address"] for row in self.json("show arp node 1")], ["10.1.1.1"])
        self.assertEqual([row["address"] for row in self.json("show arp node 4")], ["10.1.1.3"])
        self.assertEqual(self.json("show arp summary node 4")[0]["entries"], 1)
        self.refused("show arp node 9", "asked the main local daemon (daemon 0) of node 9")
        self.refused("show arp count node 9", "is there such a board?")


if __name__ == "__main__":
    enter()
    unittest.main(verbosity=1)
