"""The examples, built as the build does it, against a mixd with one of the example scenarios."""

import json
import pathlib
import subprocess
import sys
import unittest

TREE = pathlib.Path(__file__).parents[2]
sys.path.insert(0, str(TREE / "tests/integration"))

from mixd import Mixd, mixsh, program  # noqa: E402  (needs the path above)

SCENARIOS = sorted((TREE / "examples/scenarios").glob("*.toml"))


class WithBranch(unittest.TestCase):
    def setUp(self):
        self.mixd = Mixd("--scenario", str(TREE / "examples/scenarios/branch.toml"), catalogue=True)
        self.addCleanup(self.mixd.remove)

    def run_it(self, *words, stdin="", library_path=None):
        more = {"LD_LIBRARY_PATH": library_path} if library_path else {}
        done = subprocess.run(words, env=self.mixd.environment(**more), input=stdin, capture_output=True, text=True,
                              timeout=30, check=False)
        self.assertEqual(done.stderr, "")
        return done.returncode, done.stdout

    def test_the_first_program_reads_and_changes_the_settings(self):
        self.assertEqual(self.run_it(program("example_fragment_settings")),
                         (0, "at most 64 fragments between, reassembly within 30 seconds\n"))
        self.assertEqual(self.run_it(program("example_fragment_settings"), "7", "20"),
                         (0, "at most 7 fragments between, reassembly within 20 seconds\n"))

    def test_the_listing_shows_rows_of_an_interface(self):
        row = "2001:db8:10::20            02:00:00:00:10:20 ge0\n"
        code, out = self.run_it(program("example_neighbours"))
        self.assertEqual((code, out.split("\n", 1)[1]), (0, row + "1 of 1 neighbours\n"))
        self.assertNotIn(row, self.run_it(program("example_neighbours"), "ge1")[1])

    def test_the_listing_tells_what_fails(self):
        self.mixd.stop()
        self.assertEqual(self.run_it(program("example_neighbours")), (0, "ipcmsg send failed\n0 of 0 neighbours\n"))

    def test_the_matcher_finds_words_across_pieces(self):
        text = "The warp threads and the WEFT threads make a weave; warp again"
        self.assertEqual(self.run_it(program("example_find_words"), "warp", "weft", "threads", stdin=text),
                         (0, "4: warp\n9: threads\n25: weft\n30: threads\n52: warp\n"))

    def test_the_catalogue_is_asked_by_name_and_by_number(self):
        self.assertEqual(self.run_it(program("example_application"), "tftp", "1000", "no such thing"),
                         (1, "9 TFTP: File Transfer, File Server, risk 3\n"
                             "1000 BGP: Network Service, Routing, risk 1\n"
                             "no such thing: no such application\n"))

    def test_python_gets_settings_and_rows(self):
        libraries = str(pathlib.Path(program("mixsh")).parents[1] / "lib")
        code, out = self.run_it(sys.executable, str(TREE / "examples/neighbours.py"), library_path=libraries)
        self.assertEqual(code, 0)
        self.assertEqual(json.loads(out), {
            "fragment": {"limit": 64, "seconds": 30},
            "neighbours": [{"address": "2001:db8:10::20", "interface": "ge0", "mac": "02:00:00:00:10:20"}]})


class Scenarios(unittest.TestCase):
    SHOWS = {"branch": ("show gratuitous-arp", "192.168.10.1"), "chassis": ("show slots", "standby"),
             "slow": ("show arp count", "100000")}

    def test_are_taken_and_show_what_they_describe(self):
        self.assertEqual({path.stem for path in SCENARIOS}, set(self.SHOWS))
        for path in SCENARIOS:
            with self.subTest(scenario=path.name), Mixd("--scenario", str(path)) as mixd:
                command, expected = self.SHOWS[path.stem]
                self.assertIn(expected, mixsh(mixd, command).stdout)

    def test_slow_misbehaves_as_it_says(self):
        with Mixd("--scenario", str(TREE / "examples/scenarios/slow.toml")) as mixd:
            self.assertIn("Received buf len is wrong", mixsh(mixd, "show nd").stderr)
            self.assertEqual(len(mixsh(mixd, "show nd maximum 1").stdout.splitlines()) > 2, True)


if __name__ == "__main__":
    unittest.main()
