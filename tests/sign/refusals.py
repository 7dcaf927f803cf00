#!/usr/bin/env python3
"""What the signer refuses or warns of before it changes anything."""
import os
import plistlib
import re
import shutil
import struct
import unittest

import fixtures
from codesign import CODESIGN, CodeTest, Owner, read, tree
from programs import give, ordinary_user, run, write


class Refusals(CodeTest):
    def assert_refused(self, words, *arguments, **environment):
        """In one line, with nothing changed."""
        before = tree(self.folder)
        status, said = self.codesign(*arguments, **environment)
        self.assertEqual((status, said.count("\n")), (1, 1), said)
        self.assertIn(words, said)
        self.assertEqual(tree(self.folder), before)

    def application(self, name="X.app", code="exe-arm64"):
        fixtures.make_bundle(self.path(name), "main", self.linker.link(code))
        return self.path(name)

    def test_no_link_leads_a_removal_out_of_the_package(self):
        real = self.application("Real.app")
        self.sign(real)
        for number, (name, words) in enumerate([("/Contents", "unsealed contents"), ("/Contents/_CodeSignature", "unsealed contents"),
                                                ("/Contents/MacOS/main", "must be a regular file")]):
            app = self.application(f"{number}.app")
            self.sign(app)
            os.rename(app + name, self.path(f"{number}"))
            os.symlink(os.path.relpath(real + name, os.path.dirname(app + name)), app + name)
            self.assert_refused(words, "--remove-signature", app)
        for operation in ("--remove-signature", "--plan"):
            self.assert_refused("it is no Mach-O file", operation, write(self.path("text"), "text"))
        self.assertEqual(self.codesign("-s", "-", real + "/"), (1, f"{real}: is already signed\n"))
        seal = real + "/Contents/_CodeSignature/CodeResources"
        os.rename(seal, self.path("seal"))
        os.symlink(self.path("seal"), seal)
        for operation in ("--verify", "-d"):
            self.assert_refused(f'"{seal}" is a link. Put the file itself in its place.', operation, "-vvvv", real)
        write(real + "/Contents/_CodeSignature/CodePrecious", "precious")
        self.assert_quiet("--remove-signature", real)
        self.assert_names(real + "/Contents/_CodeSignature", "CodePrecious")

    def test_no_seal_is_taken_from_code_that_cannot_be_found(self):
        app, info = self.application(), self.path("X.app/Contents/Info.plist")
        self.sign(app)
        right = read(info)
        for content, words in {right.replace(b">main<", b">gone<"): 'The executable "gone"', b"<plist>": "is not a property list",
                               right.replace(b">main<", b">" + b"x" * 256 + b"<"): "must be the name of a file"}.items():
            write(info, content)
            self.assert_refused(words, "--remove-signature", app)
        write(info, right)
        command = shutil.copy(CODESIGN, self.path("command"))
        os.chmod(app + "/Contents/MacOS", 0o600)
        give(self.folder)
        for operation in ("--remove-signature", "--verify", "-d", "--plan"):
            self.assertEqual(run([command, operation, app], **ordinary_user()), (
                1, f"{app}: Cannot look at {app}/Contents/MacOS/main: Permission denied. Check the permissions or choose another folder.\n"))
        os.chmod(app + "/Contents/MacOS", 0o755)
        self.assert_valid(app)

    def test_data_outside_the_slices_of_a_universal_file_is_not_lost(self):
        data = read(self.linker.universal())
        (_, first), (second, _) = sorted(fixtures.slices(data))
        gap = sorted(fixtures.slices(data))[0][0] + first
        self.assertGreater(second, gap + 4)
        exe, library = read(self.linker.link("exe-arm64")), read(self.linker.library("x86_64"))
        table = struct.pack(">2I5I5I", 0xCAFEBABE, 2, 0x01000007, 3, 0x4000, len(library), 14, 0x0100000C, 0, 0x8000, len(exe), 14)
        for content, words in {data + b"x": "data behind its last architecture",
                               data[:gap] + b"data" + data[gap + 4:]: "data between its architectures",
                               data[:64] + b"data" + data[68:]: "data between its architectures",
                               table.ljust(0x4000, b"\0") + library.ljust(0x4000, b"\0") + exe: "different file types"}.items():
            for arguments in (("-f", "-s", "-"), ("--remove-signature",)):
                self.assert_refused(words, *arguments, write(self.path("bad"), content))

    def test_no_load_command_is_written_over_what_follows(self):
        # The second segment starts where the header ends; no section tells of it.
        full = bytearray(fixtures.handmade("<", True, 0x0100000C))
        for at, offset, size in ((32, 0, 176), (104, 176, len(full) - 176)):
            struct.pack_into("<2Q", full, at + 40, offset, size)
        long = bytearray(read(self.linker.link("exe-linker", signed=True)))
        struct.pack_into("<I", long, fixtures.signature_place(long, 0)[0] + 4, 24)
        struct.pack_into("<I", long, 20, struct.unpack_from("<I", long, 20)[0] + 8)
        for content, words in ((full, "its header has no room for the load command"),
                               (long, "the load command of its signature has a wrong size")):
            self.assert_refused(words, "-f", "-s", "-", write(self.path("bad"), bytes(content)))

    def test_no_page_size_is_used_that_the_kernel_does_not_take(self):
        path = self.copy(self.linker.universal())
        self.assert_refused("it has code for x86_64, which runs with pages of 4096 bytes only", "-s", "-", "--pagesize", "16384", path)
        self.sign(path, "-f")
        data = bytearray(read(path))
        for (start, _), shift in zip(fixtures.slices(data), (14, 20)):
            place = fixtures.signature_place(data, start)[1]
            directory = place + struct.unpack_from(">I", data, place + 16)[0]
            limit = struct.unpack_from(">I", data, directory + 32)[0]
            struct.pack_into(">I", data, directory + 28, -(-limit // (1 << shift)))
            data[directory + 39] = shift
        write(path, data)
        self.sign(path, "-f")
        self.assertEqual(self.assert_hashes(path), [(0, 2, 4096), (0, 2, 16384)])

    def test_links_that_the_strict_check_refuses_are_named(self):
        app, inner = self.path("X.app"), self.path("X.app/Contents/PlugIns/Y.bundle")
        for bundle in (app, inner):
            fixtures.make_bundle(bundle, "main", self.linker.link("exe-arm64"))
        write(self.path("outside"), "x")
        write(app + "/Contents/Resources/.DS_Store", "x")
        links = {"away": "/etc/passwd", "code": "../MacOS/main", "file": "data.txt", "folder": "../..", "gone": "nothing",
                 "info": "../Info.plist", "outside": "../../../outside", "store": ".DS_Store", "system": "/System/Library"}
        for name, target in links.items():
            os.symlink(target, f"{app}/Contents/Resources/{name}")
        for name in ("data.txt", "store"):
            os.symlink("../../../../Resources/" + name, f"{inner}/Contents/Resources/to {name}")
        named = re.findall(r"/(\w+|to [.\w]+) is a link to", self.sign(app, "--deep"))
        self.assertEqual(named, ["to store", "away", "folder", "gone", "info", "outside", "store"])
        for name in named:
            os.remove((inner if " " in name else app) + "/Contents/Resources/" + name)
        self.sign(app, "--deep", "-f")
        self.assert_valid(app)

    def test_what_is_sealed_as_data_among_code_is_told_once(self):
        app = fixtures.make_application(self.linker, self.path("X.app"))
        for how in (("--deep",), ("-f",)):
            self.assertRegex(self.sign(app, *how), f"{app}/Contents/Helpers/Daemon is a bundle in a folder for code, but has no dot "
                             rf"in its name, .*\n{app}/Contents/MacOS/script.sh is no code, .*\n\Z")

    def test_versions_of_a_framework_that_differ_are_named(self):
        app, owner = fixtures.make_application(self.linker, self.path("X.app")), Owner(self.workshop)
        old = app + "/Contents/Frameworks/Foo.framework/Versions/A"
        self.assertNotIn("Versions/A", self.sign(app, "--deep"))
        write(old + "/Resources/more", "x")
        self.assertIn(f"{old} does not meet the requirement of the framework's current version", self.sign(app, "--deep", "-f"))
        self.assertIn("invalid version", self.codesign("--verify", "--deep", "--strict", app)[1])
        self.assertNotIn("Versions/A", self.sign(app, "--deep", "-f", identity=owner.authority.HOLDER, **owner.environment))
        self.assert_valid(app, **owner.environment)

    def test_code_that_may_not_be_read_is_told_of_by_the_plan_too(self):
        command = shutil.copy(CODESIGN, self.path("codesign"))
        for name, words in {"Frameworks/lib.dylib": "/lib.dylib: Permission denied", "Resources/x.node": "/x.node: Permission denied",
                            "Resources/de.lproj/locversion.plist": None}.items():
            app = self.application(f"{len(name)}.app")
            os.chmod(fixtures.put(self.linker.library(), app, "Contents", name), 0)
            give(app)
            for how in (("--plan",), ("-s", "-", "--deep")):
                status, said = run([command, *how, app], cwd=self.folder, **ordinary_user())
                self.assertEqual(status, 1 if words else 0, said)
                self.assertIn(words or "", said)

    def test_what_is_wrong_in_nested_code_is_told_of_it(self):
        app = fixtures.make_application(self.linker, self.path("X.app"))
        self.sign(app, "--deep")
        info = app + "/Contents/Frameworks/Foo.framework/Versions/B/Resources/Info.plist"
        right = read(info)
        for flags in ("bogus", "adhoc", "0xffffffff", -1, 1 << 32, (1 << 64) - 1, 0x20000, True):
            write(info, plistlib.dumps({**plistlib.loads(right), "CSFlags": flags}))
            self.assert_refused(f'CSFlags in "{info}" has a flag', "-f", "-s", "-", "--deep", app)
        write(info, right)
        library = app + "/Contents/Frameworks/lib blank.dylib"
        write(library, read(library).replace(bytes.fromhex("fade0c010000000c00000000"), bytes.fromhex("fade0c010000000c00000001")))
        self.assert_refused(f'signature of "{library}" are malformed. Leave requirements out', "-f", "-s", "-", "--deep",
                            "--preserve-metadata=requirements", app)

    def test_what_is_no_bundle_is_named_with_all_code_and_without(self):
        app, deep = self.application(), ("-s", "-", "--deep")
        python = app + "/Contents/MacOS/python3.9"
        os.mkdir(python)
        for how in (deep, deep[:2]):
            self.assert_refused(f'{app}: "{python}" has a dot in its name', *how, app)
        os.rmdir(python)
        framework = app + "/Contents/Frameworks/Foo.framework"
        fixtures.write_plist(framework + "/Versions/A/Resources/Info.plist", "Foo", "FMWK")
        fixtures.put(self.linker.library(), framework + "/Versions/A/Foo")
        for how in (deep, deep[:2]):
            self.assert_refused(f'{app}: "{framework}": bundle format unrecognized', *how, app)
        for version in ("Z", ".", "..", "A/"):
            self.assert_refused(f'has no version "{version}": name a', *deep, "--bundle-version", version, framework)

    def test_signed_code_stays_whole_when_code_in_it_has_to_be_signed(self):
        app = fixtures.make_application(self.linker, self.path("X.app"))
        for place, name in {"XPCServices/Service.xpc": "Resources/lib.node", "Helpers/Daemon": "Helpers/tool",
                            "Frameworks/Foo.framework": "Versions/B/Helpers/tool"}.items():
            inner = f"{app}/Contents/{place}"
            part = inner + ("/" if name[0] == "V" else "/Contents/") + name
            self.sign(inner, "--deep", "-f")
            fixtures.put(self.linker.library(), part)
            self.assert_refused(f'"{inner}" is signed already, and "{part}" in it is not. Sign both anew with --force.',
                                "-s", "-", "--deep", app)
            self.sign(inner, "--deep", "-f")
        # Another version of a framework is no part of the current one.
        old = app + "/Contents/Frameworks/Foo.framework/Versions/A"
        self.assert_quiet("--remove-signature", old)
        self.sign(app, "--deep")
        for code in (old, app + "/Contents/Frameworks/Foo.framework", app):
            self.assert_quiet("--verify", "--deep", code)

    def test_a_name_that_is_all_extension_gives_no_empty_identifier(self):
        path, owner = self.copy(self.linker.library(), ".hid"), Owner(self.workshop)
        self.assert_refused("Give one with --identifier", "-s", owner.authority.HOLDER, path, **owner.environment)
        self.sign(path, "-i", "x.y", identity=owner.authority.HOLDER, **owner.environment)
        self.assert_valid(path, **owner.environment)


if __name__ == "__main__":
    unittest.main()
