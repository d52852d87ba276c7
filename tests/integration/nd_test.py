"""IPv6 neighbours against the kernel's own view, in network namespaces; and scenarios."""

import ipaddress
import unittest

from own_network import Peer, enter, ip, ip_json, ping, until
from shell_case import ShellCase, STATES


def kernel_view():
    return {(row["dst"], row["dev"]): (row.get("lladdr"), STATES[row["state"][0]], "router" in row)
            for row in ip_json("-6 neigh show")}


class WithMixd(ShellCase):
    def shown(self, words="show nd"):
        found = self.json(words)
        view = {(str(ipaddress.ip_address(row["address"])), row["interface"]):
                (row["mac"], row["state"], row["router"]) for row in found}
        self.assertEqual(len(view), len(found), "a row was shown twice")
        return view

    def assert_agrees(self):
        return self.assert_becomes(self.shown, kernel_view)

    def peer(self):
        peer = Peer("v0", addresses=["fd00:9::2/64", "fd00:9::3/64"])
        self.addCleanup(peer.remove)
        ip("addr add fd00:9::1/64 dev v0 nodad")
        until(lambda: ping("fd00:9::2"), True)
        return peer


class AgainstTheKernel(WithMixd):
    def test_agrees_through_pings_static_entries_and_clears(self):
        self.peer()
        self.assertIn(("fd00:9::2", "v0"), self.assert_agrees())
        ping("fd00:9::77")
        self.assertIn(self.assert_agrees()[("fd00:9::77", "v0")][1], ("incomplete", "failed"))
        ip("-6 neigh add fd00:9::50 lladdr 02:00:00:00:00:50 dev v0 nud permanent")
        ip("-6 neigh add fd00:9::51 lladdr 02:00:00:00:00:51 dev v0 router nud stale")
        kernel = self.assert_agrees()
        self.assertTrue(kernel[("fd00:9::51", "v0")][2])
        self.assertGreater(self.json("clear nd")[0]["cleared"], 0)
        self.assert_agrees()
        self.assertEqual(set(self.shown("show nd static")), {("fd00:9::50", "v0")})
        ip("-6 neigh del fd00:9::50 dev v0")
        self.assert_agrees()

    def test_counts_summary_and_filters_are_the_kernels(self):
        peer = self.peer()
        ip("-6 neigh add fd00:9::50 lladdr 02:00:00:00:00:50 dev v0 nud permanent")
        ip("-6 neigh add fd00:9::51 lladdr 02:00:00:00:00:51 dev v0 nud stale")
        kernel = self.assert_agrees()
        self.assertEqual(self.json("show nd count"), [{"neighbours": len(kernel)}])
        found = self.json("show nd summary")[0]
        self.assertEqual((found["neighbours"], found["static"], found["dynamic"]), (len(kernel), 1, len(kernel) - 1))
        self.assertEqual(set(self.shown("show nd address fd00:9::50")), {("fd00:9::50", "v0")})
        self.assertEqual(set(self.shown("show nd filtered kind static")), {("fd00:9::50", "v0")})
        self.assertEqual(set(self.shown("show nd filtered state permanent")), {("fd00:9::50", "v0")})
        self.assertEqual(set(self.shown("show nd filtered mac 02:00:00:00:00:51")), {("fd00:9::51", "v0")})
        self.assertIn(("fd00:9::2", "v0"), self.shown(f"show nd filtered mac {peer.mac()}"))
        self.assertEqual(self.shown("show nd vr 7"), {})
        self.assertEqual(self.shown("show nd vsys 7"), {})
        self.assertIn(f"1 of {len(kernel) - 1} that match",
                      self.ok("show nd filtered kind dynamic maximum 1").stdout)

    def test_dynamic_neighbours_become_static_and_stay(self):
        self.peer()
        self.assert_agrees()
        ping("fd00:9::77")
        dynamic = {where: entry[0] for where, entry in self.shown("show nd filtered kind dynamic").items()
                   if entry[0]}
        self.ok("set nd static")
        self.assertEqual({where: entry[0] for where, entry in self.shown("show nd static").items()}, dynamic)
        self.restart()
        self.assertEqual({where: entry[0] for where, entry in self.shown("show nd static").items()}, dynamic)
        self.assertEqual({row["kind"] for row in self.json("show nd static")}, {"static"})


class Applied(WithMixd):
    options = ["--apply"]

    def test_static_neighbours_are_the_kernels_too(self):
        self.peer()
        self.assert_agrees()
        self.ok("set nd static")
        self.assertEqual(kernel_view()[("fd00:9::2", "v0")][1], "permanent")
        shown, kernel = until(lambda: {where: entry[:2] for where, entry in self.shown().items()},
                              lambda: {where: entry[:2] for where, entry in kernel_view().items()})
        self.assertEqual(shown, kernel)


    def test_static_neighbours_are_what_they_were_when_a_change_can_not_be_stored(self):
        self.peer()
        self.assert_agrees()
        with self.full_store():
            self.ok("set nd static")
            self.assertEqual(self.shown("show nd static"), {})
        self.assertNotIn("permanent", {entry[1] for entry in kernel_view().values()})


class Scenario(WithMixd):
    scenario = """
[[network.interface]]
name = "ge1"
virtual_router = 2
[[network.virtual_router]]
id = 2
name = "branch"
[[nd.many]]
count = 50000
first = "2001:db8::"
mac = "02:00:00:00:00:00"
interface = "ge0"
[[nd.entry]]
address = "fd00::1"
mac = "02:00:00:00:01:01"
interface = "ge1"
state = "stale"
router = true
"""

    def test_a_large_table_is_listed_completely_with_its_total(self):
        found = self.json("show nd vr 1")
        self.assertEqual(len({row["address"] for row in found}), 50000)
        self.assertEqual(len(found), 50000)
        self.assertIn("50001 of 50001 that match", self.ok("show nd filtered").stdout)
        self.assertEqual(self.shown("show nd vr 2"), {("fd00::1", "ge1"): ("02:00:00:00:01:01", "stale", True)})
        self.assertLess(self.slowest(133), 20000, "no request may hold up the others for 20 ms")

    def test_clearing_works_on_the_described_network(self):
        self.assertEqual(self.json("clear nd address fd00::1"), [{"cleared": 1}])
        self.assertEqual(self.json("clear nd"), [{"cleared": 50000}])
        self.assertEqual(self.json("show nd count"), [{"neighbours": 0}])


if __name__ == "__main__":
    enter()
    unittest.main(verbosity=1)
