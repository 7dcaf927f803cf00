#!/usr/bin/env python3
"""What happens to code while it is signed: other signers, changes, servers that fail, kills."""
import contextlib
import http.server
import os
import resource
import subprocess
import unittest

import fixtures
from codesign import CODESIGN, CodeTest, Owner, tree
from programs import PATIENCE


class Meanwhile(CodeTest):
    @classmethod
    def setUpClass(cls):
        super().setUpClass()
        cls.owner = Owner(cls.workshop)

    def application(self, name="My App.app"):
        return fixtures.make_application(self.linker, self.path(name))

    @contextlib.contextmanager
    def waiting_signer(self, path, *arguments):
        """A signer that has done all but for the time stamp of a server that never answers."""
        with contextlib.ExitStack() as stack:
            server = stack.enter_context(http.server.HTTPServer(("127.0.0.1", 0), http.server.BaseHTTPRequestHandler))
            process = stack.enter_context(subprocess.Popen(
                [CODESIGN, "-f", "-s", self.owner.authority.HOLDER, *arguments,
                 f"--timestamp=http://127.0.0.1:{server.server_port}/", path],
                env={**os.environ, **self.owner.environment}, stderr=subprocess.DEVNULL))
            stack.callback(process.kill)
            server.socket.settimeout(PATIENCE)
            stack.enter_context(server.socket.accept()[0])
            yield


class OtherSigners(Meanwhile):
    def test_one_of_two_is_refused_until_the_other_has_ended(self):
        app, lone = self.application(), self.copy(self.linker.link("exe-arm64"))
        framework = app + "/Contents/Frameworks/Foo.framework"
        beside = self.copy(lone, "beside")
        for busy, others in {app: [app, app + "/Contents/MacOS/main", framework, framework + "/Versions/A/Helpers/tool"],
                             framework: [app, framework], lone: [lone]}.items():
            with self.waiting_signer(busy, "--deep"):
                for other in others:
                    for how in (("-f", "--deep", "-s", "-"), ("--remove-signature",)):
                        status, said = self.codesign(*how, other)
                        self.assertEqual(status, 1)
                        self.assertRegex(said, f'^{other}: Another process signs "[^"]+" or code in it. Wait until it '
                                         "has ended and try again.\n$")
                self.sign(beside, "-f")
            self.sign(busy, "-f", "--deep")
            self.assert_valid(busy)


class StampsThatDoNotCome(Meanwhile):
    def few_files(self):
        resource.setrlimit(resource.RLIMIT_NOFILE, (80, 80))

    def rich_application(self):
        """With code whose files the seal around it has hashes of, its own seals and signatures in files among them."""
        app = self.application()
        inner = app + "/Contents/Resources/Inner.app"
        fixtures.make_bundle(inner, "inner", self.linker.link("exe-arm64"))
        fixtures.put(self.linker.library(), inner, "Contents/Frameworks/lib.dylib")
        fixtures.write_plist(inner + "/Contents/PlugIns/Pictures.bundle/Contents/Info.plist", None, "BNDL")
        return app

    def test_nothing_changes_before_all_have_come(self):
        app = self.rich_application()
        # Of an earlier signature, which the new one does not use.
        fixtures.make_text(app + "/Contents/Resources/Inner.app/Contents/_CodeSignature/CodeRequirements-4")
        count = len(self.codesign("--plan", app)[1].split("\0"))  # the main executable has two slices
        command = [CODESIGN, "-f", "--deep", "-s", self.owner.authority.HOLDER, app]
        for limit in (None, self.few_files):
            for most in (count - 1, count // 2, None):
                before = tree(app)
                with self.owner.authority.time_server(most=most) as (url, asked):
                    done = subprocess.run([*command, f"--timestamp={url}"], env={**os.environ, **self.owner.environment},
                                          capture_output=True, text=True, preexec_fn=limit)
                if most:
                    self.assertRegex(done.stderr, "it refuses the request")
                    self.assertEqual((done.returncode, tree(app)), (1, before))
                else:
                    self.assertEqual((done.returncode, asked), (0, [count]), done.stderr)
                    self.assertFalse([path for path in tree(app) if path.endswith((".tmp", "-4"))])
                    self.assert_valid(app, **self.owner.environment)


if __name__ == "__main__":
    unittest.main()
