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

    def setUp(self):
        self.mixd = Mixd(*self.more_options(), scenario=self.scenario)
        self.addCleanup(self.mixd.remove)

    def more_options(self):
        return self.options

    def ok(self, *commands, **how):
        finished = mixsh(self.mixd, *commands, **how)
        self.assertEqual(finished.returncode, 0, finished.stderr)
        return finished

    def json(self, command):
        return [json.loads(line) for line in self.ok(command, options=["--json"]).stdout.splitlines()]

    def refused(self, command, reason, **how):
        finished = mixsh(self.mixd, command, **how)
        self.assertEqual(finished.returncode, 1, finished.stdout)
        self.assertIn(reason, finished.stderr)

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
