"""Upgrade, slots, processors, memory, modules and storage: the shell against mixd."""

import json
import os
import time
import unittest

from mixd import Mixd, mixsh

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
[[chassis.slot]]
slot = 3
card_type = 0x1052300
cpu_busy = 90
[[chassis.pool]]
pool = 1
total = 100
used = 25
failed = 3
"""


class WithMixd(unittest.TestCase):
    scenario = CHASSIS

    def setUp(self):
        self.mixd = Mixd(scenario=self.scenario)
        self.addCleanup(self.mixd.remove)

    def rows(self, command, **environment):
        finished = mixsh(self.mixd, command, options=["--json"], **environment)
        self.assertEqual(finished.returncode, 0, finished.stderr)
        return [json.loads(line) for line in finished.stdout.splitlines()]

    def one(self, command, **environment):
        found = self.rows(command, **environment)
        self.assertEqual(len(found), 1)
        return found[0]

    def ok(self, command):
        finished = mixsh(self.mixd, command)
        self.assertEqual(finished.returncode, 0, finished.stderr)

    def refused(self, command, reason):
        finished = mixsh(self.mixd, command)
        self.assertEqual(finished.returncode, 1, finished.stdout)
        self.assertIn(reason, finished.stderr)

    def until(self, look, wanted, seconds=20):
        end = time.monotonic() + seconds
        while (found := look()) != wanted and time.monotonic() < end:
            time.sleep(0.05)
        self.assertEqual(found, wanted)


class Chassis(WithMixd):
    def states(self):
        return {row["slot"]: row["state"] for row in self.rows("show slots")}

    def test_cards_boot_and_come_online(self):
        states = self.states()
        self.assertEqual(states[4], "Online")
        self.assertIn(states[2], ("Booting", "Loading"))
        self.assertFalse(self.one("show slot 2")["online"])
        self.until(lambda: self.states()[2], "Online")
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

    def test_each_board_answers_for_itself(self):
        self.assertEqual(self.one("show cpu slot 2")["busy"], 35)
        self.assertEqual(self.one("show cpu slot 3")["busy"], 90)
        self.assertEqual(self.one("show cpu slot 2 cpu 1")["busy"], 35)
        self.assertEqual(self.one("show memory slot 2")["total"], 2048)
        self.assertEqual(self.one("show temperature slot 2")["temperature"], -5)
        self.refused("show cpu slot 9", "figures can't be read")

    def test_the_busiest_counted_board_speaks_for_a_chassis(self):
        self.until(lambda: self.states()[2], "Online")
        self.assertEqual(self.one("show cpu system", MIX_BOARD="chassis-master")["busy"], 35,
                         "slot 3 is busier, but its card's type does not count")

    def test_modules_pools_and_flash(self):
        self.assertEqual([(row["where"], row["kind"], row["name"], row["serial"]) for row in self.rows("show modules")],
                         [("slot 2", 11, "service-a", "S-2"), ("slot 3", 9, "service-b", "SN000003"),
                          ("slot 4", 1, "main", "SN000004")])
        self.assertEqual(self.one("show module 3")["platform"], "0x1052300")
        self.assertEqual(self.one("show memory pool 1"), {"total": 100, "used": 25, "free": 75, "failed": 3})
        self.refused("show memory pool 2", "can't be read")
        self.assertEqual(self.one("show storage flash"), {"total": 1000, "used": 0, "free": 1000})


class ThisHost(WithMixd):
    scenario = None

    def test_figures_are_the_kernels(self):
        with open("/proc/meminfo", encoding="ascii") as file:
            total = int(file.readline().split()[1])
        shown = self.one("show memory")
        self.assertEqual(shown["total"], total)
        self.assertLessEqual(shown["used"], total)
        self.ok("set memory caches")
        with_caches = self.one("show memory")
        self.assertTrue(with_caches["with_caches"])
        self.assertGreaterEqual(with_caches["used"] + with_caches["cached"] // 4, shown["used"])
        self.assertEqual(self.one("show cpu")["processors"], os.cpu_count())
        self.assertLessEqual(self.one("show cpu")["busy"], 100)
        root = os.statvfs("/")
        self.assertEqual(self.one("show storage disk")["total"], root.f_blocks * root.f_frsize // 1024)

    def test_storage_of_this_machine_is_classified(self):
        self.assertIn(self.one("show storage path /")["type"],
                      ("NULL", "nandflash", "eMMC", "HDD/SSD", "CFcard", "NVME SSD"))

    def test_a_path_that_is_no_path_reaches_no_shell(self):
        mark = os.path.join(self.mixd.directory, "mark")
        self.assertEqual(self.one(f'show storage path "/;touch {mark}"')["type"], "NULL")
        self.assertFalse(os.path.exists(mark))


class Upgrade(WithMixd):
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
        self.refused("show upgrade image", "no image is loaded")
        self.refused("show upgrade lists", "can't be read")

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
        self.until(state, "done")
        self.assertGreater(len(seen), 2, "it took no steps that can be seen")
        shown = self.one("show upgrade")
        self.assertEqual((shown["percent"], shown["processors"], shown["upgraded"], shown["running"]),
                         (100, 5, 5, "6.1.0"))
        processors = self.rows("show upgrade processors")
        self.assertEqual({(row["slot"], row["cpu"]) for row in processors}, {(4, 0), (4, 1), (2, 0), (2, 1), (3, 0)})
        self.assertEqual({row["version"] for row in processors}, {"6.1.0"})
        self.mixd.kill()
        self.mixd.start()
        self.assertEqual(self.one("show upgrade version slot 2 cpu 1")["version"], "6.1.0")

    def test_a_refused_start_says_why_and_can_be_forced(self):
        self.refused("set upgrade start other.img", "refused: 9.0 can't replace 6.0.0")
        self.refused("set upgrade start none.img", "there is no image none.img")
        self.ok("set upgrade start other.img mode forced")
        self.until(lambda: self.one("show upgrade")["state"], "done")

    def test_the_configuration_lock_is_told(self):
        self.ok("set upgrade lock on")
        self.until(lambda: self.one("show upgrade")["locked"], True)
        self.ok("set upgrade lock off")
        self.until(lambda: self.one("show upgrade")["locked"], False)


if __name__ == "__main__":
    unittest.main()
