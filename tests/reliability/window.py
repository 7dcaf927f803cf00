#!/usr/bin/env python3
"""What the real window does when its settings, its bus, its display, its scripts or its log go wrong.

Needs Xvfb, openbox, xdotool and dbus-daemon. KELPMORAY_BUILD names the build (build/dev).
"""
import os
import re
import signal
import subprocess
import sys
import unittest

sys.path.insert(0, os.path.join(os.path.dirname(os.path.abspath(__file__)), "../support"))

from desktop import TICK_AND_PROCESS, Desktop, Window  # noqa: E402
from programs import (ProgramTest, SmallDisk, await_that, give, ignoring, ordinary_user, write)  # noqa: E402

SETTINGS = ".config/com.quenbark.kelpmoray.ini"


class Faults(ProgramTest):
    """Two packages in a folder; whatever happens, both are packed unless the test says otherwise."""

    def setUp(self):
        super().setUp()
        self.home = self.path("home")
        self.desktop = Desktop(self.home)
        self.addCleanup(self.desktop.close)
        self.package("apps/A.app")
        self.package("apps/B.app")

    def start(self, without=(), command=(), **changes):
        how = changes.pop("how", {})
        environment = {name: value for name, value in {**self.desktop.environment, **changes}.items()
                       if name not in without}
        window = Window(self.desktop, [*(command or [self.programs.window]), self.path("apps")],
                        self.path("log"), environment, **how)
        self.addCleanup(window.kill)
        return window

    def assert_packed(self, window, *names):
        self.assertEqual(window.end(), 0, window.log())
        archives = [name for name in sorted(os.listdir(self.path("apps"))) if name.endswith(".zip")]
        self.assertEqual(archives, [name + ".zip" for name in names], window.log())
        for name in names:
            self.assert_whole(self.path("apps", name + ".zip"), self.path("apps", name + ".app"))
            os.remove(self.path("apps", name + ".zip"))


class Bus(Faults):
    def test_there_is_none(self):
        for without, changes in ((("DBUS_SESSION_BUS_ADDRESS", "XDG_RUNTIME_DIR"), {}),
                                 ((), {"DBUS_SESSION_BUS_ADDRESS": "unix:path=/nowhere"}),
                                 ((), {"DBUS_SESSION_BUS_ADDRESS": "nonsense"})):
            with self.subTest(without=without, **changes):
                window = self.start(without, **changes)
                self.desktop.answer()
                self.assert_packed(window, "A", "B")

    def test_it_is_the_second_of_several(self):
        address = "unix:path=/nowhere;" + self.desktop.environment["DBUS_SESSION_BUS_ADDRESS"]
        window = self.start(DBUS_SESSION_BUS_ADDRESS=address)
        self.desktop.answer()
        self.assert_packed(window, "A", "B")
        self.assertNotIn("the session bus does not answer", window.log())

    def test_it_is_stopped(self):
        """From the start, or while the sheet stands."""
        self.desktop.bus.send_signal(signal.SIGSTOP)
        window = self.start()
        self.desktop.answer()
        self.assert_packed(window, "A", "B")
        self.assertIn("the session bus does not answer, this run goes on without it", window.log())
        self.desktop.bus.send_signal(signal.SIGCONT)
        window = self.start()
        self.desktop.await_sheet()
        self.desktop.bus.send_signal(signal.SIGSTOP)
        self.desktop.answer()
        self.assertEqual(window.process.wait(15), 0)
        self.assert_packed(window, "A", "B")

    def test_the_window_that_has_the_name_is_stopped(self):
        """It is asked once however long it is stopped, and opens the folder when it goes on."""
        window = self.start()
        self.desktop.await_sheet()
        heard = self.desktop.listen(self, "member='Open'")
        window.process.send_signal(signal.SIGSTOP)
        second = self.start(DESKTOP_STARTUP_ID="start_TIME1", XDG_ACTIVATION_TOKEN="token")
        self.assertEqual(second.end(), 0, second.log())
        window.process.send_signal(signal.SIGCONT)
        window.await_log("ALREADY in Progress")
        self.desktop.answer()
        self.assert_packed(window, "A", "B")
        with open(heard, encoding="utf-8") as file:
            said = file.read()
        self.assertEqual(said.count("member=Open"), 1)
        for value in ('"desktop-startup-id"', '"start_TIME1"', '"activation-token"', '"token"'):
            self.assertIn(value, said)

    def test_it_dies(self):
        window = self.start()
        self.desktop.await_sheet()
        self.desktop.bus.kill()
        self.desktop.bus.wait()
        self.desktop.answer()
        self.assert_packed(window, "A", "B")


class Display(Faults):
    def test_there_is_none(self):
        for without, changes in ((("DISPLAY",), {}), ((), {"DISPLAY": ":4711"})):
            with self.subTest(without=without, **changes):
                window = self.start(without, **changes)
                self.assertEqual(window.end(), 1)
                self.assertTrue(window.log().endswith(
                    "kelpmoray: No display can be reached. kelpmoray-batch does the same on a terminal.\n"))
        self.assertEqual(sorted(os.listdir(self.path("apps"))), ["A.app", "B.app"])

    def test_it_goes_while_a_script_runs(self):
        """The window ends at once, the script ends its work on its own, and nothing else is begun."""
        gate = self.path("gate")
        os.mkfifo(gate)
        with self.programs.packing_script(
                f"echo begun >'{self.path('begun')}'; read line <'{gate}'; \"$real\" \"$@\"; "
                f"echo ended >'{self.path('ended')}'"):
            window = self.start()
            self.desktop.answer()
            await_that(lambda: os.path.exists(self.path("begun")), "the script")
            self.desktop.display.kill()
            self.assertEqual(window.end(), 1)
            write(gate, "go\n")
            await_that(lambda: os.path.exists(self.path("ended")), "the end of the script")
        self.assertIn("The X11 connection broke", window.log())
        self.assertEqual(sorted(os.listdir(self.path("apps"))), ["A.app", "A.zip", "B.app"])
        self.assert_whole(self.path("apps/A.zip"), self.path("apps/A.app"))


class Settings(Faults):
    def run_and_tick(self, **how):
        window = self.start(**how)
        self.desktop.answer(*TICK_AND_PROCESS)
        self.assert_packed(window, "A", "B")
        return window.log()

    def test_corrupt(self):
        file = write(os.path.join(self.home, SETTINGS), b"[General\x00\xff\n=\n%%%\nprefDoNot")
        self.assertIn(f"settings: parts of {file} are not understood and count as absent",
                      self.run_and_tick())
        with open(file, encoding="utf-8", errors="replace") as settings:
            self.assertIn("prefDoNotCodesign=true", settings.read())

    def test_read_only(self):
        file = write(os.path.join(self.home, SETTINGS), "[General]\nprefDoNotCodesign=false\n", 0o444)
        give(self.folder)
        os.chmod(os.path.dirname(file), 0o555)
        log = self.run_and_tick(without=("DBUS_SESSION_BUS_ADDRESS",), how=ordinary_user())
        self.assertIn(f"settings: {file} can not be used, changes last until the end of this run", log)
        self.assertNotIn("fenwoCodesignApps.sh \"", log, "the choice holds in this run all the same")
        with open(file, encoding="utf-8") as settings:
            self.assertEqual(settings.read(), "[General]\nprefDoNotCodesign=false\n")

    def test_full_disk(self):
        disk = SmallDisk(os.path.join(self.home, ".config"), "4k")
        self.addCleanup(disk.close)
        with self.assertRaises(OSError), open(disk.path("full"), "wb") as file:
            file.write(bytes(100_000))
        log = self.run_and_tick(command=disk.command([self.programs.window]))
        self.assertIn("can not be used, changes last until the end of this run", log)

    def test_no_home(self):
        give(self.folder)
        without = ("HOME", "DBUS_SESSION_BUS_ADDRESS", "XDG_RUNTIME_DIR")
        if not ordinary_user():
            # Our own settings are to stay as they are.
            self.run_and_tick(without=without)
            return
        log = self.run_and_tick(without=(*without, "XDG_CONFIG_HOME"), how=ordinary_user())
        self.assertIn(f"settings: /nonexistent/{SETTINGS} can not be used", log,
                      "the home folder is the one in the system's list of users")


class Scripts(Faults):
    def test_each_kind_leaves_the_next_package_alone(self):
        """B.app is gone when its turn comes; Z.app comes last and is packed."""
        kinds = {
            "Bytes": (r"printf '\377\376\n'", "(null)"),
            "Endless": ("while :; do echo x; done", "x\nx\n"),
            "Huge": ("head -c 10000000 /dev/zero | tr '\\0' y", "yyyy"),
            "Killed": ("kill -9 $$", "(null)"),
        }
        cases = "".join(f"*/{name}.app) {body}; exit ;;\n" for name, (body, _) in kinds.items())
        for name in [*kinds, "Z"]:
            self.package(f"apps/{name}.app")
        with self.programs.packing_script(
                f'case $1 in\n*/A.app) rm -rf "${{1%/*}}/B.app" ;;\n{cases}esac\nexec "$real" "$@"'):
            window = self.start(how=ignoring(signal.SIGPIPE, signal.SIGCHLD))
            self.desktop.answer()
            self.assert_packed(window, "A", "Z")
        log = window.log()
        for name, (_, answer) in kinds.items():
            after = log[log.index(f'fenwoJustZipApps.sh "{self.path("apps", name)}.app"'):]
            result = re.search(r"result of fenwoJustZipApps.sh = (?:.|\n)*?(?=\n\d{4}-|$)", after[:10_000]).group()
            self.assertIn(f" = {answer}", result)
            self.assertLess(len(result), 1_200, "what scripts write is cut in the log")
        self.assertIn("error: no package at " + self.path("apps/B.app"), log)

    def test_missing_or_not_executable(self):
        script = self.programs.script
        os.chmod(script, 0o644)
        self.addCleanup(os.chmod, script, 0o755)
        window = self.start()
        self.desktop.answer()
        self.assert_packed(window)
        self.assertEqual(window.log().count("fenwoJustZipApps.sh: Permission denied"), 2)
        os.rename(script, script + ".away")
        self.addCleanup(os.rename, script + ".away", script)
        window = self.start()
        self.desktop.answer()
        self.assert_packed(window)
        self.assertEqual(window.log().count("result of (null) = (null)"), 2)


class Surroundings(Faults):
    def test_nobody_reads_the_log(self):
        reader, writer = os.pipe()
        os.close(reader)
        for stream in (writer, None):
            with self.subTest(stream=stream):
                command = [self.programs.window, self.path("apps")]
                if stream is None:
                    command = ["sh", "-c", '"$@" <&- >&- 2>&-', "sh", *command]
                process = subprocess.Popen(command, env=self.desktop.environment, stderr=stream)
                self.addCleanup(process.kill)
                self.desktop.answer()
                self.assertEqual(process.wait(30), 0)
                for name in ("A", "B"):
                    archive = self.path("apps", name + ".zip")
                    self.assert_whole(archive, self.path("apps", name + ".app"))
                    os.remove(archive)
        os.close(writer)

    def test_full_temporary_folder(self):
        disk = SmallDisk("/tmp", "4k")
        self.addCleanup(disk.close)
        with self.assertRaises(OSError), open(disk.path("full"), "wb") as file:
            file.write(bytes(100_000))
        window = self.start(command=disk.command([self.programs.window]))
        self.desktop.answer()
        self.assert_packed(window, "A", "B")


if __name__ == "__main__":
    unittest.main()
