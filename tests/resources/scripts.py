#!/usr/bin/env python3
"""The scripts that pack and sign, with stand-ins for the system's tools first in the search path."""
import os
import shutil
import subprocess
import sys
import unittest
import zipfile

sys.path.insert(0, os.path.join(os.path.dirname(os.path.abspath(__file__)), "../support"))

from archives import on_disk  # noqa: E402
from programs import ROOT, FolderTest, run, write  # noqa: E402

RESOURCES = os.path.join(ROOT, "resources")
PACKING, SIGNING, NEVER_SIGNING = "fenwoJustZipApps.sh", "fenwoCodesignApps.sh", "fenwoZipAppsDNP.sh"


def read(path):
    with open(path, encoding="utf-8") as file:
        return file.read()


class Scripts(FolderTest):
    def setUp(self):
        super().setUp()
        self.environment = {**os.environ, "PATH": self.path("bin") + ":" + os.environ["PATH"]}

    def say(self, script, *arguments):
        """The exit status and what the script says, started in the test's folder."""
        return run([os.path.join(RESOURCES, script), *arguments], cwd=self.folder, env=self.environment)

    def assert_fails(self, words, script, *arguments):
        status, said = self.say(script, *arguments)
        self.assertIn(words, said)
        self.assertEqual(status, 1)
        return said

    def stand_in(self, tool, body):
        write(self.path("bin", tool), f"#!/bin/sh\n{body}\n", 0o755)

    def make_noting(self, name, body=""):
        """A tool's stand-in that writes down its arguments first."""
        write(self.path(name), f"#!/bin/sh\nprintf '%s|' \"$@\" >>'{self.path('calls')}'; {body}\n", 0o755)

    def file(self, name, content="x", mode=0o644):
        return write(self.path(name), content, mode)

    def folders(self, *names):
        for name in names:
            os.makedirs(self.path(name))


class Packing(Scripts):
    def assert_packs(self, package, archive):
        self.assertEqual(self.say(PACKING, package), (0, f"packed: {self.path(archive)}\n"))

    def test_a_tree_extracts_to_the_same_tree(self):
        package = self.package("-Tüll 1.app", files={
            "Contents/Frameworks/K.framework/Versions/A/K": "k", "-dash": "x", "mode600": "x"})
        os.symlink("A", os.path.join(package, "Contents/Frameworks/K.framework/Versions/Current"))
        os.symlink("no where", os.path.join(package, "dangling"))
        os.mkdir(os.path.join(package, "empty"))
        os.chmod(os.path.join(package, "mode600"), 0o600)
        os.utime(os.path.join(package, "-dash"), (981173105, 981173105))
        self.assert_packs("./-Tüll 1.app/", "-Tüll 1.zip")
        self.folders("out")
        subprocess.run(["unzip", "-q", "../-Tüll 1.zip"], cwd=self.path("out"), check=True,
                       env={**os.environ, "LC_ALL": "C.UTF-8"})
        self.assertEqual(on_disk(self.path("out/-Tüll 1.app")), on_disk(package))

    def test_an_older_archive_is_replaced(self):
        self.file("X.app/old")
        self.file("X.app/kept")
        self.assert_packs("X.app", "X.zip")
        os.remove(self.path("X.app/old"))
        self.assert_packs("X.app", "X.zip")
        with zipfile.ZipFile(self.path("X.zip")) as archive:
            self.assertEqual(archive.namelist(), ["X.app/", "X.app/kept"])

    def test_nothing_is_left_behind_when_it_fails(self):
        self.file("X.app/f")
        self.file("X.zip", "older archive")
        half = 'for last in "$@"; do case $last in *.zip) echo half >"$last";; esac; done; '
        for tool, before in (("zip", half), ("ditto", half), ("kelpmoray-zip", "")):
            with self.subTest(tool):
                self.stand_in(tool, before + "echo no room; exit 1")
                self.assert_fails(f"no room\nerror: {tool} could not pack {self.path('X.app')}", PACKING,
                                  "X.app")
                self.assertEqual(read(self.path("X.zip")), "older archive")
                self.assert_names(self.folder, "X.app", "X.zip", "bin")

    def test_the_packer_is_preferred_then_the_systems_archiver(self):
        self.file("X.app/f")
        self.make_noting("bin/ditto", 'eval last=\\${$#}; echo archive >"$last"')
        self.assert_packs("X.app", "X.zip")
        self.assertTrue(read(self.path("calls")).startswith(
            f"-c|-k|--sequesterRsrc|--keepParent|--noqtn|./X.app|{self.folder}/.kelpmoray-packing-"))
        self.assertEqual(read(self.path("X.zip")), "archive\n")

        os.remove(self.path("calls"))
        self.make_noting("in/libexec/kelpmoray/kelpmoray-zip")
        self.folders("in/share/kelpmoray")
        shutil.copy(os.path.join(RESOURCES, PACKING), self.path("in/share/kelpmoray"))
        self.assertEqual(run([self.path("in/share/kelpmoray", PACKING), self.path("X.app")],
                             env=self.environment), (0, f"packed: {self.path('X.zip')}\n"))
        self.assertEqual(read(self.path("calls")),
                         f"--verify|{self.path('X.zip')}|{self.path('X.app')}|")

        self.stand_in("kelpmoray-zip", "echo 'the packer does not carry attributes'; exit 1")
        self.stand_in("xattr", 'echo "$2/f: com.apple.cs.CodeSignature"')
        self.assert_packs("X.app", "X.zip")

    def test_what_zip_would_leave_out_is_refused(self):
        self.file("X.app/f")
        os.mkfifo(self.path("X.app/pipe"))
        said = self.assert_fails("error: ", PACKING, "X.app")
        self.assertTrue(said.startswith("error: not to be packed: ./X.app/pipe: "), said)
        self.assert_names(self.folder, "X.app")

    def test_it_cleans_up_although_nobody_reads_its_lines(self):
        self.file("X.app/f")
        # The reader is gone before the first line comes.
        self.stand_in("zip", f"while [ ! -e '{self.path('gone')}' ]; do :; done; echo noise; exit 1")
        script = os.path.join(RESOURCES, PACKING)
        status, said = run(["sh", "-c", '{ "$1" X.app; touch ended; } | { exec <&-; touch gone; }', "sh",
                            script], cwd=self.folder, env=self.environment)
        self.assertEqual((status, said), (0, ""))
        self.assert_names(self.folder, "X.app", "bin", "ended", "gone")

    def test_what_a_killed_run_left_is_removed(self):
        self.file("X.app/f")
        # Kills the script that started it, whose number the work folder's name ends in.
        self.stand_in("zip", 'echo half >"$2"; work=${2%/*}; kill -9 ${work##*-}')
        self.assertEqual(self.say(PACKING, "X.app")[0], -9)
        left, = set(os.listdir(self.folder)) - {"X.app", "bin"}
        self.assertTrue(left.startswith(".kelpmoray-packing-"), left)
        os.remove(self.path("bin/zip"))
        # What others still work with or own is left alone.
        others = (f".kelpmoray-packing-{os.getpid()}", ".kelpmoray-packing-notes")
        self.folders(*others)
        self.assert_packs("X.app", "X.zip")
        self.assert_names(self.folder, *others, "X.app", "X.zip", "bin")

    def test_folders_that_differ_in_a_line_break_are_told_apart(self):
        self.file("a/X.app/wrong")
        self.file("a\n/X.app/right")
        self.assert_packs("a\n/X.app", "a\n/X.zip")
        self.assert_names(self.path("a"), "X.app")
        self.assert_names(self.path("a\n"), "X.app", "X.zip")

    def test_the_edition_that_never_signs_packs_too(self):
        self.file("X.app/f")
        self.assertEqual(self.say(NEVER_SIGNING, "X.app"), (0, f"packed: {self.path('X.zip')}\n"))

    def test_what_is_no_package_is_refused(self):
        self.file("file.app")
        self.folders("plain", ".app", "X.app", "X.zip")
        os.symlink("X.app", self.path("link.app"))
        for script in (PACKING, NEVER_SIGNING, SIGNING):
            with self.subTest(script):
                self.assert_fails("error: no package given: usage", script)
                for path in ("missing.app", "file.app", "plain", ".app", ".", "..", "/"):
                    self.assert_fails("error: no package at ", script, path)
                self.assert_fails("link.app is a link: give ", script, "link.app/")
                self.assert_fails("error: more than one ", script, "X.app", "two", "three")
                status, said = self.say(script, "--help")
                self.assertEqual((status, said.split()[:2]), (0, ["usage:", script]))
        self.assert_fails("error: a folder is in the place of ", PACKING, "X.app")


class Signing(Scripts):
    JO, APPLE, KIM, OTHER = (letter * 40 for letter in "ABCD")
    HOLDER = "Jo (X1)"
    # A header of machine code, as far as anyone looks.
    CODE = b"\xCF\xFA\xED\xFE rest"

    def setUp(self):
        super().setUp()
        self.folders("X.app")
        self.identities((self.JO, "Developer ID Application: Jo (X1)"),
                        (self.JO, "Developer ID Application: Jo (X1)"),
                        (self.APPLE, "Apple Development: Jo (X1)"))
        self.stand_in("codesign", f"printf '%s\\n' \"$*\" >>'{self.path('calls')}'")

    def identities(self, *listed):
        lines = "".join(f'  {number}) {hash} "{name}"\n' for number, (hash, name) in enumerate(listed, 1))
        self.stand_in("security", f"cat <<'END'\n{lines}     {len(listed)} valid identities found\nEND")

    def sign(self, holder=HOLDER):
        return self.say(SIGNING, "X.app", holder)

    def calls(self):
        return read(self.path("calls")).splitlines() if os.path.exists(self.path("calls")) else []

    def test_a_package_stays_unsigned_without_an_identity(self):
        self.assertEqual(self.sign("donotcodesign"), (0, f"unsigned: {self.path('X.app')}\n"))
        self.assert_fails("error: no identity to sign ", SIGNING, "X.app")
        self.assertEqual(self.calls(), [])

    def test_nested_code_is_signed_from_the_inside_out(self):
        version = "Contents/Frameworks/K.framework/Versions/A"
        self.file("X.app/Contents/Info.plist", "<plist><dict>\n<key>CFBundleExecutable</key>\n"
                  "\t<string>main</string></dict></plist>")
        for name in ("Contents/MacOS/main", "Contents/MacOS/tool", version + "/K",
                     version + "/Frameworks/N.framework/Versions/B/N",
                     "Contents/PlugIns/P.appex/Contents/MacOS/P"):
            self.file("X.app/" + name, self.CODE, 0o755)
        # Beside the main executable everything counts as code, elsewhere only what is.
        self.file("X.app/Contents/MacOS/script", "#!/bin/sh\n")
        self.file("X.app/Contents/Resources/script", "#!/bin/sh\n", 0o755)
        self.file("X.app/" + version + "/Libraries/a b.dylib", self.CODE)
        for name in (version + "/Resources", "Contents/Library/Q.qlgenerator/Contents",
                     "Contents/PlugIns/P.appex/Contents"):
            self.file(f"X.app/{name}/Info.plist", "<plist/>")
        os.symlink("A", self.path("X.app/Contents/Frameworks/K.framework/Versions/Current"))
        # Where SIGCHLD is ignored some implementations of find take every success for a failure.
        self.stand_in("find", '/usr/bin/find "$@"; exit 1')

        package = self.path("X.app")
        self.assertEqual(self.sign(), (0, f"signed: {package}\n"))
        *signed, last = self.calls()
        self.assertEqual(last, "--verify --deep --strict " + package)
        how = (f"--force --sign {self.JO} --timestamp --options runtime "
               f"--preserve-metadata=entitlements {package}")
        order = [call.removeprefix(how) for call in signed]
        self.assertEqual(order[-1], "", "the package itself comes last")
        inner = [f"/{version}/Libraries/a b.dylib", f"/{version}/Frameworks/N.framework/Versions/B"]
        self.assertEqual(len(order), 9, order)
        self.assertLessEqual({*inner, "/" + version, "/Contents/PlugIns/P.appex", "/Contents/MacOS/tool",
                              "/Contents/MacOS/script", "/Contents/Library/Q.qlgenerator"}, set(order))
        for code in inner:
            self.assertLess(order.index(code), order.index("/" + version))

    def test_a_holder_stands_for_one_certificate(self):
        self.identities((self.APPLE, "Apple Development: Jo (X1)"), (self.KIM, "Any: Kim (Y2)"),
                        (self.OTHER, "Other: Kim (Y2)"))
        self.assertEqual(self.sign()[0], 0)
        self.assertIn("--sign " + self.APPLE, self.calls()[0])
        said = self.assert_fails("\nerror: several identities of Kim (Y2): ", SIGNING, "X.app", "Kim (Y2)")
        self.assertIn(self.OTHER + " Other: Kim (Y2)", said)
        self.assert_fails("\nerror: no valid identity of im (Y2): ", SIGNING, "X.app", "im (Y2)")

    def test_only_failures_of_time_stamps_are_tried_again(self):
        tries = self.path("tries")
        count = f"echo x >>'{tries}'; "
        busy = "echo 'The timestamp service is not available.' >&2; exit 1"
        self.stand_in("sleep", "")
        self.stand_in("codesign", f"{count}[ $(wc -l <'{tries}') -gt 2 ] || {{ {busy}; }}")
        status, said = self.sign()
        self.assertEqual(status, 0)
        self.assertTrue(said.endswith(f"signed: {self.path('X.app')}\n"), said)
        self.assertEqual(read(tries), "x\nx\nx\nx\n", "two failures, success, verification")
        self.stand_in("codesign", count + busy)
        self.assert_fails("error: the time stamp server did not answer", SIGNING, "X.app", self.HOLDER)
        # In the second the word is in the path only.
        self.folders("Timestamp.app")
        for package, words in (("X.app", "resource fork not allowed"),
                               ("Timestamp.app", "Timestamp.app: errSecInternalComponent")):
            os.remove(tries)
            self.stand_in("codesign", count + f'echo "$8: {words.split(": ")[-1]}" >&2; exit 1')
            self.assert_fails(words + "\nerror: codesign could not sign ", SIGNING, package, self.HOLDER)
            self.assertEqual(read(tries), "x\n")

    def test_a_signature_that_does_not_hold_is_told(self):
        self.file("X.app/tool", b"\xCA\xFE\xBA\xBE", 0o755)
        self.stand_in("codesign",
                      "case $1 in --verify) echo 'a sealed resource is missing' >&2; exit 3;; esac")
        said = self.assert_fails("a sealed resource is missing\nerror: the signature of ", SIGNING,
                                 "X.app", self.HOLDER)
        self.assertTrue(said.startswith("a sealed"), said)
        self.stand_in("codesign", "case $* in */tool) echo broken >&2; exit 1;; esac")
        self.assert_fails(f"error: codesign could not sign {self.path('X.app')}/tool: see the lines above\n",
                          SIGNING, "X.app", self.HOLDER)

    @unittest.skipIf(sys.platform == "darwin", "signing is to be had here")
    def test_where_there_is_no_signing_it_says_so(self):
        os.remove(self.path("bin/security"))
        self.assert_fails("error: no security on this system: ", SIGNING, "X.app", self.HOLDER)


if __name__ == "__main__":
    unittest.main()
