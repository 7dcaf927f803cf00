"""What tests of whole programs share: a copy of the programs, packages, archives, users, a small disk."""
import contextlib
import ctypes
import glob
import os
import shutil
import signal
import subprocess
import tempfile
import time
import unittest

from archives import in_archive, on_disk

ROOT = os.path.dirname(os.path.dirname(os.path.dirname(os.path.abspath(__file__))))
BUILD = os.environ.get("KELPMORAY_BUILD", os.path.join(ROOT, "build/dev"))
PATIENCE = 60
NOBODY = 65534
# Not /tmp: one of the faults is that it is full.
SCRATCH = "/var/tmp"


def ordinary_user():
    """For subprocess: root is bound by no permissions."""
    return {"user": NOBODY, "group": NOBODY, "extra_groups": []} if os.geteuid() == 0 else {}


def give(path):
    """Makes a tree the ordinary user's."""
    if os.geteuid() == 0:
        subprocess.run(["chown", "-R", f"{NOBODY}:{NOBODY}", path], check=True)


def ignoring(*signals):
    """For subprocess: the program finds these signals ignored from the start."""
    def ignore():
        for number in signals:
            signal.signal(number, signal.SIG_IGN)
    return {"preexec_fn": ignore, "restore_signals": False}


def await_that(condition, what):
    """Asks until the answer is true, and gives it."""
    deadline = time.monotonic() + PATIENCE
    while not (answer := condition()):
        if time.monotonic() > deadline:
            raise AssertionError(f"waited in vain for {what}")
        os.sched_yield()
    return answer


class Installation:
    """A copy of the programs that an ordinary user can reach and a test can spoil."""

    def __init__(self):
        self.folder = tempfile.mkdtemp(prefix="kelpmoray-", dir=SCRATCH)
        os.chmod(self.folder, 0o755)
        for name in ("bin/kelpmoray", "bin/kelpmoray-batch", "bin/kelpmoray-codesign",
                     "bin/kelpmoray-security", "libexec", "share"):
            source, target = os.path.join(BUILD, name), os.path.join(self.folder, name)
            os.makedirs(os.path.dirname(target), exist_ok=True)
            if os.path.isdir(source):
                shutil.copytree(source, target, ignore=lambda folder, names: [
                    name for name in names if name.endswith((".cmake", ".a")) or name == "CMakeFiles"])
            elif os.path.exists(source):
                shutil.copy2(source, target)
        self.batch = os.path.join(self.folder, "bin/kelpmoray-batch")
        self.window = os.path.join(self.folder, "bin/kelpmoray")
        self.codesign = os.path.join(self.folder, "bin/kelpmoray-codesign")
        self.packer = os.path.join(self.folder, "libexec/kelpmoray/kelpmoray-zip")
        self.script = os.path.join(self.folder, "share/kelpmoray/fenwoJustZipApps.sh")

    def remove(self):
        shutil.rmtree(self.folder)

    @contextlib.contextmanager
    def packing_script(self, body):
        """While it lasts, `body` runs in the place of the packing script; $real is that script."""
        real = self.script.replace(".sh", ".real.sh")
        os.rename(self.script, real)
        try:
            write(self.script, f"#!/bin/sh\nreal='{real}'\n{body}\n", 0o755)
            yield
        finally:
            os.rename(real, self.script)


class FolderTest(unittest.TestCase):
    """A folder of the test's own, with a blank in its name."""
    maxDiff = None

    def setUp(self):
        self.folder = os.path.realpath(tempfile.mkdtemp(prefix="kelpmoray test ", dir=SCRATCH))
        os.chmod(self.folder, 0o755)
        self.addCleanup(self.remove_folder)

    def remove_folder(self):
        # Some tests forbid even their owner to change a folder.
        subprocess.run(["chmod", "-R", "u+rwX", self.folder], check=False, stderr=subprocess.DEVNULL)
        shutil.rmtree(self.folder, ignore_errors=True)

    def path(self, *names):
        return os.path.join(self.folder, *names)

    def package(self, name, **contents):
        return make_package(self.path(name), **contents)

    def assert_whole(self, archive, package):
        self.assertEqual(in_archive(os.fsdecode(archive)), on_disk(package))

    def assert_names(self, folder, *names):
        self.assertEqual(sorted(os.listdir(folder)), sorted(names))


class ProgramTest(FolderTest):
    """The folder, and the programs."""

    @classmethod
    def setUpClass(cls):
        cls.programs = Installation()
        cls.addClassCleanup(cls.programs.remove)

    def pack(self, package, **how):
        """What the packing script says about the package, and its exit status."""
        return run([self.programs.script, package], **how)

    def batch(self, *paths, options=("--process-all", "--do-not-codesign"), **how):
        return run([self.programs.batch, *options, *paths], **how)

    def hold_packer(self, folder):
        """Stops the packer in the middle of its work in the folder; its number."""
        opened = await_that(lambda: self.unfinished_in(folder), "the packer")
        packer = int(opened.split("/")[2])
        os.kill(packer, signal.SIGSTOP)
        self.assertTrue(os.path.lexists(opened), "it was too quick")
        return packer

    @staticmethod
    def unfinished_in(folder):
        """The entry of /proc that stands for a file without a name, open in the folder."""
        for opened in glob.glob("/proc/[0-9]*/fd/*"):
            with contextlib.suppress(OSError):
                if os.readlink(opened).startswith(os.path.join(folder, "#")):
                    return opened
        return None


def run(command, **how):
    """The exit status and all that the command says. Nobody waits longer than PATIENCE: it and all that
    it started are killed then."""
    how.setdefault("stdout", subprocess.PIPE)
    with subprocess.Popen(command, stdin=subprocess.DEVNULL, stderr=subprocess.STDOUT,
                          start_new_session=True, **how) as process:
        try:
            said, _ = process.communicate(timeout=PATIENCE)
        except subprocess.TimeoutExpired:
            os.killpg(process.pid, signal.SIGKILL)
            raise
    return process.returncode, (said or b"").decode(errors="surrogateescape")


def write(path, content, mode=0o644):
    os.makedirs(os.path.dirname(path), exist_ok=True)
    with open(path, "wb") as file:
        file.write(content.encode() if isinstance(content, str) else content)
    os.chmod(path, mode)
    return path


def make_package(path, size=0, files=()):
    """A complete application; `size` bytes in it do not shrink, `files` maps more names to contents."""
    write(os.path.join(path, b"Contents/Info.plist" if isinstance(path, bytes) else
                       "Contents/Info.plist"),
          "<plist><dict><key>CFBundleExecutable</key><string>run</string></dict></plist>")
    in_package = os.fsencode(path)
    write(os.path.join(in_package, b"Contents/MacOS/run"), "#!/bin/sh\n", 0o755)
    os.symlink("MacOS/run", os.path.join(in_package, b"Contents/link"))
    if size:
        write(os.path.join(in_package, b"Contents/noise"), os.urandom(size))
    for name, content in dict(files).items():
        write(os.path.join(in_package, os.fsencode(name)), content)
    return path


class OwnMounts:
    """What shell commands mount, which only what runs through it sees; `arguments` are theirs."""

    def __init__(self, commands, *arguments):
        for unshare, self.enter in ((["unshare", "-m"], []), (["unshare", "-rm"], ["-U"])):
            self.holder = subprocess.Popen(
                unshare + ["sh", "-c", f"set -e; {commands}; echo mounted; exec cat", "sh", *arguments],
                stdin=subprocess.PIPE, stdout=subprocess.PIPE, stderr=subprocess.DEVNULL)
            if self.holder.stdout.readline():
                return
            self.close()
        raise unittest.SkipTest("neither root nor user namespaces may mount here")

    def close(self):
        self.holder.communicate()

    def command(self, command):
        """The command as it has to be to see them."""
        return (["nsenter", "-t", str(self.holder.pid), "-m"] + self.enter +
                (["--preserve-credentials"] if self.enter else []) + list(command))


class SmallDisk(OwnMounts):
    """A file system of a few bytes at `point`."""

    def __init__(self, point, size):
        os.makedirs(point, exist_ok=True)
        self.point = point
        super().__init__('mount -t tmpfs -o "size=$2,mode=1777" tmpfs "$1"', point, size)

    def path(self, *names):
        """Where we see what lies on it."""
        return os.path.join(f"/proc/{self.holder.pid}/root", self.point.lstrip("/"), *names)


def adopt_orphans():
    """From now on what our children leave running is ours to wait for."""
    subreaper = 36
    if ctypes.CDLL(None, use_errno=True).prctl(subreaper, 1, 0, 0, 0) != 0:
        raise OSError(ctypes.get_errno(), "prctl")
