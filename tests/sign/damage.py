#!/usr/bin/env python3
"""Each damage to signed code, and the message that tells of it."""
import hashlib
import os
import plistlib
import shutil
import struct
import unittest

import fixtures
from codesign import CodeTest, flip, read
from programs import write

MESSAGES = {
    "unsigned": "code object is not signed at all",
    "signature": "invalid signature (code or signature have been modified)",
    "info": "invalid Info.plist (plist or signature have been modified)",
    "directory": "invalid resource directory (directory or signature have been modified)",
    "none": "code has no resources but signature indicates they must be present",
    "resource": "a sealed resource is missing or invalid",
    "nested": "nested code is modified or invalid",
    "root": "unsealed contents present in the bundle root",
    "framework root": "unsealed contents present in the root directory of an embedded framework",
    "version": "embedded framework contains modified or invalid version",
    "bundle": "bundle format unrecognized, invalid, or unsuitable",
    "link": "invalid destination for symbolic link in bundle",
    "executable": "main executable failed strict validation",
    "regular": "the main executable or Info.plist must be a regular file (no symlinks, etc.)",
    "rules": "resource envelope is obsolete (custom omit rules)",
    "version 1": "resource envelope is obsolete (version 1 signature)",
    "requirement": "code failed to satisfy specified code requirement(s)",
    "object": "object file format unrecognized, invalid, or unsuitable",
}


def reseal(app, change):
    """Changes the seal of an application that is signed ad hoc, and makes its code directories say so."""
    path = app + "/Contents/_CodeSignature/CodeResources"
    seal = plistlib.loads(read(path))
    change(seal)
    write(path, plistlib.dumps(seal))
    main = app + "/Contents/MacOS/main"
    data = bytearray(read(main))
    for start, _ in fixtures.slices(data):
        place = fixtures.signature_place(data, start)[1]
        directory = place + struct.unpack_from(">I", data, place + 16)[0]
        slot = directory + struct.unpack_from(">I", data, directory + 16)[0] - 3 * 32
        data[slot:slot + 32] = hashlib.sha256(read(path)).digest()
    write(main, bytes(data), 0o755)


def replace_by_link(path, target):
    os.remove(path)
    os.symlink(target, path)


def append(path, data="x"):
    with open(path, "a") as file:
        file.write(data)


class Damage(CodeTest):
    """Each damage to an application, with the message and the lines behind it that tell of it."""
    FOO = "Frameworks/Foo.framework"
    CASES = [
        ("unsigned", lambda c: write(c + "MacOS/helper", read(c + "../../exe")), ["In subcomponent: {}MacOS/helper"]),
        ("signature", lambda c: flip(c + "MacOS/main", 0x4200), ["In architecture: x86_64"]),
        ("signature", lambda c: flip(c + "Frameworks/lib blank.dylib", 0x1000),
         ["In subcomponent: {}Frameworks/lib blank.dylib"]),
        ("info", lambda c: append(c + "Info.plist", "\n"), ["In architecture: x86_64"]),
        ("directory", lambda c: append(c + "_CodeSignature/CodeResources", "\n"), ["In architecture: x86_64"]),
        ("none", lambda c: os.remove(c + "_CodeSignature/CodeResources"), ["In architecture: x86_64"]),
        ("resource", lambda c: append(c + "Resources/line\nfeed <&> 日本"), ["file modified: {}Resources/line?feed <&> 日本"]),
        ("resource", lambda c: write(c + "Resources/new", "x"), ["file added: {}Resources/new"]),
        ("resource", lambda c: os.remove(c + "Resources/module.node"), ["file missing: {}Resources/module.node"]),
        ("resource", lambda c: append(c + "PlugIns/Pictures.bundle/Contents/Resources/picture"),
         ["In subcomponent: {}PlugIns/Pictures.bundle",
          "file modified: {}PlugIns/Pictures.bundle/Contents/Resources/picture"]),
        ("unsigned", lambda c: os.remove(c + "PlugIns/Pictures.bundle/Contents/_CodeSignature/CodeDirectory"),
         ["In subcomponent: {}PlugIns/Pictures.bundle"]),
        ("nested", lambda c: shutil.copy(c + "MacOS/helper", c + "Frameworks/lib blank.dylib"),
         ["file modified: {}Frameworks/lib blank.dylib"]),
        ("nested", lambda c: reseal(c + "..", lambda seal: seal["files2"]["MacOS/helper"].update(requirement="")),
         ["file modified: {}MacOS/helper"]),
        ("root", lambda c: write(c + "../stray", "x"), ["file refused: {app}/stray"]),
        ("root", lambda c: write(c + "_CodeSignature/stray", "x"), ["file refused: {}_CodeSignature/stray"]),
        ("framework root", lambda c: write(c + Damage.FOO + "/stray", "x"),
         ["In subcomponent: {}" + FOO, "file refused: {}" + FOO + "/stray"]),
        ("version", lambda c: append(c + Damage.FOO + "/Versions/A/Resources/Info.plist"), ["In subcomponent: {}" + FOO]),
        ("bundle", lambda c: shutil.rmtree(c + "XPCServices/Service.xpc/Contents"),
         ["In subcomponent: {}XPCServices/Service.xpc"]),
        ("executable", lambda c: append(c + "MacOS/helper"), ["In subcomponent: {}MacOS/helper"]),
        ("regular", lambda c: (shutil.copy(c + "XPCServices/Service.xpc/Contents/Info.plist", c + "../../info"),
                               replace_by_link(c + "XPCServices/Service.xpc/Contents/Info.plist", c + "../../info")),
         ["In subcomponent: {}XPCServices/Service.xpc", "file refused: {}XPCServices/Service.xpc/Contents/Info.plist"]),
        ("rules", lambda c: reseal(c + "..", lambda seal: seal["rules2"].update({"^x$": {"omit": True}})),
         ["file refused: {}_CodeSignature/CodeResources"]),
        ("version 1", lambda c: reseal(c + "..", lambda seal: [seal.pop(key) for key in ("files2", "rules2")]),
         ["file refused: {}_CodeSignature/CodeResources"]),
        ("link", lambda c: (replace_by_link(c + "Resources/link", "/etc/passwd"), reseal(
            c + "..", lambda seal: seal["files2"].update({"Resources/link": {"symlink": "/etc/passwd"}}))),
         ["file refused: {}Resources/link"]),
        ("object", lambda c: os.truncate(c + "MacOS/helper", 3000), ["In subcomponent: {}MacOS/helper"]),
        ("requirement", lambda c: CodeTest.sign(Damage.now, c + "..", "-f", "-r", "=designated => identifier other"),
         ["In architecture: x86_64"]),
    ]

    def test_each_is_told_by_the_platforms_message(self):
        whole = fixtures.make_application(self.linker, self.path("Whole.app"))
        self.sign(whole, "--deep")
        self.assert_valid(whole)
        self.copy(self.linker.link("exe-arm64"), "exe")
        Damage.now = self
        for number, (message, damage, lines) in enumerate(self.CASES):
            app = self.path(f"Damaged {number}.app")
            with self.subTest(message=message, lines=lines):
                shutil.copytree(whole, app, symlinks=True)
                damage(app + "/Contents/")
                status, said = self.codesign("--verify", "--deep", "--strict", "-v", app)
                self.assertEqual(status, 1, said)
                told = said.splitlines()
                self.assertIn(f"{app}: {MESSAGES[message]}", told)
                told.remove(f"{app}: {MESSAGES[message]}")
                self.assertEqual(told, [line.format(app + "/Contents/", app=app) for line in lines])
        self.assertEqual({case[0] for case in self.CASES}, set(MESSAGES))

    def test_what_is_merely_not_taken_is_not_told_as_a_damage(self):
        app = self.path("X.app")
        fixtures.make_bundle(app, "main", self.linker.link("exe-arm64"))
        self.sign(app)
        fixtures.make_text(app + "/Contents/Resources" + "/d" * 201 + "/file")
        self.assertEqual(self.codesign("--verify", app), (
            1, f'{app}: The folders in "{app}" are nested deeper than 200 levels. Make them flatter.\n'))
        reseal(app, lambda seal: seal["rules2"].update({"^x$": {"weight": "5"}}))
        self.assertEqual(self.codesign("--verify", app), (
            1, f'{app}: "{app}/Contents/_CodeSignature/CodeResources" has the resource rule "^x$", whose weight is no number. '
               "Sign the package anew.\n"))

    def test_a_bundle_without_a_dot_is_more_than_its_main_executable(self):
        app = fixtures.make_application(self.linker, self.path("X.app"))
        self.sign(app, "--deep")
        tool = app + "/Contents/Resources/Tool"
        self.assert_valid(tool)
        daemon = app + "/Contents/Helpers/Daemon/Contents/MacOS/daemon"
        self.assert_valid(daemon)
        os.rename(daemon, self.path("daemon"))
        self.sign(self.path("daemon"), "-f")
        os.rename(self.path("daemon"), daemon)
        self.sign(app, "-f")
        self.assertEqual(self.codesign("--verify", "--deep", app), (1, f"{app}: {MESSAGES['info']}\nIn subcomponent: {daemon}\n"))

    def test_what_is_code_for_one_of_the_bundles_around_it_alone_is_signed(self):
        app, exe = self.path("X.app"), self.linker.link("exe-arm64")
        daemon, template = app + "/Contents/Helpers/Daemon/", app + "/Contents/Resources/T/"
        for path, name in ((app, "main"), (daemon, "daemon"), (template, "t")):
            fixtures.make_bundle(path, name, exe)
        pictures = daemon + "Contents/Resources/Pictures.bundle/Contents/"
        fixtures.write_plist(pictures + "Info.plist", None, "BNDL")
        fixtures.make_text(pictures + "Resources/picture")
        fixtures.put(exe, daemon, "Contents/_MASReceipt/tool")
        fixtures.make_text(template + "README")  # with which it is no bundle that could be signed
        self.sign(app, "--deep")
        self.assert_valid(app)
        self.assert_valid(daemon + "Contents/MacOS/daemon")
        self.sign(app, "--deep", "-f")
        self.assert_valid(app)

    def test_only_a_requirement_that_is_not_met_has_a_status_of_its_own(self):
        path = self.copy(self.linker.link("exe-arm64"))
        self.sign(path, "-i", "com.example.x")
        for text, expected in {
                '=identifier "com.example.x"': (0, ""), '=identifier "com.example.x" and ! anchor apple': (0, ""),
                "=identifier other": (3, f"test-requirement: {MESSAGES['requirement']}\n")}.items():
            self.assertEqual(self.codesign("--verify", "-R", text, path), expected)


if __name__ == "__main__":
    unittest.main()
