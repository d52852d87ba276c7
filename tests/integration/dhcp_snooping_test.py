"""DHCP snooping: bindings from a lease file that is written to, settings, and scenarios."""

import os
import tempfile
import time
import unittest

from own_network import Peer, enter, ip, ping, until
from shell_case import ShellCase


class WithMixd(ShellCase):
    def setUp(self):
        self.place = tempfile.TemporaryDirectory()
        self.addCleanup(self.place.cleanup)
        self.leases = os.path.join(self.place.name, "leases")
        super().setUp()

    def more_options(self):
        return [] if self.scenario is not None else ["--leases", self.leases]

    def shown(self, words="show dhcp-snooping bindings"):
        return {(row["address"], row["mac"]): row["host"] for row in self.json(words)}

    def write(self, *lines, mode="w"):
        with open(self.leases, mode, encoding="utf-8") as file:
            file.write("".join(line + "\n" for line in lines))

    def assert_shown(self, expected, words="show dhcp-snooping bindings"):
        self.assertEqual(until(lambda: self.shown(words), expected)[0], expected)


def lease(number, seconds=3600, host="*"):
    expiry = 0 if seconds == 0 else int(time.time()) + seconds
    return f"{expiry} 02:00:00:00:00:{number:02x} 10.5.0.{number} {host} 01:02:00:00:00:00:{number:02x}"


def key(number):
    return (f"10.5.0.{number}", f"02:00:00:00:00:{number:02x}")


class LeaseFile(WithMixd):
    def test_is_followed_as_it_is_written(self):
        self.assertEqual(self.shown(), {})
        self.write(lease(1, host="printer"), lease(2))
        self.assert_shown({key(1): "printer", key(2): None})
        self.write(lease(3), mode="a")
        self.assert_shown({key(1): "printer", key(2): None, key(3): None})
        self.write(lease(2), lease(3))
        self.assert_shown({key(2): None, key(3): None})

    def test_may_be_replaced_by_another(self):
        self.write(lease(1))
        self.assert_shown({key(1): None})
        other = self.leases + ".new"
        with open(other, "w", encoding="utf-8") as file:
            file.write(lease(9) + "\n")
        os.rename(other, self.leases)
        self.assert_shown({key(9): None})

    def test_what_is_no_lease_of_ipv4_is_passed_over(self):
        self.write(lease(1), "duid 00:01:00:01:2f:00:00:00:02:00:00:00:00:09",
                   "1900000000 12345 fd00::5 host 00:01", "", "nonsense", "1900000000 02:00:00:00:00:07",
                   "1900000000 06-02:00:00:00:00:08 10.5.0.8 * *", "1900000000 02:00:00:00:00:zz 10.5.0.9 * *",
                   "1900000000x 02:00:00:00:00:0a 10.5.0.10 * *")
        self.assert_shown({key(1): None})

    def test_leases_end(self):
        self.write(lease(1, seconds=2), lease(2, seconds=0), lease(3))
        self.assert_shown({key(1): None, key(2): None, key(3): None})
        left = {row["address"]: row["left_s"] for row in self.json("show dhcp-snooping bindings")}
        self.assertIsNone(left["10.5.0.2"])
        self.assertLessEqual(left["10.5.0.3"], 3600)
        self.assertGreater(left["10.5.0.3"], 3500)
        self.assert_shown({key(2): None, key(3): None})

    def test_bindings_outlive_a_restart_and_a_lost_file(self):
        self.write(lease(1, host="printer"), lease(2))
        self.assert_shown({key(1): "printer", key(2): None})
        self.mixd.kill()
        os.unlink(self.leases)
        self.mixd.start()
        self.assertEqual(self.shown(), {key(1): "printer", key(2): None})

    def test_cleared_bindings_come_back_when_they_are_renewed(self):
        self.write(lease(1), lease(2))
        self.assert_shown({key(1): None, key(2): None})
        self.assertEqual(self.json("clear dhcp-snooping address 10.5.0.1"), [{"cleared": 1}])
        self.assertEqual(self.shown(), {key(2): None})
        self.write(lease(3), mode="a")
        self.assert_shown({key(2): None, key(3): None})
        self.write(lease(1, seconds=7200), lease(2), lease(3))
        self.assert_shown({key(1): None, key(2): None, key(3): None})
        self.assertEqual(self.json("clear dhcp-snooping"), [{"cleared": 3}])
        self.assertEqual(self.json("show dhcp-snooping count"), [{"bindings": 0}])

    def test_filters_select_and_count(self):
        self.write(lease(1), lease(2))
        self.assert_shown({key(1): None, key(2): None})
        self.assertEqual(set(self.shown("show dhcp-snooping bindings address 10.5.0.2")), {key(2)})
        self.assertEqual(set(self.shown("show dhcp-snooping bindings mac 02:00:00:00:00:01")), {key(1)})
        self.assertEqual(self.json("show dhcp-snooping count"), [{"bindings": 2}])
        self.assertEqual(self.json("show dhcp-snooping count mac 02:00:00:00:00:01"), [{"bindings": 1}])
        self.assertEqual(self.json("show dhcp-snooping count kind static"), [{"bindings": 0}])
        self.assertEqual(self.json("show dhcp-snooping count vlan 9"), [{"bindings": 0}])

    def test_bindings_tell_the_port_that_leads_to_the_client(self):
        ip("link add br0 type bridge")
        self.addCleanup(ip, "link del br0", check=False)
        ip("link set br0 up")
        ip("addr add 10.5.0.1/24 dev br0")
        peer = Peer("p0", mac="02:00:00:00:00:02", addresses=["10.5.0.2/24"])
        self.addCleanup(peer.remove)
        ip("link set p0 master br0")
        until(lambda: ping("10.5.0.2"), True)
        self.write(lease(2), lease(3))
        found, wanted = until(lambda: {row["address"]: row["interface"] for row in
                                       self.json("show dhcp-snooping bindings")},
                              {"10.5.0.2": "p0", "10.5.0.3": "br0"})
        self.assertEqual(found, wanted)


class Settings(WithMixd):
    scenario = "\n".join(f'[[network.interface]]\nname = "ge{i}"' for i in range(120))

    def settings(self, words="show dhcp-snooping interface"):
        return {row["interface"]: row for row in self.json(words)}

    def test_each_is_set_read_back_and_kept(self):
        self.assertEqual(self.settings(), {})
        self.ok("set dhcp-snooping ge1 snooping on", "set dhcp-snooping ge1 rate-limit 300 deny-request on",
                "set dhcp-snooping ge1 deny-response on validity-check on", "set dhcp-snooping ge1 deny-request off",
                "set dhcp-snooping ge2 rate-limit 5")
        expected = {"ge1": {"interface": "ge1", "vlan": None, "snooping": True, "rate_limit_per_s": 300,
                            "deny_request": False, "deny_response": True, "validity_check": True},
                    "ge2": {"interface": "ge2", "vlan": None, "snooping": False, "rate_limit_per_s": 5,
                            "deny_request": False, "deny_response": False, "validity_check": False}}
        self.assertEqual(self.settings(), expected)
        self.restart()
        self.assertEqual(self.settings(), expected)
        self.assertEqual(set(self.settings("show dhcp-snooping interface ge2")), {"ge2"})
        self.assertEqual(self.settings("show dhcp-snooping interface ge3"), {})
        self.assertEqual(set(self.settings("show dhcp-snooping interface only enabled")), {"ge1"})
        self.assertEqual(set(self.settings("show dhcp-snooping interface only disabled")), {"ge2"})

    def test_vlans_are_interfaces_of_their_name(self):
        self.ok("set dhcp-snooping vlan10 snooping on", "set dhcp-snooping vlan11 snooping on",
                "set dhcp-snooping ge1 snooping on")
        self.assertEqual({row["vlan"] for row in self.json("show dhcp-snooping vlan")}, {10, 11})
        self.assertEqual({row["vlan"] for row in self.json("show dhcp-snooping vlan 10")}, {10})
        self.assertEqual(self.json("show dhcp-snooping vlan 12"), [])

    def test_many_are_read_back_in_several_batches(self):
        self.ok(*(f"set dhcp-snooping ge{i} snooping on" for i in range(120)))
        found = [row["interface"] for row in self.json("show dhcp-snooping interface")]
        self.assertEqual(sorted(found), sorted(f"ge{i}" for i in range(120)))
        reads = [row["requests"] for row in self.json("show daemons") if row["service"] == "gateway"
                 and row["type"] == 3]
        self.assertEqual(reads, [3], "fifty rows a batch")

    def test_of_an_interface_that_is_not_there_are_refused(self):
        self.refused("set dhcp-snooping nowhere0 snooping on", "there is no such interface")
        self.refused("set dhcp-snooping vlan5000 snooping on", "there is no such interface")


class Scenario(WithMixd):
    scenario = """
[[dhcpsn.many]]
count = 20000
address = "10.0.0.1"
mac = "02:00:00:00:00:00"
vlan = 10
interface = "ge1"
[[dhcpsn.binding]]
address = "10.9.0.1"
mac = "02:aa:00:00:00:01"
vlan = 20
interface = "ge2"
static = true
seconds = 0
host = "server"
"""

    def test_a_large_table_is_listed_and_counted(self):
        self.assertEqual(len(self.shown()), 20001)
        self.assertEqual(self.json("show dhcp-snooping count vlan 10"), [{"bindings": 20000}])
        self.assertEqual(self.shown("show dhcp-snooping bindings vlan 20"),
                         {("10.9.0.1", "02:aa:00:00:00:01"): "server"})

    def test_filters_over_all_of_it_are_worked_at_in_turns(self):
        self.assertEqual(self.json("clear dhcp-snooping vlan 11"), [{"cleared": 0}])
        self.assertEqual(self.json("clear dhcp-snooping address 10.0.78.0"), [{"cleared": 1}])
        self.assertEqual(self.json("show dhcp-snooping count vlan 10"), [{"bindings": 19999}])

    def test_static_bindings_are_not_cleared(self):
        self.assertEqual(self.json("clear dhcp-snooping"), [{"cleared": 20000}])
        self.assertEqual(set(self.shown()), {("10.9.0.1", "02:aa:00:00:00:01")})


class ScenarioWithMacTable(WithMixd):
    scenario = """
[[mac.many]]
count = 2
mac = "02:aa:00:00:00:01"
interface = "br0"
port = "ge4"
vlan = 30
[[dhcpsn.many]]
count = 1
address = "10.9.0.1"
mac = "02:aa:00:00:00:01"
[[dhcpsn.binding]]
address = "10.9.0.2"
mac = "02:aa:00:00:00:02"
vlan = 40
"""

    def test_says_where_a_client_is_unless_the_binding_does(self):
        self.assertEqual({row["address"]: (row["interface"], row["vlan"])
                          for row in self.json("show dhcp-snooping bindings")},
                         {"10.9.0.1": ("ge4", 30), "10.9.0.2": ("ge4", 40)})


class ScenarioWithLeases(WithMixd):
    def setUp(self):
        self.scenario = """
[dhcpsn]
lease_file = "LEASES"
[[dhcpsn.binding]]
address = "10.9.0.1"
mac = "02:aa:00:00:00:01"
[[dhcpsn.binding]]
address = "10.9.0.2"
mac = "02:aa:00:00:00:02"
static = true
"""
        super().setUp()

    def more_options(self):
        self.scenario = self.scenario.replace("LEASES", self.leases)
        return []

    def test_what_it_describes_is_not_released_by_the_lease_file(self):
        described = {("10.9.0.1", "02:aa:00:00:00:01"): None, ("10.9.0.2", "02:aa:00:00:00:02"): None}
        self.assert_shown(described)
        self.write(lease(1), lease(2))
        self.assert_shown({**described, key(1): None, key(2): None})
        self.write(lease(2))
        self.assert_shown({**described, key(2): None})


if __name__ == "__main__":
    enter()
    unittest.main(verbosity=1)
