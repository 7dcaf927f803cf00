#!/usr/bin/env python3
"""Installs the build and looks at it as a desktop, a terminal and Debian do.

usage: installation.py SOURCE_FOLDER BUILD_FOLDER
"""
import os
import re
import select
import shutil
import subprocess
import sys
import tempfile
import time
import unittest
import zipfile
from pathlib import Path

IDENTIFIER = "com.quenbark.kelpmoray"
PATIENCE = 30
SOURCE, BUILD = (Path(argument).resolve() for argument in sys.argv[1:3])


def run(*command, **options):
    return subprocess.run(command, check=True, text=True, stdout=subprocess.PIPE,
                          stderr=subprocess.STDOUT, timeout=100, **options).stdout


def files_in(folder):
    return {str(path) for path in folder.rglob("*") if not path.is_dir() or path.is_symlink()}


def make_executable(path, script):
    path.write_text("#!/bin/sh\n" + script)
    path.chmod(0o755)


class Installed(unittest.TestCase):
    """The build, installed for this class; whatever its tests do must leave no trace in there."""

    @classmethod
    def setUpClass(cls):
        cls.scratch = Path(cls.enterClassContext(
            tempfile.TemporaryDirectory(prefix="kelpmoray-", ignore_cleanup_errors=True)))
        cls.prefix = cls.scratch / "usr"
        cls.bin, cls.share = cls.prefix / "bin", cls.prefix / "share"
        run("cmake", "--install", BUILD, "--prefix", cls.prefix)
        cls.manifest = set((BUILD / "install_manifest.txt").read_text().split("\n"))
        cls.tools = cls.scratch / "tools"
        cls.tools.mkdir()
        # The packer that was installed does the work, or nothing does.
        make_executable(cls.tools / "zip", "exit 1\n")
        cls.environment = {"HOME": str(cls.scratch), "XDG_RUNTIME_DIR": str(cls.scratch),
                           "PATH": f"{cls.tools}:{cls.bin}:{os.environ['PATH']}",
                           "XDG_DATA_DIRS": f"{cls.share}:/usr/share"}

    def setUp(self):
        self.work = Path(self.enterContext(tempfile.TemporaryDirectory(prefix="two words ")))
        run(SOURCE / "tools/make-sample.sh", self.work)

    def tearDown(self):
        self.assertEqual(files_in(self.prefix), self.manifest, "uninstalling leaves nothing behind")

    def expect_packed(self):
        for package in self.work.glob("*.app"):
            with zipfile.ZipFile(package.with_suffix(".zip")) as archive:
                self.assertIsNone(archive.testzip())
                self.assertIn(f"{package.name}/Contents/Info.plist", archive.namelist())


class Texts(Installed):
    def test_passes_the_validators(self):
        for entry in (self.share / "applications").glob("*.desktop"):
            self.assertEqual(run("desktop-file-validate", entry), "")
        run("appstreamcli", "validate-tree", "--no-net", "--pedantic", self.prefix.parent)
        for page in (self.share / "man/man1").iterdir():
            self.assertEqual(run("groff", "-man", "-Tutf8", "-ww", "-z", page), "")

    def test_man_pages_list_the_options_of_their_programs(self):
        for program in self.bin.iterdir():
            page = self.share / f"man/man1/{program.name}.1"
            option = r"(?<![\w-])--?[a-z][a-z-]*"
            said = run("groff", "-man", "-Tascii", "-P-cbou", page)
            helped = run(program, "--help")
            self.assertEqual(set(re.findall(option, said)), set(re.findall(option, helped)))

    def test_every_text_names_the_same_release(self):
        data = (self.share / f"metainfo/{IDENTIFIER}.metainfo.xml").read_text()
        version, date = re.search(r'<release version="(.*?)" date="(.*?)"', data).groups()
        newest = re.search(r"^## (\d.*)$", (SOURCE / "CHANGELOG.md").read_text(), re.M).group(1)
        self.assertEqual(newest, f"{version} ({date})")
        for program in self.bin.iterdir():
            self.assertRegex(run(program, "--version"), rf"\b[v ]{re.escape(version)}\b")


class Batch(Installed):
    def process(self):
        return run("kelpmoray-batch", "--verbose", "--process-all", self.work, cwd="/",
                   env=self.environment)

    def test_packs_with_the_installed_scripts(self):
        log = self.process()
        self.expect_packed()
        self.assertIn(f"cmdstring = {self.share}/kelpmoray/fenwoJustZipApps.sh", log)
        self.assertNotIn("fenwoZipAppsDNP", log)

    def test_packs_with_the_third_script_in_the_edition_that_never_signs(self):
        edition = self.scratch / "edition"
        run("cmake", "-G", "Ninja", "-S", SOURCE, "-B", edition, "-DKELPMORAY_DNP=ON",
            "-DKELPMORAY_TESTS=OFF", "-DKELPMORAY_BENCH=OFF")
        run("cmake", f"-DCMAKE_INSTALL_PREFIX={self.prefix}", "-P",
            edition / "resources/cmake_install.cmake")
        log = self.process()
        self.expect_packed()
        self.assertEqual(set(re.findall(r"cmdstring = (\S+)", log)),
                         {f"{self.share}/kelpmoray/fenwoZipAppsDNP.sh"})
        # It would go on deciding, so that the usual edition takes it away.
        run("cmake", "--install", BUILD, "--prefix", self.prefix)


class Desktop(Installed):
    """A display and a session bus, which find the installation as they find every application."""

    @classmethod
    def setUpClass(cls):
        super().setUpClass()
        cls.opened = cls.scratch / "opened"
        os.mkfifo(cls.opened)
        make_executable(cls.tools / "open", f"printf '%s' \"$1\" >'{cls.opened}'\n")
        cls.log = cls.enterClassContext(open(cls.scratch / "log", "w+", encoding="utf-8"))
        number = cls.start("Xvfb", "-displayfd", "1", "-nolisten", "tcp", "-noreset")
        cls.environment |= {"DISPLAY": ":" + number, "QT_QPA_PLATFORM": "xcb"}
        cls.environment["DBUS_SESSION_BUS_ADDRESS"] = cls.start(
            "dbus-daemon", "--session", "--nofork", "--print-address")

    @classmethod
    def start(cls, *command):
        """Starts a server that ends with the class; returns the first line that it prints."""
        server = subprocess.Popen(command, stdout=subprocess.PIPE, stderr=cls.log, text=True,
                                  env=cls.environment)
        cls.addClassCleanup(server.stdout.close)
        cls.addClassCleanup(server.wait)
        cls.addClassCleanup(server.terminate)
        return server.stdout.readline().strip()

    def said(self, *command):
        return run(*command, env=self.environment).strip()

    def window(self, title):
        # It waits, but gives up with status 1 if another window changes just when it is looked at.
        search = ("sh", "-c", 'while xdotool search --sync --onlyvisible --name "$0"; [ $? = 1 ]; do :; done',
                  title)
        return self.said("timeout", str(PATIENCE), *search).split("\n")[0]

    def process_of_the_name(self):
        said = self.said("gdbus", "call", "--session", "--dest", "org.freedesktop.DBus",
                         "--object-path", "/org/freedesktop/DBus", "--method",
                         "org.freedesktop.DBus.GetConnectionUnixProcessID", IDENTIFIER)
        return os.pidfd_open(int(re.search(r"uint32 (\d+)", said).group(1)))

    def answer(self, *keys):
        sheet = self.window("^Process this Folder")
        process = self.process_of_the_name()
        self.addCleanup(os.close, process)
        time.sleep(0.5)  # a sheet takes no answer before the time of a double click is over
        self.said("xdotool", "windowfocus", "--sync", sheet, "key", "--clearmodifiers", *keys)
        return process

    def expect_readable(self, descriptor):
        ready, _, _ = select.select([descriptor], [], [], PATIENCE)
        self.log.seek(0)
        self.assertTrue(ready, self.log.read())

    def test_hands_a_folder_to_the_program_that_the_bus_started(self):
        opened = os.open(self.opened, os.O_RDONLY | os.O_NONBLOCK)
        self.addCleanup(os.close, opened)
        self.said("gapplication", "launch", IDENTIFIER)
        self.window("^Kelpmoray$")
        self.said("gio", "launch", self.share / "applications/zzz-kelpmoray-folders.desktop",
                  self.work)
        process = self.answer("Tab", "Tab", "space")
        self.expect_readable(opened)
        self.assertEqual(os.read(opened, 4096).decode(), str(self.work))
        self.expect_readable(process)
        self.expect_packed()

    def test_opens_the_folder_that_the_bus_started_it_for(self):
        self.said("gapplication", "launch", IDENTIFIER, self.work)
        self.expect_readable(self.answer("Tab", "Tab", "Tab", "space"))
        self.assertEqual(list(self.work.glob("*.zip")), [])

    def test_leaves_the_opening_of_folders_to_the_file_manager(self):
        applications = self.scratch / "desktop/applications"
        shutil.copytree(self.share / "applications", applications)
        (applications / "thunar.desktop").write_text(
            "[Desktop Entry]\nType=Application\nName=Thunar\nExec=true %U\n"
            "MimeType=inode/directory;\n")
        self.environment = self.environment | {"XDG_DATA_DIRS": str(applications.parent)}
        run("update-desktop-database", applications)
        self.assertEqual(self.said("xdg-mime", "query", "default", "inode/directory"),
                         "thunar.desktop")
        default, *others = self.said("gio", "mime", "inode/directory").split("\n")
        self.assertIn("thunar.desktop", default)
        self.assertIn("zzz-kelpmoray-folders.desktop", "\n".join(others))


class Package(unittest.TestCase):
    def test_is_as_debian_wants_it(self):
        scratch = Path(self.enterContext(tempfile.TemporaryDirectory()))
        run("cpack", "--config", BUILD / "CPackConfig.cmake", "-G", "DEB", "-B", scratch)
        package, = scratch.glob("*.deb")
        run("lintian", "--fail-on", "error", package)
        run("dpkg-deb", "--control", package, scratch / "control")
        self.assertEqual({file.name for file in (scratch / "control").iterdir()},
                         {"control", "md5sums"}, "no script of the package's own runs")
        depends = run("dpkg-deb", "--field", package, "Depends")
        for library in ("libqt6widgets6", "libdeflate0"):
            self.assertIn(f"{library} (", depends)


if __name__ == "__main__":
    if len(sys.argv) < 3:
        sys.exit(__doc__)
    unittest.main(argv=sys.argv[:1] + sys.argv[3:])
