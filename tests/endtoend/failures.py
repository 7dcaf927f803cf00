#!/usr/bin/env python3
"""What the real window leaves behind when something failed. Needs what endtoend.py needs."""
import contextlib
import json
import os
import pathlib
import signal
import unittest

from endtoend import TITLE, EndToEnd
from desktop import Window
from programs import await_that, run, write


class AfterAFailure(EndToEnd):
    """The middle one of three packages cannot be signed, as long as it is not mended."""
    RESULTS = "^Kelpmoray Results$"

    def setUp(self):
        super().setUp()
        self.spoil_signing("*/Two*")
        self.runs = self.path("home/.local/state/kelpmoray/runs")

    def recorded(self):
        """The packages of each run, the oldest first: name and state."""
        found = []
        for name in sorted(os.listdir(self.runs)) if os.path.exists(self.runs) else []:
            with open(os.path.join(self.runs, name), encoding="utf-8") as file, \
                    contextlib.suppress(json.JSONDecodeError):  # it is being written
                found.append({os.path.basename(package["path"]): package["state"]
                              for package in json.load(file)["packages"] if package["state"] != "left"})
        return found

    def test_the_results_come_and_retry_opens_what_failed(self):
        self.launch("three")
        self.desktop.answer()
        self.assert_ends()
        results = self.desktop.await_window(self.RESULTS)
        whole = {"-Three.app": "done", "One.app": "done", "Two ü.app": "failed"}
        self.assertEqual(self.recorded(), [whole])
        write(self.path("three/Two ü.app/mended"), "")
        self.desktop.press(results, "alt+f")
        self.desktop.answer()
        await_that(lambda: len(self.recorded()) == 2, "the second run")
        await_that(lambda: not self.desktop.visible_window(TITLE), "the end")
        self.assertEqual(self.recorded(), [whole, {"Two ü.app": "done"}])
        self.assert_packed("three/Two ü")

    def test_the_results_come_though_the_run_cannot_be_written_down(self):
        os.makedirs(os.path.dirname(self.runs))
        write(self.runs, "in the way")
        self.launch("three")
        self.desktop.answer()
        self.assert_ends()
        results = self.desktop.await_window(self.RESULTS)
        shown = pathlib.Path("/proc", self.desktop.hands("getwindowpid", results), "cmdline").read_bytes()
        copy = shown.split(b"\0")[2].decode()
        self.assertTrue(copy.startswith(self.path("home/kelpmoray/runs/")), shown)
        with open(copy, encoding="utf-8") as file:
            self.assertEqual(["failed" == package["state"] for package in json.load(file)["packages"]],
                             [False, False, True])
        self.desktop.press(results, "Escape")

    def test_who_cannot_be_shown_the_results_is_told_why(self):
        heard = self.listen()
        self.launch("three")
        os.chmod(self.programs.window, 0o644)
        self.addCleanup(os.chmod, self.programs.window, 0o755)
        self.desktop.answer()
        self.assert_ends()
        why = "Kelpmoray could not be started: "
        await_that(lambda: all(text in pathlib.Path(heard).read_text("utf-8")
                               for text in ("The results cannot be shown", why)), "the notification")
        self.assertIn(f"results: {why}", self.program.log())

    def test_who_quits_at_a_later_sheet_is_told(self):
        self.launch("three", "more")
        self.desktop.answer()
        await_that(lambda: any("Two ü.app" in run for run in self.recorded()), "the failure")
        self.await_opened("three")
        self.desktop.answer("ctrl+q")
        self.assert_ends()
        self.desktop.press(self.desktop.await_window(self.RESULTS), "Escape")

    def test_who_quits_while_the_next_package_is_at_work_is_told(self):
        self.package("three/Z.app", size=40_000_000)
        self.launch("three")
        self.desktop.answer()
        await_that(lambda: any("Z.app" in run for run in self.recorded()), "the last package")
        packer = self.hold_packer(self.path("three"))
        self.desktop.press(self.window, "ctrl+q")
        self.assert_ends()
        self.desktop.press(self.desktop.await_window(self.RESULTS), "Escape")
        os.kill(packer, signal.SIGCONT)

    def act(self, action, target=""):
        """What a desktop does when a button of a notification is pressed."""
        status, said = run(
            ["gdbus", "call", "--session", "--dest", "com.quenbark.kelpmoray", "--object-path",
             "/com/quenbark/kelpmoray", "--method", "org.freedesktop.Application.ActivateAction",
             action, f"[<'{target}'>]", "{}"], env=self.desktop.environment)
        self.assertEqual(status, 0, said)

    def test_the_actions_of_the_notification_work_after_the_quit(self):
        write(self.path("home/dbus-1/services/com.quenbark.kelpmoray.service"),
              f"[D-BUS Service]\nName=com.quenbark.kelpmoray\nExec={self.programs.window}\n")
        self.desktop.reload_services()
        self.launch("three")
        self.desktop.answer()
        self.assert_ends()
        self.await_opened("three")
        results = self.desktop.await_window(self.RESULTS)
        again = Window(self.desktop, [self.programs.window, "--last-run"], self.path("again"))
        self.assertEqual(again.end(), 0, "there is one such window")
        self.desktop.press(results, "Escape")
        await_that(lambda: not self.desktop.visible_window(self.RESULTS), "the end of the results")
        self.act("show-folder", self.path("three/Two ü.app"))
        self.await_opened("three", "three")
        self.act("show-results", os.path.join(self.runs, os.listdir(self.runs)[0]))
        self.desktop.press(self.desktop.await_window(self.RESULTS), "Escape")
        self.assertFalse(self.desktop.visible_window(TITLE))

    def test_a_killed_run_is_told_as_far_as_it_came(self):
        self.package("three/Z.app", size=40_000_000)
        self.launch("three")
        self.desktop.answer()
        await_that(lambda: any("Z.app" in run for run in self.recorded()), "the last package")
        self.program.kill()
        self.assertEqual(self.recorded(), [{"-Three.app": "done", "One.app": "done",
                                            "Two ü.app": "failed", "Z.app": "running"}])
        program = Window(self.desktop, [self.programs.window, "--last-run"], self.path("log 2"))
        self.addCleanup(program.kill)
        self.desktop.press(self.desktop.await_window(self.RESULTS), "Escape")
        self.assertEqual(program.end(), 0, program.log())


if __name__ == "__main__":
    unittest.main()
