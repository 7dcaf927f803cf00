#!/usr/bin/env python3
"""Kills the scripts and the packer at random moments: no archive is ever less than whole.

KELPMORAY_BUILD names the build (build/dev), KELPMORAY_KILLS how many moments (200), KELPMORAY_SEED
repeats a run: the seed of each is printed.
"""
import contextlib
import os
import random
import signal
import subprocess
import time
import sys
import unittest

sys.path.insert(0, os.path.join(os.path.dirname(os.path.abspath(__file__)), "../support"))

from archives import in_archive, on_disk  # noqa: E402
from programs import PATIENCE, ProgramTest, adopt_orphans, make_package  # noqa: E402

MOMENTS = int(os.environ.get("KELPMORAY_KILLS", "200"))
SEED = int(os.environ.get("KELPMORAY_SEED", str(time.time_ns() % 1_000_000)))


def children(process):
    with open(f"/proc/{process}/task/{process}/children", encoding="ascii") as file:
        return [int(child) for child in file.read().split()]


class Kills(ProgramTest):
    """A package of which an archive already stands; its content is another one in each run."""

    def setUp(self):
        super().setUp()
        adopt_orphans()
        self.chance = random.Random(SEED)
        make_package(self.path("A.app"), size=300_000)
        self.outcomes = {"untouched": 0, "replaced": 0}
        self.leftovers = 0

    def start(self, script):
        return subprocess.Popen([script, self.path("A.app")], stdout=subprocess.DEVNULL,
                                start_new_session=True)

    def wait_for_all(self, script):
        """Until the script and all that it started have ended; its exit status."""
        status = script.wait(PATIENCE)
        try:
            while True:
                os.wait()
        except ChildProcessError:
            return status

    def change_package(self, run):
        with open(self.path("A.app/Contents/noise"), "r+b") as noise:
            noise.write(f"run {run}".encode())
        return on_disk(self.path("A.app"))

    def time_of_a_run(self, script):
        times = []
        for _ in range(5):
            start = time.monotonic()
            self.assertEqual(self.wait_for_all(self.start(script)), 0)
            times.append(time.monotonic() - start)
        return sorted(times)[2]

    def kill(self, script, run):
        """The whole group mostly; now and then the script alone, whose packer then goes on, or what
        the script runs alone."""
        if run % 10 == 9:
            os.kill(script, signal.SIGKILL)
        elif run % 10 == 8:
            for child in children(script):
                with contextlib.suppress(ProcessLookupError):
                    os.kill(child, signal.SIGKILL)
        else:
            os.killpg(script, signal.SIGKILL)

    def kill_at_random(self, script, moments):
        span = 1.1 * self.time_of_a_run(script)
        standing = on_disk(self.path("A.app"))
        for run in range(moments):
            new = self.change_package(run)
            process = self.start(script)
            # The moment itself is what is tested here.
            time.sleep(self.chance.uniform(0, span))
            self.kill(process.pid, run)
            self.wait_for_all(process)
            found = in_archive(self.path("A.zip"))
            self.assertIn(found, (standing, new), f"moment {run}: neither the old nor the new archive")
            self.outcomes["replaced" if found == new else "untouched"] += 1
            standing = found
            self.leftovers += len(self.unfinished())

    def unfinished(self):
        return [name for name in os.listdir(self.folder) if name not in ("A.app", "A.zip")]

    def check(self, name, script, moments):
        with self.subTest(name, seed=SEED):
            self.kill_at_random(script, moments)
            new = self.change_package("last")
            self.assertEqual(self.wait_for_all(self.start(script)), 0)
            self.assertEqual(in_archive(self.path("A.zip")), new)
            self.assertEqual(self.unfinished(), [], "the next run clears what killed ones left")
        print(f"{name}: {moments} moments with seed {SEED}: the archive was {self.outcomes['untouched']}"
              f" times still the old one, {self.outcomes['replaced']} times the new one, never another;"
              f" unfinished files after {self.leftovers} runs, none after the next whole run")

    def test_with_our_packer(self):
        self.check("kelpmoray-zip", self.programs.script, MOMENTS * 3 // 4)

    def test_with_the_common_tool(self):
        os.rename(self.programs.packer, self.programs.packer + ".away")
        self.addCleanup(os.rename, self.programs.packer + ".away", self.programs.packer)
        self.check("zip", self.programs.script, MOMENTS // 4)


if __name__ == "__main__":
    unittest.main()
