"""mixsh against a mixd of its own: commands, scripts, JSON, errors, and the editor on a terminal."""

import json
import os
import subprocess
import time
import unittest

import pexpect

from mixd import program
from shell_case import ShellCase


class Commands(ShellCase):
    def test_the_fragment_settings_are_changed_and_read_back(self):
        before = self.json("show fragment")[0]
        self.ok("set fragment limit 77")
        after = self.json("show fragment")[0]
        self.assertEqual(after, {"limit": 77, "reassembly_s": before["reassembly_s"]})
        self.ok("set fragment seconds 21 limit 78")
        self.assertEqual(self.ok("show fragment").stdout,
                         "Fragment count limit  78\nReassembly time (s)   21\n")

    def test_settings_outlive_a_killed_mixd(self):
        self.ok("set fragment limit 99 seconds 7")
        self.restart()
        self.assertEqual(self.json("show fragment"), [{"limit": 99, "reassembly_s": 7}])

    def test_several_commands_run_in_order(self):
        rows = self.json("set fragment limit 5", "show fragment", "set fragment limit 6", "show fragment")
        self.assertEqual([row["limit"] for row in rows], [5, 6])

    def test_unique_beginnings_of_words_are_enough(self):
        self.assertIn("Fragment count limit", self.ok("sh fr").stdout)

    def test_daemons_tell_who_answers_where_and_how_fast(self):
        found = self.json("show daemons")
        main = [row for row in found if row["where"] == "node0/0.0" and row["type"] == 38]
        self.assertEqual(len(main), 1, found)
        self.assertTrue(main[0]["answers"])
        self.assertGreater(main[0]["ping_us"], 0)
        self.assertLess(main[0]["ping_us"], 1e6)
        self.assertIn("Where", self.ok("show daemons").stdout.splitlines()[0])

    def test_daemons_count_their_requests(self):
        def requests():
            return [row["requests"] for row in self.json("show daemons")
                    if row["where"] == "node0/0.0" and row["type"] == 38][0]
        before = requests()
        self.ok("show fragment", "show fragment", "show fragment")
        self.assertEqual(requests(), before + 3)

    def test_version_names_the_shell_and_the_running_mixd(self):
        version, = self.json("show version")
        self.assertRegex(version["mixsh"], r"^\d+\.\d+\.\d+$")
        self.assertEqual(version["pid"], self.mixd.process.pid)
        self.assertEqual(version["run_directory"], self.mixd.run_dir)
        self.assertEqual(version["describes"], "this host")


class Interfaces(ShellCase):
    scenario = '[[network.interface]]\nname = "ge0"\n[[mac.entry]]\ninterface = "br0"\nport = "ge1"\n'

    def test_of_the_appliance_are_offered_not_of_this_host(self):
        self.assertEqual(self.offered("show arp interface "), ["ge0", "br0", "ge1"])


class Faults(ShellCase):
    def test_a_delay_is_felt_and_counted(self):
        self.ok("set fault delay daemon 0 type 38 milliseconds 200 count 1")
        self.assertEqual(self.json("show faults"),
                         [{"daemon": 0, "type": 38, "fault": "delay", "value": 200, "unit": "milliseconds",
                           "left": 1, "hits": 0}])
        start = time.monotonic()
        self.ok("show fragment")
        self.assertGreater(time.monotonic() - start, 0.2)
        self.assertEqual(self.json("show faults"), [])

    def test_a_refusal_explains_its_number(self):
        self.ok("set fault refuse daemon 0 type 38 status 13 count 1")
        failed = self.refused("show fragment", "fragment setting show failed, ret is -13", "Permission denied",
                              "main local daemon", "message type 38, sub-command 2")
        self.assertNotIn("is mixd running", failed.stderr)

    def test_a_short_reply_is_told(self):
        self.ok("set fault short daemon 0 type 38 bytes 2 count 1")
        self.refused("show fragment", "Received buf len is wrong, len is 2")

    def test_a_long_reply_is_told(self):
        self.ok("set fault long daemon 0 type 38 bytes 2 count 1")
        self.refused("show fragment", "Received buf len is wrong, len is 6")

    def test_a_lost_request_ends_in_half_a_second(self):
        self.ok("set fault drop daemon 0 type 38 count 1")
        start = time.monotonic()
        failed = self.shell("show fragment")
        took = time.monotonic() - start
        self.assertEqual(failed.returncode, 1)
        self.assertIn("ipcmsg send failed", failed.stderr)
        self.assertGreater(took, 0.49)

    def test_a_crash_ends_mixd(self):
        self.ok("set fault crash daemon 0 type 38")
        failed = self.shell("show fragment")
        self.assertEqual(failed.returncode, 1)
        self.mixd.process.wait(5)

    def test_faults_are_cleared_by_daemon_and_type(self):
        self.ok("set fault drop daemon 0 type 38", "set fault drop daemon 1 type 114")
        self.assertEqual(self.json("clear faults daemon 0"), [{"cleared": 1}])
        self.assertEqual([row["daemon"] for row in self.json("show faults")], [1])
        self.ok("clear faults")
        self.assertEqual(self.ok("show faults").stdout, "no faults are set\n")

    def test_a_type_alone_is_no_fault_to_clear(self):
        self.refused("clear faults type 38", "a type goes with a daemon", status=2)


class Errors(ShellCase):
    def complaint(self, line, status):
        return self.refused(line, status=status).stderr.splitlines()

    def test_a_wrong_word_is_pointed_at(self):
        lines = self.complaint("show fragmnt", 2)
        self.assertEqual(lines[:2], ["show fragmnt", "          ^"])
        self.assertIn("fragment", lines[3])

    def test_an_incomplete_command_is_another_thing(self):
        lines = self.complaint("show", 3)
        self.assertEqual(lines[:3], ["show", "     ^", "the command is not complete"])
        self.assertRegex(lines[3], "could be followed by: .*fragment")

    def test_a_number_out_of_range_names_the_range(self):
        lines = self.complaint("set fragment limit 65536", 2)
        self.assertEqual(lines[1], " " * 23 + "^")
        self.assertIn("from 1 to 65535", lines[2])

    def test_wide_characters_do_not_move_the_mark(self):
        lines = self.complaint("show 微信", 2)
        self.assertEqual(lines[1], "     ^")
        lines = self.complaint("'微信' x", 2)
        self.assertEqual(lines[1], " ^")

    def test_a_change_without_a_setting_is_misused(self):
        lines = self.complaint("set fragment", 2)
        self.assertIn("limit", lines[0])
        self.assertIn("set fragment [limit <1-65535>] [seconds <1-65535>]", lines[1])

    def test_errors_are_json_for_programs(self):
        failed = self.shell("show fragmnt", options=["--json"])
        self.assertEqual(failed.returncode, 2)
        error = json.loads(failed.stderr)
        self.assertEqual((error["line"], error["line_number"], error["column"]), ("show fragmnt", None, 11))
        self.assertIn("fragment", error["expected"])
        self.mixd.kill()
        failed = self.shell("show fragment", options=["--json"])
        error = json.loads(failed.stderr)
        self.assertEqual(error["status"], 1)
        self.assertIn("ipcmsg send failed", error["reasons"])

    def test_an_absent_daemon_fails_at_once_and_says_what_to_try(self):
        self.mixd.stop()
        start = time.monotonic()
        for _ in range(20):
            failed = self.shell("show fragment")
        self.assertLess(time.monotonic() - start, 20 * 0.5, "nobody waits for the timeout")
        self.assertEqual(failed.returncode, 1)
        self.assertIn("ipcmsg send failed", failed.stderr)
        self.assertIn("message type 38", failed.stderr)
        self.assertIn("is mixd running", failed.stderr)
        self.assertIn('"show daemons" tells', failed.stderr)
        self.assertNotIn('"show daemons" tells', self.shell("show daemons").stderr, "which does not tell either")
        self.refused("set fragment limit 3", "were not changed")

    def test_a_gateway_that_is_not_there_is_told(self):
        self.mixd.stop()
        self.refused("set fragment limit 3", "does not answer")

    def test_the_gateways_refusal_comes_in_the_chosen_language(self):
        refusals = {language: self.shell("set fragment seconds 5000", options=["--language", language])
                    for language in ("english", "chinese")}
        for refusal in refusals.values():
            self.assertEqual(refusal.returncode, 1)
            self.assertIn("3600", refusal.stderr)
        def has_chinese(text):
            return any("\u4e00" <= character <= "\u9fff" for character in text)
        self.assertFalse(has_chinese(refusals["english"].stderr), refusals["english"].stderr)
        self.assertTrue(has_chinese(refusals["chinese"].stderr), refusals["chinese"].stderr)

    def test_answers_that_can_not_be_written_are_a_failure(self):
        with open("/dev/full", "w", encoding="utf-8") as full:
            finished = subprocess.run([program("mixsh"), "--json", "-c", "show fragment"], env=self.mixd.environment(),
                                      stdout=full, stderr=subprocess.PIPE, text=True, check=False, timeout=30)
        self.assertEqual(finished.returncode, 1)
        self.assertIn("can't be written", json.loads(finished.stderr)["error"])


class Scripts(ShellCase):
    def test_a_pipe_is_a_script_with_comments(self):
        rows = self.json(stdin="# settings\nset fragment limit 8\n\n  ! more\nshow fragment\n")
        self.assertEqual(rows[0]["limit"], 8)

    def test_a_script_ends_at_its_first_failure_and_names_the_line(self):
        failed = self.shell(stdin="set fragment limit 8\nshow fragmnt\nset fragment limit 9\n")
        self.assertEqual(failed.returncode, 2)
        self.assertTrue(failed.stderr.startswith("line 2: show fragmnt\n" + " " * 18 + "^\n"), failed.stderr)
        self.assertEqual(self.one("show fragment")["limit"], 8)

    def test_keep_going_runs_the_rest_and_keeps_the_first_status(self):
        failed = self.shell(stdin="show\nset fragment limit 9\nshow fragmnt\n", options=["--keep-going"])
        self.assertEqual(failed.returncode, 3)
        self.assertEqual(self.one("show fragment")["limit"], 9)

    def test_exit_ends_a_script(self):
        out = self.ok(stdin="show fragment\nexit\nno such command\n")
        self.assertIn("Fragment count limit", out.stdout)

    def test_a_last_line_without_an_end_runs(self):
        self.assertIn("Fragment count limit", self.ok(stdin="show fragment").stdout)

    def test_a_zero_byte_is_refused(self):
        failed = self.shell(stdin="# settings\nshow fragment\0x\n", options=["--json"])
        self.assertEqual(failed.returncode, 2)
        error = json.loads(failed.stderr)
        self.assertEqual((error["line_number"], error["line"]), (2, "show fragment\0x"))
        self.assertIn("zero byte", error["error"])

    def test_garbage_is_refused_without_harm(self):
        garbage = "x" + "".join(chr(97 + (i * 7919) % 26) for i in range(100000)) + "\n"
        self.assertEqual(self.shell(stdin=garbage).returncode, 2)
        self.assertEqual(self.shell(stdin=garbage[:-1] + "'\n").returncode, 3)


class Help(ShellCase):
    def test_help_lists_every_command_with_its_usage(self):
        found = {row["usage"] for row in self.json("help")}
        self.assertIn("set fragment [limit <1-65535>] [seconds <1-65535>]", found)
        self.assertIn("show daemons", found)

    def test_help_takes_beginnings(self):
        found = {row["usage"] for row in self.json("help sh frag")}
        self.assertEqual(found, {"show fragment"})
        self.assertEqual(self.shell("help nonsense").returncode, 1)

    def test_help_finds_later_words_where_no_command_begins_with_them(self):
        found = {row["usage"].split(" [")[0] for row in self.json("help frag")}
        self.assertEqual(found, {"show fragment", "set fragment"})

    def test_help_keeps_to_the_width_of_a_page(self):
        for words in ("help", "help show", "help set upgrade"):
            with self.subTest(words=words):
                lines = self.ok(words).stdout.splitlines()
                self.assertLessEqual(max(map(len, lines[:-1])), 100)
        self.assertEqual(self.ok("help show arp summary").stdout.splitlines()[:2], [
            "show arp summary [vr <0-65535>] [vsys <0-65535>] [node <0-255>]",
            "        numbers of ARP entries by kind and state"])

    def test_words_without_c_are_told_where_they_go(self):
        failed = self.shell(options=["show", "fragment"])
        self.assertEqual((failed.returncode, failed.stdout), (2, ""))
        self.assertIn("mixsh -c 'show fragment'", failed.stderr)

    def test_an_empty_answer_says_so_to_people_only(self):
        self.assertEqual(self.ok("show saved").stdout, "nothing to show\n")
        self.assertEqual(self.ok("show saved", options=["--json"]).stdout, "")
        self.assertEqual(self.ok("set fragment limit 64").stdout, "")

    def test_a_daemon_that_answered_is_not_called_absent(self):
        failed = self.refused("show virtual-router 77", "status -2: No such file or directory")
        self.assertNotIn("is mixd running", failed.stderr)

    def test_a_question_mark_shows_what_may_follow(self):
        found = {row["word"] for row in self.json("set fragment ?")}
        self.assertEqual(found, {"limit", "seconds", "<enter>"})
        found = {row["word"] for row in self.json("set fragment limit ?")}
        self.assertEqual(found, {"<1-65535>"})
        self.assertEqual(self.shell("shaw ?").returncode, 2)

    def test_options_are_explained(self):
        shown = self.ok(options=["--help"]).stdout
        for word in ("--json", "--keep-going", "--language", "Exit status"):
            self.assertIn(word, shown)
        self.assertRegex(self.ok(options=["--version"]).stdout, r"^mixsh \d")
        self.assertEqual(self.shell(options=["--nonsense"]).returncode, 2)
        self.assertEqual(self.shell(options=["--language", "latin"]).returncode, 2)


class Terminal(ShellCase):
    """On a dumb terminal, which repaints whole lines and so keeps the expectations readable."""

    PROMPT = "mixsh> "

    def open(self, columns=100):
        child = pexpect.spawn(program("mixsh"), env=self.mixd.environment(
            TERM="dumb", XDG_STATE_HOME=os.path.join(self.mixd.directory, "state"),
            HOME=self.mixd.directory), encoding="utf-8", timeout=10, dimensions=(24, columns))
        self.addCleanup(child.close, force=True)
        child.expect(self.PROMPT)
        return child

    def leave(self, child):
        child.sendline("exit")
        child.expect(pexpect.EOF)
        child.close()
        self.assertEqual(child.exitstatus, 0)

    def test_the_tabulator_completes_words_at_every_level(self):
        child = self.open()
        child.send("sh\t")
        child.expect("mixsh> show ")
        child.send("fr\t")
        child.expect("mixsh> show fragment ")
        child.send("\r")
        child.expect("Reassembly time")
        child.expect(self.PROMPT)
        self.leave(child)

    def test_the_tabulator_lists_what_it_can_not_decide(self):
        child = self.open()
        child.send("set f\t")
        child.expect(r"fault +\S.*fragment +\S")
        child.expect("mixsh> set f")
        child.send("r\t")
        child.expect("mixsh> set fragment ")
        child.send("l\t")
        child.expect("mixsh> set fragment limit ")
        child.send("4\r")
        child.expect(self.PROMPT)
        self.leave(child)
        self.assertEqual(self.one("show fragment")["limit"], 4)

    def test_the_question_mark_explains_without_ending_the_line(self):
        child = self.open()
        child.send("set fragment ?")
        child.expect("limit +how many")
        child.expect("seconds +how long")
        child.expect("<enter>")
        child.expect("mixsh> set fragment ")
        child.send("limit ?")
        child.expect("<1-65535> +how many")
        child.expect("mixsh> set fragment limit ")
        child.send("5\r")
        child.expect(self.PROMPT)
        self.leave(child)
        self.assertEqual(self.one("show fragment")["limit"], 5)

    def test_a_question_mark_in_quotes_is_a_character(self):
        child = self.open()
        child.send('help "a?b"\r')
        child.expect("no command has such words")
        child.expect(self.PROMPT)
        self.leave(child)

    def test_errors_point_into_the_line_above(self):
        child = self.open()
        child.send("show fragmnt\r")
        child.expect("\r\n" + " " * (len(self.PROMPT) + 10) + r"\^\r\n\"fragmnt\"")
        child.expect(self.PROMPT)
        self.leave(child)

    def test_history_survives_the_session_and_is_private(self):
        child = self.open()
        child.send("set fragment limit 31\r")
        child.expect(self.PROMPT)
        self.leave(child)
        self.ok("set fragment limit 1")
        child = self.open()
        child.send("\x1b[A\x1b[A")  # exit, then the command before it
        child.expect("set fragment limit 31")
        child.send("\r")
        child.expect(self.PROMPT)
        self.leave(child)
        self.assertEqual(self.one("show fragment")["limit"], 31)
        path = os.path.join(self.mixd.directory, "state", "mix", "history")
        self.assertEqual(os.stat(path).st_mode & 0o777, 0o600)

    def test_ctrl_c_drops_the_line_and_ctrl_d_leaves(self):
        child = self.open()
        child.send("nonsense")
        child.expect("nonsense")
        child.send("\x03")
        child.expect(self.PROMPT)
        child.send("show fragment\r")
        child.expect("Fragment count limit")
        child.expect(self.PROMPT)
        child.send("\x04")
        child.expect(pexpect.EOF)
        child.close()
        self.assertEqual(child.exitstatus, 0)

    def test_the_next_command_works_after_mixd_restarts(self):
        child = self.open()
        child.send("show fragment\r")
        child.expect("Fragment count limit")
        child.expect(self.PROMPT)
        self.mixd.kill()
        child.send("show fragment\r")
        child.expect("can't be read")
        child.expect(self.PROMPT)
        self.mixd.start()
        child.send("show fragment\r")
        child.expect("Fragment count limit")
        child.expect(self.PROMPT)
        self.leave(child)


if __name__ == "__main__":
    unittest.main()
