#!/usr/bin/env python3
"""kelpmoray-batch as people, shells and build machines use it: on a terminal, with signals, and on several "hosts"."""
import json
import os
import pty
import re
import select
import signal
import subprocess
import sys
import time
import unittest

sys.path.insert(0, os.path.join(os.path.dirname(os.path.abspath(__file__)), "../support"))

from programs import BUILD, PATIENCE, ROOT, ProgramTest, await_that, run, write  # noqa: E402


def text_of(name):
    with open(os.path.join(ROOT, name), encoding="utf-8") as file:
        return file.read()


class Screen:
    """A program on a terminal of its own."""

    def __init__(self, command, **environment):
        self.shown = b""
        self.pid, self.terminal = pty.fork()
        if self.pid == 0:
            # Whoever runs the tests in the background may ignore it.
            signal.signal(signal.SIGINT, signal.SIG_DFL)
            os.execve(command[0], command, {**os.environ, "TERM": "xterm", **environment})

    def await_text(self, text):
        deadline = time.monotonic() + PATIENCE
        while text.encode() not in self.shown:
            ready, _, _ = select.select([self.terminal], [], [], max(0, deadline - time.monotonic()))
            if not ready or not self.read():
                raise AssertionError(f"no {text!r} in {self.shown.decode()!r}")

    def read(self):
        try:
            piece = os.read(self.terminal, 65536)
        except OSError: # that is how the end of a terminal looks
            return False
        self.shown += piece
        return bool(piece)

    def type(self, text):
        os.write(self.terminal, text.encode())

    def end(self):
        """The exit status, and all that was shown."""
        while self.read():
            pass
        _, status = os.waitpid(self.pid, 0)
        os.close(self.terminal)
        return os.waitstatus_to_exitcode(status), self.shown.decode()


class Terminal(ProgramTest):
    def setUp(self):
        super().setUp()
        self.state = {"XDG_STATE_HOME": self.path("state")}
        self.package("apps/A.app")
        self.package("apps/B.app")
        self.gate = self.path("gate")
        os.mkfifo(self.gate)

    def on_screen(self, *options, **environment):
        return Screen([self.programs.batch, *options, self.path("apps")], **self.state, **environment)

    def test_a_line_tells_what_is_at_work_and_how_far(self):
        # Packs when the gate opens, and says before how far it is.
        with self.programs.packing_script(
                f'printf "1%%\\n43%%\\n" >"$KELPMORAY_PROGRESS"; read line <"{self.gate}"; exec "$real" "$1"'):
            os.mkdir(self.path("pipes"))
            screen = self.on_screen("--process-all", "--jobs=1", NO_COLOR="", XDG_RUNTIME_DIR=self.path("pipes"))
            for done, package in (0, "A"), (1, "B"):
                screen.await_text(f"{done} of 2, {50 * done} %: Processing App Package: {package}.app... 43 %")
                write(self.gate, "go\n")
            status, shown = screen.end()
        self.assertEqual(status, 0)
        last = shown.replace("\r\n", "\n").split("\r\033[K")[-1]
        self.assertEqual(last, "2 packages done, 0 failed, 0 folders skipped, 0 left\n")
        self.assertEqual(os.listdir(self.path("state")), ["kelpmoray"])
        self.assertIn("B.app...\r", shown)
        self.assertEqual(os.listdir(self.path("pipes")), [])

    def test_colour_is_for_terminals_that_are_not_asked_to_do_without(self):
        with self.programs.packing_script("echo error: no: more"):
            _, coloured = self.on_screen("--process-all", NO_COLOR="").end()
            _, plain = self.on_screen("--process-all", NO_COLOR="1").end()
            _, dumb = self.on_screen("--process-all", NO_COLOR="", TERM="dumb").end()
            _, piped = self.batch(self.path("apps"), env={**os.environ, **self.state})
        self.assertIn("A.app: \033[1;31mFAILED\033[0m: no: more", coloured)
        for said in plain, dumb, piped:
            self.assertIn("A.app: FAILED: no: more", said)

    def test_control_c_ends_in_order_and_sums_up(self):
        with self.programs.packing_script(f'echo 1% >"$KELPMORAY_PROGRESS"; read line <"{self.gate}"\n'
                                          'exec "$real" "$1"'):
            screen = self.on_screen("--process-all", "--jobs=1")
            screen.await_text("A.app... 1 %")
            screen.type("\x03")
            screen.await_text("Stopping after this: 0 of 2, 0 %: Processing App Package: A.app... 1 %")
            write(self.gate, "go\n")
            status, shown = screen.end()
        self.assertEqual(status, 3)
        self.assertIn("A.app: packed as", shown)
        self.assertIn("Stopped: 1 package done, 0 failed, 0 folders skipped, 1 left\r\n", shown)
        asked = self.on_screen()
        asked.await_text("do not codesign > ")
        asked.type("\x03")
        status, shown = asked.end()
        self.assertEqual(status, 3)
        self.assertIn("Stopped: 0 packages done, 0 failed, 0 folders skipped, 1 left\r\n", shown)

    def test_a_second_signal_ends_it_at_once_and_an_ignored_one_does_nothing(self):
        with self.programs.packing_script(f'echo 1% >"$KELPMORAY_PROGRESS"; read line <"{self.gate}"\nexec "$real" "$1"'):
            screen = self.on_screen("--process-all", "--jobs=1")
            screen.await_text("A.app... 1 %")
            for _ in range(2):  # as timeout does, for one end
                os.kill(screen.pid, signal.SIGTERM)
            screen.await_text("Stopping")
            ended = []

            def ends():
                os.kill(screen.pid, signal.SIGTERM)
                ended[:] = os.waitpid(screen.pid, os.WNOHANG)
                return ended[0]
            await_that(ends, "the end")
            self.assertEqual(os.waitstatus_to_exitcode(ended[1]), -signal.SIGTERM)
            write(self.gate, "go\n") # its script is still there
            while screen.read():
                pass
            os.close(screen.terminal)
            screen = Screen(["/bin/sh", "-c", 'trap "" HUP; exec "$@"', "sh", self.programs.batch, "--process-all",
                             "--jobs=1", self.path("apps")], **self.state)
            screen.await_text("A.app... 1 %")
            os.kill(screen.pid, signal.SIGHUP)
            write(self.gate, "go\n")
            screen.await_text("B.app... 1 %")
            write(self.gate, "go\n")
            self.assertEqual(screen.end()[0], 0)

    def test_the_log_names_the_package_of_each_line(self):
        _, said = self.batch(self.path("apps"), options=("--process-all", "--verbose", "--jobs=2"),
                             env={**os.environ, **self.state})
        for name in "AB":
            package = self.path(f"apps/{name}.app")
            for line in "cmdstring = ", "result of fenwoJustZipApps.sh = ":
                self.assertRegex(said, rf"\] \[{re.escape(package)}\] {line}.*{name}\.")


class SigningTest(ProgramTest):
    """With an identity made for it."""

    def setUp(self):
        super().setUp()
        os.mkdir(self.path("identities"), 0o700)
        write(self.path("passphrase"), "secret\n", 0o600)
        self.environment = {
            **os.environ, "HOME": self.folder, "PATH": f"{os.path.join(BUILD, 'bin')}:{os.environ['PATH']}",
            "XDG_STATE_HOME": self.path("state"), "KELPMORAY_IDENTITIES": self.path("identities"),
            "KELPMORAY_PASSPHRASE_FILE": self.path("passphrase")}
        self.shell("kelpmoray-security create-test-identity 'Jo (X1)'")

    def shell(self, command):
        return run(["sh", "-c", command], cwd=self.folder, env=self.environment)


class Options(SigningTest):
    def process(self, *options):
        status, said = self.batch(self.path("X.app"), env=self.environment, options=("--process-all", *options))
        self.assertEqual(status, 0, said)
        self.said = said
        with open(self.path("X.zip"), "rb") as archive:
            return archive.read()

    def test_for_the_packer_reach_it(self):
        self.package("X.app", files={"Contents/text": "\n".join(map(str, range(50_000)))})
        first = self.process("--reproducible", "--level=1")
        os.utime(self.path("X.app/Contents/text"), (1e9, 1e9))
        self.assertEqual(self.process("--reproducible", "--level=1"), first)
        self.assertNotEqual(self.process("--reproducible", "--level=9"), first)

    def test_for_the_signer_reach_it(self):
        self.package("X.app")
        write(self.path("given"), '<plist version="1.0"><dict><key>com.example.given</key><true/></dict></plist>')
        # Its server would be the first that is asked.
        self.environment["KELPMORAY_TIMESTAMP"] = "http://127.0.0.1:9/"
        self.process("--identity=Jo", "--timestamp=none", "--entitlements", self.path("given"))
        self.assertIn(f"    The entitlements are in {self.path('given')}\n", self.said)
        self.process("--identity=Jo", "--timestamp=none")
        self.assertEqual(len(self.said.splitlines()), 2, self.said)
        self.process("--identity=Jo", "--timestamp=none", "--entitlements", self.path("given"))
        _, said = self.shell("kelpmoray-codesign -d --entitlements - X.app")
        self.assertIn("com.example.given", said)
        status, said = self.batch(self.path("X.app"), env=self.environment, options=(
            "--process-all", "--identity=Jo", "--entitlements=missing"))
        self.assertEqual(status, 2)
        self.assertIn("missing: no file with entitlements is there. Check the path.", said)

    def test_requiring_a_signature_keep_the_good_archive(self):
        self.package("X.app")
        good = self.process("--identity=Jo", "--timestamp=none", "--require-signature")
        os.mkfifo(self.path("X.app/Contents/fifo"))
        options = ("--process-all", "--identity=Jo", "--timestamp=none")
        status, said = self.batch(self.path("X.app"), env=self.environment, options=(*options, "--require-signature"))
        self.assertEqual(status, 1, said)
        self.assertRegex(said, "X.app: FAILED: kelpmoray-codesign could not sign .*X.app: ")
        os.remove(self.path("passphrase"))
        status, said = self.batch(self.path("X.app"), env=self.environment, options=(*options, "--json"))
        self.assertEqual(status, 2, said)
        self.assertIn('The key of "Test Identity: Jo (X1)" is locked.', said)
        self.assertTrue(json.loads(said.splitlines()[-1])["summary"]["refused"], said)
        with open(self.path("X.zip"), "rb") as archive:
            self.assertEqual(archive.read(), good)


class Completions(unittest.TestCase):
    def test_know_every_option(self):
        helped = subprocess.run([os.path.join(BUILD, "bin/kelpmoray-batch"), "--help"], capture_output=True, text=True).stdout
        lines = re.findall(r"^  (?:(-\w), )?--([a-z-]+)( [A-Z]+)?  ", helped, re.M)
        self.assertGreater(len(lines), 15)
        bash, zsh, fish = (text_of("packaging/completions/" + name) for name in (
            "kelpmoray-batch.bash", "_kelpmoray-batch", "kelpmoray-batch.fish"))
        for short, name, value in lines:
            self.assertRegex(bash, rf"[' ]--{name}[' \n]")
            self.assertRegex(zsh, rf"--{name}{'=' if value else ''}[\[}}]")
            self.assertRegex(fish, rf"{'-s ' + short[1] + ' ' if short else ''}-l {name} {'-[rx] ' if value else '-d'}")

    def test_of_the_identity_tools_know_every_option(self):
        for program in ("kelpmoray-codesign", "kelpmoray-security"):
            helped = subprocess.run([os.path.join(BUILD, "bin", program), "--help"], capture_output=True, text=True).stdout
            names = set(re.findall(r"(?<![\w-])--([a-z][a-z-]+)", helped))
            self.assertGreater(len(names), 10)
            for name, option in ((f"{program}.bash", r"--{}\b"), (f"_{program}", r"--{}\b"), (f"{program}.fish", r"-l {}\b")):
                known = text_of("packaging/completions/" + name)
                self.assertEqual([each for each in names if not re.search(option.format(each), known)], [], name)
            done = subprocess.run(["bash", "-nc", text_of(f"packaging/completions/{program}.bash")], capture_output=True)
            self.assertEqual((done.returncode, done.stderr), (0, b""))

    def test_of_bash_complete_options_values_and_folders(self):
        for words, wanted in ((("--req",), ["--require-signature"]), (("--level", ""), [*"123456789"]),
                              (("--level", "=", "4"), ["4"]), (("/us",), ["/usr"])):
            script = (f"compopt() {{ :; }}; . {ROOT}/packaging/completions/kelpmoray-batch.bash; COMP_WORDS=(kelpmoray-batch \"$@\")\n"
                      'COMP_CWORD=$#; _kelpmoray_batch; printf "%s\\n" "${COMPREPLY[@]}"')
            said = subprocess.run(["bash", "-c", script, "bash", *words], capture_output=True, text=True)
            self.assertEqual(said.stdout.splitlines(), wanted, said.stderr)


class BuildMachine(SigningTest):
    def test_the_script_of_the_documentation_signs_and_fails_loudly(self):
        script = re.search("```sh\n(.*?)```", text_of("docs/ci.md"), re.S)[1]
        openssl = ("openssl req -x509 -newkey rsa:2048 -nodes -keyout key -out certificate -days 30 -subj '/CN=Kind: Cy (X2)' "
                   "-addext keyUsage=digitalSignature -addext extendedKeyUsage=codeSigning 2>/dev/null && "
                   "openssl pkcs12 -export -inkey key -in certificate -passout pass:pw | base64 -w 0")
        secret = self.shell(openssl)[1].splitlines()[-1]
        self.package("dist/A.app")
        self.environment.update(IDENTITY_P12=secret, IDENTITY_PASSWORD="pw", IDENTITY="Cy", KELPMORAY_TIMESTAMP="none")
        status, said = self.shell(script)
        self.assertEqual(status, 0, said)
        self.assert_whole(self.path("dist/A.zip"), self.path("dist/A.app"))
        with open(self.path("run.jsonl")) as lines:
            self.assertEqual(json.loads(lines.readline())["package"]["signedAs"], "Cy (X2)")
        os.remove(self.path("dist/A.zip"))
        for secrets, expected in ({"IDENTITY": "Cyx"}, 2), ({"IDENTITY": ""}, 2), ({"IDENTITY_PASSWORD": "x"}, 1):
            self.environment.update({"IDENTITY": "Cy", "IDENTITY_PASSWORD": "pw", **secrets})
            self.assertEqual(self.shell(script)[0], expected, secrets)
        self.assertFalse(os.path.exists(self.path("dist/A.zip")))


class ManyMachines(SigningTest):
    """The recipes of docs/many-machines.md, as they stand there."""

    def setUp(self):
        super().setUp()
        self.environment.update(KELPMORAY_TIMESTAMP="none", APPS=self.path("apps"))
        self.environment["IDENTITY"] = self.shell("kelpmoray-batch --list-identities")[1].split()[0]
        self.names = [f"Näme {number}" for number in range(45)]
        for name in self.names:
            self.package(f"apps/{name}.app")

    def recipe(self, heading, number=0):
        section = text_of("docs/many-machines.md").split(f"## {heading}\n")[1].split("\n## ")[0]
        return re.findall(r"(?:^    .*\n)+", section, re.M)[number]

    def merged(self):
        status, said = self.shell(self.recipe("The results together"))
        result = said[:said.rindex("}") + 1]
        return status, json.loads(result)

    def test_gnu_parallel_spreads_the_packages_over_hosts(self):
        # Two machines that are this one: ssh's stand-in notes its host and runs the command as sshd does.
        write(self.path("hosts"), "one\ntwo\n")
        write(self.path("bin/ssh"), '#!/bin/sh\nhost=$1; shift; [ "$1" != -- ] || shift\n'
              f'echo "$host" >>"{self.path("used")}"; SHELL=/bin/sh exec sh -c "$*"\n', 0o755)
        self.environment["PATH"] = self.path("bin:") + self.environment["PATH"]
        status, said = self.shell(self.recipe("GNU parallel over ssh"))
        self.assertEqual(status, 0, said)
        self.assertEqual(self.merged(), (0, {"packages": 45, "failed": []}))
        with open(self.path("used")) as hosts:
            self.assertEqual(set(hosts.read().split()), {"one", "two"})
        for name in self.names:
            self.assert_whole(self.path(f"apps/{name}.zip"), self.path(f"apps/{name}.app"))
        with open(self.path("run.jsonl")) as lines:
            runs = [json.loads(line) for line in lines]
        self.assertEqual({run["package"]["signedAs"] for run in runs if "package" in run}, {"Jo (X1)"})

    def test_a_job_array_takes_each_package_once_and_tells_what_failed(self):
        os.mkdir(self.path("apps/Näme 3.zip"))
        count = 4
        self.environment["SLURM_ARRAY_TASK_COUNT"] = str(count)
        for job in range(count):
            self.environment["SLURM_ARRAY_TASK_ID"] = str(job)
            self.shell(self.recipe("Job arrays of a build farm"))
        status, result = self.merged()
        self.assertEqual((status, result["packages"]), (1, 45))
        self.assertEqual([failed["path"] for failed in result["failed"]], [self.path("apps/Näme 3.app")])
        self.assertIn("a folder is in the place of", result["failed"][0]["error"])
        os.remove(self.path("run-1.jsonl"))
        status, missing = self.shell(self.recipe("The results together", 1))
        self.assertEqual((status, len(missing.splitlines())), (0, 12))


if __name__ == "__main__":
    unittest.main(verbosity=2)
