#!/usr/bin/env python3
"""What the signer tells programs: progress, and facts as JSON."""
import json
import os
import subprocess
import unittest

import fixtures
from codesign import CODESIGN, CodeTest
from damage import MESSAGES
from programs import write


class Facts(CodeTest):
    def facts(self, *arguments, status=0):
        """What it prints with --json on standard output, and it prints nothing else."""
        done = subprocess.run([CODESIGN, "--json", *arguments], cwd=self.folder, capture_output=True, text=True)
        self.assertEqual((done.returncode, done.stderr), (status, ""))
        return [json.loads(line) for line in done.stdout.splitlines()]

    def test_progress_goes_through_the_pipe_that_the_environment_names(self):
        app = fixtures.make_application(self.linker, self.path("My App.app"))
        os.mkfifo(self.path("pipe"))
        reader = os.open(self.path("pipe"), os.O_RDONLY | os.O_NONBLOCK)
        self.addCleanup(os.close, reader)
        self.sign(app, "--deep", KELPMORAY_PROGRESS=self.path("pipe"))
        told = os.read(reader, 1000).decode().splitlines()
        self.assertEqual((told[-1], told), ("100%", sorted(told, key=lambda line: int(line[:-1]))))
        self.assertLess(int(told[0][:-1]), 50)

    def test_code_that_has_no_pages_has_no_size_of_them(self):
        fixtures.write_plist(self.path("P.bundle/Contents/Info.plist"), None, "BNDL")
        self.sign(self.path("P.bundle"))
        self.assertIn("\nPage size=none\n", self.codesign("-dvvvv", self.path("P.bundle"))[1])

    def test_answers_that_cannot_be_written_are_a_failure_with_a_reason(self):
        path = self.copy(self.linker.link("exe-arm64"))
        self.sign(path)
        for arguments in (["--plan", path], ["-d", "-r-", path], ["--json", "--verify", path], ["--help"], ["--plan", *[path] * 1000]):
            with open("/dev/full", "w") as full:
                done = subprocess.run([CODESIGN, *arguments], stdout=full, stderr=subprocess.PIPE, text=True)
            self.assertEqual((done.returncode, done.stderr.splitlines()[-1:]), (
                1, ["kelpmoray-codesign: Cannot write standard output: No space left on device. Free some space and try again."]))

    def test_programs_read_the_facts_as_json(self):
        package = self.path('a".app')
        fixtures.make_bundle(package, "main", self.linker.link("exe-arm64"))
        self.assertEqual(self.facts("-d", package, status=1), [{"path": package, "error": MESSAGES["unsigned"]}])
        self.sign(package, "-o", "runtime", "-i", "com.example.x", "-r", "=designated => identifier com.example.x")
        shown, = self.facts("-d", package)
        shown.pop("cdhash")
        self.assertEqual(shown, {
            "path": package, "identifier": "com.example.x", "format": "app bundle with Mach-O thin (arm64)",
            "flags": "adhoc,runtime", "team": "", "adhoc": True, "authorities": [], "signed": None, "timestamp": None,
            "requirements": 'designated => identifier "com.example.x"\n', "entitlements": ""})
        self.assertEqual(self.facts("--plan", package), [{"path": package, "plan": [package]}])
        valid = {"path": package, "valid": True, "meetsRequirement": False, "faults": []}
        self.assertEqual(self.facts("--verify", "-R", "=identifier y", package, status=3), [valid])
        write(package + "/Contents/Resources/new", "")
        bad, gone = self.facts("--verify", package, self.path("gone"), status=1)
        self.assertFalse(bad["valid"])
        self.assertEqual(bad["faults"][0]["changes"], [{"file": package + "/Contents/Resources/new", "change": "added"}])
        self.assertIn("No such file", gone["error"])
        self.assertEqual(self.codesign("--verify", "-R", "=identifier y", self.path("gone"), self.linker.link("exe-arm64"))[0], 1)


if __name__ == "__main__":
    unittest.main()
