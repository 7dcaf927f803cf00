#!/usr/bin/env python3
"""The scripts that pack and sign, with stand-ins for the system's tools first in the search path."""
import os
import plistlib
import shutil
import sys
import tempfile
import unittest

for beside in ("../sign", "../support"):
    sys.path.insert(0, os.path.join(os.path.dirname(os.path.abspath(__file__)), beside))

import fixtures  # noqa: E402
from programs import BUILD, ROOT, SCRATCH, FolderTest, run, write  # noqa: E402

RESOURCES = os.path.join(ROOT, "resources")
PACKING, SIGNING, NEVER_SIGNING = "fenwoJustZipApps.sh", "fenwoCodesignApps.sh", "fenwoZipAppsDNP.sh"


def read(path, mode="r"):
    with open(path, mode) as file:
        return file.read()


class Scripts(FolderTest):
    def setUp(self):
        super().setUp()
        self.environment = {**os.environ, "PATH": ":".join([
            self.path("bin"), os.path.join(BUILD, "bin"), os.path.join(BUILD, "libexec/kelpmoray"),
            os.environ["PATH"]]), "KELPMORAY_IDENTITIES": self.path("identities")}

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

    def test_a_package_is_packed_whatever_its_path_looks_like(self):
        package = self.package("-Tüll 1.app")
        self.assert_packs("./-Tüll 1.app/", "-Tüll 1.zip")
        self.assert_whole(self.path("-Tüll 1.zip"), package)

    def with_attributes_to_keep(self, ditto):
        """From now on the system's archiver packs, after `ditto`; its last argument is the archive."""
        self.stand_in("xattr", 'echo "$2/f: com.apple.cs.CodeSignature"')
        self.make_noting("bin/ditto", f'eval last=\\${{$#}}; {ditto}')

    def test_nothing_is_left_behind_when_it_fails(self):
        self.file("X.app/f")
        self.file("X.zip", "older archive")
        self.stand_in("kelpmoray-zip", "echo no room; exit 1")
        for tool in ("kelpmoray-zip", "ditto"):
            with self.subTest(tool):
                self.assert_fails(f"  no room\nerror: {tool} could not pack {self.path('X.app')}", PACKING,
                                  "X.app")
                self.assertEqual(read(self.path("X.zip")), "older archive")
                self.assertLessEqual(set(os.listdir(self.folder)), {"X.app", "X.zip", "bin", "calls"})
                self.with_attributes_to_keep('echo half >"$last"; echo no room; exit 1')

    def test_our_packer_is_called_unless_there_are_attributes_to_keep(self):
        self.file("X.app/f")
        self.make_noting("bin/ditto")
        self.make_noting("in/libexec/kelpmoray/kelpmoray-zip", "echo a remark")
        self.folders("in/share/kelpmoray")
        for script in PACKING, "scriptOutput.sh":
            shutil.copy(os.path.join(RESOURCES, script), self.path("in/share/kelpmoray"))
        self.assertEqual(run([self.path("in/share/kelpmoray", PACKING), self.path("X.app")],
                             env=self.environment), (0, f"  a remark\npacked: {self.path('X.zip')}\n"))
        self.assertEqual(read(self.path("calls")),
                         f"--verify|{self.path('X.zip')}|{self.path('X.app')}|")
        os.remove(self.path("calls"))
        self.with_attributes_to_keep('kelpmoray-zip "$last" X.app')
        self.stand_in("sync", f"[ ! -e '{self.path('X.zip')}' ] && echo synced >>'{self.path('calls')}'")
        self.assert_packs("X.app", "X.zip")
        self.assertTrue(read(self.path("calls")).startswith(
            f"-c|-k|--sequesterRsrc|--keepParent|--noqtn|./X.app|{self.folder}/.kelpmoray-packing-"))
        self.assertTrue(read(self.path("calls")).endswith("synced\n"))
        self.assert_names(self.folder, "X.app", "X.zip", "bin", "calls", "in")

    def test_the_systems_archiver_keeps_what_ours_promises(self):
        for meanwhile, words, left in (
                ("echo more >>X.app/f", "X.app/f was changed meanwhile: ", "older archive"),
                ("rm X.zip; mkdir X.zip", "cannot put the archive at ", []),
                ("echo no archive >\"$last\"", "ditto could not pack ", "older archive")):
            with self.subTest(meanwhile):
                shutil.rmtree(self.path("X.zip"), ignore_errors=True)
                self.file("X.app/f")
                self.file("X.zip", "older archive")
                self.with_attributes_to_keep(f'kelpmoray-zip "$last" X.app; {meanwhile}')
                self.assert_fails(words, PACKING, "X.app")
                found = self.path("X.zip")
                self.assertEqual(os.listdir(found) if os.path.isdir(found) else read(found), left)
                self.assert_names(self.folder, "X.app", "X.zip", "bin", "calls")

    def test_it_cleans_up_although_nobody_reads_its_lines(self):
        self.file("X.app/f")
        # The reader is gone before the first line comes.
        self.with_attributes_to_keep(
            f"while [ ! -e '{self.path('gone')}' ]; do :; done; echo noise; exit 1")
        script = os.path.join(RESOURCES, PACKING)
        status, said = run(["sh", "-c", '{ "$1" X.app; touch ended; } | { exec <&-; touch gone; }', "sh",
                            script], cwd=self.folder, env=self.environment)
        self.assertEqual((status, said), (0, ""))
        self.assert_names(self.folder, "X.app", "bin", "calls", "ended", "gone")

    def test_a_name_looks_like_no_result_and_moves_no_terminal(self):
        for name, shown in (("x\npacked: y", "x?packed: y"), ("\x9b1m\x85\x7f\t", "?1m???")):
            self.folders(name + ".app")
            self.assert_packs(name + ".app", shown + ".zip")
            self.assert_fails(f"error: no package at no{shown}", PACKING, f"no{name}")
        # The last word is the script's, even if it is killed before.
        self.stand_in("kelpmoray-zip", "printf 'packed: y.app\\n\\033[2J\\302\\205\\n'; kill -9 $$")
        said = self.assert_fails("error: kelpmoray-zip could not pack ", PACKING, "x\npacked: y.app")
        self.assertIn("  packed: y.app\n  ?[2J?\nerror: ", said)

    def test_folders_that_differ_in_a_line_break_are_told_apart(self):
        self.file("a/X.app/wrong")
        self.file("a\n/X.app/right")
        self.assert_packs("a\n/X.app", "a?/X.zip")
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


class SigningScripts(Scripts):
    HOLDER = "Jo (X1)"

    @classmethod
    def setUpClass(cls):
        cls.workshop = tempfile.mkdtemp(prefix="kelpmoray code ", dir=SCRATCH)
        cls.addClassCleanup(shutil.rmtree, cls.workshop)
        cls.linker = fixtures.Linker(cls.workshop)

    def setUp(self):
        super().setUp()
        self.application("X.app")

    def application(self, name):
        fixtures.make_bundle(self.path(name), "main", self.linker.link("exe-arm64"))

    def nested(self, name):
        return fixtures.put(self.linker.link("exe-arm64"), self.path("X.app/Contents"), name)

    def sign(self, holder=HOLDER):
        return self.say(SIGNING, "X.app", holder)


class Signing(SigningScripts):
    """With stand-ins for the system's tools, as on a Mac."""
    JO, APPLE, KIM, OTHER = (letter * 40 for letter in "ABCD")

    def setUp(self):
        super().setUp()
        self.identities((self.JO, "Developer ID Application: Jo (X1)"),
                        (self.JO, "Developer ID Application: Jo (X1)"),
                        (self.APPLE, "Apple Development: Jo (X1)"))
        self.stand_in("codesign", f"printf '%s\\0' \"$*\" >>'{self.path('calls')}'")

    def identities(self, *listed):
        lines = "".join(f'  {number}) {hash} "{name}"\n' for number, (hash, name) in enumerate(listed, 1))
        self.stand_in("security", f"cat <<'END'\n{lines}     {len(listed)} valid identities found\nEND")

    def calls(self):
        return read(self.path("calls")).split("\0")[:-1] if os.path.exists(self.path("calls")) else []

    def test_a_package_stays_unsigned_without_an_identity(self):
        self.assertEqual(self.sign("donotcodesign"), (0, f"unsigned: {self.path('X.app')}\n"))
        self.assert_fails("error: no identity to sign ", SIGNING, "X.app")
        os.symlink("gone", self.path("X.inherit.entitlements"))
        self.assert_fails(f"error: {self.path('X.inherit.entitlements')} is no file", SIGNING, "X.app", self.HOLDER)
        self.assertEqual(self.calls(), [])

    def test_what_the_plan_names_is_signed_in_its_order(self):
        package = fixtures.make_application(self.linker, self.path("X.app"))
        self.nested("Resources/line\nsigned: x")
        plan = run([os.path.join(BUILD, "bin/kelpmoray-codesign"), "--plan", package])[1].split("\0")[:-1]
        self.assertGreater(len(plan), 10)
        self.environment["KELPMORAY_TIMESTAMP"] = "http://stamps/"
        app, helper = self.file("X.entitlements"), self.file("X.inherit.entitlements")
        self.assertEqual(self.sign(), (0, f"  The entitlements are in {app}\n"
                                          f"  The entitlements are in {helper}\nsigned: {package}\n"))
        how = (f"--force --sign {self.JO} --timestamp=http://stamps/ --options runtime "
               "--preserve-metadata=entitlements ")
        given = {package: f"--entitlements {app} ",
                 package + "/Contents/Library/LoginItems/Login.app": f"--entitlements {helper} "}
        self.assertEqual(self.calls(), [how + given.get(code, "") + code for code in plan] +
                         ["--verify --deep --strict -vv " + package])

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
        self.application("Timestamp.app")
        for package, words in (("X.app", "resource fork not allowed"),
                               ("Timestamp.app", "Timestamp.app: errSecInternalComponent")):
            os.remove(tries)
            self.stand_in("codesign", count + f'echo "$8: {words.split(": ")[-1]}" >&2; exit 1')
            self.assert_fails(words + "\nerror: codesign could not sign ", SIGNING, package, self.HOLDER)
            self.assertEqual(read(tries), "x\n")

    def test_what_cannot_be_signed_is_told_whatever_its_name(self):
        self.stand_in("codesign",
                      "case $1 in --verify) echo 'a sealed resource is missing' >&2; exit 3;; esac")
        said = self.assert_fails("a sealed resource is missing\nerror: the signature of ", SIGNING,
                                 "X.app", self.HOLDER)
        self.assertTrue(said.startswith("  a sealed"), said)
        self.nested("Resources/a\nsigned: x/tool")
        for end in ("exit 1", "kill -9 $$"):
            self.stand_in("codesign", f"case $* in */tool) echo \"$8: broken\" >&2; {end};; esac")
            said = self.assert_fails("/a?signed: x/tool: see the lines above\n", SIGNING, "X.app", self.HOLDER)
            self.assertTrue(said.splitlines()[-1].startswith("error: codesign could not sign "), said)

    def test_what_ends_early_does_not_count_as_signed(self):
        self.stand_in("xargs", "exit 127")
        self.assert_fails("error: signing ", SIGNING, "X.app", self.HOLDER)
        os.remove(self.path("X.app/Contents/Info.plist"))
        said = self.assert_fails(f"error: the code in {self.path('X.app')} could not be listed: see the lines above",
                                 SIGNING, "X.app", self.HOLDER)
        self.assertTrue(said.startswith("  "), said)
        self.assertEqual(self.calls(), [])


@unittest.skipIf(sys.platform == "darwin", "the system's tools come first")
class SigningWithOurTools(SigningScripts):
    def setUp(self):
        super().setUp()
        passphrase = write(self.path("passphrase"), "of a test", 0o600)
        self.environment |= {"KELPMORAY_PASSPHRASE_FILE": passphrase, "KELPMORAY_TIMESTAMP": "none"}
        self.assertEqual(self.tool("kelpmoray-security", "create-test-identity", "Jo (X1)")[0], 0)

    def tool(self, *command):
        return run(command, env=self.environment)

    def shown(self, code, *how):
        return self.tool("kelpmoray-codesign", "--display", *how, code)[1]

    def test_one_call_signs_all_of_a_package(self):
        package = fixtures.make_application(self.linker, self.path("X.app"))
        with open(self.path("X.entitlements"), "wb") as file:
            plistlib.dump({"com.apple.security.app": True}, file)
        status, said = self.sign()
        self.assertEqual((status, said.splitlines()[-1]), (0, f"signed: {package}"), said)
        self.assertIn("Authority=Test Identity: Jo (X1)\n", self.shown(package, "-vv"))
        self.assertIn("security.app<", self.shown(package, "--entitlements", ":-"))

    def test_a_locked_key_and_a_server_that_is_gone_have_their_sentences(self):
        before = read(self.nested("MacOS/tool"), "rb")
        for name, value, words in (
                ("KELPMORAY_TIMESTAMP", "http://127.0.0.1:9/", "error: the time stamp server did not answer"),
                ("KELPMORAY_PASSPHRASE_FILE", None, "error: the key of Test Identity: Jo (X1) is locked: see ")):
            whole = self.environment
            self.environment = {key: text for key, text in {**whole, name: value}.items() if text}
            self.assert_fails(words, SIGNING, "X.app", self.HOLDER)
            self.environment = whole
            self.assertEqual(read(self.path("X.app/Contents/MacOS/tool"), "rb"), before)


if __name__ == "__main__":
    unittest.main()
