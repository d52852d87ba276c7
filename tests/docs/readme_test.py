"""The README's tour is run and must print what it says; what documents quote of the tree stands there."""

import os
import pathlib
import re
import subprocess
import tempfile
import time
import unittest

TREE = pathlib.Path(__file__).parents[2]
BIN = os.environ["MIX_BIN"]


def tour():
    """[(command, what it prints)] of all the console blocks."""
    text = (TREE / "README.md").read_text(encoding="utf-8")
    steps = []
    for block in re.findall(r"^```console\n(.*?)^```$", text, re.M | re.S):
        for line in block.splitlines(keepends=True):
            if line.startswith("$ "):
                steps.append([line[2:].rstrip("\n"), ""])
            else:
                steps[-1][1] += line
    return steps


class Tour(unittest.TestCase):
    def setUp(self):
        self.folder = tempfile.TemporaryDirectory()
        environment = {"PATH": f"{BIN}:/usr/bin:/bin", "LC_ALL": "C.UTF-8", "TZ": "UTC", "HOME": self.folder.name,
                       "TMPDIR": self.folder.name}
        self.bash = subprocess.Popen(["bash", "--norc"], cwd=TREE, env=environment, stdin=subprocess.PIPE,
                                     stdout=subprocess.PIPE, stderr=subprocess.STDOUT, text=True)

    def tearDown(self):
        self.bash.stdin.write("kill %1 2>/dev/null; wait\n")
        self.bash.stdin.close()
        self.bash.wait(20)
        self.bash.stdout.close()
        self.folder.cleanup()

    def said(self, command):
        self.bash.stdin.write(f"{command}\necho; echo done: $?\n")
        self.bash.stdin.flush()
        lines = []
        while not (line := self.bash.stdout.readline()).startswith("done: "):
            self.assertNotEqual(line, "", "bash has ended")
            lines.append(line)
        return "".join(lines)[:-1]

    def test_prints_what_it_says(self):
        steps = tour()
        self.assertGreater(len(steps), 8)
        for command, expected in steps:
            with self.subTest(command=command):
                self.assertEqual(self.said(command), expected)
            if command.endswith("&"):
                self.wait_until_mixd_answers()

    def wait_until_mixd_answers(self):
        for _ in range(100):
            if "ready" in self.said("cat $MIX_RUN_DIR/log"):
                return
            time.sleep(0.1)
        self.fail("mixd is not ready")


class Quotations(unittest.TestCase):
    def test_stand_in_the_file_that_was_named_last(self):
        text = (TREE / "docs/adding-a-client-function.md").read_text(encoding="utf-8")
        file, quoted = "", 0
        for named, block in re.findall(r"^(?:\W*`((?:[a-z]+/)[\w./]+\.\w+)`|```(?:c|cpp|text)\n(.*?)^```$)", text,
                                       re.M | re.S):
            if named:
                file = named
                continue
            with self.subTest(file=file):
                self.assertIn(block, (TREE / file).read_text(encoding="utf-8"))
            quoted += 1
        self.assertEqual(quoted, 11)

    def test_the_first_program_is_the_example_in_short(self):
        text = (TREE / "README.md").read_text(encoding="utf-8")
        program = re.search(r"^```c\n(.*?)^```$", text, re.M | re.S)[1]
        example = (TREE / "examples/fragment_settings.c").read_text(encoding="utf-8")
        for line in program.splitlines():
            self.assertTrue(line in example or line == "int main(void)", line)


if __name__ == "__main__":
    unittest.main()
