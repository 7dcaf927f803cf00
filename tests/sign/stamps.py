#!/usr/bin/env python3
"""Many time stamps at once, servers that do not give them, and what happens while they are waited for."""
import http.server
import os
import resource
import shutil
import subprocess
import threading
import time
import unittest

import fixtures
from codesign import CODESIGN, OwnerTest, read, tree
from programs import write


class LyingServer(http.server.BaseHTTPRequestHandler):
    """Says nothing to the first one until the second one has come, which it refuses, nor afterwards."""

    def do_POST(self):
        self.rfile.read(int(self.headers["Content-Length"]))
        with self.server.lock:
            self.server.requests += 1
            is_refused = self.server.requests == 2
        if not is_refused:
            self.server.ended.wait()
            return
        self.send_response(200)
        self.send_header("Content-Type", "application/timestamp-reply")
        self.send_header("Content-Length", str(len(fixtures.REFUSAL)))
        self.end_headers()
        self.wfile.write(fixtures.REFUSAL)

    def log_message(self, *_):
        pass


class Stamps(OwnerTest):
    def test_all_code_that_is_nested_is_stamped_side_by_side(self):
        app = fixtures.make_application(self.linker, self.path("My App.app"))
        for hashed in ("Resources", "Helpers/Daemon"):
            shutil.rmtree(f"{app}/Contents/{hashed}")
        plan = self.codesign("--plan", app)[1].split("\0")[:-1]
        self.sign_stamped(app, "--deep", together=len(plan) + 1)
        self.assert_valid(app, **self.owner.environment)

    def test_code_that_is_signed_again_for_larger_stamps_is_sealed_again(self):
        app = fixtures.make_application(self.linker, self.path("My App.app"))
        # This bundle has all room for its own signature, which lies in files.
        fixtures.put(self.linker.library(), app, "Contents/PlugIns/Pictures.bundle/Contents/Frameworks/lib.dylib")
        plan = self.codesign("--plan", app)[1].split("\0")[:-1]
        root = read(self.owner.authority.folder + "/root.pem")
        write(self.path("large.pem"), root * 25)
        stamps = self.sign_stamped(app, "--deep", certificates=self.path("large.pem"))[1]
        self.assertEqual(stamps, 2 * (len(plan) + 1))
        self.assert_valid(app, **self.owner.environment)

    def test_code_that_comes_too_late_is_not_sealed_as_data(self):
        app = fixtures.make_application(self.linker, self.path("X.app"))
        new = app + "/Contents/Resources/new"
        for code in (self.linker.library(), self.linker.link("exe-linker", signed=True), self.linker.universal()):
            before = tree(app)
            with self.owner.authority.time_server(meanwhile=(1, lambda code=code: shutil.copy(code, new))) as (url, _):
                status, said = self.codesign("--deep", "-s", self.owner.authority.HOLDER, f"--timestamp={url}", app,
                                             **self.owner.environment)
            self.assertEqual(status, 1)
            self.assertIn(f'"{new}" was added meanwhile. Try again', said)
            os.remove(new)
            self.assertEqual(tree(app), before)
        self.sign(app + "/Contents/Resources/module.node")
        self.sign_stamped(app, "--deep")
        self.assert_valid(app, **self.owner.environment)

    def sign_with_few_files(self, most, *arguments):
        return subprocess.run([CODESIGN, "--deep", "-s", self.owner.authority.HOLDER, *arguments], text=True, capture_output=True,
                              env={**os.environ, **self.owner.environment},
                              preexec_fn=lambda: resource.setrlimit(resource.RLIMIT_NOFILE, (most, most)))

    def test_connections_do_not_take_the_files_that_signing_needs(self):
        app = self.path("X.app")
        fixtures.make_bundle(app, "main", self.linker.universal())
        for number in range(70):
            fixtures.make_bundle(f"{app}/Contents/PlugIns/{number}.bundle", "code", self.linker.universal(), "BNDL")
        with self.owner.authority.time_server() as (url, count):
            done = self.sign_with_few_files(256, f"--timestamp={url}", app)
        self.assertEqual((done.returncode, done.stderr, count), (0, "", [142]))
        self.assert_valid(app, **self.owner.environment)

    def test_an_error_does_not_wait_for_stamps_that_do_not_come(self):
        app = fixtures.make_application(self.linker, self.path("X.app"))
        before = tree(app)
        with http.server.ThreadingHTTPServer(("127.0.0.1", 0), LyingServer) as server:
            server.requests, server.lock, server.ended = 0, threading.Lock(), threading.Event()
            threading.Thread(target=server.serve_forever).start()
            start = time.monotonic()
            status, said = self.codesign("--deep", "-s", self.owner.authority.HOLDER, app, f"--timestamp=http://127.0.0.1:{server.server_port}/",
                                         **self.owner.environment)
            took = time.monotonic() - start
            server.ended.set()
            server.shutdown()
        self.assertIn("it refuses the request", said)
        self.assertEqual((status, tree(app)), (1, before))
        self.assertLess(took, 10)


if __name__ == "__main__":
    unittest.main()
