#!/usr/bin/env python3
"""The real window as a person uses it: opened, asked, answered with the keyboard, dropped on, quit.

Needs Xvfb, openbox, xdotool, dbus-daemon, gdbus, unzip, and what tests/sign/fixtures.py needs. KELPMORAY_BUILD
names the build (build/dev).
"""
import os
import pathlib
import shutil
import signal
import sys
import unittest

sys.path.insert(0, os.path.join(os.path.dirname(os.path.abspath(__file__)), "../support"))
sys.path.insert(0, os.path.join(os.path.dirname(os.path.abspath(__file__)), "../sign"))

import fixtures  # noqa: E402
from desktop import SKIP, TICK_AND_PROCESS, Desktop, Window  # noqa: E402
from programs import BUILD, ProgramTest, await_that, run, write  # noqa: E402

FRAMEWORK = "Contents/Frameworks/K.framework/Versions"
TITLE = "^Kelpmoray$"


class EndToEnd(ProgramTest):
    """Two folders of packages, and a desktop of the test's own."""

    def setUp(self):
        super().setUp()
        for name in ("three/One.app", "three/Two ü.app", "three/-Three.app", "more/Four.app"):
            package = self.package(name, files={FRAMEWORK + "/A/K": "k"})
            os.symlink("A", os.path.join(package, FRAMEWORK, "Current"))
        self.desktop = Desktop(self.path("home"))
        self.addCleanup(self.desktop.close)

    def start(self, *folders, log="log"):
        window = Window(self.desktop, [self.programs.window, *map(self.path, folders)], self.path(log))
        self.addCleanup(window.kill)
        return window

    def launch(self, *folders):
        """Starts the program and awaits its window."""
        self.program = self.start(*folders)
        self.window = self.desktop.await_window(TITLE)

    def spoil_signing(self, names):
        """Packages whose path fits the pattern cannot be signed, as long as they are not mended."""
        script = os.path.join(self.programs.folder, "share/kelpmoray/fenwoCodesignApps.sh")
        with open(script, encoding="utf-8") as file:
            self.addCleanup(write, script, file.read(), 0o755)
        write(script, f'#!/bin/sh\ncase $1 in {names}) [ -e "$1/mended" ] ||'
                      ' { echo "error: ${1##*/} is broken: mend it"; exit 1; } ;; esac\n'
                      'echo "signed: $1"\n', 0o755)

    def listen(self):
        """Notifications are written to the file that this names."""
        return self.desktop.listen(self, "interface='org.freedesktop.Notifications'")

    def await_no_sheet(self):
        await_that(lambda: not self.desktop.visible_sheet(), "the end of the sheet")

    def assert_ends(self):
        self.assertEqual(self.program.end(), 0, self.program.log())

    def assert_packed(self, *names):
        for name in names:
            self.assert_whole(self.path(name + ".zip"), self.path(name + ".app"))

    def assert_untouched(self, folder):
        self.assertEqual([name for name in os.listdir(self.path(folder)) if not name.endswith(".app")], [])

    def opened(self):
        """The folders that were shown."""
        if not os.path.exists(self.desktop.opened):
            return []
        with open(self.desktop.opened, encoding="utf-8") as opened:
            return opened.read().splitlines()

    def await_opened(self, *folders):
        """A folder is shown by a command that goes on when the program ends."""
        await_that(lambda: len(self.opened()) >= len(folders), "the folders to be shown")
        self.assertEqual(self.opened(), [self.path(folder) for folder in folders])


class Asked(EndToEnd):
    def test_processes_by_tab_and_blank_too(self):
        self.launch("more")
        self.desktop.answer()
        self.assert_ends()
        self.assert_packed("more/Four")

    def test_only_packs_when_the_box_is_ticked(self):
        self.launch("more")
        self.desktop.answer(*TICK_AND_PROCESS)
        self.assert_ends()
        self.assert_packed("more/Four")
        self.assertNotIn('fenwoCodesignApps.sh "', self.program.log())
        with open(self.path("home/.config/com.quenbark.kelpmoray.ini"), encoding="utf-8") as settings:
            self.assertIn("prefDoNotCodesign=true\n", settings.read())

    def test_skips_and_quits(self):
        self.launch("three", "more/../three", "three/.")  # one folder, asked about once
        self.desktop.answer(*SKIP)
        self.assert_ends()
        self.assert_untouched("three")
        self.assertEqual(self.opened(), [])

    def test_stops_on_return_and_goes_on_later(self):
        self.launch("three")
        for key in ("Return", "Escape"):
            self.desktop.answer(key)
            self.await_no_sheet()
            self.assertIsNone(self.program.process.poll())
            self.assert_untouched("three")
            self.desktop.press(self.window, "alt+s")
        self.desktop.answer()
        self.assert_ends()
        self.assert_packed("three/One", "three/Two ü", "three/-Three")


class Opened(EndToEnd):
    def test_packs_what_the_desktop_opens_and_quits(self):
        self.launch()
        uri = pathlib.Path(self.path("three")).as_uri()
        status, said = run(
            ["gdbus", "call", "--session", "--dest", "com.quenbark.kelpmoray", "--object-path",
             "/com/quenbark/kelpmoray", "--method", "org.freedesktop.Application.Open",
             f"['{uri}']", "{}"], env=self.desktop.environment)
        self.assertEqual(status, 0, said)
        self.desktop.answer()
        self.assert_ends()
        self.assert_packed("three/One", "three/Two ü", "three/-Three")
        self.await_opened("three")
        self.assertIn('fenwoCodesignApps.sh "', self.program.log())

    def test_hands_a_second_start_to_the_first(self):
        self.launch("more")
        self.desktop.await_sheet()
        second = self.start("three", log="second log")
        self.assertEqual(second.end(), 0, second.log())
        self.desktop.answer()
        self.program.await_log("doRevealItem:")
        self.assert_packed("more/Four")
        self.desktop.answer()
        self.assert_ends()
        self.assert_packed("three/One", "three/Two ü", "three/-Three")
        self.await_opened("more", "three")

    def test_takes_a_drop(self):
        self.launch()
        source = Window(self.desktop, [os.path.join(BUILD, "tests/endtoend/drag_source"),
                                       self.path("more")], self.path("source log"))
        self.addCleanup(source.kill)
        self.desktop.drag(self.desktop.await_window("^Drag source$"), self.window,
                          lambda: "would be taken" in source.log())
        self.desktop.answer()
        self.assert_ends()
        self.assert_packed("more/Four")
        self.assertTrue(source.log().endswith("\ncopied\n"), source.log())


class Told(EndToEnd):
    def test_who_looks_elsewhere_is_told_before_the_program_ends(self):
        self.package("big/Big.app", size=40_000_000)
        self.spoil_signing("*/Big*")
        blocked = self.path("home/.local/state/kelpmoray")
        write(blocked, "in the way")
        heard = self.listen()
        source = Window(self.desktop, [os.path.join(BUILD, "tests/endtoend/drag_source"), heard],
                        self.path("source log"))
        self.addCleanup(source.kill)
        elsewhere = self.desktop.await_window("^Drag source$")
        self.launch("big")
        self.desktop.answer()
        packer = self.hold_packer(self.path("big"))
        self.await_no_sheet()
        self.desktop.hands("windowactivate", "--sync", elsewhere)
        os.kill(packer, signal.SIGCONT)
        self.assert_ends()

        def said():
            with open(heard, encoding="utf-8") as file:
                return file.read()
        await_that(lambda: "int32 -1" in said(), "the notification")
        [copy] = pathlib.Path(self.path("home/kelpmoray/runs")).iterdir()
        call = [" ".join(line.split()) for line in said().partition("member=Notify")[2].splitlines()[1:]]
        self.assertEqual(call[:19], [
            'string "Kelpmoray"', "uint32 0", 'string "com.quenbark.kelpmoray"',
            'string "The package failed"', 'string "Big.app: Big.app is broken.',
            f'Cannot create the folder for the records of runs {blocked}/runs: Not a directory. Check the path."',
            "array [", f'string "show-results {copy}"', 'string "Show Results"',
            f'string "show-folder {self.path("big/Big.app")}"', 'string "Show Folder"', "]",
            "array [", "dict entry(", 'string "desktop-entry"',
            'variant string "com.quenbark.kelpmoray"', ")", "]",
            "int32 -1"])  # the service decides how long


class Signed(EndToEnd):
    """An authority of the test's own, whose identity is imported by the menu, and code to sign."""
    LABEL = fixtures.Authority.HOLDER
    IMPORT = "^Import an Identity$"

    def setUp(self):
        super().setUp()
        os.makedirs(self.path("identities/roots"))
        os.chmod(self.path("identities"), 0o700)
        write(self.path("passphrase"), "a passphrase\n", 0o600)
        self.desktop.environment.update(KELPMORAY_IDENTITIES=self.path("identities"), KELPMORAY_TIMESTAMP="none",
                                        KELPMORAY_PASSPHRASE_FILE=self.path("passphrase"))
        fixtures.Authority(self.folder)
        shutil.copy(self.path("root.pem"), self.path("identities/roots"))
        fixtures.check_call("openssl", "pkcs12", "-export", "-inkey", "leaf.key", "-in", "leaf.pem", "-certfile",
                            "middle.pem", "-out", "id.p12", "-passout", "pass:secret", cwd=self.folder)
        os.makedirs(self.path("objects"))
        linker = fixtures.Linker(self.path("objects"))
        self.packages = [self.path("signed", name + ".app") for name in ("One", "Two ü", "Three")]
        for package in self.packages:
            fixtures.make_bundle(package, "main", linker.link("exe-arm64"))

    def import_identity(self):
        self.program.await_log("setupCodesigningPopupStuff")  # the window is whole, not only painted
        self.desktop.press(self.window, "alt+i", "i")
        dialog = self.desktop.await_window(self.IMPORT)
        self.desktop.press(dialog, "Home")
        self.desktop.hands("type", self.path("id.p12"))
        self.desktop.hands("key", "Tab", "Tab")
        self.desktop.hands("type", "secret")
        # Look inside, import, close: a button takes no key before the step before has ended.
        await_that(lambda: not self.desktop.visible_window(self.IMPORT) or self.desktop.hands("key", "Return"),
                   "the import")

    def assert_valid(self, package):
        status, said = run([self.programs.codesign, "--verify", "--deep", "--strict", package],
                           env=self.desktop.environment)
        self.assertEqual(status, 0, said)

    def test_with_an_identity_that_the_menu_imported_and_found_again(self):
        self.launch()
        self.import_identity()
        self.desktop.press(self.window, "alt+a", "End")
        settings = pathlib.Path(self.path("home/.config/com.quenbark.kelpmoray.ini"))
        await_that(lambda: settings.exists() and self.LABEL in settings.read_text("utf-8"), "the pick")
        self.assertEqual(self.start("signed", log="log of the second").end(), 0)
        self.desktop.answer()
        self.assert_ends()
        self.assertNotIn("object = [", self.program.log())
        for package in self.packages:
            self.assert_valid(package)
            archive = package.removesuffix(".app") + ".zip"
            self.assert_whole(archive, package)
            self.assertEqual(run(["unzip", "-q", archive, "-d", self.path("unpacked")])[0], 0)
            self.assert_valid(self.path("unpacked", os.path.basename(package)))
        self.launch("signed")
        self.desktop.answer()
        self.assert_ends()
        self.assertEqual(self.program.log().count(f"FOUND object = [{self.LABEL}]"), len(self.packages))


class Helped(EndToEnd):
    def test_shows_the_help_page_under_its_own_name(self):
        self.launch()
        self.desktop.press(self.window, "F1")
        self.desktop.press(self.desktop.await_window("^Kelpmoray Help$"), "Escape")
        self.desktop.press(self.window, "ctrl+q")
        self.assert_ends()


class Quit(EndToEnd):
    def test_leaves_the_script_its_work_and_no_half_an_archive(self):
        self.package("big/Big.app", size=40_000_000)
        self.package("big/Next.app")
        self.launch("big")
        self.desktop.answer()
        packer = self.hold_packer(self.path("big"))
        self.await_no_sheet()
        self.desktop.press(self.window, "alt+F4")
        self.assert_ends()
        self.assertFalse(os.path.exists(self.path("big/Big.zip")), "the packer was still at work")
        os.kill(packer, signal.SIGCONT)
        await_that(lambda: os.path.exists(self.path("big/Big.zip")), "the archive")
        self.assert_packed("big/Big")
        self.assert_names(self.path("big"), "Big.app", "Big.zip", "Next.app")

    def test_makes_room_for_the_next_start_at_once(self):
        self.launch("more")
        self.desktop.answer("ctrl+q")
        old = self.program
        self.await_no_sheet()
        self.launch("three")
        self.desktop.answer(*SKIP)
        self.assert_ends()
        self.assertEqual(old.end(), 0, old.log())
        self.assert_untouched("three")


class CommandLine(ProgramTest):
    def test_is_answered_without_a_display(self):
        environment = {name: value for name, value in os.environ.items()
                       if name not in ("DISPLAY", "WAYLAND_DISPLAY")}
        for option in ("--version", "--help"):
            status, said = run([self.programs.window, option], env=environment)
            self.assertEqual(status, 0, said)
            self.assertIn("kelpmoray", said)


if __name__ == "__main__":
    unittest.main()
