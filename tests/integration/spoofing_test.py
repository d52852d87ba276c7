"""Spoofing statistics and inspection settings of a scenario, through the shell."""

import os
import time
import unittest

from shell_case import ShellCase

os.environ["TZ"] = "UTC"
time.tzset()

STATISTICS = """
[[spoofing.arp]]
mac = "02:00:00:00:00:01"
vlan = 10
address = "10.1.2.3"
interface = "ge0"
mac_check = 1
reverse_check = 2
rate_check = 4294967295
last = 86400
[[spoofing.arp]]
mac = "02:00:00:00:00:01"
vlan = 20
interface = "ge0"
mac_check = 5
[[spoofing.arp]]
mac = "02:00:00:00:00:02"
interface = "ge1"
rate_check = 6
[[spoofing.arp]]
mac = "02:00:00:00:00:03"
interface = "ge1"
virtual_system = 7
[[spoofing.nd]]
address = "2001:db8::1"
mac = "02:00:00:00:00:01"
interface = "ge0"
mac_check = 1
reverse_check = 2
rate_check = 3
last = 90000
[[spoofing.nd]]
address = "2001:db8::2"
interface = "ge1"
rate_check = 5
[[spoofing.nd]]
address = "2001:db8::3"
interface = "ge1"
virtual_system = 7
"""

SETTINGS = """
[[inspection.arp]]
interface = "ge0"
first_vlan = 10
last_vlan = 20
policy = "office"
checks = ["mac", "rate"]
rate = 50
description = "desks"
[[inspection.arp]]
interface = "ge1"
trusted = true
log_only = true
checks = ["reverse"]
[[inspection.arp]]
interface = "ge2"
first_vlan = 30
enabled = false
policy = "lab"
[[inspection.arp]]
interface = "ge0"
virtual_system = 300
[[inspection.nd]]
interface = "ge0"
first_vlan = 10
policy = "office"
checks = ["mac", "reverse", "rate"]
[[inspection.nd]]
interface = "ge1"
first_vlan = 20
last_vlan = 29
rate = 9
[[inspection.nd]]
interface = "ge0"
virtual_system = 300
"""


class Statistics(ShellCase):
    scenario = STATISTICS

    def arp(self, words=""):
        return [(row["mac"], row["vlan"]) for row in self.json(f"show spoofing arp {words}")]

    def nd(self, words=""):
        return [row["address"] for row in self.json(f"show spoofing nd {words}")]

    def test_of_arp_have_every_field(self):
        self.assertEqual(self.json("show spoofing arp")[0], {
            "mac": "02:00:00:00:00:01", "vlan": 10, "address": "10.1.2.3", "interface": "ge0", "mac_check": 1,
            "reverse_check": 2, "rate_check": 4294967295, "last": "1970-01-02 00:00:00", "virtual_system": 0})
        self.assertEqual(self.json("show spoofing arp")[2]["vlan"], None)
        self.assertEqual(self.json("show spoofing arp vsys 7"), [{
            "mac": "02:00:00:00:00:03", "vlan": None, "address": "0.0.0.0", "interface": "ge1", "mac_check": 0,
            "reverse_check": 0, "rate_check": 0, "last": None, "virtual_system": 7}])

    def test_of_nd_have_every_field(self):
        self.assertEqual(self.json("show spoofing nd")[0], {
            "address": "2001:db8::1", "mac": "02:00:00:00:00:01", "interface": "ge0", "mac_check": 1,
            "reverse_check": 2, "rate_check": 3, "last": "1970-01-02 01:00:00", "virtual_system": 0})
        self.assertEqual(self.nd("vsys 7"), ["2001:db8::3"])

    def test_are_shown_in_columns(self):
        head, row = self.ok("show spoofing arp maximum 1").stdout.splitlines()
        self.assertEqual(head.split(), ["MAC", "address", "VLAN", "Claimed", "Interface", "MAC", "Reverse", "Rate",
                                        "Last"])
        self.assertEqual(row.split(), ["02:00:00:00:00:01", "10", "10.1.2.3", "ge0", "1", "2", "4294967295",
                                       "1970-01-02", "00:00:00"])
        self.assertIn("2001:db8::2", self.ok("show spoofing nd").stdout)

    def test_are_limited_as_asked(self):
        self.assertEqual(len(self.arp("maximum 2")), 2)
        self.assertEqual(self.nd("at-least 6"), ["2001:db8::1"])
        self.assertEqual(self.nd("at-least 5"), ["2001:db8::1", "2001:db8::2"])
        self.assertEqual(self.nd("at-least 7"), [])

    def test_of_arp_are_cleared_by_mac_and_vlan(self):
        self.ok("clear spoofing arp mac 02:00:00:00:00:01 vlan 20")
        self.assertEqual(self.arp(), [("02:00:00:00:00:01", 10), ("02:00:00:00:00:02", None)])
        self.ok("clear spoofing arp mac 02:00:00:00:00:01")
        self.assertEqual(self.arp(), [("02:00:00:00:00:02", None)])
        self.ok("clear spoofing arp mac 02:00:00:00:00:09")
        self.assertEqual(len(self.arp()), 1)
        self.ok("clear spoofing arp")
        self.assertEqual(self.arp(), [])
        self.assertEqual(len(self.arp("vsys 7")), 1)
        self.assertEqual(len(self.nd()), 2)

    def test_of_nd_are_cleared_by_virtual_system(self):
        self.ok("clear spoofing nd vsys 7")
        self.assertEqual((self.nd(), self.nd("vsys 7")), (["2001:db8::1", "2001:db8::2"], []))
        self.ok("clear spoofing nd")
        self.assertEqual(self.nd(), [])

    def test_stay_cleared_over_a_restart(self):
        self.ok("clear spoofing arp mac 02:00:00:00:00:01", "clear spoofing nd")
        self.restart()
        self.assertEqual((self.arp(), self.nd()), ([("02:00:00:00:00:02", None)], []))

    def test_failures_are_told(self):
        self.assertEqual(self.ok("show spoofing arp vsys 9", options=["--json"]).stdout, "")
        self.mixd.stop()
        for command in ("show spoofing arp", "show spoofing nd", "clear spoofing arp", "clear spoofing nd",
                        "show inspection arp", "show inspection arp interface ge0", "show inspection nd"):
            self.refused(command, "ipcmsg send failed")


class ManyStatistics(ShellCase):
    scenario = "".join(f'[[spoofing.arp]]\nmac = "02:00:00:00:00:{i:02x}"\ninterface = "ge0"\n'
                       f'[[spoofing.nd]]\naddress = "2001:db8::{i:x}"\ninterface = "ge0"\n'
                       f'[[inspection.arp]]\ninterface = "ge{i:03}"\n[[inspection.nd]]\ninterface = "ge{i:03}"\n'
                       for i in range(1, 201))

    def test_are_listed_page_after_page_once_each(self):
        for what, key in (("spoofing arp", "mac"), ("spoofing nd", "address"), ("inspection arp", "interface"),
                          ("inspection nd", "interface")):
            found = [row[key] for row in self.json(f"show {what}")]
            self.assertEqual((len(found), len(set(found))), (200, 200), what)
        self.assertEqual(len(self.json("show spoofing arp maximum 100")), 100)


class Inspection(ShellCase):
    scenario = SETTINGS

    def found(self, words):
        return [row["interface"] for row in self.json(f"show inspection {words}")]

    def test_of_arp_has_every_field(self):
        self.assertEqual(self.json("show inspection arp"), [
            {"interface": "ge0", "vlans": "10-20", "policy": "office", "enabled": True, "trusted": False, "drops": True,
             "checks": ["mac", "rate"], "rate_per_s": 50, "virtual_system": 0, "description": "desks"},
            {"interface": "ge1", "vlans": "all", "policy": None, "enabled": True, "trusted": True, "drops": False,
             "checks": ["reverse"], "rate_per_s": None, "virtual_system": 0, "description": None},
            {"interface": "ge2", "vlans": "30", "policy": "lab", "enabled": False, "trusted": False, "drops": True,
             "checks": [], "rate_per_s": None, "virtual_system": 0, "description": None}])

    def test_of_nd_has_every_field(self):
        self.assertEqual(self.json("show inspection nd"), [
            {"interface": "ge0", "vlans": "10", "policy": "office", "enabled": True, "trusted": False, "drops": True,
             "checks": ["mac", "reverse", "rate"], "rate_per_s": None, "virtual_system": 0},
            {"interface": "ge1", "vlans": "20-29", "policy": None, "enabled": True, "trusted": False, "drops": True,
             "checks": [], "rate_per_s": 9, "virtual_system": 0}])

    def test_is_shown_in_columns(self):
        lines = self.ok("show inspection arp").stdout.splitlines()
        self.assertEqual(lines[0].split(), ["Interface", "VLANs", "Policy", "Enabled", "Trusted", "Drops", "Checks",
                                            "Rate", "Description"])
        self.assertEqual(lines[1].split()[:3], ["ge0", "10-20", "office"])
        self.assertEqual(len(lines), 4)

    def test_is_selected_by_each_mode(self):
        for words, expected in {
                "arp policy office": ["ge0"], "arp policy none": [], "nd policy office": ["ge0"],
                "arp interface ge1": ["ge1"], "arp interface ge": [], "nd interface ge1": ["ge1"],
                "arp vlan 9": ["ge1"], "arp vlan 10": ["ge0", "ge1"], "arp vlan 20": ["ge0", "ge1"],
                "arp vlan 21": ["ge1"], "nd vlan 29": ["ge1"], "nd vlan 30": [],
                "arp interface Vlan30": ["ge1", "ge2"], "arp interface Vlan5-10": ["ge0", "ge1"],
                "arp interface Vlan20-30": ["ge0", "ge1", "ge2"], "arp interface Vlan21-29": ["ge1"],
                "arp vsys 300": ["ge0"], "nd vsys 300": ["ge0"], "arp vsys 44": [], "nd vsys 44": []}.items():
            self.assertEqual(self.found(words), expected, words)

    def test_takes_one_selection(self):
        finished = self.json  # the usage is checked before any daemon is asked
        with self.assertRaisesRegex(AssertionError, "only one of policy, interface and vlan"):
            finished("show inspection arp vlan 3 policy office")
        with self.assertRaisesRegex(AssertionError, "only one of policy, interface and vlan"):
            finished("show inspection nd interface ge0 policy office")

    def test_follows_the_scenario(self):
        with open(os.path.join(self.mixd.directory, "scenario.toml"), "w", encoding="utf-8") as file:
            file.write('[[inspection.arp]]\ninterface = "ge1"\npolicy = "new"\n')
        self.restart()
        self.assertEqual([(row["interface"], row["policy"]) for row in self.json("show inspection arp")],
                         [("ge1", "new")])
        self.assertEqual(self.found("nd"), [])


class WithoutAScenario(ShellCase):
    def test_nothing_is_there(self):
        for what in "spoofing arp", "spoofing nd", "inspection arp", "inspection nd":
            self.assertEqual(self.json(f"show {what}"), [], what)
        self.ok("clear spoofing arp", "clear spoofing nd")


if __name__ == "__main__":
    unittest.main(verbosity=1)
