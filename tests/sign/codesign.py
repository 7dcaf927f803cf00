#!/usr/bin/env python3
"""The signer as a program: what it signs, what it refuses, every fault that it finds, its options and streams.

KELPMORAY_CODESIGN names the program.
"""
import contextlib
import hashlib
import http.server
import os
import plistlib
import re
import shutil
import signal
import stat
import struct
import subprocess
import sys
import tempfile
import threading
import unittest

sys.path.insert(0, os.path.join(os.path.dirname(os.path.abspath(__file__)), "../support"))

import fixtures  # noqa: E402
from programs import BUILD, PATIENCE, SCRATCH, FolderTest, run, write  # noqa: E402

CODESIGN = os.environ.get("KELPMORAY_CODESIGN", os.path.join(BUILD, "bin/kelpmoray-codesign"))


def read(path):
    with open(path, "rb") as file:
        return file.read()


def tree(folder):
    """All that is in a folder: folders, links with their targets, files with mode and content."""
    found = {}
    for where, folders, files in os.walk(folder):
        for name in folders + files:
            path = os.path.join(where, name)
            if os.path.islink(path):
                found[path] = os.readlink(path)
            else:
                found[path] = os.path.isfile(path) and (stat.S_IMODE(os.stat(path).st_mode), read(path))
    return found


def flip(path, at):
    data = bytearray(read(path))
    data[at] ^= 0x10
    write(path, bytes(data))


class CodeTest(FolderTest):
    @classmethod
    def setUpClass(cls):
        cls.workshop = tempfile.mkdtemp(prefix="kelpmoray code ", dir=SCRATCH)
        cls.addClassCleanup(shutil.rmtree, cls.workshop)
        cls.linker = fixtures.Linker(cls.workshop)

    def copy(self, source, name="a b"):
        return fixtures.put(source, self.path(name))

    def codesign(self, *arguments, **environment):
        return run([CODESIGN, *arguments], cwd=self.folder, env={**os.environ, **environment})

    def assert_quiet(self, *arguments, **environment):
        self.assertEqual(self.codesign(*arguments, **environment), (0, ""))

    def sign(self, path, *arguments, identity="-", **environment):
        status, said = self.codesign("--sign", identity, *arguments, path, **environment)
        self.assertEqual(status, 0, said)
        return said

    def assert_valid(self, path, **environment):
        self.assert_quiet("--verify", "--deep", "--strict", path, **environment)

    def assert_hashes(self, path):
        """By a count of our own here: every page of every slice has its hash."""
        data, shapes = read(path), []
        for start, _ in fixtures.slices(data):
            blobs = fixtures.blobs(data, fixtures.signature_place(data, start)[1])
            for slot, blob in blobs.items():
                if slot == 0 or 0x1000 <= slot < 0x1005:
                    self.assertEqual(fixtures.wrong_hashes(data, start, blob), 0)
                    shapes.append((slot, blob[37], 1 << blob[39]))
        return shapes


class SigningFiles(CodeTest):
    def test_all_slices_of_a_file_are_signed_alike(self):
        path = self.copy(self.linker.universal())
        self.assertRegex(self.sign(path, "-v", "--prefix", "com.example."),
                         r"signed Mach-O universal \(x86_64 arm64\) \[com.example.a b\]\n\Z")
        self.assertEqual(self.assert_hashes(path), [(0, 2, 4096), (0, 2, 16384)])
        data = read(path)
        self.assertEqual([start % 0x4000 for start, _ in fixtures.slices(data)], [0, 0])
        self.assertEqual(data.count(b"com.example.a b\0"), 2)
        self.assert_valid(path)
        self.sign(path, "-f", "--prefix", "com.example.")
        self.assertEqual(read(path), data)
        for arguments in (("--pagesize", "4096"), ()):  # what an old signature has is kept
            self.sign(path, "-f", *arguments)
            self.assertEqual(self.assert_hashes(path), [(0, 2, 4096), (0, 2, 4096)])

    def test_systems_that_know_no_sha256_get_both_hashes(self):
        path = self.copy(self.linker.link("exe-old", "x86_64", "10.9"))
        self.sign(path)
        self.assertEqual(self.assert_hashes(path), [(0, 1, 4096), (0x1000, 2, 4096)])
        self.assert_valid(path)
        self.assertIn("Hash choices=sha1,sha256\n", self.codesign("-dvvv", path)[1])

    def test_the_room_is_what_the_platforms_own_tool_makes(self):
        path = self.copy(self.linker.link("exe-arm64"))
        self.sign(path)
        data = read(path)
        command, place = fixtures.signature_place(data, 0)
        blobs = fixtures.blobs(data, place)
        sizes = sum(len(blob) for slot, blob in blobs.items() if slot != 0x10000)
        # A directory of version 0x20400 is counted as one of 0x20500.
        expected = (12 + 8 * len(blobs) + sizes + 8 + 18000 + 15) // 16 * 16
        self.assertEqual(struct.unpack_from("<I", data, command + 12)[0], expected)
        self.assertEqual(len(data), place + expected)
        self.assertEqual(sorted(blobs), [0, 2, 0x10000])

    def test_signing_again_and_after_a_removal_gives_the_same_bytes(self):
        path = self.copy(self.linker.link("exe-linker", signed=True))
        os.chmod(path, 0o751)
        self.assertEqual(self.sign(path, "-i", "x.y"), "")  # a linker's signature is no obstacle
        signed = read(path)
        self.assertEqual(self.codesign("-s", "-", path), (1, f"{path}: is already signed\n"))
        self.assertEqual(self.sign(path, "-f", "--preserve-metadata=identifier"),
                         f"{path}: replacing existing signature\n")
        self.assertEqual(read(path), signed)
        self.assert_quiet("--remove-signature", path)
        self.assertEqual(self.codesign("--verify", path), (1, f"{path}: code object is not signed at all\n"))
        self.sign(path, "-i", "x.y", "--pagesize", "16384")
        self.assertEqual((read(path), stat.S_IMODE(os.stat(path).st_mode)), (signed, 0o751))

    def test_entitlements_and_flags_go_where_they_belong(self):
        path, library = self.copy(self.linker.link("exe-arm64")), self.copy(self.linker.library(), "lib")
        xml = plistlib.dumps({"com.apple.security.get-task-allow": True, "a": ["b", 3], "get-task-allow": True})
        write(self.path("x.plist"), xml)
        os.symlink("x.plist", self.path("link"))
        for code in (path, library):
            self.sign(code, "--entitlements", self.path("link"), "-o", "runtime,library")
            self.assert_valid(code)
        self.sign(library, "-f", "-o", "0x2000")
        self.assertIn("flags=0x2002(", self.codesign("-dvv", library)[1])
        said = self.codesign("-dvvvv", path)[1]
        self.assertRegex(said, r"flags=0x12002\(adhoc,library-validation,runtime\) hashes=\d+\+7 ")
        self.assertIn("Executable Segment flags=0x11\n", said)
        self.assertIn("Runtime Version=14.0.0\n", said)
        shown = subprocess.run([CODESIGN, "-d", "--entitlements", ":-", path], capture_output=True, check=True)
        self.assertEqual(shown.stdout, xml)
        self.assertEqual(self.codesign("-d", "--entitlements", ":-", library)[1], f"Executable={library}\n")
        write(self.path("x.plist"), plistlib.dumps({}, fmt=plistlib.FMT_BINARY))
        status, said = self.codesign("-f", "-s", "-", "--entitlements", self.path("x.plist"), path)
        self.assertEqual(status, 1)
        self.assertIn(f"The entitlements in {self.path('x.plist')} are a binary property list.", said)

    def test_what_is_given_for_a_package_and_for_the_applications_in_it_is_told_apart(self):
        app = fixtures.make_application(self.linker, self.path("My App.app"))
        for name in ("outer", "helper"):
            write(self.path(name), plistlib.dumps({name: True}))
        given = ("--entitlements", self.path("outer"), "--helper-entitlements", self.path("helper"))
        self.sign(app, "--deep", *given, "-r", '=designated => identifier "org.example.main"')
        self.assert_valid(app)
        contents, found = app + "/Contents/", {}
        for code in (app, contents + "Library/LoginItems/Login.app", contents + "XPCServices/Service.xpc", contents + "MacOS/helper"):
            found[code] = subprocess.run([CODESIGN, "-d", "--entitlements", ":-", code], capture_output=True, check=True).stdout
        self.assertEqual(list(found.values()), [read(self.path("outer")), read(self.path("helper")), b"", b""])
        self.assertEqual(self.codesign("-f", "-s", "-", *given, app)[0], 2)

    def test_what_a_killed_run_left_is_removed_and_no_link_is_followed(self):
        app = fixtures.make_application(self.linker, self.path("X.app"))
        outside = write(self.path("outside"), "precious")
        for folder in ("MacOS", "_CodeSignature"):
            write(f"{app}/Contents/{folder}/.kelpmoray-{'0f' * 16}.tmp", "left")
        os.symlink(outside, app + "/Contents/_CodeSignature/CodeResources")
        self.sign(app, "--deep")
        self.assert_valid(app)
        self.assertFalse([path for path in tree(app) if path.endswith(".tmp")])
        self.assertEqual(read(self.path("outside")), b"precious")

    def test_the_version_of_a_framework_that_is_given_is_that_of_the_framework_alone(self):
        framework = fixtures.make_application(self.linker, self.path("X.app")) + "/Contents/Frameworks/Foo.framework"
        inner = framework + "/Versions/A/Frameworks/Inner.framework"
        fixtures.write_plist(inner + "/Versions/C/Resources/Info.plist", "Inner", "FMWK")
        fixtures.put(self.linker.library(), inner, "Versions/C/Inner")
        os.symlink("C", inner + "/Versions/Current")
        said = self.sign(framework, "--deep", "--bundle-version", "A", "-v")
        signed = [line.split(": signed ")[0][len(framework):] for line in said.splitlines()]
        self.assertEqual(signed, ["/Versions/A/Frameworks/Inner.framework", "/Versions/A/Helpers/tool", "/Versions/B/Helpers/tool",
                                  "/Versions/B", ""])
        for version in "AB":
            self.assert_quiet("--verify", "--deep", "--strict", "--bundle-version", version, framework)

    def test_old_processors_are_served_in_their_order_of_bytes(self):
        for order, wide, cpu in (("<", False, 7), (">", False, 18), (">", True, 0x01000012)):
            header = 32 if wide else 28
            path = write(self.path("old"), fixtures.handmade(order, wide, cpu))
            self.sign(path)
            self.assert_valid(path)
            data = read(path)
            _, _, _, _, count, size = struct.unpack_from(order + "6I", data)
            command = struct.unpack_from(order + "4I", data, header + size - 16)
            self.assertEqual((count, command[:2], command[2] + command[3]), (3, (0x1D, 16), len(data)))
            linkedit = header + (72 if wide else 56) + (32 if wide else 28)
            vm_size, offset, file_size = struct.unpack_from(order + ("3Q" if wide else "3I"), data, linkedit)
            self.assertEqual((vm_size % 0x4000, offset + file_size), (0, len(data)))

    def test_names_become_identifiers(self):
        for name, identifier in {"libfoo.1.2.dylib": "libfoo.1", "libz7.3.5": "libz7", "x.y": "x", "plain": "plain"}.items():
            path = self.copy(self.linker.library(), name)
            self.sign(path)
            found = re.search("Identifier=(.*)", self.codesign("-dv", path)[1])[1]
            self.assertRegex(found, re.escape(identifier) + ("$" if "." in identifier else "-55554944[0-9a-f]{32}$"))

    def test_what_cannot_be_signed_is_refused_and_left_alone(self):
        linked = read(self.linker.link("exe-arm64"))
        wide = struct.pack(">2I2I2Q2I", 0xCAFEBABF, 1, 0x0100000C, 0, 0x4000, len(linked), 14, 0)
        for content, words in {
                read(os.path.join(self.workshop, "arm64.o")): "files of its type have no signature",
                linked + b"x" * 20: "there is data behind its __LINKEDIT segment",
                read(self.linker.link("no-room", flags=("-headerpad", "0"))): "no room for the load command",
                wide.ljust(0x4000, b"\0") + linked: "offsets of 64 bits",
                b"#!/bin/sh\n": "it is no Mach-O file",
                linked[:3000]: "is damaged",
                linked[:40]: "is damaged",
                b"\xca\xfe\xba\xbe\0\0\0\2": "is damaged"}.items():
            path = write(self.path("bad"), content)
            status, said = self.codesign("-s", "-", path)
            self.assertEqual((status, said.count("\n")), (1, 1), said)
            self.assertIn(words, said)
            self.assertEqual(read(path), content)
            self.assert_names(self.folder, "bad")

    def test_a_run_that_is_killed_leaves_the_old_file_and_nothing_else(self):
        path = self.copy(self.linker.link("exe-arm64"))
        with contextlib.ExitStack() as stack:
            server = stack.enter_context(http.server.HTTPServer(("127.0.0.1", 0), http.server.BaseHTTPRequestHandler))
            owner = Owner(self.workshop)
            process = stack.enter_context(subprocess.Popen(
                [CODESIGN, "-s", owner.authority.HOLDER, f"--timestamp=http://127.0.0.1:{server.server_port}/", path],
                env={**os.environ, **owner.environment}, stderr=subprocess.DEVNULL))
            server.socket.settimeout(PATIENCE)
            stack.enter_context(server.socket.accept()[0])  # it asks for the stamp, so all else is done
            process.send_signal(signal.SIGTERM)
            self.assertEqual(process.wait(), -signal.SIGTERM)
        self.assertEqual(read(path), read(self.linker.link("exe-arm64")))
        self.assert_names(self.folder, "a b")


class Owner:
    """An identity in a folder of its own, as the program looks for it."""
    kept = {}

    def __new__(cls, folder):
        if folder not in cls.kept:
            cls.kept[folder] = super().__new__(cls)
            cls.kept[folder].make(os.path.join(folder, "authority"))
        return cls.kept[folder]

    def make(self, folder):
        os.mkdir(folder)
        self.authority = fixtures.Authority(folder)
        home = os.path.join(folder, "identities")
        os.makedirs(home + "/roots", 0o700)
        os.chmod(home, 0o700)
        shutil.copy(folder + "/root.pem", home + "/roots")
        write(folder + "/passphrase", "secret", 0o600)
        self.environment = {"KELPMORAY_IDENTITIES": home, "KELPMORAY_PASSPHRASE_FILE": folder + "/passphrase"}
        chain = b"".join(read(f"{folder}/{name}.pem") for name in ("leaf", "middle", "root"))
        der = fixtures.check_call("openssl", "x509", "-in", folder + "/leaf.pem", "-outform", "DER")
        write(f"{home}/certificates/{hashlib.sha1(der).hexdigest().upper()}.pem", chain, 0o600)
        public = fixtures.check_call("openssl", "rsa", "-in", folder + "/leaf.key", "-RSAPublicKey_out", "-outform", "DER")
        os.mkdir(home + "/keys")
        fixtures.check_call("openssl", "pkcs8", "-topk8", "-in", folder + "/leaf.key", "-passout", "pass:secret", "-out",
                            f"{home}/keys/{hashlib.sha1(public).hexdigest()}.pem")
        for path in (home + "/certificates", home + "/keys"):
            os.chmod(path, 0o700)
        os.chmod(f"{home}/keys/{hashlib.sha1(public).hexdigest()}.pem", 0o600)


class OwnerTest(CodeTest):
    @classmethod
    def setUpClass(cls):
        super().setUpClass()
        cls.owner = Owner(cls.workshop)

    def sign_stamped(self, path, *arguments, **server):
        with self.owner.authority.time_server(**server) as (url, count):
            said = self.sign(path, f"--timestamp={url}", *arguments, identity=self.owner.authority.HOLDER,
                             **self.owner.environment)
        return said, count[0]


class SigningWithAnIdentity(OwnerTest):
    def test_the_signature_holds_for_openssl_too(self):
        path = self.copy(self.linker.link("exe-arm64"))
        self.assertEqual(self.sign_stamped(path, "-o", "runtime", "-i", "com.example.x"), ("", 1))
        self.assert_valid(path, **self.owner.environment)
        data = read(path)
        blobs = fixtures.blobs(data, fixtures.signature_place(data, 0)[1])
        write(self.path("cms"), blobs[0x10000][8:])
        write(self.path("directory"), blobs[0])
        fixtures.check_call("openssl", "cms", "-verify", "-inform", "DER", "-in", self.path("cms"), "-content",
                            self.path("directory"), "-binary", "-purpose", "any", "-ignore_critical", "-CAfile",
                            self.owner.authority.folder + "/root.pem", "-out", self.path("out"))
        said = self.codesign("-dvv", "-r-", path, **self.owner.environment)[1]
        for line in (f"Authority={self.owner.authority.HOLDER}\n", "Authority=Test Root CA\n", "\nTimestamp=",
                     "TeamIdentifier=ABCDE12345\n", 'designated => identifier "com.example.x" and anchor apple generic '
                     "and certificate 1[field.1.2.840.113635.100.6.2.6] /* exists */ and certificate "
                     "leaf[field.1.2.840.113635.100.6.1.13] /* exists */ and certificate leaf[subject.OU] = ABCDE12345"):
            self.assertIn(line, said)
        wrong_team = "a Team Identifier is wrong or inappropriate"
        self.assertEqual(self.codesign("--verify", path, KELPMORAY_IDENTITIES=self.path("none")),
                         (1, f"{path}: {wrong_team}\n"))

    def test_a_package_is_signed_whole_with_one_stamp_a_signature(self):
        app = fixtures.make_application(self.linker, self.path("My App.app"))
        framework = shutil.copytree(app + "/Contents/Frameworks/Foo.framework", self.path("Foo.framework"), symlinks=True)
        plan = self.codesign("--plan", app)[1].split("\0")[:-1]
        said, stamps = self.sign_stamped(app, "--deep", "-v")
        self.assertEqual([line.split(": signed ")[0] for line in said.splitlines() if ": signed " in line], plan)
        self.assertEqual(stamps, len(plan) + 1)  # the main executable has two slices
        self.assert_valid(app, **self.owner.environment)
        self.assertEqual(plan[-1], app)
        self.sign(framework, "--deep")
        self.assert_valid(framework)

    def test_an_answer_that_is_no_stamp_changes_nothing(self):
        app = fixtures.make_application(self.linker, self.path("My App.app"))
        before = tree(app)

        class Nonsense(http.server.BaseHTTPRequestHandler):
            def do_POST(self):
                self.send_response(200)
                self.end_headers()
                self.wfile.write(b"nonsense")

            def log_message(self, *_):
                pass

        with http.server.ThreadingHTTPServer(("127.0.0.1", 0), Nonsense) as server:
            threading.Thread(target=server.serve_forever).start()
            status, _ = self.codesign("--deep", "-s", self.owner.authority.HOLDER, app,
                                      f"--timestamp=http://127.0.0.1:{server.server_port}/", **self.owner.environment)
            server.shutdown()
        self.assertEqual((status, tree(app)), (1, before))

    def test_an_identity_that_is_not_there_is_named(self):
        path = self.copy(self.linker.link("exe-arm64"))
        self.assertEqual(self.codesign("-s", "Nobody", path, **self.owner.environment),
                         (1, "Nobody: no identity found\n"))


class Options(CodeTest):
    def test_wrong_usage_is_told_in_one_sentence(self):
        path = self.copy(self.linker.link("exe-arm64"))
        for arguments in ([], [path], ["--sign"], ["-s", "-"], ["--nonsense", path], ["-x", path], ["-s", "-", "-d", path],
                          ["-s", "-", "-o", "adhoc", path], ["-s", "-", "-o", "0x1g", path], ["-s", "-", "-o", "0x10002", path],
                          ["-s", "-", "--runtime-version", "1.2.3.4", path],
                          ["-s", "-", "--preserve-metadata=everything", path], ["--verify", "-R", "=identifier", path],
                          ["-s", "-", "-r", "=designated identifier x", path], ["-s", "-", "--pagesize", "1", path],
                          ["-s", "-", "--entitlements", self.path("none"), path], ["-d", "-r", "x", path],
                          ["-s", "-", "--timestamp=http://127.0.0.1:65536", path],
                          *(["-s", "-", *given, path] for given in (["-i", ""], ["--identifier="], ["--entitlements", ""],
                                                                    ["-r", ""], ["--timestamp="], ["--bundle-version", ""]))):
            status, said = self.codesign(*arguments)
            self.assertEqual(status, 2, arguments)
            self.assertRegex(said, r"\Akelpmoray-codesign: [^\n]+[.]\n\Z")
        self.assertEqual(read(path), read(self.linker.link("exe-arm64")))

    def test_help_and_version_go_to_standard_output(self):
        for option, words in {"--help": "usage: kelpmoray-codesign", "--version": "kelpmoray-codesign "}.items():
            done = subprocess.run([CODESIGN, option], capture_output=True, check=True, text=True)
            self.assertTrue(done.stdout.startswith(words) and not done.stderr)

    def test_display_levels_tell_more_and_more(self):
        path = self.copy(self.linker.link("exe-arm64"))
        self.sign(path, "-i", "com.example.x")
        for level, keys in {
                "-d": ["Executable"],
                "-dv": ["Executable", "Identifier", "Format", "CodeDirectory v", "Signature", "Info.plist",
                        "TeamIdentifier", "Sealed Resources", "Internal requirements count"],
                "-dvvvv": ["Executable", "Identifier", "Format", "CodeDirectory v", "VersionPlatform", "VersionMin",
                           "VersionSDK", "Hash type", "CandidateCDHash sha256", "CandidateCDHashFull sha256",
                           "Hash choices", "CMSDigest", "CMSDigestType", "Executable Segment base",
                           "Executable Segment limit", "Executable Segment flags", "Page size", "CDHash", "Signature",
                           "Info.plist", "TeamIdentifier", "Sealed Resources", "Internal requirements count"]}.items():
            done = subprocess.run([CODESIGN, level, path], capture_output=True, check=True, text=True)
            self.assertEqual([line.split("=")[0] for line in done.stderr.splitlines()], keys)
            self.assertEqual(done.stdout, "")


if __name__ == "__main__":
    unittest.main()
