"""mixscan as a process: beside grep on real files, and its options, errors and exit statuses."""

import glob
import os
import pty
import random
import re
import subprocess
import tempfile
import threading
import unittest

MIXSCAN = os.path.join(os.environ["MIX_BIN"], "mixscan")
# On every Debian, whatever else is installed.
REAL_FILES = ["/bin/ls", *sorted(glob.glob("/usr/share/common-licenses/*"))]


def mixscan(*arguments, stdin=b""):
    return subprocess.run([MIXSCAN, *arguments], input=stdin, capture_output=True, timeout=60)


def expected(patterns, text):
    """Every occurrence: (end, start, pattern)."""
    found = []
    for pattern in patterns:
        for start in range(len(text) - len(pattern) + 1):
            if text[start:start + len(pattern)] == pattern:
                found.append((start + len(pattern), start, pattern))
    return found


class BesideGrep(unittest.TestCase):
    def test_single_patterns_that_cannot_overlap_themselves(self):
        compared = 0
        for name in REAL_FILES:
            for pattern in ["the", "ing", "http", "License", "GLIBC", "s's", "zyzzyva", "tcp"]:
                grep = subprocess.run(["grep", "-F", "-a", "-o", "-b", "-e", pattern, name], capture_output=True,
                                      env={**os.environ, "LC_ALL": "C"})
                ours = mixscan("-o", "-e", pattern, name)
                self.assertEqual(ours.stdout, grep.stdout, (name, pattern))
                self.assertEqual(ours.returncode, grep.returncode, (name, pattern))
                compared += grep.stdout.count(b"\n")
        self.assertGreater(compared, 1000)

    def test_ignoring_case_and_in_small_pieces(self):
        name = "/usr/share/common-licenses/GPL-3"
        grep = subprocess.run(["grep", "-F", "-i", "-a", "-o", "-b", "-e", "license", name], capture_output=True,
                              env={**os.environ, "LC_ALL": "C"})
        for piece in ["1", "7", "1460", "1048576"]:
            self.assertEqual(mixscan("-i", "-o", "--piece=" + piece, "license", name).stdout, grep.stdout)


class Occurrences(unittest.TestCase):
    def test_overlapping_ones_in_the_order_of_their_end(self):
        result = mixscan("-e", "he", "-e", "she", "-e", "hers", stdin=b"ushers")
        self.assertEqual(result.stdout, b"2:he\n1:she\n2:hers\n")
        self.assertEqual(mixscan("aa", stdin=b"aaaa").stdout, b"0:aa\n1:aa\n2:aa\n")

    def test_of_random_patterns_whatever_the_piece(self):
        source = random.Random(42)
        for _ in range(30):
            letters = source.choice([b"ab", b"abc.", bytes(range(1, 10)), b"aAbB"])
            patterns = {bytes(source.choices(letters, k=source.randint(1, 5))) for _ in range(source.randint(1, 8))}
            patterns = sorted(p for p in patterns if b"\n" not in p)
            if not patterns:
                continue
            text = bytes(source.choices(letters + b"\n!", k=600))
            arguments = [a for p in patterns for a in (b"-e", p)]
            wanted = sorted(expected(patterns, text))
            for piece in [1, 3, 64, 333, 4096]:
                lines = mixscan("--piece=%d" % piece, *arguments, stdin=text).stdout.split(b"\n")[:-1]
                pairs = [line.split(b":", 1) for line in lines]
                found = [(int(start) + len(pattern), int(start), pattern) for start, pattern in pairs]
                self.assertEqual([end for end, _, _ in found], [end for end, _, _ in wanted])
                self.assertEqual(sorted(found), wanted)

    def test_does_not_join_what_an_unmatched_byte_at_the_end_of_a_piece_parts(self):
        self.assertEqual(mixscan("--piece=3", "she", stdin=b"sh.e").stdout, b"")
        self.assertEqual(mixscan("--piece=2", "she", stdin=b"she").stdout, b"0:she\n")

    def test_print_the_pattern_or_the_text(self):
        self.assertEqual(mixscan("-i", "aBc", stdin=b"ABC abc").stdout, b"0:aBc\n4:aBc\n")
        self.assertEqual(mixscan("-i", "-o", "--piece=1", "aBc", stdin=b"ABC abc").stdout, b"0:ABC\n4:abc\n")

    def test_outside_of_markup_across_pieces(self):
        text = b"xy <a b='>xy'>xy</a xy>xy"
        for piece in ["1", "5", "100"]:
            self.assertEqual(mixscan("--markup", "--piece=" + piece, "xy", stdin=text).stdout, b"0:xy\n14:xy\n23:xy\n")


class Program(unittest.TestCase):
    def setUp(self):
        self.directory = tempfile.TemporaryDirectory()
        self.addCleanup(self.directory.cleanup)
        self.one = self.file("one", b"he she")
        self.two = self.file("two", b"nothing")

    def file(self, name, content):
        path = os.path.join(self.directory.name, name)
        with open(path, "wb") as file:
            file.write(content)
        return path

    def test_names_files_when_there_are_several(self):
        result = mixscan("he", self.one, self.two, "-", stdin=b"he")
        self.assertEqual(result.stdout.decode(), f"{self.one}:0:he\n{self.one}:4:he\n(standard input):0:he\n")

    def test_counts(self):
        self.assertEqual(mixscan("-c", "he", self.one).stdout, b"2\n")
        self.assertEqual(mixscan("-c", "he", self.one, self.two).stdout.decode(), f"{self.one}:2\n{self.two}:0\n")

    def test_exit_status_is_that_of_grep(self):
        missing = os.path.join(self.directory.name, "missing")
        self.assertEqual(mixscan("he", self.one).returncode, 0)
        self.assertEqual(mixscan("he", self.two).returncode, 1)
        self.assertEqual(mixscan("he", self.one, missing).returncode, 2)
        self.assertEqual(mixscan("-q", "he", self.one, missing).returncode, 0)
        self.assertEqual(mixscan("-q", "he", missing, self.one).returncode, 0)
        self.assertEqual(mixscan("-q", "he", self.one).stdout, b"")
        self.assertEqual(mixscan("-q", "he", self.two).returncode, 1)

    def test_says_what_is_wrong(self):
        missing = os.path.join(self.directory.name, "missing")
        for arguments, text in [(("he", missing), f"mixscan: {missing}: No such file or directory\n"),
                                (("-f", missing), f"mixscan: {missing}: No such file or directory\n"),
                                (("he", self.directory.name), f"mixscan: {self.directory.name}: Is a directory\n"),
                                (("",), "mixscan: pattern: is empty\n"),
                                (("--piece=0", "he"), "mixscan: --piece: must be 1 to 1073741824 bytes\n"),
                                (("--piece=-1", "he"), "mixscan: --piece: must be 1 to 1073741824 bytes\n"),
                                (("--stats=some", "he"), 'mixscan: --stats: takes nothing or "all"\n')]:
            result = mixscan(*arguments)
            self.assertEqual((result.returncode, result.stderr.decode()), (2, text))
        self.assertEqual(mixscan().returncode, 2)
        self.assertIn(b"Try 'mixscan --help'", mixscan("--nonsense").stderr)

    def test_takes_patterns_from_files(self):
        patterns = self.file("patterns", b"he\n\nshe\nsh e")
        self.assertEqual(mixscan("-f", patterns, self.one).stdout, b"0:he\n4:he\n3:she\n")
        self.assertEqual(mixscan("-f", "-", self.one, stdin=b"she\n").stdout, b"3:she\n")
        empty = self.file("empty", b"")
        self.assertEqual(mixscan("-f", empty, self.one).returncode, 1)

    def test_full_output_is_trouble(self):
        with open("/dev/full", "wb") as full:
            result = subprocess.run([MIXSCAN, "he", self.one], stdout=full, stderr=subprocess.PIPE)
        self.assertEqual(result.returncode, 2)
        self.assertIn(b"standard output", result.stderr)

    def test_stats_go_to_standard_error(self):
        result = mixscan("--stats", "-e", "he", "-e", "she", self.one)
        self.assertEqual(result.stdout, b"0:he\n4:he\n3:she\n")
        self.assertIn(b"Num States       : 6\n", result.stderr)
        self.assertIn(b"Print AC - 6 active states\nstate   3: he,n:2\nshe,n:3\n\n", result.stderr)
        self.assertNotIn(b"state   0", result.stderr)
        self.assertIn(b"state   0:   h->4", mixscan("--stats=all", "-e", "he", "-e", "she", self.one).stderr)

    def test_progress_is_shown_on_a_terminal_and_wiped(self):
        size = 48 << 20
        big = os.path.join(self.directory.name, "big")
        with open(big, "wb") as file:
            file.truncate(size)
        leader, follower = pty.openpty()
        # Pieces of a byte each take long enough for at least one line.
        process = subprocess.Popen([MIXSCAN, "--piece=1", "he", big], stdout=subprocess.DEVNULL, stderr=follower)
        os.close(follower)
        seen = b""
        while not re.search(rb"\r.*big: \d+% of 48 MiB", seen):
            seen += os.read(leader, 1000)
        process.kill()
        process.wait()
        os.close(leader)

    def test_progress_of_a_stream_tells_how_much_has_been_read(self):
        leader, follower = pty.openpty()
        process = subprocess.Popen([MIXSCAN, "--piece=1", "he"], stdin=subprocess.PIPE, stdout=subprocess.DEVNULL,
                                   stderr=follower)
        os.close(follower)
        piece = bytes(4096)
        feeder = threading.Thread(target=self.feed, args=(process.stdin, piece))
        feeder.start()
        seen = b""
        while not re.search(rb"\r\(standard input\): \d+ MiB", seen):
            seen += os.read(leader, 1000)
        process.kill()
        process.wait()
        feeder.join()
        os.close(leader)

    @staticmethod
    def feed(pipe, piece):
        """Writes until nobody reads any more."""
        try:
            while True:
                pipe.write(piece)
        except BrokenPipeError:
            pass
        try:
            pipe.close()
        except BrokenPipeError:
            pass

    def test_help_is_the_manual_in_short(self):
        text = mixscan("--help").stdout.decode()
        manual = os.path.join(os.path.dirname(__file__), "../../docs/man/mixscan.1")
        with open(manual) as file:
            page = file.read().replace("\\-", "-")
        for option in re.findall(r"--[a-z]+(?:-[a-z]+)*", text):
            self.assertIn(option, page)
        self.assertRegex(mixscan("--version").stdout.decode(), r"^mixscan \(libmix\) \d+\.\d+\.\d+\n$")


if __name__ == "__main__":
    unittest.main()
