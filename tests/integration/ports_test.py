"""The port driver on interfaces of the test's own: drivers, their counters, bridges, and what is written to the kernel."""

import unittest

from own_network import Peer, enter, ip, ip_json, ping, run, until
from shell_case import ShellCase


class Ports(ShellCase):
    def setUp(self):
        self.made = []
        super().setUp()
        self.addCleanup(lambda: [ip(f"link del {name}", check=False) for name in self.made])

    def link(self, words, name):
        ip(f"link add {name} {words}")
        self.made.append(name)

    def number_of(self, name):
        for port in range(self.one("show port count")["ports"]):
            if self.one(f"show port {port}")["port"] == name:
                return port
        raise AssertionError(f"{name} is no port")

    def test_the_driver_is_named_by_itself(self):
        self.link("type veth peer name v1", "v0")
        self.link("type bridge", "br0")
        for name, driver in (("v0", "veth"), ("br0", "bridge")):
            port = self.number_of(name)
            told = dict(line.split(": ", 1) for line in run("sh", "-c", f"ethtool -i {name} 2>/dev/null", check=False).splitlines()
                        if ": " in line)
            self.assertEqual(told.get("driver", driver), driver)
            self.assertEqual(self.one(f"show port {port}")["driver"], driver)
            self.assertEqual(self.one(f"show port driver {port}")["driver"], driver)
            self.assertEqual(self.one(f"show port {port}")["bus"], "virtual")

    def test_a_port_is_meant_by_its_name_or_its_number(self):
        self.link("type veth peer name v1", "v0")
        numbers = {name: self.number_of(name) for name in ("v0", "v1")}
        self.assertNotEqual(numbers["v0"], numbers["v1"])
        listed = {row["port"]: row["port_number"] for row in self.json("show port statistics")}
        for name, number in numbers.items():
            self.assertEqual(listed[name], number)
            self.assertEqual(self.one(f"show port {name}"), self.one(f"show port {number}"))
            for port in (name, number):
                alone = self.one(f"show port statistics {port}")
                self.assertEqual((alone["port"], alone["port_number"]), (name, number))
            self.assertEqual(self.one(f"show port driver {name}")["port_number"], number)
            self.assertEqual(self.one(f"show port valid {name}"), {"port_number": number, "valid": True, "counted": True})
            self.ok(f"set port control {name} mtu {1000 + number}", f"set port lanes {name} {number} 7")
            self.assertEqual(self.one(f"show port {name}")["mtu_bytes"], 1000 + number)
            self.assertEqual(self.one(f"show port lanes {number}"), {"first": number, "second": 7})
        self.refused("show port v2", 'the board has no port "v2"', "show port statistics")
        self.refused("show port 70000", "a number from 0 to 65535", status=2)

    def test_names_of_ports_leave_abbreviations_alone(self):
        self.link("type veth peer name v1", "v0")
        self.assertEqual({row["port"] for row in self.json("show port stat")} & {"v0", "v1", "v2"}, {"v0", "v1"})
        self.refused("show port c", '"c" may mean more than one word', status=3)
        self.refused('show port "stat"', "is meant by its number", status=3)

    def test_ports_are_offered_by_their_names(self):
        self.link("type veth peer name v1", "v0")
        self.assertEqual(sorted(self.offered("show port statistics v")), ["v0", "v1"])

    def test_the_drivers_own_counters(self):
        self.link("type veth peer name v1", "v0")
        peer = [link["ifindex"] for link in ip_json("link show v1")][0]
        rows = self.json(f"show port details {self.number_of('v0')}")
        self.assertEqual({row["counter"]: row["value"] for row in rows}["peer_ifindex"], peer)
        self.assertEqual({row["board"] for row in rows}, {"this"})
        self.refused("show port details 900", "can't be read")

    def test_more_counters_than_fit_into_a_message(self):
        self.link("numtxqueues 64 numrxqueues 64 type veth peer name v1", "v0")
        ip("link set v0 up")
        rows = self.json(f"show port details {self.number_of('v0')}")
        if len(rows) < 313:
            self.skipTest(f"this kernel's driver has {len(rows)} counters only")
        names = [row["counter"] for row in rows]
        self.assertEqual(len(set(names)), len(names), "a page came twice")

    def test_a_bridge_and_its_ports(self):
        self.refused("show port bridge 0", "can't be read")
        self.link("type bridge stp_state 0 ageing_time 12300", "br0")
        ip("link set br0 up")
        ip("addr add 10.7.0.1/24 dev br0")
        peer = Peer("p0", addresses=["10.7.0.2/24"])
        self.addCleanup(peer.remove)
        ip("link set p0 master br0")
        self.link("type veth peer name d1", "d0")
        ip("link set d0 master br0")
        until(lambda: ping("10.7.0.2"), True)
        found = self.json("show port bridge 0")
        self.assertEqual([(row["port"], row["state"]) for row in found],
                         [("br0", None), ("d0", "disabled"), ("p0", "forwarding")])
        with open("/sys/class/net/p0/brport/path_cost", encoding="ascii") as file:
            self.assertEqual(found[2]["cost"], int(file.read()))
        self.assertGreater(found[0]["in_packets"], 0)
        self.assertGreater(found[2]["in_packets"], 0)
        self.assertEqual(found[1]["in_packets"], 0)
        self.assertIn("spanning tree off, addresses age in 123 s", self.ok("show port bridge 0").stdout)
        self.refused("show port bridge 1", "can't be read")

    def test_without_leave_the_kernel_stays_as_it_is(self):
        self.link("type veth peer name d1", "d0")
        ip("link set d0 up")
        port = self.number_of("d0")
        self.ok(f"set port control {port} mtu 1000")
        self.ok(f"set port control {port} admin 0")
        shown = self.one(f"show port {port}")
        self.assertEqual((shown["mtu_bytes"], shown["up"]), (1000, False))
        link = ip_json("link show d0")[0]
        self.assertEqual((link["mtu"], "UP" in link["flags"]), (1500, True))


class Applied(Ports):
    options = ["--apply"]

    def kernel(self, name):
        link = ip_json(f"link show {name}")[0]
        return link["mtu"], "UP" in link["flags"]

    def test_without_leave_the_kernel_stays_as_it_is(self):
        """With --apply it does not."""
        self.link("type veth peer name d1", "d0")
        ip("link set d0 up")
        port = self.number_of("d0")
        self.ok(f"set port control {port} mtu 1000")
        self.ok(f"set port control {port} admin 0")
        self.assertEqual(self.kernel("d0"), (1000, False))
        ip("link set d0 mtu 1400 up")
        self.restart()
        self.assertEqual(self.kernel("d0"), (1000, False), "as it was left")
        self.ok(f"set port control {port} admin 1")
        self.assertEqual(self.kernel("d0"), (1000, True))
        self.refused(f"set port control {port} mtu 1", "was not executed") # so small: the kernel refuses it
        self.assertEqual(self.one(f"show port {port}")["mtu_bytes"], 1000)


if __name__ == "__main__":
    enter(own_sys=True)
    unittest.main()
