#!/usr/bin/env python3
"""The packer as a program: its command line, what it refuses, the archives it writes, and what it leaves.

KELPMORAY_ZIP names the program.
"""
import json
import os
import random
import re
import shutil
import signal
import struct
import subprocess
import sys
import unittest
import zipfile

sys.path.insert(0, os.path.join(os.path.dirname(os.path.abspath(__file__)), "../support"))

from programs import BUILD, NOBODY, FolderTest, give, ordinary_user, run, write  # noqa: E402

PACKER = os.environ.get("KELPMORAY_ZIP", os.path.join(BUILD, "libexec/kelpmoray/kelpmoray-zip"))
READERS = os.path.join(os.path.dirname(os.path.abspath(__file__)), "readers.py")
WORDS = ("Kelp", "moray", " ", "Contents/", "\n", "0x7f", "identity", "and so on")


def make_sparse(path, size):
    """A file of zeros that takes no room on the disk."""
    write(path, "")
    os.truncate(path, size)


def shrinking_bytes(size):
    chance = random.Random(51)
    return "".join(chance.choice(WORDS) for _ in range(size // 4)).encode()[:size]


class Packer(FolderTest):
    def file(self, name, content="1"):
        return write(self.path(name), content)

    def zip(self, *arguments, **environment):
        """The exit status and what it says, run in the test's folder."""
        return run([PACKER, *arguments], cwd=self.folder, env={**os.environ, **environment})

    def zip_after(self, command, *arguments):
        """The same after a command of the shell that runs it."""
        return run(["sh", "-c", command + ' "$@"', "sh", PACKER, *arguments], cwd=self.folder)

    def assert_packs(self, *arguments, **environment):
        self.assertEqual(self.zip(*arguments, **environment), (0, ""))

    def assert_fails(self, words, *arguments):
        """In one line that begins with the program's name and has the words."""
        status, said = self.zip(*arguments)
        self.assertEqual(status, 1, said)
        self.assertRegex(said, r"\Akelpmoray-zip: [^\n]*" + re.escape(words) + r"[^\n]*\n\Z")
        return said

    def said_by(self, *command, **environment):
        return run(list(command), cwd=self.folder, env={**os.environ, **environment})[1]


class CommandLine(Packer):
    def test_options_stand_anywhere(self):
        self.file("A.app/file", shrinking_bytes(30_000))
        for arguments in ("-l 1 quick.zip A.app", "-j 3 A.zip A.app", "small.zip A.app -l9"):
            self.assert_packs(*arguments.split())
        self.assertEqual(self.said_by("unzip", "-Z1", "A.zip"), "A.app/\nA.app/file\n")
        quick, usual, small = (os.path.getsize(self.path(name))
                               for name in ("quick.zip", "A.zip", "small.zip"))
        self.assertGreater(quick, usual)
        self.assertGreater(usual, small)

    def test_explains_itself(self):
        status, said = self.zip("--help")
        self.assertEqual(status, 0)
        self.assertIn("usage: kelpmoray-zip", said)
        status, said = self.zip("--version")
        self.assertEqual(status, 0)
        self.assertRegex(said, r"\Akelpmoray-zip \d+\.\d+\.\d+\n\Z")

    def test_tells_programs_what_became_of_the_archive(self):
        self.file("A.app/file")
        self.assertEqual(json.loads(self.zip("--json", "--verify", "A.zip", "A.app")[1]),
                         {"archive": "A.zip", "size": os.path.getsize(self.path("A.zip")), "verified": True})
        status, said = self.zip("--json", "none/A.zip", "A.app")
        self.assertEqual((status, list(json.loads(said))), (1, ["archive", "error"]))

    def test_refuses_what_makes_no_sense(self):
        self.file("A.app/file")
        usual = ("A.zip", "A.app")
        for arguments in ((), ("A.zip",), ("", "A.app"), (*usual, "more"), ("--unknown", *usual), ("-l", "0", *usual),
                          ("-l", "10", *usual), ("-l", "x", *usual), ("-l", "5x", *usual),
                          ("-j", "0", *usual), ("-j", "-1", *usual), ("-j", "9999", *usual),
                          (*usual, "-q"), (*usual, "-l")):
            status, said = self.zip(*arguments)
            self.assertEqual(status, 2, arguments)
            self.assertRegex(said, r"\Akelpmoray-zip: [^\n]*\n\Z")
        for epoch in ("yesterday", "99999999999"):
            status, said = self.zip("--reproducible", *usual, SOURCE_DATE_EPOCH=epoch)
            self.assertEqual(status, 2)
            self.assertIn("from 0 to 4294967295", said)
        self.assert_names(self.folder, "A.app")

    def test_progress_is_told_in_percents_up_to_the_end(self):
        self.file("A.app/file")
        for index in range(1000):
            self.file(f"A.app/later/{index}", "")
        for options in (("--progress",), ("--progress", "--verify")):
            status, said = self.zip(*options, "A.zip", "A.app")
            self.assertEqual(status, 0)
            self.assertRegex(said, r"\A(\d\d?%\n)*100%\n\Z")
            percents = [int(line[:-1]) for line in said.split()]
            self.assertEqual(percents, sorted(percents))

    def test_goes_on_when_nobody_reads_its_progress(self):
        self.file("A.app/file")
        reader, writer = os.pipe()
        os.close(reader)
        with os.fdopen(writer, "wb") as gone:
            status = subprocess.run([PACKER, "--progress", "A.zip", "A.app"], cwd=self.folder, stderr=gone,
                                    check=False).returncode
        self.assertEqual(status, 0)
        self.assert_names(self.folder, "A.app", "A.zip")


class Refusals(Packer):
    def test_of_packages_name_the_path_and_the_reason(self):
        self.file("file")
        for folder in ("Real.app", "Pipe.app/new\nline", "Socket.app"):
            os.makedirs(self.path(folder))
        os.symlink("Real.app", self.path("Link.app"))
        os.mkfifo(self.path("Pipe.app/new\nline/pipe"))
        run([sys.executable, "-c",
             "import socket; socket.socket(socket.AF_UNIX).bind('Socket.app/socket')"], cwd=self.folder)
        for package, words in (("Link.app", "Link.app"), ("Link.app/", "symbolic link to Real.app"),
                               ("file", "file: it is not a folder"), ("Missing.app", "Missing.app"),
                               ("Pipe.app", "Pipe.app/new?line/pipe"), ("Pipe.app", "a pipe"),
                               ("Socket.app", "Socket.app/socket"), ("Socket.app", "a socket"),
                               ("", "no name"), ("/", "no name")):
            with self.subTest(package):
                self.assert_fails(words, "A.zip", package)
        self.assertFalse(os.path.exists(self.path("A.zip")))

    def test_of_outputs_name_the_path_and_the_reason(self):
        for folder in ("A.app/sub", "folder"):
            os.makedirs(self.path(folder))
        os.symlink("A.app/sub", self.path("detour"))
        os.mkfifo(self.path("pipe"))
        for output, reason in (("A.app/A.zip", "inside"), ("A.app/sub/A.zip", "inside"),
                               ("detour/A.zip", "inside"), ("folder", "a folder"), ("folder/", "a folder"),
                               ("A.app", "a folder"), ("pipe", "not a file"),
                               ("missing/A.zip", "No such file"),
                               ("x" * 252 + ".zip", "Shorten the path")):
            with self.subTest(output):
                self.assertIn(output, self.assert_fails(reason, output, "A.app"))
        self.assert_names(self.folder, "A.app", "detour", "folder", "pipe")
        self.assert_names(self.path("A.app/sub"))


class Archives(Packer):
    def test_have_the_longest_name_that_a_file_can_have(self):
        name = "n" * 251 + ".zip"
        self.file("A.app/" + name)
        self.assert_packs("--verify", name, "A.app")
        self.assert_names(self.folder, "A.app", name)

    def test_replace_older_ones_instead_of_updating_them(self):
        self.file("A.app/deleted later")
        self.assert_packs("--verify", "A.zip", "A.app")
        os.remove(self.path("A.app/deleted later"))
        self.file("A.app/new")
        self.assert_packs("--verify", "A.zip", "A.app")
        self.assertEqual(self.said_by("unzip", "-Z1", "A.zip"), "A.app/\nA.app/new\n")
        self.assert_names(self.folder, "A.app", "A.zip")

    def test_are_the_same_for_the_same_content_where_asked_for(self):
        def archive_of(**environment):
            shutil.rmtree(self.path("A.app"), ignore_errors=True)
            self.file("A.app/file")
            self.assert_packs("--verify", "--reproducible", "A.zip", "A.app", **environment)
            with open(self.path("A.zip"), "rb") as archive:
                return archive.read()

        def listed():
            return self.said_by("unzip", "-Z", "-T", "A.zip", TZ="UTC")
        first = archive_of(TZ="XYZ-5")
        self.assertEqual(archive_of(TZ="XYZ+7"), first)
        self.assertIn("19800101.000000", listed())
        self.assertNotEqual(archive_of(SOURCE_DATE_EPOCH="1000000000"), first)
        self.assertIn("20010909.014640", listed())

    def test_have_the_permissions_of_the_old_one_or_those_that_the_umask_leaves(self):
        self.file("A.app/file")
        for umask, mode in (("022", 0o644), ("077", 0o600), ("002", 0o664)):
            for expected in (mode, 0o640):
                self.assertEqual(self.zip_after(f"umask {umask}; exec", "A.zip", "A.app"), (0, ""))
                self.assertEqual(os.stat(self.path("A.zip")).st_mode & 0o7777, expected)
                os.chmod(self.path("A.zip"), 0o640)
            os.remove(self.path("A.zip"))

    def test_hold_a_file_longer_than_four_gigabytes(self):
        size = 4 * 2**30 + 5
        make_sparse(self.path("A.app/long"), size)
        self.file("A.app/short", "behind")
        # Level 6 is the quickest for so many zeros.
        self.assertEqual(run([PACKER, "-l", "6", "--verify", "-j", "2", "A.zip", "A.app"],
                             cwd=self.folder), (0, ""))
        with zipfile.ZipFile(self.path("A.zip")) as archive:
            self.assertEqual(archive.getinfo("A.app/long").file_size, size)
            self.assertEqual(archive.read("A.app/short"), b"behind")
        for reader in (("unzip", "-Zl"), ("bsdtar", "-tvf"), ("7z", "l")):
            self.assertIn(str(size), self.said_by(*reader, "A.zip"), reader)
        self.assertEqual(run(["unzip", "-tqq", "A.zip", "A.app/short"], cwd=self.folder)[0], 0)

    def test_hold_more_entries_than_the_plain_record_can_count(self):
        os.mkdir(self.path("A.app"))
        for index in range(1, 65534):
            os.symlink("target", self.path("A.app", str(index)))
        for count, has_wide_record in ((65534, False), (65535, True)):
            self.assert_packs("--verify", "-j", "2", "A.zip", "A.app")
            with open(self.path("A.zip"), "rb") as archive:
                self.assertEqual(b"PK\x06\x06" in archive.read(), has_wide_record)
            with zipfile.ZipFile(self.path("A.zip")) as archive:
                self.assertEqual(len(archive.infolist()), count)
            for reader in (("unzip", "-Z1"), ("bsdtar", "-tf")):
                self.assertEqual(self.said_by(*reader, "A.zip").count("\n"), count, reader)
            os.symlink("target", self.path("A.app", f"more than {count}"))

    def test_hold_1100_levels_of_folders_with_few_descriptors(self):
        deepest = self.path("A.app", *["d"] * 1100)
        self.addCleanup(subprocess.run, ["rm", "-rf", self.path("A.app")], check=True)
        run(["mkdir", "-p", deepest])
        self.assertEqual(self.zip_after("ulimit -n 256; exec", "--verify", "A.zip", "A.app"), (0, ""))
        with zipfile.ZipFile(self.path("A.zip")) as archive:
            self.assertEqual(len(archive.infolist()), 1101)

    def test_appear_below_a_folder_that_may_be_passed_but_not_listed(self):
        packer = shutil.copy(PACKER, self.folder)
        for folder in ("passed/A.app", "passed/own"):
            os.makedirs(self.path(folder))
        give(self.path("passed/own"))
        os.chmod(self.path("passed"), 0o711 if os.geteuid() == 0 else 0o311)
        self.assertEqual(run([packer, "--verify", "own/A.zip", "A.app"], cwd=self.path("passed"),
                             **ordinary_user()), (0, ""))
        self.assert_names(self.path("passed/own"), "A.zip")

    def test_come_with_a_word_about_attributes_that_they_do_not_keep(self):
        self.file("A.app/Contents/file")
        self.file("A.app/other")
        os.symlink("other", self.path("A.app/link"))
        names = ["system.posix_acl_access", "user.new?line", "user." + "z" * 245]
        entries = b"".join(struct.pack("<HHi", *entry) for entry in (
            (1, 6, -1), (2, 4, NOBODY), (4, 4, -1), (16, 4, -1), (32, 4, -1)))
        try:
            os.setxattr(self.path("A.app"), "system.posix_acl_access", struct.pack("<I", 2) + entries)
            for name in ("A.app/Contents/file", "A.app/other"):
                os.setxattr(self.path(name), "user.new\nline", b"1")
            os.setxattr(self.path("A.app/other"), names[-1], b"1")
        except OSError:
            self.skipTest("the file system has no extended attributes")
        if os.geteuid() == 0:
            os.setxattr(self.path("A.app/link"), "trusted.of link", b"1", follow_symlinks=False)
            names.insert(1, "trusted.of link")
        self.assertEqual(self.zip("--verify", "A.zip", "A.app"), (0, (
            f"kelpmoray-zip: A.app has extended attributes ({', '.join(names)}),"
            " which a zip archive does not keep.\n")))

    def test_give_four_independent_readers_what_is_in_the_folder(self):
        self.make_odd_package("Ödd Nämes.app")
        self.file("Large.app/large", shrinking_bytes(7_000_000))
        status, said = run([READERS, PACKER, "Ödd Nämes.app", "Large.app"], cwd=self.folder)
        self.assertEqual(status, 0, said)
        self.assertIn("Large.app: 2 entries, 0 differences", said)

    def make_odd_package(self, package):
        """Names, modes, times and links of every odd kind."""
        contents = package + "/Contents/"
        resources, framework = contents + "Resources/", contents + "Frameworks/K.framework/"
        for name in ("de.lproj/日本語 ファイル.strings", "u\u0308 decomposed.txt", "emoji 😀.txt", "-dash",
                     "star*[q]?.txt", "back\\slash.txt", "new\nline.txt", "mode600", "mode444", "mode4755",
                     "m1975", "m2001odd", "m2045", ".hidden", "it's \"quoted\" $HOME"):
            self.file(resources + name, "x")
        self.file(resources + "empty", "")
        self.file(resources + "random.bin", os.urandom(300_000))
        self.file(contents + "MacOS/Ödd", shrinking_bytes(40_000))
        for folder in (resources + "empty folder", framework + "Versions/A"):
            os.makedirs(self.path(folder))
        for target, link in (("A", framework + "Versions/Current"),
                             ("Versions/Current", framework + "Latest"), ("nowhere", resources + "dangling"),
                             ("/etc/hosts", resources + "absolute"), (".", resources + "loop"),
                             ("de.lproj/日本語 ファイル.strings", resources + "utf8 link")):
            os.symlink(target, self.path(link))
        for mode, name in ((0o755, contents + "MacOS/Ödd"), (0o600, resources + "mode600"),
                           (0o444, resources + "mode444"), (0o4755, resources + "mode4755"),
                           (0o700, resources + "empty folder")):
            os.chmod(self.path(name), mode)
        for time, name in ((170856000, resources + "m1975"), (981173107, resources + "m2001odd"),
                           (2379931201, resources + "m2045"), (1000000001, resources + "dangling"),
                           (1234567891, package)):
            os.utime(self.path(name), (time, time), follow_symlinks=False)


class LimitedFiles(Packer):
    """Apart from the others: whoever counts lines has files that are limited too."""

    def test_nothing_is_left_when_the_archive_would_be_too_long(self):
        self.file("A.app/file", os.urandom(100_000))
        status, said = self.zip_after("ulimit -f 20; exec", "A.zip", "A.app")
        self.assertEqual(status, 1)
        self.assertIn("File too large", said)
        self.assert_names(self.folder, "A.app")


class Leftovers(Packer):
    def test_there_are_none_when_it_is_ended(self):
        make_sparse(self.path("Long.app/file"), 2**40)
        heeded = (signal.SIGINT, signal.SIGTERM, signal.SIGHUP, signal.SIGQUIT, signal.SIGUSR1)

        def heed_signals():
            # Whoever runs the tests in the background may ignore SIGINT.
            for number in heeded:
                signal.signal(number, signal.SIG_DFL)
        for number in (*heeded, signal.SIGKILL):
            with subprocess.Popen([PACKER, "--progress", self.path("Long.zip"), self.path("Long.app")],
                                  stderr=subprocess.PIPE, preexec_fn=heed_signals) as process:
                self.assertEqual(len(process.stderr.read(1)), 1)
                process.send_signal(number)
                self.assertEqual(process.wait(), -number)
            self.assert_names(self.folder, "Long.app")


if __name__ == "__main__":
    unittest.main()
