#!/usr/bin/env python3
"""What happens to code while it is signed: other signers, changes, servers that fail, kills."""
import contextlib
import errno
import http.server
import os
import resource
import shutil
import signal
import stat
import subprocess
import sys
import unittest

import fixtures
from codesign import CODESIGN, CodeTest, Owner, flip, read, tree
from programs import PATIENCE, await_that, give, ordinary_user, run, write


class Meanwhile(CodeTest):
    @classmethod
    def setUpClass(cls):
        super().setUpClass()
        cls.owner = Owner(cls.workshop)

    def application(self, name="My App.app"):
        return fixtures.make_application(self.linker, self.path(name))

    def rich_application(self):
        """With code whose files the seal around it has hashes of, its own seals and signatures in files among them."""
        app = self.application()
        inner = app + "/Contents/Resources/Inner.app"
        fixtures.make_bundle(inner, "inner", self.linker.link("exe-arm64"))
        fixtures.put(self.linker.library(), inner, "Contents/Frameworks/lib.dylib")
        fixtures.write_plist(inner + "/Contents/PlugIns/Pictures.bundle/Contents/Info.plist", None, "BNDL")
        return app

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
            yield process


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
    KILLER = """void *dlsym(void *, const char *); int kill(int, int), getpid(void), atoi(const char *), *__errno_location(void);
char *getenv(const char *);
static int count;
static int isRefused(void) {
    if (!getenv("REFUSAL") || (++count != atoi(getenv("RENAMES")) && atoi(getenv("RENAMES")))) return 0;
    *__errno_location() = atoi(getenv("REFUSAL"));
    return 1;
}
static int told(int done) {
    if (!getenv("REFUSAL") && ++count == atoi(getenv("RENAMES"))) kill(getpid(), atoi(getenv("SIGNAL")));
    return done;
}
int rename(const char *from, const char *to) {
    if (atoi(getenv("RENAMES")) && isRefused()) return -1;
    return told(((int (*)(const char *, const char *))dlsym((void *)-1L, "rename"))(from, to));
}
int renameat2(int at, const char *from, int other, const char *to, unsigned flags) {
    if (isRefused()) return -1;
    return told(((int (*)(int, const char *, int, const char *, unsigned))dlsym((void *)-1L, "renameat2"))(at, from, other, to, flags));
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
        self.assertEqual(said, f'{code}: "{code}" changed meanwhile. Try again when nothing writes to the package.\n')

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
            status, _ = self.codesign("-s", "-", *again, app, RENAMES=str(renames), SIGNAL="9", **preloaded)
            for path, content in tree(app).items():
                self.assertTrue(path.endswith(".tmp") or content in (old[path], new[path]), path)
            self.sign(app, *again)
            self.assertEqual(tree(app), new)
        self.assertEqual((status, renames), (0, 8))
        for number in (signal.SIGTERM, signal.SIGQUIT, signal.SIGALRM):
            shutil.rmtree(app)
            shutil.copytree(kept, app)
            status, _ = self.codesign("-s", "-", *again, app, RENAMES="2", SIGNAL=str(int(number)), **preloaded)
            self.assertEqual((status, tree(app)), (-number, new))

    def test_a_rename_that_is_refused_leaves_all_as_it_was(self):
        """REFUSAL is the error of the rename with the number RENAMES, or of all that swap if that is 0."""
        app, preloaded = self.path("X.app"), self.preloaded(self.KILLER)
        fixtures.make_bundle(app, "main", self.linker.link("exe-arm64"))
        fixtures.put(self.linker.library(), app, "Contents/Frameworks/lib.dylib")
        self.sign(app, "--deep")
        # Of an earlier signature, which a new one does not use.
        fixtures.make_text(app + "/Contents/_CodeSignature/CodeRequirements-4")
        before = tree(app)
        for arguments, count in {("-f", "--deep", "-s", "-"): 4, ("--remove-signature",): 3}.items():
            for number in range(1, count + 1):
                status, said = self.codesign(*arguments, app, **preloaded, REFUSAL=str(errno.EPERM), RENAMES=str(number))
                self.assertEqual((status, tree(app)), (1, before))
                self.assertRegex(said, r"Cannot (replace|delete) .*: Operation not permitted\.")
        # File systems that cannot swap names.
        status, _ = self.codesign("-f", "--deep", "-s", "-", app, **preloaded, REFUSAL=str(errno.EINVAL), RENAMES="0")
        self.assertEqual(status, 0)
        self.assert_valid(app)
        status, _ = self.codesign("--remove-signature", app)
        self.assertEqual((status, os.path.exists(app + "/Contents/_CodeSignature")), (0, False))

    def test_a_signal_takes_all_away_that_was_written_aside(self):
        app = self.rich_application()
        count = len(self.codesign("--plan", app)[1].split("\0"))
        before = tree(app)

        def end():
            await_that(lambda: any(path.endswith(".tmp") for path in tree(app)), "a file with a hidden name")
            process.terminate()
            process.wait(PATIENCE)
        with self.owner.authority.time_server(meanwhile=(count, end)) as (url, _), subprocess.Popen(
                [CODESIGN, "--deep", "-s", self.owner.authority.HOLDER, f"--timestamp={url}", app],
                env={**os.environ, **self.owner.environment}) as process:
            process.wait(PATIENCE)
        self.assertEqual((process.returncode, tree(app)), (-signal.SIGTERM, before))

    def test_signing_takes_away_what_a_killed_run_left_beside_a_lone_file(self):
        lone = self.copy(self.linker.link("exe-arm64"))
        left = write(self.path(".kelpmoray-" + 32 * "0" + ".tmp"), "")
        self.sign(lone)
        self.assertFalse(os.path.exists(left))


class Changes(Meanwhile):
    def sign_while(self, change, path, *arguments, last=2):
        """Status and output of a signer, and all that is another then, with a change before the last time stamp."""
        before = tree(self.folder).items()
        with self.owner.authority.time_server(meanwhile=(last, change)) as (url, _):
            done = self.codesign("-f", "-s", self.owner.authority.HOLDER, f"--timestamp={url}", *arguments, path,
                                 **self.owner.environment)
        return *done, {changed for changed, _ in before ^ tree(self.folder).items()}

    def put_back_times(self, path):
        """The same size and times, but another byte, or another file in a folder."""
        changed = path if os.path.exists(path) else os.path.dirname(path)
        status = os.stat(changed)
        flip(path, 0) if changed == path else fixtures.make_text(path)
        os.utime(changed, ns=(status.st_atime_ns, status.st_mtime_ns))

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
        fixtures.make_text(contents + "Resources/.DS_Store")
        fixtures.make_text(contents + "MacOS/script.sh", "#!/bin/sh\n")
        os.symlink("deep", contents + "Resources/link")
        self.sign(app, "--deep")
        for name, change in {
                "Resources/data.txt": self.put_back_times,
                "Resources/deep/new": self.put_back_times,
                "Resources/.DS_Store": lambda path: self.replace(path, lambda path: os.symlink("data.txt", path)),
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
            self.assertRegex(said, f'"{contents + name}" (changed|was added|went away) meanwhile. Try again')
            shutil.rmtree(app)
            os.rename(kept, app)
        self.assert_valid(app)

    def test_code_that_is_nested_or_alone_is_watched_too(self):
        app, lone = self.application(), self.copy(self.linker.universal())
        for path, changed in {app: app + "/Contents/XPCServices/Service.xpc/Contents/Info.plist", lone: lone}.items():
            count = len(self.codesign("--plan", path)[1].split("\0"))  # two slices here, too
            status, said, others = self.sign_while(lambda changed=changed: os.utime(changed), path, "--deep", last=count)
            self.assertEqual((status, others), (1, set()))
            self.assertIn(f'"{changed}" changed meanwhile', said)

    def test_what_lies_around_a_seal_is_watched_too(self):
        app = self.application()
        framework = app + "/Contents/Frameworks/Foo.framework/"
        self.sign(app, "--deep")
        count = len(self.codesign("--plan", app)[1].split("\0"))
        for path, change in {
                app + "/stray": fixtures.make_text,
                framework + "stray": fixtures.make_text,
                framework + "Versions/Z": os.mkdir,
                framework + "Versions/Current": lambda path: self.replace(path, lambda path: os.symlink("./A", path)),
                app + "/Contents/_CodeSignature/stray": fixtures.make_text}.items():
            kept = shutil.copytree(app, self.path("Kept.app"), symlinks=True)
            status, said, others = self.sign_while(lambda change=change, path=path: change(path), app, "--deep", last=count)
            self.assertEqual((status, others), (1, {path}))
            self.assertRegex(said, f'"{path}" ((changed|was added) meanwhile|is no file of a signature)')
            shutil.rmtree(app)
            os.rename(kept, app)

    def test_what_belongs_to_no_signature_may_change(self):
        app = self.path("X.app")
        fixtures.make_bundle(app, "main", self.linker.universal())
        status, said, _ = self.sign_while(lambda: fixtures.make_text(app + "/Contents/Resources/.DS_Store"), app)
        self.assertEqual((status, said), (0, ""))
        self.assert_valid(app, **self.owner.environment)

    def test_the_mode_of_a_user_who_may_not_give_it_to_others_is_kept(self):
        path = self.copy(self.linker.link("exe-arm64"))
        command = shutil.copy(CODESIGN, self.path("codesign"))
        give(self.folder)
        os.chmod(path, 0o6751)
        subprocess.run([command, "-s", "-", path], cwd=self.folder, check=True, **ordinary_user())
        self.assert_valid(path)
        self.assertEqual(stat.S_IMODE(os.stat(path).st_mode), 0o6751)

    def test_a_new_signature_is_as_open_as_what_it_lies_in_and_has_its_owner(self):
        command = shutil.copy(CODESIGN, self.path("codesign"))
        bundles = self.path("X.app"), self.path("Pictures.bundle")
        fixtures.make_bundle(bundles[0], "main", self.linker.link("exe-arm64"))
        fixtures.write_plist(bundles[1] + "/Contents/Info.plist", None)
        for bundle in bundles:
            folder = bundle + "/Contents/_CodeSignature"
            for mode in (0o755, 0o2775, 0o700):
                shutil.rmtree(folder, ignore_errors=True)
                os.chmod(bundle + "/Contents", mode)
                give(self.folder)
                subprocess.run([command, "-f", "-s", "-", bundle], check=True, stderr=subprocess.DEVNULL, umask=0o077)
                modes = {oct(stat.S_IMODE(os.stat(os.path.join(folder, name)).st_mode)) for name in os.listdir(folder)}
                self.assertEqual((stat.S_IMODE(os.stat(folder).st_mode), modes), (mode, {oct(mode & 0o666)}))
                subprocess.run([command, "-f", "-s", "-", bundle], check=True, stderr=subprocess.DEVNULL, **ordinary_user())
            os.chmod(folder, 0)
            status, said = run([command, "--verify", bundle], cwd=self.folder, **ordinary_user())
            self.assertEqual((status, said.count("/_CodeSignature/"), "Permission denied" in said), (1, 1, True), said)


if __name__ == "__main__":
    unittest.main()
