#!/usr/bin/env python3
"""What happens with names that few would give: of packages and of folders, on the terminal, in the window.

The command lines in which names stand are not escaped, so the shell reads some names; the list below
says exactly what comes of each. KELPMORAY_BUILD names the build (build/dev).
"""
import contextlib
import os
import pty
import re
import subprocess
import sys
import unittest

sys.path.insert(0, os.path.join(os.path.dirname(os.path.abspath(__file__)), "../support"))

from desktop import Desktop, Window  # noqa: E402
from programs import ProgramTest, await_that, make_package, run  # noqa: E402

PACKED = "packed"
SHELL = "Its path holds a quote, a dollar sign, a back quote, a backslash or a line break"
BYTES = "Its path is not UTF-8. Rename it."

# A name without its ending; what the terminal says of it; what the window's log says of it, where HOME
# is the word HOME. What the shell is made to run here prints and writes nothing.
NAMES = [
    (b"two  blanks ", PACKED, PACKED),
    (b" ", PACKED, PACKED),
    (b"tab\tand\rreturn", PACKED, PACKED),
    (b"line\nbreak", SHELL, PACKED),
    (b"\n", SHELL, PACKED),
    (b"it's", PACKED, PACKED),
    (b'say "hi"', SHELL, "error: no package at FOLDER/say hi.app"),
    (b'odd"', SHELL, "result of fenwoJustZipApps.sh = (null)"),
    (b'";echo run;"', SHELL, "error: no package at FOLDER: give the path of a folder whose name ends in "
     ".app\nrun\n"),
    (b"$HOME", SHELL, "error: no package at FOLDER/HOME.app"),
    (b"$(echo Plain)", SHELL, "packed: FOLDER/Plain.zip"),
    (b"`echo Plain`", SHELL, "packed: FOLDER/Plain.zip"),
    (b"$((1", SHELL, "result of fenwoJustZipApps.sh = (null)"),
    (b"back\\slash", SHELL, PACKED),
    (b"two\\\\slashes", SHELL, "error: no package at FOLDER/two\\slashes.app"),
    (b"-rf", PACKED, PACKED),
    (b"--help", PACKED, PACKED),
    (b"~", PACKED, PACKED),
    (b"*?[a-z]{b,c}", PACKED, PACKED),
    (b";&|<>()#!^=,:", PACKED, PACKED),
    (b"%s%n%20", PACKED, PACKED),
    (b"\x01\x1b[2J\x7f", PACKED, PACKED),
    (b"\xc3\xa9", PACKED, PACKED),
    (b"e\xcc\x81", PACKED, PACKED),
    (b"\xe2\x80\xaetfel", PACKED, PACKED),
    (b"\xf0\x9f\x8e\x88", PACKED, PACKED),
    (b"\xff\xfe", BYTES, "result of fenwoJustZipApps.sh = packed: "),
    (b"\xed\xa0\x80", BYTES, "result of fenwoJustZipApps.sh = packed: "),
    (b"n" * 251, PACKED, PACKED),
]
# Their archive is made although the log cannot show its name.
PACKED_UNSAID = (b"\xff\xfe", b"\xed\xa0\x80")

EVERY_BYTE = [bytes([byte]) for byte in range(1, 256) if byte != ord("/")]


def in_bytes(text):
    return os.fsencode(text)


class Names(ProgramTest):
    def setUp(self):
        super().setUp()
        self.here = in_bytes(self.path("here"))
        os.makedirs(self.here)

    def make(self, *names):
        return make_package(os.path.join(self.here, *names))

    def assert_packed(self, package):
        archive = package[:-len(b".app")] + b".zip"
        self.assert_whole(archive, package)

    def everything(self):
        """All that lies in the test's folder."""
        return {os.path.join(folder, name) for folder, folders, files in os.walk(in_bytes(self.folder))
                for name in folders + files}


class Terminal(Names):
    def test_every_byte_in_a_name(self):
        for byte in EVERY_BYTE:
            package = self.make(byte + b"a" + byte + b".app")
            status, said = run([self.programs.script, package])
            shown = "?" if byte < b" " or byte == b"\x7f" else byte.decode(errors="ignore")
            archive = os.path.join(os.fsdecode(self.here), f"{shown}a{shown}.zip")
            self.assertEqual((status, said), (0, f"packed: {archive}\n"), byte)
            self.assert_packed(package)

    def test_names_in_the_list(self):
        for kind, path in (("package", lambda name: (name + b".app",)),
                           ("folder", lambda name: (name, b"A.app"))):
            for name, answer, _ in NAMES:
                with self.subTest(kind, name=name):
                    package = self.make(*path(name))
                    before = self.everything()
                    status, said = run([self.programs.batch, "--process-all", "--", package],
                                       cwd=self.here)
                    made = self.everything() - before
                    if answer == PACKED:
                        self.assertEqual(status, 0, said)
                        self.assertEqual(made, {package[:-4] + b".zip"})
                        self.assert_packed(package)
                    else:
                        self.assertEqual(status, 1, said)
                        self.assertIn("FAILED: " + answer, said)
                        self.assertEqual(made, set())


    def test_the_holder_of_an_identity(self):
        package = self.make(b"A.app")
        before = self.everything()
        for holder in (b"$(echo >owned)", b"`echo >owned`", b'";echo >owned;"', b"\xff"):
            status, said = run([self.programs.batch, "--process-all", "--identity", holder, package],
                               cwd=self.here)
            self.assertEqual(status, 2, said)
            self.assertRegex(said, r"\Akelpmoray-batch: .*identity.*\.\n\Z")
            self.assertEqual(self.everything(), before)

    def test_a_terminal_is_given_no_control_characters(self):
        package = self.make(b"red\x1b[31m\rGood\x7f\xc2\x9b1m.app")
        missing = os.path.join(self.here, b"no\x1b[31m\xc2\x9b1m")
        control, terminal = pty.openpty()
        said = b""
        with os.fdopen(control, "rb", buffering=0) as shown:
            with os.fdopen(terminal, "wb") as seen:
                program = subprocess.Popen([self.programs.batch, "--verbose", missing, package],
                                           stdin=subprocess.PIPE, stdout=seen, stderr=seen,
                                           env={**os.environ, "NO_COLOR": "1"})
            program.stdin.write(b"p\n")
            program.stdin.close()
            # Once all is read there is an error instead of an end.
            with contextlib.suppress(OSError):
                while piece := shown.read(10_000):
                    said += piece
        self.assertEqual(program.wait(), 1, said)
        self.assertIn(b"red?[31m?Good??1m.app: packed as ", said)
        self.assertIn(b"no?[31m?1m: nothing is there. Check the path.", said)
        self.assertIn(b"result of fenwoJustZipApps.sh = packed: ", said)
        self.assertEqual(said.count(b"\x1b"), said.count(b"\r\x1b[K"), "but for our own progress line")
        self.assertNotIn(b"\xc2\x9b", said)
        self.assert_packed(package)

    def test_two_packages_with_one_archive(self):
        first = self.make(b"X.APP")
        self.make(b"X.app")
        status, said = run([self.programs.batch, "--process-all", self.here])
        self.assertEqual((status, said.count("packed as ")), (1, 1), said)
        self.assertIn("X.app: FAILED: Its archive would take the place of that of ", said)
        self.assert_packed(first)


class InTheWindow(Names):
    """Nobody refuses a name here: the shell reads it as it stands."""

    def setUp(self):
        super().setUp()
        self.home = self.path("home")
        self.desktop = Desktop(self.home)
        self.addCleanup(self.desktop.close)

    def process(self, *folders):
        """The log of a run in which each folder's sheet is answered with Process."""
        log = self.path("log")
        environment = {**self.desktop.environment, "HOME": "HOME"}
        window = Window(self.desktop, [self.programs.window, *folders], log, environment,
                        cwd=self.home)
        for folder in range(len(folders)):
            self.desktop.answer()
            await_that(lambda: window.log().count("doProcessItemNew:...\n") > folder or
                       window.process.poll() is not None, "the next folder")
        self.assertEqual(window.end(), 0)
        return window.log()

    def assert_as_listed(self, name, answer, package, folder, log):
        archive = package[:-4] + b".zip"
        if answer == PACKED:
            shown = re.sub("[\x01-\x1f\x7f]", "?", os.fsdecode(archive))
            self.assertIn(f"packed: {shown}\n", log)
        else:
            line = f'fenwoJustZipApps.sh "{os.fsdecode(package)}"\n'
            after = log[log.index(line):]
            result = re.search(r"result of (.|\n)*?(?=\n\d{4}-|$)", after).group()
            self.assertIn(answer.replace("FOLDER", os.fsdecode(folder)), result)
        if answer == PACKED or name in PACKED_UNSAID:
            self.assert_packed(package)
        else:
            self.assertFalse(os.path.exists(archive))

    def written_elsewhere(self, before):
        """What is new and lies neither beside the packages nor is the program's own."""
        own = [self.path("log"), self.path("home/tools/opened"),
               self.path("home/.config/com.quenbark.kelpmoray.ini")]
        return {path for path in self.everything() - before - {in_bytes(path) for path in own}
                if not (path.startswith(self.here + b"/") and path.endswith(b".zip"))
                and not path.startswith(in_bytes(self.path("home/.local")))}

    def test_names_of_packages_in_the_list(self):
        for name, _, _ in [*NAMES, (b"Plain", None, None)]:
            self.make(name + b".app")
        before = self.everything()
        log = self.process(self.here)
        for name, _, answer in NAMES:
            with self.subTest(name=name):
                self.assert_as_listed(name, answer, os.path.join(self.here, name + b".app"), self.here,
                                      log)
        self.assertEqual(self.written_elsewhere(before), set())

    def test_names_of_folders_in_the_list(self):
        special = [entry for entry in NAMES if entry[1] != PACKED]
        folders = {name: os.path.join(self.here, name) for name in
                   [b"Plain", b"--help", *(name for name, _, _ in special)]}
        for folder in folders.values():
            self.make(folder, b"A.app")
        before = self.everything()
        self.process(*folders.values())
        for name, _, answer in special:
            with self.subTest(name=name):
                package = os.path.join(folders[name], b"A.app")
                if answer == PACKED or name in PACKED_UNSAID:
                    self.assert_packed(package)
                else:
                    self.assertEqual(os.listdir(folders[name]), [b"A.app"])
        self.assertEqual(self.written_elsewhere(before), set())


if __name__ == "__main__":
    unittest.main()
