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
from programs import PATIENCE, ProgramTest, adopt_orphans, await_that, make_package  # noqa: E402

MOMENTS = int(os.environ.get("KELPMORAY_KILLS", "200"))
SEED = int(os.environ.get("KELPMORAY_SEED", str(time.time_ns() % 1_000_000)))


def children(process):
    with open(f"/proc/{process}/task/{process}/children", encoding="ascii") as file:
        return [int(child) for child in file.read().split()]


def state(process):
    with open(f"/proc/{process}/stat", encoding="ascii", errors="replace") as file:
        return file.read().rsplit(")", 1)[1].split()[0]


class Kills(ProgramTest):
    """A package of which an archive already stands; its content is another one in each run."""

    def setUp(self):
        super().setUp()
        adopt_orphans()
        self.chance = random.Random(SEED)
        make_package(self.path("A.app"), size=300_000)

    def start(self):
        return subprocess.Popen([self.programs.script, self.path("A.app")], stdout=subprocess.DEVNULL,
                                start_new_session=True)

    def await_end(self, script):
        """Until the script and all that it started have ended; its exit status. The orphans' numbers
        stay taken, as in a container in which nothing waits for them."""
        status = script.wait(PATIENCE)
        await_that(lambda: all(state(child) == "Z" for child in children(os.getpid())), "all of them")
        return status

    def change_package(self, run):
        with open(self.path("A.app/Contents/noise"), "r+b") as noise:
            noise.write(f"run {run}".encode())
        return on_disk(self.path("A.app"))

    def time_of_a_run(self):
        start = time.monotonic()
        self.assertEqual(self.await_end(self.start()), 0)
        return time.monotonic() - start

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

    def unfinished(self):
        return [name for name in os.listdir(self.folder) if name not in ("A.app", "A.zip")]

    def test_leave_the_older_archive_or_the_new_one(self):
        span = 1.1 * sorted(self.time_of_a_run() for _ in range(5))[2]
        standing = on_disk(self.path("A.app"))
        replaced = leftovers = 0
        for run in range(MOMENTS):
            new = self.change_package(run)
            process = self.start()
            # The moment itself is what is tested here.
            time.sleep(self.chance.uniform(0, span))
            self.kill(process.pid, run)
            self.await_end(process)
            found = in_archive(self.path("A.zip"))
            self.assertIn(found, (standing, new), f"moment {run}, seed {SEED}: neither old nor new")
            replaced += found == new
            standing = found
            leftovers += len(self.unfinished())
        new = self.change_package("last")
        self.assertEqual(self.await_end(self.start()), 0)
        self.assertEqual(in_archive(self.path("A.zip")), new)
        self.assertEqual(self.unfinished(), [], "the next run clears what killed ones left")
        print(f"{MOMENTS} moments with seed {SEED}: the archive was {MOMENTS - replaced} times still the old "
              f"one, {replaced} times the new one, never another; unfinished files after {leftovers} runs, "
              f"none after the next whole run")


if __name__ == "__main__":
    unittest.main()
