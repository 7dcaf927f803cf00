#!/usr/bin/env python3
"""What happens to code while it is signed: other signers, changes, servers that fail, kills."""
import contextlib
import http.server
import os
import resource
import shutil
import signal
import subprocess
import sys
import unittest

import fixtures
from codesign import CODESIGN, CodeTest, Owner, flip, read, tree
from programs import PATIENCE, write


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


@unittest.skipUnless(sys.platform == "linux", "the loader is told otherwise elsewhere")
class InOurProcess(Meanwhile):
    KILLER = """void *dlsym(void *, const char *); int kill(int, int), getpid(void), atoi(const char *); char *getenv(const char *);
int rename(const char *from, const char *to) {
    static int count;
    int done = ((int (*)(const char *, const char *))dlsym((void *)-1L, "rename"))(from, to);
    if (++count == atoi(getenv("RENAMES"))) kill(getpid(), 9);
    return done;
}"""

    WRITER = """void *dlsym(void *, const char *); int open(const char *, int); char *getenv(const char *);
long write(int, const void *, unsigned long);
int fsync(int file) {
    write(open(getenv("WRITES_TO"), 02001), "", 1);
    return ((int (*)(int))dlsym((void *)-1L, "fsync"))(file);
}"""

    def preloaded(self, source):
        write(self.path("other.c"), source)
        # The loader takes a blank for the end of a path.
        fixtures.check_call(fixtures.tool("clang"), "-shared", "-fPIC", "-o", "other.so", "other.c", "-ldl", cwd=self.folder)
        return {"LD_PRELOAD": "./other.so", "ASAN_OPTIONS": "verify_asan_link_order=0"}

    def test_a_file_that_is_written_to_keeps_its_signature(self):
        code = self.copy(self.linker.universal())
        self.sign(code)
        before = read(code)
        status, said = self.codesign("--remove-signature", code, **self.preloaded(self.WRITER), WRITES_TO=code)
        self.assertEqual((status, read(code)), (1, before + b"\0"))
        self.assertEqual(said, f'{code}: "{code}" changed while it was read. Try again when nothing writes to it.\n')

    def test_between_two_renames_each_file_is_whole_and_signing_again_mends_it(self):
        app = self.path("X.app")
        preloaded = self.preloaded(self.KILLER)
        fixtures.make_bundle(app, "main", self.linker.link("exe-arm64"))
        fixtures.put(self.linker.library(), app, "Contents/Frameworks/lib.dylib")
        fixtures.write_plist(app + "/Contents/PlugIns/Pictures.bundle/Contents/Info.plist", None, "BNDL")
        self.sign(app, "--deep")
        kept, old = shutil.copytree(app, self.path("Kept.app")), tree(app)
        again = ("-f", "--deep", "-o", "library", "-i", "org.example.new")
        self.sign(app, *again)
        new, renames, status = tree(app), 0, -signal.SIGKILL
        while status == -signal.SIGKILL:
            shutil.rmtree(app)
            shutil.copytree(kept, app)
            renames += 1
            status, _ = self.codesign("-s", "-", *again, app, RENAMES=str(renames), **preloaded)
            for path, content in tree(app).items():
                self.assertTrue(path.endswith(".tmp") or content in (old[path], new[path]), path)
            self.sign(app, *again)
            self.assertEqual(tree(app), new)
        self.assertEqual((status, renames), (0, 8))


class Changes(Meanwhile):
    def sign_while(self, change, path, *arguments, last=2):
        """Status and output of a signer, and all that is another then, with a change before the last time stamp."""
        before = tree(self.folder).items()
        with self.owner.authority.time_server(meanwhile=(last, change)) as (url, _):
            done = self.codesign("-f", "-s", self.owner.authority.HOLDER, f"--timestamp={url}", *arguments, path,
                                 **self.owner.environment)
        return *done, {changed for changed, _ in before ^ tree(self.folder).items()}

    def put_back_times(self, path):
        """The same size and times, but another byte."""
        status = os.stat(path)
        flip(path, 0)
        os.utime(path, ns=(status.st_atime_ns, status.st_mtime_ns))

    def replace(self, path, make):
        os.unlink(path)
        make(path)

    def test_what_is_changed_in_a_package_is_named_and_nothing_is_signed(self):
        app = self.path("X.app")
        contents, framework = app + "/Contents/", app + "/Contents/Frameworks/Foo.framework/Versions/A/"
        fixtures.make_bundle(app, "main", self.linker.universal())
        fixtures.put(self.linker.library(), contents, "Frameworks/lib.dylib")
        fixtures.write_plist(framework + "Resources/Info.plist", "Foo", "FMWK")
        fixtures.put(self.linker.library(), framework, "Foo")
        os.symlink("A", framework[:-2] + "Current")
        fixtures.make_text(contents + "Resources/deep/er/last.txt")
        fixtures.make_text(contents + "MacOS/script.sh", "#!/bin/sh\n")
        os.symlink("deep", contents + "Resources/link")
        self.sign(app, "--deep")
        for name, change in {
                "Resources/data.txt": self.put_back_times,
                "Resources/deep/er/last.txt": os.unlink,
                "Resources/deep/er/first.txt": fixtures.make_text,
                "Resources/new": os.mkdir,
                "Resources/link": lambda path: self.replace(path, lambda path: os.symlink("data.txt", path)),
                "MacOS/script.sh": self.put_back_times,
                "MacOS/main": lambda path: flip(path, 0x8000),
                "Frameworks/lib.dylib": lambda path: flip(path, 0x200),
                "Frameworks/Foo.framework/Versions/A/Foo": lambda path: flip(path, 0x200),
                "Info.plist": lambda path: write(path, read(path) + b"\n")}.items():
            kept = shutil.copytree(app, self.path("Kept.app"), symlinks=True)
            status, said, others = self.sign_while(lambda change=change, name=name: change(contents + name), app)
            self.assertEqual((status, others), (1, {contents + name}))
            self.assertRegex(said, f'"{contents + name}" (changed|was added|went away) while the package was signed. Try again')
            shutil.rmtree(app)
            os.rename(kept, app)
        self.assert_valid(app)

    def test_code_that_is_nested_or_alone_is_watched_too(self):
        app, lone = self.application(), self.copy(self.linker.universal())
        for path, changed in {app: app + "/Contents/XPCServices/Service.xpc/Contents/Info.plist", lone: lone}.items():
            count = len(self.codesign("--plan", path)[1].split("\0"))  # two slices here, too
            status, said, others = self.sign_while(lambda changed=changed: os.utime(changed), path, "--deep", last=count)
            self.assertEqual((status, others), (1, set()))
            self.assertIn(f'"{changed}" changed while', said)

    def test_what_belongs_to_no_signature_may_change(self):
        app = self.path("X.app")
        fixtures.make_bundle(app, "main", self.linker.universal())
        status, said, _ = self.sign_while(lambda: fixtures.make_text(app + "/Contents/Resources/.DS_Store"), app)
        self.assertEqual((status, said), (0, ""))
        self.assert_valid(app, **self.owner.environment)


if __name__ == "__main__":
    unittest.main()
