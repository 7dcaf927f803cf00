#!/usr/bin/env python3
"""What happens to code while it is signed: other signers, changes, servers that fail, kills."""
import contextlib
import http.server
import os
import subprocess
import unittest

import fixtures
from codesign import CODESIGN, CodeTest, Owner
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


if __name__ == "__main__":
    unittest.main()
