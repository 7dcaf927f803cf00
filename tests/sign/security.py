"""kelpmoray-security from outside: identities made by openssl, a token, and the desktop's keeper of secrets."""
import glob
import json
import os
import shutil
import subprocess
import sys
import tempfile
import unittest

import fixtures

PROGRAM = os.path.join(os.environ["KELPMORAY_BUILD"], "bin", "kelpmoray-security")
CODESIGN = os.path.join(os.path.dirname(PROGRAM), "kelpmoray-codesign")
CODE = "keyUsage=critical,digitalSignature\nextendedKeyUsage=critical,codeSigning\n"
LEAF = "Developer ID Application: Jo (ABCDE12345)"


class SecurityTest(unittest.TestCase):
    def setUp(self):
        self.folder = tempfile.mkdtemp(prefix="kelpmoray test ")
        self.addCleanup(shutil.rmtree, self.folder)
        os.makedirs(self.path("home/roots"))
        os.chmod(self.path("home"), 0o700)
        self.environment = {"PATH": os.environ["PATH"], "HOME": self.folder,
                            "KELPMORAY_IDENTITIES": self.path("home"),
                            "KELPMORAY_PASSPHRASE_FILE": self.secret("pass", "a passphrase")}
        self.openssl("req", "-x509", "-newkey", "rsa:2048", "-nodes", "-keyout", "root.key", "-out", "root.pem",
                     "-subj", "/CN=Test Root CA", "-addext", "keyUsage=critical,keyCertSign")
        shutil.copy(self.path("root.pem"), self.path("home/roots"))
        self.openssl("req", "-newkey", "rsa:2048", "-nodes", "-keyout", "leaf.key", "-out", "leaf.csr",
                     "-subj", "/CN=" + LEAF)
        self.certify("leaf")

    def path(self, name):
        return os.path.join(self.folder, name)

    def secret(self, name, text):
        with open(self.path(name), "w", opener=lambda path, flags: os.open(path, flags, 0o600)) as file:
            file.write(text + "\n")
        return self.path(name)

    def openssl(self, *arguments):
        subprocess.run(["openssl", *arguments], cwd=self.folder, check=True, capture_output=True)

    def certify(self, name):
        with open(self.path("code.ext"), "w") as file:
            file.write(CODE)
        self.openssl("x509", "-req", "-in", name + ".csr", "-CA", "root.pem", "-CAkey", "root.key",
                     "-CAcreateserial", "-days", "30", "-extfile", "code.ext", "-out", name + ".pem")

    def run_security(self, *arguments, status=0, before=(), **environment):
        """What it prints; on standard error if it is to fail."""
        done = subprocess.run([*before, PROGRAM, *arguments], cwd=self.folder, capture_output=True, text=True,
                              env={**self.environment, **environment}, timeout=60)
        self.assertEqual(done.returncode, status, done.stderr)
        return done.stdout if status == 0 else done.stderr

    def names(self, **environment):
        return [each["name"] for each in json.loads(self.run_security("find-identity", "-v", "--json", **environment))]


class Commands(SecurityTest):
    def test_a_request_comes_back_as_an_identity(self):
        self.run_security("create-request", "--name", "Jo", "--email", "jo@example.org", "--output", "new.csr")
        self.openssl("req", "-in", "new.csr", "-verify", "-noout")
        self.assertIn("new.csr is there already", self.run_security(
            "create-request", "--name", "Jo", "--email", "jo@example.org", "--output", "new.csr", status=1))
        self.assertEqual(len(glob.glob(self.path("home/keys/*"))), 1)
        self.certify("new")
        self.assertEqual(self.names(), [])
        said = self.run_security("import", "new.pem")
        self.assertRegex(said, 'Found "Jo"\n.*\n  issued by "Test Root CA"\nImported')
        hash_of = subprocess.run(["openssl", "x509", "-in", "new.pem", "-noout", "-fingerprint", "-sha1"],
                                 cwd=self.folder, capture_output=True, text=True)
        digits = hash_of.stdout.split("=")[1].strip().replace(":", "")
        lines = f'  1) {digits} "Jo"\n'
        valid = lines + "     1 valid identities found\n"
        self.assertEqual(self.run_security("find-identity", "-v", "-p", "codesigning"), valid)
        self.assertEqual(self.run_security("find-identity"),
                         "\nPolicy: Code Signing\n  Matching identities\n" + lines +
                         "     1 identities found\n\n  Valid identities only\n" + valid)
        pem = self.run_security("export-certificate", "-Z", digits.lower())
        with open(self.path("new.pem")) as file:
            self.assertIn(pem.strip(), file.read())
        self.run_security("delete-identity", "-Z", digits)
        self.assertEqual(self.names(), [])
        self.assertEqual(glob.glob(self.path("home/keys/*")), [])

    def test_many_imports_at_once_lose_nothing(self):
        count = 6
        runs = [subprocess.Popen([PROGRAM, "create-test-identity", f"Number {number}"], env=self.environment,
                                 stdout=subprocess.DEVNULL) for number in range(count)]
        self.assertEqual([run.wait(60) for run in runs], [0] * count)
        self.assertEqual(self.names(), [f"Test Identity: Number {number}" for number in range(count)])
        # A second one would leave the name ambiguous.
        self.assertIn('an identity "Test Identity: Number 3" already',
                      self.run_security("create-test-identity", "Number 3", status=1))
        self.assertEqual(len(self.names()), count)

    def test_wrong_usage_and_what_is_not_there_have_their_status(self):
        for arguments, status, said in (
                ((), 2, "Give a command"), (("sing",), 2, "no command sing"), (("import",), 2, "exactly one"),
                (("find-identity", "-p", "ssl"), 2, "codesigning"), (("import", "gone.p12"), 1, "gone.p12"),
                (("delete-identity", "-Z", "0" * 40), 1, "no identity found"),
                (("import", "leaf.pem", "-P", "x", "--passphrase-file", "pass"), 2, "exclude each other"),
                (("create-request", "--name", "Jo", "--email", "jo@"), 2, "no address"),
                (("create-request", "--name", "Jo", "--email", "jo"), 2, "no address"),
                (("add-token", "token=x"), 2, "no PKCS#11 URI")):
            self.assertIn(said, self.run_security(*arguments, status=status), arguments)
        self.assertIn("Exit status", self.run_security("--help"))
        self.openssl("pkcs12", "-export", "-legacy", "-inkey", "leaf.key", "-in", "leaf.pem", "-out", "old.p12", "-passout",
                     "pass:x")
        self.assertIn('module "legacy" is missing',
                      self.run_security("import", "old.p12", "-P", "x", status=1, OPENSSL_MODULES=self.path("none")))


class Keepers(SecurityTest):
    def test_a_key_on_a_token_is_listed_and_asks_for_its_pin(self):
        module = glob.glob("/usr/lib/softhsm/libsofthsm2.so") + glob.glob("/usr/lib/*/softhsm/libsofthsm2.so")
        self.assertTrue(module, "softhsm2 is not installed: tools/install-packages.sh --test")
        os.mkdir(self.path("tokens"))
        self.environment["SOFTHSM2_CONF"] = self.secret("hsm.conf", f"directories.tokendir = {self.path('tokens')}")
        self.openssl("pkcs8", "-topk8", "-nocrypt", "-in", "leaf.key", "-out", "leaf.p8")
        for arguments in (("--init-token", "--free", "--label", "kelp", "--so-pin", "1234", "--pin", "1234"),
                          ("--import", "leaf.p8", "--token", "kelp", "--label", "leaf", "--id", "a1",
                           "--pin", "1234")):
            subprocess.run(["softhsm2-util", *arguments], cwd=self.folder, env=self.environment, check=True,
                           capture_output=True)
        add = ("add-token", f"pkcs11:token=kelp;object=leaf?module-path={module[0]}", "--certificate", "leaf.pem")
        self.assertIn("KELPMORAY_PIN_FILE", self.run_security(*add, status=1))
        wrong = self.secret("wrong", "9999")
        self.assertIn(f"PIN in {wrong} is not accepted", self.run_security(*add, status=1, KELPMORAY_PIN_FILE=wrong))
        self.assertEqual(self.names(), [])
        self.run_security(*add, KELPMORAY_PIN_FILE=self.secret("pin", "1234"))
        self.assertEqual(self.names(), [LEAF])
        self.assertEqual(os.listdir(self.path("home/keys")), [])

    def test_the_desktop_keeps_the_passphrase(self):
        del self.environment["KELPMORAY_PASSPHRASE_FILE"]
        said = self.run_security("create-test-identity", "Jo", status=1)
        self.assertIn("KELPMORAY_PASSPHRASE_FILE", said)
        self.assertEqual(glob.glob(self.path("home/keys/*")), [])
        code = fixtures.Linker(self.folder).link("exe")
        for name in "ABCDEF":
            self.openssl("req", "-x509", "-newkey", "rsa:2048", "-nodes", "-keyout", "key", "-out", "certificate",
                         "-subj", "/CN=" + name, "-addext", "extendedKeyUsage=codeSigning")
            with open(self.path(name + ".pem"), "w") as both:
                for part in ("key", "certificate"):
                    with open(self.path(part)) as file:
                        both.write(file.read())
        # Those at once must not make a passphrase each: then all keys but one would stay locked.
        script = """set -e; printf x | gnome-keyring-daemon --unlock --components=secrets >/dev/null 2>&1
            for name in A B C D E F; do "$1" import $name.pem & done; wait
            for name in A B C D E F; do "$2" --force --timestamp=none --sign "$name" "$3"; done"""
        done = subprocess.run(["dbus-run-session", "--", "sh", "-c", script, "-", PROGRAM, CODESIGN, code],
                              cwd=self.folder, env={**self.environment, "XDG_RUNTIME_DIR": self.folder}, timeout=60,
                              capture_output=True, text=True)
        self.assertEqual((done.returncode, self.names()), (0, list("ABCDEF")), done.stderr)
        self.assertTrue(glob.glob(self.path(".local/share/keyrings/*.keyring")))


if __name__ == "__main__":
    unittest.main(argv=[sys.argv[0], *sys.argv[1:]])
