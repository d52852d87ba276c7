"""The LAN address table as addresses come and go, and what the shell makes of address words."""

import os
import struct
import unittest

from mixd import Mixd
from own_network import Peer, enter, ip, run, until
from shell_case import ShellCase

TABLE = "/dev/shm/lan_addr"


def table():
    """The entries of the shared table, as its readers see them."""
    with open(TABLE, "rb") as file:
        content = file.read()
    count = struct.unpack_from("<i", content, 0)[0]
    entries = [struct.unpack_from("<II", content, 8 + 8 * k) for k in range(count)]
    return {".".join(str(address >> shift & 255) for shift in (24, 16, 8, 0)) + f"/{length}"
            for address, length in entries}


class LanTable(ShellCase):
    def setUp(self):
        ip("addr flush dev lo")
        ip("addr add 127.0.0.1/8 dev lo")
        if os.path.exists(TABLE):
            os.unlink(TABLE)
        super().setUp()

    def assert_table(self, expected):
        found, wanted = until(table, set(expected))
        self.assertEqual(found, wanted)

    def test_has_its_size_and_nobody_else_may_read_it(self):
        self.assertEqual(os.stat(TABLE).st_size, 32768)
        self.assertEqual(os.stat(TABLE).st_mode & 0o777, 0o600)

    def test_leaves_the_loopback_out(self):
        self.assert_table([])

    def test_follows_addresses_as_they_come_and_go(self):
        ip("addr add 192.0.2.5/24 dev lo")
        self.assert_table(["192.0.2.0/24"])
        ip("addr add 198.51.100.130/25 dev lo")
        ip("addr add 203.0.113.9/32 dev lo")
        self.assert_table(["192.0.2.0/24", "198.51.100.128/25", "203.0.113.9/32"])
        ip("addr del 192.0.2.5/24 dev lo")
        self.assert_table(["198.51.100.128/25", "203.0.113.9/32"])
        ip("addr flush dev lo")
        self.assert_table([])

    def test_keeps_a_network_as_long_as_one_address_is_in_it(self):
        ip("addr add 192.0.2.5/24 dev lo")
        ip("addr add 192.0.2.6/24 dev lo")
        self.assert_table(["192.0.2.0/24"])
        ip("addr del 192.0.2.6/24 dev lo")
        ip("addr add 10.0.0.1/8 dev lo")
        self.assert_table(["192.0.2.0/24", "10.0.0.0/8"])
        ip("addr del 192.0.2.5/24 dev lo")
        self.assert_table(["10.0.0.0/8"])

    def test_loses_the_networks_of_an_interface_that_goes_away(self):
        peer = Peer("v0")
        ip("addr add 10.9.0.1/24 dev v0")
        self.assert_table(["10.9.0.0/24"])
        peer.remove()
        self.assert_table([])

    def test_follows_a_thousand_changes_at_once(self):
        every = [f"10.{i // 250}.{i % 250}.1/24" for i in range(1000)]
        run("ip", "-batch", "-", text_in="".join(f"addr add {one} dev lo\n" for one in every))
        self.assert_table(one.replace(".1/24", ".0/24") for one in every)
        run("ip", "-batch", "-", text_in="".join(f"addr del {one} dev lo\n" for one in every[::2]))
        self.assert_table(one.replace(".1/24", ".0/24") for one in every[1::2])

    def test_outlives_mixd_and_is_put_right_by_the_next(self):
        ip("addr add 192.0.2.5/24 dev lo")
        ip("addr add 10.0.0.1/8 dev lo")
        self.assert_table(["192.0.2.0/24", "10.0.0.0/8"])
        self.mixd.kill()
        self.assertEqual(table(), {"192.0.2.0/24", "10.0.0.0/8"})
        ip("addr del 10.0.0.1/8 dev lo")
        self.mixd.start()
        self.assert_table(["192.0.2.0/24"])

    def test_is_put_right_when_it_holds_rubbish(self):
        ip("addr add 192.0.2.5/24 dev lo")
        for count in (-5, 2**31 - 1, 4095):
            self.mixd.stop()
            with open(TABLE, "wb") as file:
                file.write(struct.pack("<i", count) + os.urandom(32764))
            self.mixd.start()
            self.assert_table(["192.0.2.0/24"])

    def test_the_shell_tells_local_addresses_from_the_lan(self):
        ip("addr add 192.0.2.5/24 dev lo")
        self.assert_table(["192.0.2.0/24"])
        self.assertEqual(self.json("show lan addresses"),
                         [{"interface": "lo", "address": "127.0.0.1", "local": True, "lan": False, "private": True},
                          {"interface": "lo", "address": "192.0.2.5", "local": True, "lan": True, "private": False}])
        self.assertEqual(self.json("show lan networks"), [{"network": "192.0.2.0/24", "mask": "255.255.255.0"}])
        own, neighbour, far = [self.json(f"show address {one}")[0]
                               for one in ("192.0.2.5", "192.0.2.6", "192.0.3.5")]
        self.assertEqual((own["is_linux_ip"], own["is_lan_addr"]), (True, True))
        self.assertEqual((neighbour["is_linux_ip"], neighbour["is_lan_addr"]), (False, True))
        self.assertEqual((far["is_linux_ip"], far["is_lan_addr"]), (False, False))


class LanScenario(ShellCase):
    def setUp(self):
        """Each test starts mixd with scenarios of its own."""

    def start(self, scenario):
        if os.path.exists(TABLE):
            os.unlink(TABLE)
        self.scenario = scenario
        super().setUp()

    def not_started(self, scenario, reason):
        with self.assertRaises(RuntimeError) as raised:
            self.start(scenario)
        self.assertIn(reason, str(raised.exception))

    def test_gives_networks_and_addresses_of_interfaces(self):
        ip("addr replace 192.0.2.5/24 dev lo")
        self.start('[[lan_addr.network]]\naddress = "10.1.0.0"\nlength = 16\n'
                   '[[lan_addr.network]]\naddress = "203.0.113.7"\nlength = 32\n'
                   '[[network.interface]]\nname = "ge0"\naddress = "172.16.5.1"\nprefix = 20\n')
        self.assertEqual(table(), {"10.1.0.0/16", "203.0.113.7/32", "172.16.0.0/20"})
        self.assertTrue(self.json("show address 172.16.15.255")[0]["is_lan_addr"])
        self.assertFalse(self.json("show address 192.0.2.6")[0]["is_lan_addr"], "the host is not what is described")

    def test_stays_with_the_mixd_that_has_it(self):
        self.start('[[lan_addr.network]]\naddress = "10.1.0.0"\nlength = 16\n')
        with Mixd(scenario='[[lan_addr.network]]\naddress = "10.2.0.0"\nlength = 16\n') as other:
            self.assertIn("another mixd keeps the LAN's addresses", other.log())
            self.assertEqual(table(), {"10.1.0.0/16"})
            self.mixd.stop()
            other.stop()
            other.start()
            self.assertEqual(table(), {"10.2.0.0/16"})

    def test_without_networks_has_an_empty_table(self):
        self.start("")
        self.assertEqual(table(), set())

    def test_fills_the_table_and_leaves_the_rest_out(self):
        self.start("".join(f'[[lan_addr.network]]\naddress = "10.{i // 256}.{i % 256}.0"\nlength = 24\n'
                           for i in range(4097)))
        self.assertEqual(len(table()), 4095)
        self.assertIn("the LAN address table is full: 2 networks left out", self.mixd.log())

    def test_is_refused_where_it_is_wrong(self):
        self.not_started('[[lan_addr.network]]\naddress = "10.1.2.0"\nlength = 16\n', "scenario.toml:2: ")
        self.not_started('[[lan_addr.network]]\naddress = "10.1.2.0"\nlength = 16\n', "has bits beyond its length")
        self.not_started('[[lan_addr.network]]\nlength = 16\n', "is missing")
        self.not_started('[[lan_addr.network]]\naddress = "10.1.0.0"\nlength = 33\n', "0 to 32 is allowed")
        self.not_started('[[lan_addr.network]]\naddress = "10.1.0.0"\n', '"length" is missing')
        self.not_started('[lan_addr]\nnetworks = 1\n', 'unknown key "networks"')


class Words(ShellCase):
    """The shell's own argument words, which need no daemon that answers."""
    scenario = ""

    def about(self, word):
        return self.json(f"show address {word}")[0]

    def test_every_validator_and_matcher_speaks(self):
        found = self.about("10.1.2.3")
        for key in ("ipv4_match", "ipv4_prefix_match", "ipv6_match", "ipv6_prefix_match", "is_ipv4_str",
                    "is_ipv4_r_str", "is_ipv4_prefix_str", "is_ipv4_r_prefix_str", "is_maskv4_str", "is_ipv6_str",
                    "is_ipv6_r_str", "is_ipv6_prefix_str", "is_ipv6_r_prefix_str", "is_ipv6_g_prefix_str",
                    "is_hex_str"):
            self.assertIn(key, found)
        self.assertEqual((found["ipv4_match"], found["ipv4_prefix_match"], found["ipv6_match"]),
                         ("complete", "incomplete", "no match"))
        self.assertEqual((found["is_ipv4_str"], found["is_ipv6_str"], found["is_maskv4_str"]), (True, False, False))
        self.assertEqual((found["ipv4"], found["ipv4_number"]), ("10.1.2.3", "0x0a010203"))
        self.assertEqual((found["is_private_ip"], found["ip_is_multicast"]),
                         (True, False))

    def test_values_in_their_forms(self):
        self.assertEqual(self.about("10.1")["ipv4"], "10.0.0.1")
        self.assertEqual(self.about("255.255.254.0")["maskv4_2_num"], 23)
        self.assertEqual(self.about("255.255.0.0")["wildcard"], "16 bits")
        self.assertEqual(self.about("0.0.0.255")["wildcard"], "too many holes")
        six = self.about("[2001:DB8::1]")
        self.assertEqual((six["ipv6"], six["ipv6_bracketed"]), ("2001:db8::1", "[2001:DB8::1]"))
        prefix = self.about("10.1.2.3/20")
        self.assertEqual((prefix["mask"], prefix["network"]), ("255.255.240.0", "10.1.0.0"))
        self.assertEqual(self.about("2001:db8::/36")["mask"], "ffff:ffff:f000::")
        mac = self.about("01:00:5e:00:00:01")
        self.assertEqual((mac["mac_is_multicast"], mac["mac_is_general"]), (True, False))
        self.assertNotIn("ipv4", self.about("nonsense"))

    def test_an_incomplete_address_says_so_and_a_wrong_one_points_at_the_character(self):
        for word, at, complaint in (("10.1.", None, "not complete"), ("10", None, "not complete"),
                                    (".1.2.3", None, "not complete"), ("10.1.2.x", 7, "wrong"),
                                    ("10.1.256", 7, "wrong"), ("10..1", 3, "wrong"), ("10.1.2.3.", 8, "wrong")):
            finished = self.shell(f"show arp address {word}")
            self.assertNotEqual(finished.returncode, 0, word)
            self.assertIn(complaint, finished.stderr, word)
            if at is not None:
                mark = finished.stderr.splitlines()[1]
                self.assertEqual(mark.index("^"), len("show arp address ") + at, finished.stderr)

    def test_vlan_maps(self):
        found = self.json("show vlan-map 1,10-20 15-30,4094 none combine diff from 12 to 14")
        self.assertEqual(found, [
            {"port_number": 0, "combined": None, "count": 12, "in_range": True, "vlans": "1,10-20"},
            {"port_number": 1, "combined": None, "count": 17, "in_range": False, "vlans": "15-30,4094"},
            {"port_number": 2, "combined": None, "count": 0, "in_range": False, "vlans": "none"},
            {"port_number": None, "combined": "diff", "count": 17, "in_range": True, "vlans": "1,10-14,21-30,4094"}])
        for how, vlans in (("or", "1-9"), ("and", "3-5"), ("not", "1-2")):
            combined = self.json(f"show vlan-map 1-5 3-9 combine {how}")[-1]
            self.assertEqual((combined["combined"], combined["vlans"], combined["in_range"]), (how, vlans, None))
        self.assertEqual(self.json("show vlan-members 4 1-5 none 3-9"),
                         [{"vlan": 4, "ports": 2, "lowest": 0, "members": "0,2"}])
        self.assertEqual(self.json("show vlan-members 10 1-5 none 3-9"),
                         [{"vlan": 10, "ports": 0, "lowest": None, "members": "none"}])

    def test_vlan_lists_are_rated(self):
        for word, at, complaint in (("5-", None, "not complete"), ("1,", None, "not complete"), ("no", None, "not complete"),
                                    ("20-10", None, "not complete"), ("20-1,5", 4, "wrong"), ("0", 0, "wrong"),
                                    ("1,4095", 5, "wrong"), ("1,5x", 3, "wrong"), ("-5", 0, "wrong"), ("3000-2999", 8, "wrong"),
                                    ("1-2-3", 4, "wrong")):
            finished = self.shell(f"show vlan-map {word}")
            self.assertNotEqual(finished.returncode, 0, word)
            self.assertIn(complaint, finished.stderr, word)
            if at is not None:
                self.assertEqual(finished.stderr.splitlines()[1].index("^"), len("show vlan-map ") + at, finished.stderr)


if __name__ == "__main__":
    enter()
    unittest.main()
