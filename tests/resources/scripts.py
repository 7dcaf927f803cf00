#!/usr/bin/env python3
"""The scripts that pack and sign, with stand-ins for the system's tools first in the search path."""
import os
import shutil
import sys
import unittest

sys.path.insert(0, os.path.join(os.path.dirname(os.path.abspath(__file__)), "../support"))

from programs import BUILD, ROOT, FolderTest, run, write  # noqa: E402

RESOURCES = os.path.join(ROOT, "resources")
PACKING, SIGNING, NEVER_SIGNING = "fenwoJustZipApps.sh", "fenwoCodesignApps.sh", "fenwoZipAppsDNP.sh"


def read(path):
    with open(path, encoding="utf-8") as file:
        return file.read()


class Scripts(FolderTest):
    def setUp(self):
        super().setUp()
        self.environment = {**os.environ, "PATH": ":".join([
            self.path("bin"), os.path.join(BUILD, "libexec/kelpmoray"), os.environ["PATH"]])}

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
        self.file("X.app/" + version + "/Libraries/line\nsigned: x.dylib", self.CODE)

        package = self.path("X.app")
        self.assertEqual(self.sign(), (0, f"signed: {package}\n"))
        *signed, last = self.calls()
        self.assertEqual(last, "--verify --deep --strict " + package)
        how = (f"--force --sign {self.JO} --timestamp --options runtime "
               f"--preserve-metadata=entitlements {package}")
        order = [call.removeprefix(how) for call in signed]
        self.assertEqual(order[-1], "", "the package itself comes last")
        inner = [f"/{version}/Libraries/a b.dylib", f"/{version}/Frameworks/N.framework/Versions/B"]
        self.assertEqual(len(order), 11, order)
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
        self.assertTrue(said.startswith("  a sealed"), said)
        self.stand_in("codesign", "case $* in */tool) echo broken >&2; exit 1;; esac")
        self.assert_fails(f"error: codesign could not sign {self.path('X.app')}/tool: see the lines above\n",
                          SIGNING, "X.app", self.HOLDER)

    def test_nested_code_that_cannot_be_signed_is_told(self):
        self.file("X.app/a\nsigned: x/tool", b"\xCA\xFE\xBA\xBE", 0o755)
        self.stand_in("codesign", "case $* in */tool) echo \"$8: broken\" >&2; kill -9 $$;; esac")
        said = self.assert_fails("/a?signed: x/tool: see the lines above\n", SIGNING, "X.app", self.HOLDER)
        self.assertTrue(said.splitlines()[-1].startswith("error: codesign could not sign "), said)
        # What finds the code is killed on the way, or cannot be started.
        for body in ("/usr/bin/find \"$@\" | head -n 1; kill -9 $$", "exit 127",
                     "/usr/bin/find \"$@\"; exit 1"):
            self.stand_in("find", body)
            said = self.assert_fails("could not be listed: make all of it readable", SIGNING, "X.app",
                                     self.HOLDER)
            self.assertNotIn("\nsigned: ", said)

    @unittest.skipIf(sys.platform == "darwin", "signing is to be had here")
    def test_where_there_is_no_signing_it_says_so(self):
        os.remove(self.path("bin/security"))
        for holder in ([self.HOLDER], []):
            self.assert_fails("error: no security on this system: ", SIGNING, "X.app", *holder)


if __name__ == "__main__":
    unittest.main()
