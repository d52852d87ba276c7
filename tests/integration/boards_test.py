"""The virtual chassis, port drivers, saved configurations and the ISP table: the shell against mixd."""

import os
import signal
import socket
import threading
import unittest

from mixd import Mixd
from shell_case import ShellCase

CHASSIS = """
[[board]]
slot = 4
name = "master"
role = "main"
this = true
[[board]]
slot = 5
name = "slave"
role = "standby"
[[board]]
slot = 2
name = "service-a"
cpus = 2
[[board]]
slot = 3
name = "service-b"
[vchassis]
service_mode = 7
[[vchassis.host]]
slot = 2
flavour = 4
count = 8
[[vchassis.tenant]]
vm = "01234567-89ab-cdef-0123-456789abcdef"
ipv4 = "10.0.0.1"
mac = "02:00:00:00:00:07"
vlan = 12
slot = 2
[[isp.entry]]
isp = 1
network = "10.0.0.0/8"
[[isp.entry]]
isp = 2
network = "10.1.0.0/16"
"""


class OnTheMaster(ShellCase):
    """A client that is the chassis' master."""
    scenario = CHASSIS
    board = "chassis-master"

    def logged(self, words):
        return self.mixd.log().count(words)


class TwoMainBoards(ShellCase):
    """The slave has a mixd of its own; each finds the other's boards by its endpoints."""

    def setUp(self):
        boards = CHASSIS.split("[[board]]")
        slave = "[[board]]" + boards[2] + "this = true\n[vchassis]\nservice_mode = 1\n"
        self.master = Mixd(scenario=CHASSIS.replace("[[board]]" + boards[2], ""))
        self.addCleanup(self.master.remove)
        self.slave = Mixd(scenario=slave)
        self.addCleanup(self.slave.remove)
        self.place(self.master, {6: self.slave})
        self.place(self.slave, {3: self.master, 4: self.master, 5: self.master})

    @staticmethod
    def place(at, others):
        with open(os.path.join(at.run_dir, "endpoints.toml"), "w", encoding="ascii") as file:
            file.write("[node]\n" + "".join(f'{node} = "{of.run_dir}/node{node}"\n' for node, of in others.items()))

    def ask(self, mixd, profile, command):
        self.mixd = mixd
        return self.json(command, MIX_BOARD=profile)

    def answering(self, mixd, profile, slot):
        return {row["board"] for row in self.ask(mixd, profile, f"show port statistics 0 slot {slot}")}

    def test_a_request_of_either_reaches_its_board(self):
        for slot, name in {0: "master", 2: "service-a", 3: "service-b", 4: "master", 5: "slave"}.items():
            self.assertEqual(self.answering(self.master, "chassis-master", slot), {name})
        for slot, name in {0: "slave", 2: "service-a", 3: "service-b", 4: "master", 5: "slave"}.items():
            self.assertEqual(self.answering(self.slave, "chassis-slave", slot), {name})

    def test_the_slave_asks_the_master_for_what_is_the_masters(self):
        self.assertEqual(self.ask(self.slave, "chassis-slave", "show vchassis mode"), [{"mode": 7}])
        self.assertEqual(self.ask(self.slave, "chassis-slave", "show module fru 2")[0]["name"], "service-a")
        # A switch module's slot: the slave leaves it to the master, which has no board there.
        for self.mixd, profile in ((self.slave, "chassis-slave"), (self.master, "chassis-master")):
            self.refused("show port statistics 0 slot 6", "Failed to get statistic of slot 6", MIX_BOARD=profile)
        refused = [row["refused"] for row in self.ask(self.master, "chassis-master", "show daemons")
                   if row["where"] == "node5/0.1" and row["type"] == 59]
        self.assertEqual(refused, [1], "the master's own address took the slave's request")


class Ports(OnTheMaster):
    def answering(self, words):
        return {row["board"] for row in self.json(words)}

    def test_requests_reach_the_board_that_is_asked_for(self):
        for slot, name in {4: "master", 5: "slave", 2: "service-a", 3: "service-b"}.items():
            self.assertEqual(self.answering(f"show port statistics 0 slot {slot}"), {name})
            self.assertEqual(self.answering(f"show port counters slot {slot} sum"), {name})
            self.assertEqual(self.one(f"show port control slot {slot}")["slot"], slot)
        self.assertEqual(self.answering("show port statistics 0"), {"master"})
        self.refused("show port statistics 0 slot 9", "can't be read")

    def test_a_processor_of_a_board_is_reached(self):
        self.assertEqual(self.answering("show port counters slot 2 cpu 1"), {"service-a"})
        self.refused("show port counters slot 3 cpu 1", "can't be read")

    def test_ports_are_the_hosts_interfaces(self):
        names = sorted((index, name) for index, name in socket.if_nameindex() if name != "lo")
        self.assertEqual(self.one("show port count")["ports"], len(names))
        if not names:
            self.skipTest("this machine has no interface but the loopback")
        shown = self.one("show port 0")
        self.assertEqual(shown["port"], names[0][1])
        with open(f"/sys/class/net/{names[0][1]}/mtu", encoding="ascii") as file:
            self.assertEqual(shown["mtu_bytes"], int(file.read()))
        self.refused(f"show port {len(names)}", "can't be read")
        self.assertEqual([row["port"] for row in self.json("show port statistics")], [name for _, name in names])

    def test_counters_are_the_kernels(self):
        with open("/proc/net/softnet_stat", encoding="ascii") as file:
            rows = len(file.readlines())
        self.assertEqual(len(self.json("show port counters")), rows)

    def test_buffers_are_drained_on_the_board_that_is_told(self):
        def drained(slot):
            return self.json(f"show port counters slot {slot}")[0]["drained"]
        self.ok("clear port buffers slot 2")
        self.assert_becomes(lambda: [drained(slot) for slot in (2, 3, 4)], [1, 0, 0])

    def test_lane_settings_are_a_boards_own(self):
        self.ok("set port lanes 3 1 2 slot 2")
        self.assertEqual(self.one("show port lanes 3 slot 2"), {"first": 1, "second": 2})
        self.assertEqual(self.one("show port lanes 3 slot 3"), {"first": 0, "second": 0})
        self.ok("set port eye 3 slot 2")

    def test_the_data_planes_driver_has_the_ports_address(self):
        if not self.one("show port count")["ports"]:
            self.skipTest("this machine has no interface but the loopback")
        name = self.one("show port 0")["port"]
        with open(f"/sys/class/net/{name}/address", encoding="ascii") as file:
            address = file.read().strip()
        self.assertEqual(self.one("show port driver 0")["mac"], address if address.strip("0:") else None)

    def test_lanes_are_measured_by_the_board_that_is_asked_for(self):
        self.ok("set port eye 3 slot 2")
        self.assert_becomes(lambda: self.one("show port serdes 3 1 2 250 slot 2")["requests"] > 1, True)
        shown = self.one("show port serdes 3 1 2 250 slot 2")
        self.assertEqual((shown["board"], shown["asked"]), ("service-a", "01 02 fa 00 00 00 00"))
        self.assertEqual(self.one("show port serdes 3 slot 3")["requests"], 1)

    def test_lane_settings_are_kept_and_set_remotely(self):
        self.ok("set port lanes 3 4 5 slot 5")
        self.ok("set port control lanes 3 6 7 slot 2")
        self.restart()
        self.assertEqual(self.one("show port lanes 3 slot 5"), {"first": 4, "second": 5})
        self.assertEqual(self.one("show port lanes 3 slot 2"), {"first": 6, "second": 7})
        self.assertEqual(self.one("show port lanes 3"), {"first": 0, "second": 0})

    def test_ports_are_valid_below_the_count(self):
        count = self.one("show port count")["ports"]
        self.assertEqual(self.one(f"show port valid {count}"), {"port_number": count, "valid": False, "counted": False})
        if count:
            self.assertTrue(self.one("show port valid 0")["valid"])

    def test_control_requests_are_limited(self):
        self.refused("set port control 0 duplex 1 slot 2", "is not a word that may stand here", status=2)
        self.refused("set port control 0 admin 1 1 slot 2", "admin takes 1 value", status=2)
        self.refused("set port control 0 pause 1 1 1 1 slot 2", "pause takes 3 values", status=2)
        self.refused("set port control 60000 admin 1 slot 2", "was not executed")
        self.refused("set port control 0 admin 2 slot 2", "was not executed")

    def settings(self, port, slot):
        return {row["setting"]: (row["first"], row["second"], row["third"])
                for row in self.json(f"show port settings {port} slot {slot}")}

    def test_control_requests_are_executed_on_their_board(self):
        if not self.one("show port count")["ports"]:
            self.skipTest("this machine has no interface but the loopback")
        wanted = {"admin": (0, None, None), "mtu": (900, None, None), "pause": (1, 2, 3), "identify": (30, None, None),
                  "speed": (1000, 1, 0), "vlan": (7, 1, 0), "storm": (8, 9, 10), "mirror": (1, 1, 0)}
        for setting, values in wanted.items():
            self.ok(f"set port control 0 {setting} {' '.join(str(each) for each in values if each is not None)} slot 2")
        self.assertEqual(self.settings(0, 2), wanted)
        self.assertEqual(self.settings(0, 3)["admin"], (1, None, None), "another board's port")
        shown = self.one("show port 0 slot 2")
        self.assertEqual((shown["mtu_bytes"], shown["up"]), (900, False))
        self.assertNotEqual(self.one("show port 0 slot 3")["mtu_bytes"], 900)
        self.restart()
        self.assertEqual(self.settings(0, 2), wanted)


class VirtualChassis(OnTheMaster):
    def test_the_masters_own_address_answers(self):
        self.assertEqual(self.one("show vchassis mode")["mode"], 7)
        shown = self.one("show vchassis tenant 0123456789abcdef0123456789abcdef")
        self.assertEqual((shown["ipv4"], shown["mac"], shown["vlan"], shown["state"]),
                         ("10.0.0.1", "02:00:00:00:00:07", 12, "Active"))
        self.refused("show vchassis tenant 1", "can't be read")

    def test_host_processors(self):
        self.assertEqual(self.one("show vchassis host 2"), {"vssm_02": 0, "vssm_04": 8, "vssm_08": 0})
        self.refused("show vchassis host 3", "can't be read")

    def test_metadata_is_kept(self):
        self.ok('set vchassis metadata owner "the network team"')
        self.ok("set vchassis metadata owner another number 1")
        self.restart()
        self.assertEqual(self.one("show vchassis metadata owner")["value"], "the network team")
        self.assertEqual(self.one("show vchassis metadata owner number 1")["value"], "another")
        self.refused("show vchassis metadata nobody", "there is no nobody")

    def test_vms_are_created_once_and_deleted(self):
        self.ok("set vchassis vm 2 create type vssm flavour 4")
        self.ok("set vchassis vm 3 create type vdsm flavour 8")
        self.ok("set vchassis vm 3 stop")
        self.assertEqual(self.json("show vchassis vms"),
                         [{"slot": 2, "type": "vSSM", "flavour": "vSSM-04", "state": "Active"},
                          {"slot": 3, "type": "vDSM", "flavour": "vSSM-08", "state": "Shutoff"}])
        self.ok("set vchassis vm 3 delete")
        self.refused("set vchassis vm 2 create", "slot 2 has a VM already")
        self.ok("set vchassis vm 2 stop")
        self.ok("set vchassis vm 2 delete")
        self.refused("set vchassis vm 2 start", "there is no VM in slot 2")

    def test_addresses_are_registered_and_taken_back(self):
        self.ok("add vchassis address 7 10.0.0.9 second 3 third 4")
        keys = " ".join(str(key) for key in range(1, 41)) # more than fit into one request
        shown = {row["key"]: row for row in self.json(f"show vchassis addresses {keys}")}
        self.assertEqual(len(shown), 40)
        self.assertEqual(shown[7], {"key": 7, "address": "10.0.0.9", "second": 3, "third": 4})
        self.assertIsNone(shown[8]["address"])
        self.ok("delete vchassis address 7")
        self.assertIsNone(self.one("show vchassis addresses 7")["address"])

    def test_many_vms_are_listed_page_by_page(self):
        self.ok(*[f"set vchassis vm {slot} create" for slot in range(256)])
        self.assertEqual([row["slot"] for row in self.json("show vchassis vms")], list(range(256)))

    def test_hosts_and_tenants_are_in_the_store(self):
        self.mixd.stop()
        scenario = os.path.join(self.mixd.directory, "scenario.toml")
        with open(scenario, "w", encoding="ascii") as file:
            file.write(CHASSIS.replace("count = 8", "count = 6"))
        self.mixd.start()
        self.assertEqual(self.one("show vchassis host 2")["vssm_04"], 6)
        self.mixd.stop()
        self.mixd.options = [option for option in self.mixd.options if option not in ("--scenario", scenario)]
        self.mixd.start()
        self.board = "appliance" # this host alone, which has the store
        self.assertEqual(self.one("show vchassis host 2")["vssm_04"], 6)
        self.assertEqual(self.one("show vchassis tenant 0123456789abcdef0123456789abcdef")["ipv4"], "10.0.0.1")

    def test_capacity(self):
        self.assertTrue(self.one("show vchassis capacity 2 0 7 0")["fits"])
        self.assertFalse(self.one("show vchassis capacity 2 0 8 0")["fits"])
        self.refused("show vchassis capacity 3 0 0 0", "can't be read")

    def test_the_cloud_platform_is_metadata(self):
        self.refused("show vchassis cloud", "no cloud platform is set")
        self.ok("set vchassis cloud NSX switch nsx range 10.0.0.0/24 tag a:b")
        self.assertEqual(self.one("show vchassis cloud"),
                         {"platform": 4, "switch": "NSX", "range": "10.0.0.0/24", "tag": "a:b"})
        self.ok("set vchassis cloud other switch other")
        self.assertEqual((self.one("show vchassis cloud")["platform"], self.one("show vchassis cloud")["switch"]),
                         (1, "VDS"))
        self.refused("set vchassis cloud NSX range 10.0.0.0", "no A.B.C.D/N")
        self.refused("set vchassis cloud NSX tag nothing", "NAME:VALUE")

    def test_names_of_numbers(self):
        names = {(row["of"], row["number"]): row["name"] for row in self.json("show vchassis names")}
        self.assertEqual(len(names), 3 + 3 + 3 + 38 + 5 + 4)
        self.assertEqual((names["VM type", 2], names["VM type, short", 3], names["VM flavour", 8]),
                         ("vSSM", "vdsm", "vSSM-08"))
        self.assertEqual((names["state", 22], names["service", 2], names["resource", 3]),
                         ("InCompatable", "vESA stop", "Session"))

    def test_what_slots_tell_is_shown(self):
        self.ok("set vchassis slot 2 15")
        self.ok("set vchassis disk 3 1")
        self.assert_becomes(lambda: self.json("show vchassis slots"), [{"slot": 2, "state": "Online", "disk": None},
                                                              {"slot": 3, "state": None, "disk": 1}])

    def test_notices_are_taken(self):
        for command in ("set vchassis debug 3", "clear vchassis hosts", "set vchassis crash"):
            self.ok(command)
        self.refused("set vchassis password", "no management VM")
        self.assert_becomes(lambda: self.logged("address debugging 3"), 1)
        self.assert_becomes(lambda: self.logged("board master: the master's control VM crashed (1 times)"), 1)

    def test_crashes_are_counted_for_good(self):
        for times in (1, 2):
            self.ok("set vchassis crash")
            self.assert_becomes(lambda: self.logged(f"VM crashed ({times} times)"), 1)
            self.restart()
        self.ok("set vchassis crash")
        self.assert_becomes(lambda: self.logged("VM crashed (3 times)"), 1)


class SavedConfigurations(OnTheMaster):
    def test_a_saved_configuration_can_be_listed_and_restored(self):
        self.ok("set vchassis metadata owner before")
        self.ok("add saved")
        self.ok("set vchassis metadata owner after")
        self.ok("add saved")
        saved = self.json("show saved")
        self.assertEqual([row["name"] for row in saved], ["vchassis-1", "vchassis-2"])
        self.assertEqual({row["saved_by"] for row in saved}, {"tarquelle"})
        self.assertRegex(saved[0]["saved"], r"^\d{4}-\d\d-\d\d \d\d:\d\d:\d\d$")
        self.assertGreater(saved[0]["size_bytes"], 0)
        self.ok("set saved restore vchassis-1")
        self.assertEqual(self.one("show vchassis metadata owner")["value"], "before")
        self.mixd.stop()
        self.mixd.start()
        self.assertEqual(self.one("show vchassis metadata owner")["value"], "before")
        self.assertEqual([row["name"] for row in self.json("show saved")], ["vchassis-1", "vchassis-2"])
        for command in "set saved restore", "delete saved":
            self.refused(f"{command} nothing", 'there is no saved configuration "nothing"', "show saved")

    def test_a_restore_is_waited_for(self):
        self.ok("add saved")
        self.mixd.process.send_signal(signal.SIGSTOP)
        later = threading.Timer(2.2, self.mixd.process.send_signal, [signal.SIGCONT])
        later.start()
        self.ok("set saved restore vchassis-1")
        later.join()

    def test_a_deleted_configuration_is_gone_for_good(self):
        self.assertEqual(self.ok("add saved").stdout, "saved as vchassis-1\n")
        self.assertEqual(self.ok("add saved", "add saved").stdout, "saved as vchassis-2\nsaved as vchassis-3\n")
        folder = os.path.join(self.mixd.directory, "snapshots")
        self.ok("delete saved vchassis-1", "delete saved vchassis-3")
        self.assertEqual(os.listdir(folder), ["vchassis-2.db"])
        self.ok("set saved restore vchassis-2")  # which was saved when there was the first
        self.assertEqual([row["name"] for row in self.json("show saved")], ["vchassis-2"])
        self.refused("set saved restore vchassis-1", "there is no saved configuration")
        self.ok("delete saved vchassis-2")
        self.restart()
        self.assertEqual((self.json("show saved"), os.listdir(folder)), ([], []))
        self.assertEqual(self.ok("add saved").stdout, "saved as vchassis-4\n", "no name comes twice")

    def test_saved_configurations_are_offered_by_their_names(self):
        self.assertEqual(self.offered("set saved restore "), [])
        self.ok("add saved")
        self.ok("add saved")
        self.assertEqual(self.offered("set saved restore "), ["vchassis-1", "vchassis-2"])
        self.assertEqual(self.offered("set saved restore vchassis-2"), ["vchassis-2"])
        self.assertEqual(self.offered("set saved restore x"), [])
        self.mixd.stop()
        self.assertEqual(self.offered("set saved restore "), [])

    def test_nothing_is_saved_without_a_gateway(self):
        self.mixd.stop()
        self.refused("add saved", "the configuration was not saved", "asked the management gateway")

    def test_what_services_keep_in_memory_is_restored_at_once(self):
        def requests():
            return [row["requests"] for row in self.json("show daemons")
                    if row["where"] == "node0/0.0" and row["type"] == 38][0]
        self.ok("set fragment limit 71")
        self.ok("set slot 3 stop")
        self.ok("set port lanes 3 4 5 slot 2")
        self.ok("add saved")
        self.ok("set fragment limit 72")
        self.ok("set slot 3 boot")
        self.ok("set port lanes 3 6 7 slot 2")
        counted, pid = requests(), self.mixd.process.pid
        # One shell, which stays connected: its next commands are answered from the snapshot.
        rows = self.json("show fragment", "set saved restore vchassis-1", "show fragment", "show slots")
        self.assertEqual([rows[0]["limit"], rows[1]["limit"]], [72, 71])
        self.assertEqual([row["state"] for row in rows[2:] if row["slot"] == 3], ["Offline"])
        self.assertEqual(self.one("show port lanes 3 slot 2"), {"first": 4, "second": 5})
        self.assertEqual(self.mixd.process.poll(), None)
        self.assertEqual(self.mixd.process.pid, pid)
        self.assertEqual(requests(), counted + 2, "the counters go on")

    def test_restoring_again_and_again_leaves_nothing_behind(self):
        self.ok("add saved")
        files = f"/proc/{self.mixd.process.pid}/fd"
        self.ok("set saved restore vchassis-1")
        before, times = len(os.listdir(files)), 10
        for _ in range(times):
            self.ok("set saved restore vchassis-1")
        # The last shell's connections may still be open.
        self.assertLess(len(os.listdir(files)) - before, times)
        self.assertEqual(self.one("show vchassis mode")["mode"], 7)


@unittest.skipUnless(os.environ.get("MIX_PRIVATE_SHM"), "needs a /dev/shm of its own")
class SavedApplications(OnTheMaster):
    """The application catalogue stands in shared memory, which follows a restored configuration, too."""
    catalogue = True

    def own(self):
        return {row["name"] for row in self.json("show application user-defined")}

    def test_user_defined_applications_are_restored(self):
        self.ok("add application first")
        self.ok("add application second")
        self.ok("add saved")
        self.ok("delete application first")
        self.ok("add application third")
        self.assertEqual(self.own(), {"second", "third"})
        self.ok("set saved restore vchassis-1")
        # Clients read the shared memory themselves.
        self.assertEqual(self.own(), {"first", "second"})
        self.assertEqual(self.one("show application counts")["user_defined"], 2)
        self.mixd.stop()
        self.mixd.start()
        self.assertEqual(self.own(), {"first", "second"})


class Isp(OnTheMaster):
    def belongs(self, address, isp):
        return self.one(f"show isp {address} {isp}")["belongs"]

    def test_the_longest_prefix_decides(self):
        self.assertTrue(self.belongs("10.2.3.4", 1))
        self.assertTrue(self.belongs("10.1.3.4", 2))
        self.assertFalse(self.belongs("10.1.3.4", 1))
        self.assertFalse(self.belongs("11.1.3.4", 1))

    def test_no_answer_is_not_a_no(self):
        self.mixd.stop()
        self.refused("show isp 10.2.3.4 1", "can't be asked")


class IspFile(Isp):
    def setUp(self):
        super().setUp()
        self.mixd.stop()
        self.table = os.path.join(self.mixd.directory, "isp.txt")
        self.write("# by ISP\n1 10.0.0.0/8\n\n2 10.1.0.0/16 # a part of it\n3 0.0.0.0/0\n4 192.0.2.1\n")
        with open(os.path.join(self.mixd.directory, "scenario.toml"), "w", encoding="ascii") as file:
            file.write(CHASSIS.split("[[isp.entry]]")[0] + f'[isp]\nfile = "{self.table}"\n')
        self.mixd.start()

    def write(self, text):
        with open(self.table, "w", encoding="ascii") as file:
            file.write(text)

    def reload(self):
        os.kill(self.mixd.process.pid, signal.SIGHUP)
        self.assert_becomes(lambda: "reloading" in self.mixd.log(), True)

    def test_the_longest_prefix_decides(self):
        self.assertTrue(self.belongs("10.2.3.4", 1))
        self.assertTrue(self.belongs("10.1.3.4", 2))
        self.assertFalse(self.belongs("10.1.3.4", 1))
        self.assertTrue(self.belongs("11.1.3.4", 3))
        self.assertTrue(self.belongs("192.0.2.1", 4))
        self.assertFalse(self.belongs("192.0.2.2", 4))

    def test_a_hangup_reads_the_file_again(self):
        self.write("5 10.2.0.0/16\n")
        self.reload()
        self.assertTrue(self.belongs("10.2.3.4", 5))
        self.assertFalse(self.belongs("192.0.2.1", 4))

    def test_a_file_with_a_mistake_changes_nothing(self):
        for times, line in enumerate(("six 10.3.0.0/16", "-1 10.3.0.0/16", "+6 10.3.0.0/16", "4294967296 10.3.0.0/16",
                                      "6x 10.3.0.0/16", "6", "6 10.3.0.0/-1", "6 10.3.0.0/33", "6 10.3.0.0/16 7"), 1):
            self.write(f"5 10.2.0.0/16\n{line}\n")
            os.kill(self.mixd.process.pid, signal.SIGHUP)
            mistake = f"{self.table}:2: must be an ISP's number and A.B.C.D/N"
            self.assert_becomes(lambda: self.mixd.log().count(mistake), times)
            self.assertTrue(self.belongs("10.2.3.4", 1), line)

    def test_any_number_of_32_bits_may_be_an_isps(self):
        self.write("4294967295 10.2.0.0/16\n0 10.3.0.0/16\n")
        self.reload()
        self.assertTrue(self.belongs("10.2.3.4", 4294967295))
        self.assertTrue(self.belongs("10.3.3.4", 0))


if __name__ == "__main__":
    unittest.main()
