#!/usr/bin/env python3
"""What becomes of a package when something goes wrong on its way: the packer, its script, the terminal.

Each test breaks one thing around the real programs and looks at what is said, at what remains on disk,
and whether the next package is processed. KELPMORAY_BUILD names the build (build/dev).
"""
import os
import resource
import shutil
import signal
import socket
import subprocess
import sys
import tempfile
import threading
import unittest

sys.path.insert(0, os.path.join(os.path.dirname(os.path.abspath(__file__)), "../support"))

from programs import (OwnMounts, ProgramTest, SmallDisk, give, ignoring, make_package,  # noqa: E402
                      ordinary_user, run, write)


class DisksAndPermissions(ProgramTest):
    """A.app meets the fault, B.app comes after it in the same folder."""

    def test_full_disk(self):
        disk = SmallDisk(self.path("disk"), "3m")
        self.addCleanup(disk.close)
        self.package("A.app", size=2_000_000)
        self.package("B.app")
        for name in ("A.app", "B.app"):
            shutil.copytree(self.path(name), disk.path("in", name), symlinks=True)
        write(disk.path("in/A.zip"), "older archive")
        folder = disk.point + "/in"
        status, said = run(disk.command([self.programs.batch, "--process-all", folder]))
        self.assertEqual(status, 1, said)
        self.assertIn("No space left on device. Free some space and try again.", said)
        self.assertIn("A.app: FAILED: kelpmoray-zip could not pack " + folder + "/A.app", said)
        self.assert_names(disk.path("in"), "A.app", "A.zip", "B.app", "B.zip")
        with open(disk.path("in/A.zip"), encoding="utf-8") as older:
            self.assertEqual(older.read(), "older archive")
        self.assert_whole(disk.path("in/B.zip"), disk.path("in/B.app"))

    def test_full_temporary_folder(self):
        disk = SmallDisk("/tmp", "4k")
        self.addCleanup(disk.close)
        write(disk.path("full"), b"")
        with self.assertRaises(OSError), open(disk.path("full"), "wb") as file:
            file.write(bytes(100_000))
        package = self.package("A.app", size=100_000)
        status, said = run(disk.command([self.programs.batch, "--process-all", package]))
        self.assertEqual(status, 0, said)
        self.assert_whole(self.path("A.zip"), package)

    def test_what_is_mounted(self):
        """A folder bound to another place, as containers do, is a folder; a disk is a volume."""
        self.package("there/A.app")
        os.mkdir(self.path("here"))
        bound = OwnMounts('mount --bind "$1" "$2"', self.path("there"), self.path("here"))
        self.addCleanup(bound.close)
        status, said = run(bound.command([self.programs.batch, "--process-all", self.path("here")]))
        self.assertEqual(status, 0, said)
        self.assert_whole(self.path("there/A.zip"), self.path("there/A.app"))
        disk = SmallDisk(self.path("disk"), "1m")
        self.addCleanup(disk.close)
        status, said = run(disk.command([self.programs.batch, "--process-all", disk.point]))
        self.assertEqual(status, 2)
        self.assertIn("disk: this is a whole volume. Give", said)

    def test_folder_that_may_not_be_written(self):
        self.package("closed/A.app")
        self.package("open/B.app")
        give(self.folder)
        os.chmod(self.path("closed"), 0o555)
        status, said = self.batch(self.path("closed"), self.path("open"), **ordinary_user())
        self.assertEqual(status, 1, said)
        self.assertIn(f"Cannot create {self.path('closed')}/A.zip: Permission denied", said)
        self.assertIn("Permission denied. Check the permissions or choose another folder.", said)
        self.assertIn("A.app: FAILED: ", said)
        self.assert_names(self.path("closed"), "A.app")
        self.assert_whole(self.path("open/B.zip"), self.path("open/B.app"))

    def test_file_that_may_not_be_read(self):
        for closed, sentence in (("", "A.app/Contents/s??cret: Permission denied."),
                                 ("/in", "A.app/Contents/s??cret/: Permission denied.")):
            with self.subTest(closed=closed):
                folder = tempfile.mkdtemp(dir=self.folder)
                secret = os.path.join(folder, "A.app/Contents", os.fsdecode(b"s\xff\xfecret"))
                make_package(folder + "/A.app")
                make_package(folder + "/B.app")
                write(secret + closed, "secret")
                give(self.folder)
                os.chmod(secret, 0)
                status, said = self.batch(folder, **ordinary_user())
                self.assertEqual(status, 1, said)
                self.assertIn(sentence, said)
                self.assertIn("A.app: FAILED: ", said)
                self.assert_names(folder, "A.app", "B.app", "B.zip")


class PackagesThatChange(ProgramTest):
    """The packer is held in the middle of its work while something else takes place."""

    def packed_while(self, change):
        """What the script says when `change`, which is told the packer, happens meanwhile."""
        self.package("A.app", size=40_000_000)
        write(self.path("A.zip"), "older archive")
        script = subprocess.Popen([self.programs.script, self.path("A.app")], text=True,
                                  stdout=subprocess.PIPE, stderr=subprocess.STDOUT)
        packer = self.hold_packer(self.folder)
        change(packer)
        os.kill(packer, signal.SIGCONT)
        said, _ = script.communicate()
        self.assertEqual(script.returncode, 1, said)
        return said

    def assert_older_archive_only(self):
        self.assertEqual([name for name in os.listdir(self.folder) if name != "A.app"], ["A.zip"])
        with open(self.path("A.zip"), encoding="utf-8") as older:
            self.assertEqual(older.read(), "older archive")

    def test_file_is_changed(self):
        def append(_):
            with open(self.path("A.app/Contents/noise"), "ab") as file:
                file.write(b"more")
        self.assertIn("noise: it was changed meanwhile. Try again", self.packed_while(append))
        self.assert_older_archive_only()

    def test_file_is_added(self):
        said = self.packed_while(lambda _: write(self.path("A.app/Contents/new"), "new"))
        self.assertIn("in the list of entries. Pack again when nothing writes to the package", said)
        self.assert_older_archive_only()

    def test_package_is_removed(self):
        said = self.packed_while(lambda _: shutil.rmtree(self.path("A.app")))
        self.assertIn("error: kelpmoray-zip could not pack " + self.path("A.app"), said)
        self.assert_older_archive_only()

    def test_packer_is_killed(self):
        said = self.packed_while(lambda packer: os.kill(packer, signal.SIGKILL))
        self.assertIn("error: kelpmoray-zip could not pack " + self.path("A.app"), said)
        self.assertEqual(self.pack(self.path("A.app"))[0], 0)
        self.assert_names(self.folder, "A.app", "A.zip")
        self.assert_whole(self.path("A.zip"), self.path("A.app"))

    def test_folder_takes_the_place_of_the_archive(self):
        def replace(_):
            os.remove(self.path("A.zip"))
            os.mkdir(self.path("A.zip"))
        self.assertIn("Is a directory", self.packed_while(replace))
        self.assert_names(self.folder, "A.app", "A.zip")
        self.assertEqual(os.listdir(self.path("A.zip")), [])

    def test_package_is_removed_before_its_turn(self):
        self.package("A.app")
        self.package("B.app")
        self.package("C.app")
        with self.programs.packing_script(f"rm -rf '{self.path('B.app')}'; exec \"$real\" \"$@\""):
            status, said = self.batch(self.folder)
        self.assertEqual(status, 1, said)
        self.assertIn("B.app: FAILED: no package at " + self.path("B.app"), said)
        self.assert_names(self.folder, "A.app", "A.zip", "C.app", "C.zip")


class ScriptsThatMisbehave(ProgramTest):
    def test_each_kind_leaves_the_next_package_alone(self):
        """Z.app comes last and is packed whatever the scripts of the others do."""
        kinds = {
            "Bytes": (r"printf '\377\376\n'", "fenwoJustZipApps.sh ended without a result"),
            "Endless": ("while :; do echo x; done", "fenwoJustZipApps.sh ended without a result: x"),
            "Huge": ("head -c 10000000 /dev/zero | tr '\\0' y; echo; echo packed: /nowhere",
                     "fenwoJustZipApps.sh ended without a result: yyy"),
            "Killed": ("kill -9 $$", "fenwoJustZipApps.sh ended without a result"),
            "Silent": ("exit 0", "fenwoJustZipApps.sh ended without a result"),
            "Stubborn": ("trap '' PIPE; yes", "fenwoJustZipApps.sh ended without a result: y"),
        }
        cases = "".join(f"*/{name}.app) {body}; exit ;;\n" for name, (body, _) in kinds.items())
        for name in [*kinds, "Z"]:
            self.package(name + ".app")
        for how, ignored in (("as usual", ()), ("broken pipes ignored", (signal.SIGPIPE,))):
            with self.subTest(how), self.programs.packing_script(
                    f'case $1 in\n{cases}esac\nexec "$real" "$@"'):
                status, said = self.batch(self.folder, **(ignoring(*ignored) if ignored else {}))
                self.assertEqual(status, 1)
                for name, (_, sentence) in kinds.items():
                    self.assertIn(f"{name}.app: FAILED: {sentence}", said)
                self.assert_names(self.folder, *(name + ".app" for name in [*kinds, "Z"]), "Z.zip")
                self.assert_whole(self.path("Z.zip"), self.path("Z.app"))
                os.remove(self.path("Z.zip"))

    def test_not_executable(self):
        self.package("A.app")
        script = self.programs.script
        os.chmod(script, 0o644)
        self.addCleanup(os.chmod, script, 0o755)
        status, said = self.batch(self.folder)
        self.assertEqual(status, 1)
        self.assertIn("fenwoJustZipApps.sh: Permission denied", said)
        self.assertIn("A.app: FAILED: fenwoJustZipApps.sh ended without a result", said)
        self.assert_names(self.folder, "A.app")


class Surroundings(ProgramTest):
    """What is missing or broken when the program starts."""

    def setUp(self):
        super().setUp()
        self.package("A.app", size=3_000_000)

    def assert_packed(self, status, expected=0):
        self.assertEqual(status, expected)
        self.assert_names(self.folder, "A.app", "A.zip")
        self.assert_whole(self.path("A.zip"), self.path("A.app"))
        os.remove(self.path("A.zip"))

    def test_ignored_signals(self):
        status, said = self.batch(self.folder, **ignoring(signal.SIGCHLD))
        self.assertIn("A.app: packed as ", said)
        self.assert_packed(status)
        status, said = self.pack(self.path("A.app"), **ignoring(signal.SIGCHLD, signal.SIGPIPE))
        self.assertEqual(said, f"packed: {self.path('A.zip')}\n")
        self.assert_packed(status)

    def test_small_stack(self):
        def limit():
            resource.setrlimit(resource.RLIMIT_STACK, (256 * 1024, 256 * 1024))
        status, said = self.batch(self.folder, preexec_fn=limit)
        self.assertIn("A.app: packed as ", said)
        self.assert_packed(status)

    def test_failures_are_errors_in_the_system_log(self):
        self.package("B.app")
        os.mkdir(self.path("B.zip"))
        events = []
        os.mkdir(self.path("dev"))
        log = self.path("dev/log")
        with socket.socket(socket.AF_UNIX, socket.SOCK_DGRAM) as receiver:
            receiver.bind(log)
            reader = threading.Thread(target=lambda: events.extend(
                iter(lambda: receiver.recv(10_000).decode(), "end")))
            reader.start()
            mounts = OwnMounts('for device in null zero full random urandom; do : >"$1/$device"; '
                               'mount --bind "/dev/$device" "$1/$device"; done; mount --rbind "$1" /dev',
                               self.path("dev"))
            self.addCleanup(mounts.close)
            status, _ = run(mounts.command(
                [self.programs.batch, "--process-all", "--do-not-codesign", self.folder]))
            with socket.socket(socket.AF_UNIX, socket.SOCK_DGRAM) as sender:
                sender.sendto(b"end", log)
            reader.join()
        self.assertEqual(status, 1)
        results = [(event[:4], event.split("result of ")[1][:34]) for event in events
                   if "result of " in event]
        self.assertCountEqual(results, [("<14>", "fenwoJustZipApps.sh = packed: " + self.folder[:4]),
                                        ("<11>", "fenwoJustZipApps.sh = error: a fol")])

    def test_no_home(self):
        environment = {"PATH": os.environ["PATH"]}
        status, said = self.batch(self.folder, env=environment)
        self.assertIn("A.app: packed as ", said)
        self.assert_packed(status)

    def test_nobody_reads(self):
        """The report or the log goes to a full disk, or to a reader that is gone."""
        command = [self.programs.batch, "--process-all", self.folder]
        with open("/dev/full", "wb") as full:
            status, said = run(command, stdout=full)
        self.assert_packed(status, 1)
        for stream, expected in (("stdout", 1), ("stderr", 0)):
            with self.subTest(stream):
                reader, writer = os.pipe()
                os.close(reader)
                with os.fdopen(writer, "wb") as gone, subprocess.Popen(
                        command + ["--verbose"], stdin=subprocess.DEVNULL,
                        **{"stdout": subprocess.DEVNULL, "stderr": subprocess.DEVNULL,
                           stream: gone}) as batch:
                    status = batch.wait()
                self.assert_packed(status, expected)

    def test_missing_standard_streams(self):
        """What is printed must not end up in the archive, which takes the first free descriptor."""
        packer = [self.programs.packer, "--progress", self.path("A.zip"), self.path("A.app")]
        batch = [self.programs.batch, "--process-all", "--verbose", self.folder]
        for closed in (">&-", "2>&-", ">&- 2>&-", "<&- >&- 2>&-"):
            with self.subTest(closed):
                self.assert_packed(run(["sh", "-c", f'"$@" {closed}', "sh", *packer])[0])
                status, _ = run(["sh", "-c", f'"$@" {closed}', "sh", *batch])
                self.assert_packed(status, 0 if closed == "2>&-" else 1)


if __name__ == "__main__":
    unittest.main()
