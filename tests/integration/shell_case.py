"""A test with a mixd to itself, asked through the shell."""

import contextlib
import json
import resource
import unittest

from mixd import Mixd, mixsh
from own_network import until

STATES = {"INCOMPLETE": "incomplete", "REACHABLE": "reachable", "STALE": "stale", "DELAY": "delay",
          "PROBE": "probe", "FAILED": "failed", "PERMANENT": "permanent"}


class ShellCase(unittest.TestCase):
    options = []
    scenario = None
    catalogue = False
    board = None  # the shell's; None: it finds out

    def setUp(self):
        self.mixd = Mixd(*self.more_options(), scenario=self.scenario, catalogue=self.catalogue)
        self.addCleanup(self.mixd.remove)

    def more_options(self):
        return self.options

    def shell(self, *commands, **how):
        if self.board:
            how.setdefault("MIX_BOARD", self.board)
        return mixsh(self.mixd, *commands, **how)

    def ok(self, *commands, **how):
        finished = self.shell(*commands, **how)
        self.assertEqual((finished.returncode, finished.stderr), (0, ""))
        return finished

    def json(self, *commands, **how):
        return [json.loads(line) for line in self.ok(*commands, options=["--json"], **how).stdout.splitlines()]

    def one(self, command, **how):
        found = self.json(command, **how)
        self.assertEqual(len(found), 1)
        return found[0]

    def refused(self, command, *reasons, status=1, **how):
        finished = self.shell(command, **how)
        self.assertEqual((finished.returncode, finished.stdout), (status, ""))
        for reason in reasons:
            self.assertIn(reason, finished.stderr)
        return finished

    def offered(self, line):
        """The words that may stand at the end of a line, as the tabulator offers them."""
        return [each.split("\t")[0] for each in self.ok(options=[f"--complete={line}"]).stdout.splitlines()]

    def restart(self):
        """As after a power cut."""
        self.mixd.kill()
        self.mixd.start()

    @contextlib.contextmanager
    def full_store(self):
        """Within it, no file of mixd's grows: the store's log can't, so no change can be kept."""
        pid = self.mixd.process.pid
        resource.prlimit(pid, resource.RLIMIT_FSIZE, (0, resource.RLIM_INFINITY))
        try:
            yield
        finally:
            resource.prlimit(pid, resource.RLIMIT_FSIZE, (resource.RLIM_INFINITY, resource.RLIM_INFINITY))

    def slowest(self, message_type):
        """Microseconds that the longest request of a type took."""
        return max(row["slowest_us"] for row in self.json("show daemons") if row["type"] == message_type)

    def assert_becomes(self, found, expected):
        """What is told by events takes its time. Returns what was expected."""
        answer, wanted = until(found, expected)
        self.assertEqual(answer, wanted)
        return wanted
