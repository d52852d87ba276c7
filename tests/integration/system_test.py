"""Upgrade, slots, processors, memory, modules and storage: the shell against mixd."""

import os
import subprocess
import time
import unittest

from shell_case import ShellCase

CHASSIS = """
[[board]]
slot = 4
name = "main"
role = "main"
this = true
cpus = 2
[[board]]
slot = 2
name = "service-a"
cpus = 2
[[board]]
slot = 3
name = "service-b"
[upgrade]
step_ms = 20
version = "6.0.0"
[chassis]
flash_kib = 1000
[[chassis.slot]]
slot = 2
boot_ms = 1500
cpu_busy = 35
temperature = -5
memory_kib = 2048
module_kind = 20
serial = "S-2"
part_number = "P-20"
revision = "B3"
made = 1700000000
[[chassis.slot]]
slot = 3
card_type = 0x1052300
cpu_busy = 90
[[chassis.bypass]]
number = 40
on = true
[[chassis.pool]]
pool = 1
total = 100
used = 25
failed = 3
"""


class WithChassis(ShellCase):
    scenario = CHASSIS


class Chassis(WithChassis):
    def states(self):
        return {row["slot"]: row["state"] for row in self.json("show slots")}

    def test_cards_boot_and_come_online(self):
        states = self.states()
        self.assertEqual(states[4], "Online")
        self.assertIn(states[2], ("Booting", "Loading"))
        self.assertFalse(self.one("show slot 2")["online"])
        self.assert_becomes(lambda: self.states()[2], "Online")
        shown = self.one("show slot 2")
        self.assertTrue(shown["present"] and shown["booting"] and shown["online"])
        self.assertFalse(shown["clearable"])
        self.assertFalse(self.one("show slot 9")["present"])

    def test_settings_of_a_card_at_work_stay(self):
        self.refused("clear slot 4", "status -16")
        self.ok("clear slot 2")
        self.assertNotIn(2, self.states())
        self.refused("clear slot 2", "status -2")

    def test_cards_of_a_virtual_chassis_stop_and_boot(self):
        self.ok("set slot 3 stop")
        self.assertEqual(self.states()[3], "Offline")
        self.ok("set slot 3 boot")
        self.assertEqual(self.states()[3], "Online")
        self.refused("set slot 9 boot", "no such card")

    def test_what_is_changed_of_a_card_outlives_mixd(self):
        self.ok("set slot 3 stop")
        self.ok("clear slot 2")
        self.ok("set memory caches slot 3")
        self.restart()
        self.assertEqual(self.states(), {3: "Offline", 4: "Online"})
        self.assertTrue(self.one("show memory slot 3")["with_caches"])
        self.assertFalse(self.one("show memory slot 4")["with_caches"], "a board's mode is its own")
        self.ok("set slot 3 reboot")
        self.ok("set slot 2 boot")
        self.restart()
        self.assertEqual(set(self.states()), {2, 3, 4})
        self.assertEqual(self.states()[3], "Online")

    def test_a_card_is_detached_on_virtual_platforms_only(self):
        self.refused("delete slot 3", "Support detach slot on vFW platform", MIX_BOARD="appliance")
        self.ok("delete slot 3", MIX_BOARD="vm")
        self.assert_becomes(lambda: 3 in self.states(), False)
        self.restart()
        self.assertNotIn(3, self.states())

    def test_each_board_answers_for_itself(self):
        self.assertEqual(self.one("show cpu slot 2")["busy_percent"], 35)
        self.assertEqual(self.one("show cpu slot 3")["busy_percent"], 90)
        self.assertEqual(self.one("show cpu slot 2 cpu 1")["busy_percent"], 35)
        self.assertEqual(self.one("show memory slot 2")["total_kib"], 2048)
        self.assertEqual(self.one("show temperature slot 2")["temperature_c"], -5)
        self.refused("show cpu slot 9", "figures can't be read")

    def test_the_busiest_counted_board_speaks_for_a_chassis(self):
        self.assert_becomes(lambda: self.states()[2], "Online")
        self.assertEqual(self.one("show cpu system", MIX_BOARD="chassis-master")["busy_percent"], 35,
                         "slot 3 is busier, but its card's type does not count")

    def test_processors_by_themselves(self):
        self.assertEqual(self.json("show cpu each slot 2"),
                         [{"cpu": cpu, "busy_percent": 35, "user_percent": 35, "system_percent": 0} for cpu in (0, 1)])
        self.assertEqual(len(self.json("show cpu each slot 3")), 1)
        self.assertEqual(self.one("show cpu average slot 3")["busy_percent"], 90)
        self.assertEqual(self.one("show cpu summary slot 2")["processors"], 2)
        self.assertEqual(self.json("show cpu processes slot 2"), [], "a described board runs nothing")
        self.refused("show cpu each slot 9", "figures can't be read")

    def test_the_master_tells_a_modules_fru(self):
        def fru(slot):
            return self.one(f"show module fru {slot}", MIX_BOARD="chassis-master")
        self.assertEqual(fru(2), {"slot": 2, "name": "service-a", "serial": "S-2", "part_number": "P-20",
                                  "revision": "B3", "made": time.strftime("%Y-%m-%d %H:%M:%S", time.localtime(1700000000)),
                                  "platform": "0x1052200"})
        self.assertEqual((fru(3)["name"], fru(3)["serial"], fru(3)["part_number"], fru(3)["made"]),
                         ("service-b", "SN000003", None, None))
        self.refused("show module fru 9", "ipc error.", "FRU can't be read", MIX_BOARD="chassis-master")

    def test_bypasses_are_those_that_are_described(self):
        self.assertEqual(self.one("show bypass 40"), {"bypass": 40, "there": True, "on": True})
        self.assertEqual(self.one("show bypass 41"), {"bypass": 41, "there": False, "on": None})
        self.mixd.stop()
        self.refused("show bypass 40", "[chassisd_get_bypass_info]some error occured: rc=-")

    def test_the_board_of_the_shell(self):
        shown = self.one("show board", MIX_BOARD="chassis-master")
        self.assertEqual((shown["slot"], shown["master"], shown["switch_module"]), (4, 4, False))
        self.assertEqual(shown["storage_devices"], 2)
        self.assertEqual(self.one("show board", MIX_BOARD="appliance")["emmc_by_usb"], True)

    def test_modules_pools_and_flash(self):
        self.assertEqual([(row["where"], row["kind"], row["name"], row["serial"]) for row in self.json("show modules")],
                         [("slot 2", 11, "service-a", "S-2"), ("slot 3", 9, "service-b", "SN000003"),
                          ("slot 4", 1, "main", "SN000004")])
        self.assertEqual(self.one("show module 3")["platform"], "0x1052300")
        self.assertEqual(self.one("show memory pool 1"), {"total": 100, "used": 25, "free": 75, "failed": 3})
        self.refused("show memory pool 2", "can't be read")
        self.assertEqual(self.one("show storage flash"), {"total_kib": 1000, "used_kib": 0, "free_kib": 1000})


class ManyBoards(ShellCase):
    """As many as a slot table holds."""
    scenario = "".join(f"[[board]]\nslot = {slot}\nthis = {'true' if slot == 7 else 'false'}\n"
                       for slot in range(104))

    def test_all_are_listed(self):
        self.assertEqual([row["slot"] for row in self.json("show slots")], list(range(104)))
        self.assertEqual(len(self.json("show slots slot 103")), 104, "each tells of all")


class ThisHost(WithChassis):
    scenario = None

    def test_figures_are_the_kernels(self):
        with open("/proc/meminfo", encoding="ascii") as file:
            total = int(file.readline().split()[1])
        shown = self.one("show memory")
        self.assertEqual(shown["total_kib"], total)
        self.assertLessEqual(shown["used_kib"], total)
        self.ok("set memory caches")
        with_caches = self.one("show memory")
        self.assertTrue(with_caches["with_caches"])
        self.assertGreaterEqual(with_caches["used_kib"] + with_caches["cached_kib"] // 4, shown["used_kib"])
        self.assertEqual(self.one("show cpu")["processors"], os.cpu_count())
        self.assertLessEqual(self.one("show cpu")["busy_percent"], 100)
        root = os.statvfs("/")
        self.assertEqual(self.one("show storage disk")["total_kib"], root.f_blocks * root.f_frsize // 1024)

    def test_processes_and_interrupts_are_the_kernels(self):
        busiest = self.json("show cpu processes")
        self.assertEqual(busiest, sorted(busiest, key=lambda row: -row["cpu_s"]))
        largest = self.json("show cpu processes memory")
        self.assertEqual(largest, sorted(largest, key=lambda row: -row["memory_kib"]))
        daemon = [row for row in busiest if row["pid"] == self.mixd.process.pid]
        if len(busiest) < 365: # as many as fit
            self.assertEqual([row["name"] for row in daemon], ["mixd"])
            self.assertGreater(daemon[0]["memory_kib"], 0)
            self.assertIn(os.getpid(), {row["pid"] for row in largest})
        with open("/proc/interrupts", encoding="ascii") as file:
            names = [line.split(":")[0].strip() for line in file.readlines()[1:]][:146]
        self.assertEqual([row["interrupt"] for row in self.json("show cpu interrupts")], names)

    def test_processors_are_the_kernels(self):
        self.assertEqual([row["cpu"] for row in self.json("show cpu each")], list(range(os.cpu_count())))
        with open("/proc/uptime", encoding="ascii") as file:
            up = float(file.read().split()[0])
        summary = self.one("show cpu summary")
        self.assertEqual(summary["processors"], os.cpu_count())
        self.assertLess(abs(summary["up_s"] - up), 30)
        with open("/proc/stat", encoding="ascii") as file:
            fields = [int(word) for word in file.readline().split()[1:9]]
        busy = (sum(fields) - fields[3] - fields[4]) * 100 / sum(fields)
        self.assertLess(abs(self.one("show cpu average")["busy_percent"] - busy), 3)

    def test_a_lone_board_is_its_own_master(self):
        self.assertEqual(self.one("show vchassis mode")["mode"], 0)
        self.assertEqual(self.one("show module fru 0")["name"], "this")
        processors = os.cpu_count()
        flavour = 8 if processors >= 8 else 4 if processors >= 4 else 2
        self.assertEqual(self.one("show vchassis host 0"),
                         {f"vssm_0{each}": processors // each if each == flavour else 0 for each in (2, 4, 8)})

    def sensors(self, folder, files):
        """Lets a folder of this test's own /sys hold these files."""
        if not os.environ.get("MIX_PRIVATE_SHM") or not os.path.isdir(folder):
            self.skipTest(f"no {folder} that is the test's own")
        subprocess.run(["mount", "-t", "tmpfs", "tmpfs", folder], check=True)
        self.addCleanup(subprocess.run, ["umount", folder], check=True)
        for name, text in files.items():
            os.makedirs(os.path.join(folder, os.path.dirname(name)), exist_ok=True)
            with open(os.path.join(folder, name), "w", encoding="ascii") as file:
                file.write(text)

    def test_temperature_is_that_of_the_hottest_zone(self):
        self.sensors("/sys/class/thermal", {"thermal_zone0/temp": "41000\n", "thermal_zone1/temp": "43999\n",
                                            "thermal_zone1/trip_point_0_temp": "99000\n"})
        self.assertEqual(self.one("show temperature")["temperature_c"], 43)
        self.sensors("/sys/class/thermal", {"thermal_zone0/temp": "-9000\n", "thermal_zone1/temp": "-7000\n"})
        self.assertEqual(self.one("show temperature")["temperature_c"], -7)

    def test_temperature_without_zones_is_that_of_the_hottest_sensor(self):
        self.sensors("/sys/class/thermal", {})
        self.sensors("/sys/class/hwmon", {"hwmon0/temp1_input": "31000\n", "hwmon1/temp2_input": "33000\n",
                                          "hwmon1/temp2_max": "99000\n"})
        self.assertEqual(self.one("show temperature")["temperature_c"], 33)

    def test_a_host_without_sensors_tells_no_temperature(self):
        self.sensors("/sys/class/thermal", {})
        if os.path.isdir("/sys/class/hwmon"):
            self.sensors("/sys/class/hwmon", {})
        self.refused("show temperature", "the temperature can't be read")

    @unittest.skipIf(os.path.exists("/flash"), "this machine has a /flash")
    def test_direct_uplink_needs_its_place(self):
        self.assertEqual(self.one("show uplink", MIX_BOARD="appliance"), {"enabled": False})
        self.refused("set uplink on", "direct uplink was not changed", MIX_BOARD="appliance")
        self.refused("set uplink on", "this board has no direct uplink", MIX_BOARD="vm")
        self.ok("set uplink off", MIX_BOARD="vm")

    def test_a_lone_board_is_in_the_slot_of_its_profile(self):
        self.mixd.stop()
        self.mixd.board = {"MIX_BOARD": "chassis-master"}
        self.mixd.start()
        self.assertEqual([(row["slot"], row["board"]) for row in self.json("show slots")], [(4, "this")])
        self.assertEqual(self.one("show vchassis mode", MIX_BOARD="chassis-master")["mode"], 0)

    def test_a_disk_that_is_no_name_reaches_no_shell(self):
        mark = os.path.join(self.mixd.directory, "mark")
        self.assertEqual(self.one(f'show disk serial "sda;touch$IFS{mark}"')["serial"], None)
        self.assertFalse(os.path.exists(mark))
        if not os.access("/bin/nvme", os.X_OK):
            self.refused("show disk serial", "can't be asked for its serial number")

    def test_storage_of_this_machine_is_classified(self):
        self.assertIn(self.one("show storage path /")["type"],
                      ("NULL", "nandflash", "eMMC", "HDD/SSD", "CFcard", "NVME SSD"))

    def test_a_path_that_is_no_path_reaches_no_shell(self):
        mark = os.path.join(self.mixd.directory, "mark")
        self.assertEqual(self.one(f'show storage path "/;touch {mark}"')["type"], "NULL")
        self.assertFalse(os.path.exists(mark))


class Upgrade(WithChassis):
    def setUp(self):
        super().setUp()
        images = os.path.join(self.mixd.directory, "images")
        os.mkdir(images)
        for name, text in {"good.img": "VERSION 6.1.0\nUP-LIST\n# a comment\n6.0*\nEND\nDOWN-LIST\n7.?\nEND\n",
                           "other.img": "VERSION 9.0\nUP-LIST\n8.*\nEND\n", "bad.img": "no image\n"}.items():
            with open(os.path.join(images, name), "w", encoding="ascii") as file:
                file.write(text)
        with open(os.path.join(self.mixd.directory, "outside.img"), "w", encoding="ascii") as file:
            file.write("VERSION 1\n")

    def test_nothing_is_loaded_at_first(self):
        self.assertEqual(self.one("show upgrade")["state"], "idle")
        self.assertEqual(self.one("show upgrade check"), {"possible": False, "reason": "no image is loaded"})
        for words in ("lists", "image", "entries UP-LIST", "compatible 6.0.3"):
            self.refused(f"show upgrade {words}", "no image is loaded")
        self.ok("set fault refuse daemon 17 type 248 status 5 count 1")
        self.refused("show upgrade lists", "Input/output error")

    def test_an_image_is_checked_by_its_lists(self):
        self.ok("set upgrade image good.img")
        self.assertEqual(self.one("show upgrade image")["version"], "6.1.0")
        self.assertTrue(self.one("show upgrade check")["possible"])
        self.assertIn("6.0*", self.one("show upgrade lists")["text"])
        self.ok("set upgrade image other.img")
        check = self.one("show upgrade check")
        self.assertFalse(check["possible"])
        self.assertIn("can't replace 6.0.0", check["reason"])

    def test_only_images_of_the_directory_can_be_loaded(self):
        self.refused("set upgrade image none.img", "no such image")
        self.refused("set upgrade image ../outside.img", "no such image")
        self.refused("set upgrade image bad.img", "no image")

    def test_an_upgrade_steps_through_every_processor_and_is_kept(self):
        self.ok("set upgrade start good.img")
        self.refused("set upgrade start good.img", "an upgrade is running")
        seen = set()

        def state():
            shown = self.one("show upgrade")
            seen.add((shown["state"], shown["upgraded"]))
            return shown["state"]
        self.assert_becomes(state, "done")
        self.assertGreater(len(seen), 2, "it took no steps that can be seen")
        shown = self.one("show upgrade")
        self.assertEqual((shown["done_percent"], shown["processors"], shown["upgraded"], shown["running"]),
                         (100, 5, 5, "6.1.0"))
        processors = self.json("show upgrade processors")
        self.assertEqual({(row["slot"], row["cpu"]) for row in processors}, {(4, 0), (4, 1), (2, 0), (2, 1), (3, 0)})
        self.assertEqual({row["version"] for row in processors}, {"6.1.0"})
        self.restart()
        self.assertEqual(self.one("show upgrade version slot 2 cpu 1")["version"], "6.1.0")

    def test_processors_beyond_the_first_page_are_listed(self):
        self.mixd.stop()
        with open(os.path.join(self.mixd.directory, "scenario.toml"), "w", encoding="ascii") as file:
            file.write("[[board]]\nslot = 4\nthis = true\ncpus = 20\n[[board]]\nslot = 2\ncpus = 14\n")
        self.mixd.start()
        self.assertEqual([(row["slot"], row["cpu"]) for row in self.json("show upgrade processors")],
                         [(4, cpu) for cpu in range(20)] + [(2, cpu) for cpu in range(14)])
        self.assertEqual(self.one("show upgrade")["processors"], 34)

    def test_one_processor_after_the_other_takes_every_step(self):
        self.mixd.stop()
        with open(os.path.join(self.mixd.directory, "scenario.toml"), "w", encoding="ascii") as file:
            file.write(CHASSIS.replace("step_ms = 20", "step_ms = 60"))
        self.mixd.start()
        self.ok("set upgrade start good.img")
        steps = {25: "loading", 50: "moving sessions", 75: "restarting", 100: "done"}
        before, seen = [], set()
        for _ in range(1000):
            rows = self.json("show upgrade processors")
            percents = [row["done_percent"] for row in rows]
            self.assertEqual(len(percents), 5)
            self.assertGreaterEqual(percents, before, "an upgrade never goes back")
            for row in rows:
                self.assertEqual(row["state"], steps.get(row["done_percent"], "checking"))
                self.assertEqual(row["version"], "6.1.0" if row["done_percent"] == 100 else "6.0.0")
            under_way = [percent for percent in percents if percent not in (0, 100)]
            self.assertLessEqual(len(under_way), 1, "the others go on working")
            self.assertEqual(percents, sorted(percents, reverse=True), "in their order")
            seen |= {row["state"] for row in rows}
            before = percents
            if percents == [100] * 5:
                break
        self.assertEqual(before, [100] * 5)
        self.assertEqual(seen & {"checking", "done"}, {"checking", "done"})
        self.assertTrue(seen & {"loading", "moving sessions", "restarting"}, "no step was seen on the way")

    def test_a_refused_start_says_why_and_can_be_forced(self):
        self.refused("set upgrade start other.img", "refused: 9.0 can't replace 6.0.0")
        self.refused("set upgrade start none.img", "there is no image none.img")
        self.ok("set upgrade start other.img mode forced")
        self.assert_becomes(lambda: self.one("show upgrade")["state"], "done")

    def test_lists_are_read_as_the_check_reads_them(self):
        self.assertEqual([row["entry"] for row in self.json("show upgrade entries UP-LIST good.img")], ["6.0*"])
        self.assertEqual([row["entry"] for row in self.json("show upgrade entries DOWN-LIST good.img")], ["7.?"])
        self.assertEqual(self.json("show upgrade entries SIDE-LIST good.img"), [])
        self.assertEqual(self.one("show upgrade compatible 6.0.3 good.img"),
                         {"version": "6.0.3", "up": True, "down": False, "in_list": None})
        self.assertEqual(self.one("show upgrade compatible 7.1 good.img list DOWN-LIST"),
                         {"version": "7.1", "up": False, "down": True, "in_list": True})
        self.assertEqual(self.one("show upgrade compatible 8.1 other.img")["down"], None)
        self.assertNotIn("7.?", self.one("show upgrade lists good.img list up")["text"])
        self.assertNotIn("6.0*", self.one("show upgrade lists good.img list down")["text"])
        self.refused("show upgrade compatible 6.0.3 none.img", "there is no such image")

    def test_notices_arrive_where_they_are_sent(self):
        def last():
            shown = self.one("show upgrade notice")
            return tuple(shown[key] for key in ("notices", "last", "slot", "cpu", "daemon", "words"))
        self.assertEqual(last(), (0, None, None, None, None, None))
        cases = [("lock on", "configuration lock", 4, 0, 2, "1 0 0 0"),
                 ("nat 1 2 3 4", "NAT transfer", 4, 0, 0, "1 2 3 4"),
                 ("nat merge 2 1", "NAT merge", 2, 1, 0, "0 0 0 0"),
                 ("nat report 65537", "NAT transfer report", 4, 0, 17, "1 1 0 0"),
                 ("sessions 3 0 7 8", "session transfer", 3, 0, 0, "3 0 7 8"),
                 ("sessions report 2 1 5", "session transfer report", 2, 1, 17, "5 0 0 0"),
                 ("sync 9", "warm synchronisation poll", 4, 0, 0, "9 0 0 0"),
                 ("sync report 10", "warm synchronisation report", 4, 0, 17, "10 0 0 0"),
                 ("switch 2 0", "control unit switch", 2, 0, 0, "0 0 0 0")]
        for count, (words, name, slot, cpu, daemon, carried) in enumerate(cases, 1):
            self.ok(f"set upgrade {words}")
            self.assert_becomes(last, (count, name, slot, cpu, daemon, carried))
        self.refused("set upgrade switch 9 0", "Failed to send IPC message")

    def test_a_module_is_shut_down(self):
        self.assertEqual(self.one("show upgrade shutdown"), {"modules": 0, "last": None, "part": None, "cpu": None,
                                                             "first": None, "second": None})
        self.ok("set upgrade shutdown nat part gateway cpu 3 first 7 second 8")
        self.assertEqual(self.one("show upgrade shutdown"),
                         {"modules": 1, "last": "nat", "part": "gateway", "cpu": 3, "first": 7, "second": 8})
        self.mixd.stop()
        self.refused("set upgrade shutdown nat", "Failed to send IPC message")

    def test_the_configuration_lock_is_told(self):
        self.ok("set upgrade lock on")
        self.assert_becomes(lambda: self.one("show upgrade")["locked"], True)
        self.ok("set upgrade lock off")
        self.assert_becomes(lambda: self.one("show upgrade")["locked"], False)
        self.mixd.stop()
        self.refused("set upgrade lock on", "asked the configuration lock (daemon 2), message type 248")


if __name__ == "__main__":
    unittest.main()
