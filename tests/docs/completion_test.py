"""Completion in bash and zsh: the functions by themselves, and both shells on a terminal."""

import os
import pathlib
import re
import shutil
import subprocess
import unittest

import pexpect

FOLDER = pathlib.Path(__file__).parents[2] / "packaging/completion"
BIN = os.environ["MIX_BIN"]
ENVIRONMENT = {"PATH": f"{BIN}:/usr/bin:/bin", "TERM": "dumb", "HOME": "/nonexistent", "LC_ALL": "C.UTF-8"}
LONG_OPTION = r"--[a-z]+(?:-[a-z]+)*"


def listed(line):
    """What mixsh offers at the end of a line."""
    out = subprocess.run([f"{BIN}/mixsh", "--complete", line], env=ENVIRONMENT, capture_output=True, text=True, check=True)
    return [one.split("\t")[0] for one in out.stdout.splitlines()]


class TheShellItself(unittest.TestCase):
    def test_offers_words_with_their_meaning(self):
        out = subprocess.run([f"{BIN}/mixsh", "--complete", "show fr"], env=ENVIRONMENT, capture_output=True, text=True,
                             check=True).stdout
        self.assertEqual(out, "fragment\tIP fragment reassembly settings\n")
        self.assertEqual(listed("set fragment "), ["limit", "seconds"])

    def test_offers_nothing_where_any_value_may_stand_or_nothing_can(self):
        self.assertEqual(listed("set fragment limit "), [])
        self.assertEqual(listed("nonsense x"), [])

    def test_lists_every_command_with_its_arguments(self):
        out = subprocess.run([f"{BIN}/mixsh", "--list-commands"], env=ENVIRONMENT, capture_output=True, text=True,
                             check=True).stdout
        at = out.index("command\tset fragment [limit <1-65535>] [seconds <1-65535>]\t")
        self.assertRegex(out[at:], r"\A.*\nargument\tlimit <1-65535>\t.+\nargument\tseconds <1-65535>\t.+\n")
        self.assertTrue(all(line.count("\t") == 2 for line in out.splitlines()))


def bash_replies(program, *words):
    """COMPREPLY for words, of which the last is being typed."""
    quoted = " ".join("'" + word.replace("'", "'\\''") + "'" for word in (program, *words))
    script = f"""
        source {FOLDER}/{program}.bash
        COMP_WORDS=({quoted}); COMP_CWORD={len(words)}
        _{program}
        printf '%s\\n' "${{COMPREPLY[@]}}"
    """
    out = subprocess.run(["bash", "--norc", "-c", script], env=ENVIRONMENT, capture_output=True, text=True, check=True)
    return [] if out.stdout == "\n" else out.stdout.splitlines()


class Bash(unittest.TestCase):
    def test_completes_words_of_a_quoted_command(self):
        self.assertEqual(bash_replies("mixsh", "-c", "'show fr"), ["show fragment ", "show fragment  "])
        self.assertEqual(bash_replies("mixsh", "-c", "'set fragment "), ["set fragment limit", "set fragment seconds"])
        self.assertEqual(bash_replies("mixsh", "--json", "--command", "=", '"show fr')[0], "show fragment ")

    def test_quotes_words_of_a_command_without_quotes(self):
        self.assertEqual(bash_replies("mixsh", "-c", "show\\ fr"), ["show\\ fragment"])

    def test_offers_as_many_words_as_mixsh(self):
        self.assertEqual(len(bash_replies("mixsh", "-c", "'show ")), len(listed("show ")))
        self.assertGreater(len(listed("show ")), 20)

    def test_offers_every_option_of_the_programs(self):
        for name in ("mixd", "mixsh", "mixscan"):
            with self.subTest(program=name):
                help_text = subprocess.run([f"{BIN}/{name}", "--help"], env=ENVIRONMENT, capture_output=True, text=True,
                                           check=True).stdout
                self.assertEqual(set(bash_replies(name, "--")), set(re.findall(LONG_OPTION, help_text)))

    def test_offers_files_and_choices_behind_options(self):
        self.assertEqual(bash_replies("mixsh", "--language", "ch"), ["chinese"])
        self.assertEqual(bash_replies("mixd", "--scenario", f"{FOLDER}/mixd.b"), [f"{FOLDER}/mixd.bash"])
        self.assertEqual(bash_replies("mixd", "--run-dir", "/us"), ["/usr"])

    def test_works_on_a_terminal(self):
        bash = pexpect.spawn("bash", ["--norc", "--noprofile", "-i"], env=ENVIRONMENT, encoding="utf-8", timeout=20)
        bash.sendline(f"PS1='ready> '; bind 'set enable-bracketed-paste off'; source {FOLDER}/mixsh.bash")
        bash.expect_exact("\r\nready> ")
        bash.send("echo x; mixsh -c 'sh\t")
        bash.expect("sh\x07?ow ")
        bash.send("fragm\t")
        bash.expect("fragm\x07?ent ")
        bash.sendcontrol("c")
        bash.close(force=True)


@unittest.skipUnless(shutil.which("zsh"), "zsh is not installed")
class Zsh(unittest.TestCase):
    def typed(self, keys, expected):
        zsh = pexpect.spawn("zsh", ["-f", "-i"], env=ENVIRONMENT, encoding="utf-8", timeout=30, dimensions=(50, 200))
        zsh.sendline(f"unsetopt zle_bracketed_paste; PS1='ready> '; fpath=({FOLDER} $fpath); autoload -U compinit;"
                     "compinit -D -u; echo loaded=$?")
        zsh.expect_exact("\nloaded=0")
        zsh.expect_exact("ready> ")
        zsh.send(keys)
        zsh.expect_exact(expected)
        zsh.close(force=True)

    def test_completes_words_of_a_quoted_command(self):
        self.typed("mixsh -c 'show fragm\t", "show fragment")
        self.typed("mixsh -c 'set fragment lim\t", "set fragment limit")

    def test_completes_words_of_a_command_without_quotes(self):
        self.typed("mixsh -c show\\ fragm\t", "show\\ fragment")

    def test_shows_what_words_mean(self):
        self.typed("mixsh -c 'set fragment \t", "how many fragments of one packet may wait")

    def test_completes_options(self):
        self.typed("mixd --no-c\t", "--no-catalogue")
        self.typed("mixscan --only\t", "--only-matching")
        self.typed("mixsh --language=chi\t", "--language=chinese")

    def test_offers_every_option_of_the_programs(self):
        for name in ("mixd", "mixsh", "mixscan"):
            with self.subTest(program=name):
                help_text = subprocess.run([f"{BIN}/{name}", "--help"], env=ENVIRONMENT, capture_output=True, text=True,
                                           check=True).stdout
                text = (FOLDER / f"_{name}").read_text(encoding="utf-8").split("_arguments", 1)[1]
                self.assertEqual(set(re.findall(LONG_OPTION, text)), set(re.findall(LONG_OPTION, help_text)))


if __name__ == "__main__":
    unittest.main()
