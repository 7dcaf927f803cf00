"""Code to sign and who signs it, made with the linker and openssl alone: no file of Apple's is needed."""
import contextlib
import hashlib
import http.server
import os
import plistlib
import shutil
import struct
import subprocess
import tempfile
import threading

STUB = """--- !tapi-tbd
tbd-version:     4
targets:         [ x86_64-macos, arm64-macos ]
install-name:    '/usr/lib/libSystem.B.dylib'
exports:
  - targets:     [ x86_64-macos, arm64-macos ]
    symbols:     [ dyld_stub_binder ]
...
"""


REFUSAL = bytes.fromhex("30053003020102")  # of RFC 3161, without a word


def tool(name):
    found = shutil.which(name + "-14") or shutil.which(name)
    if not found:
        raise AssertionError(f"{name} is not installed: tools/install-packages.sh --test")
    return found


def check_call(*command, **how):
    return subprocess.run(command, check=True, capture_output=True, **how).stdout


class Linker:
    """Mach-O files, each linked once."""

    def __init__(self, folder):
        self.folder = folder
        self.write("x.c", "int helper(int x) { return x * 3; } int main(void) { return helper(2); }")
        self.write("stub.tbd", STUB)
        for cpu in ("arm64", "x86_64"):
            check_call(tool("clang"), "-target", f"{cpu}-apple-macos11", "-O1", "-c", "x.c", "-o", f"{cpu}.o",
                       cwd=folder)

    def write(self, name, content):
        with open(os.path.join(self.folder, name), "w") as file:
            file.write(content)

    def link(self, name, cpu="arm64", minimum="11.0", signed=False, flags=()):
        path = os.path.join(self.folder, name)
        if not os.path.exists(path):
            check_call(tool("ld64.lld"), "-arch", cpu, "-platform_version", "macos", minimum, "14.0",
                       "-adhoc_codesign" if signed else "-no_adhoc_codesign", *flags, "-o", name,
                       f"{cpu}.o", "stub.tbd", cwd=self.folder)
        return path

    def library(self, cpu="arm64"):
        return self.link(f"lib-{cpu}.dylib", cpu, flags=("-dylib", "-install_name", "@rpath/libx.dylib"))

    def universal(self):
        path = os.path.join(self.folder, "universal")
        check_call(tool("llvm-lipo"), "-create", self.link("exe-x86_64", "x86_64"),
                   self.link("exe-linker", signed=True), "-output", path)
        return path


def handmade(order, wide, cpu):
    """A library with two segments for a processor that the linker does not know."""
    numbers, filler = order + ("4Q4I" if wide else "8I"), struct.pack(order + "I", 0) if wide else b""
    command = struct.pack(order + "2I", 0x19 if wide else 1, 72 if wide else 56)
    text = command + b"__TEXT".ljust(16, b"\0") + struct.pack(numbers, 0, 4096, 0, 4096, 7, 5, 0, 0)
    linkedit = command + b"__LINKEDIT".ljust(16, b"\0") + struct.pack(numbers, 4096, 4096, 4096, 100, 7, 1, 0, 0)
    header = struct.pack(order + "7I", 0xFEEDFACF if wide else 0xFEEDFACE, cpu, 3, 6, 2, len(text + linkedit), 0) + filler
    return (header + text + linkedit).ljust(4096, b"\1") + b"\2" * 100


def put(source, *names):
    path = os.path.join(*names)
    os.makedirs(os.path.dirname(path), exist_ok=True)
    shutil.copy(source, path)
    return path


def write_plist(path, executable, kind="APPL"):
    os.makedirs(os.path.dirname(path), exist_ok=True)
    with open(path, "wb") as file:
        plistlib.dump({"CFBundleExecutable": executable, "CFBundlePackageType": kind,
                       "CFBundleIdentifier": "org.example." + executable} if executable else
                      {"CFBundleIdentifier": "org.example.pictures"}, file)


def make_text(path, text="text"):
    os.makedirs(os.path.dirname(path), exist_ok=True)
    with open(path, "w") as file:
        file.write(text)


def make_bundle(path, executable, code, kind="APPL"):
    write_plist(path + "/Contents/Info.plist", executable, kind)
    put(code, path, "Contents/MacOS", executable)
    make_text(path + "/Contents/Resources/data.txt")


def make_application(linker, path):
    """With code in every place where code can be; the names of files are as awkward as may be."""
    exe, library = linker.link("exe-arm64"), linker.library()
    make_bundle(path, "main", linker.universal())
    contents = path + "/Contents/"
    for name in ("Frameworks/lib blank.dylib", "Resources/module.node"):
        os.chmod(put(library, contents + name), 0o644)
    put(exe, contents, "MacOS/helper")
    put(exe, contents, "Resources/deep/tool")
    make_bundle(contents + "XPCServices/Service.xpc", "Service", linker.link("exe-linker", signed=True), "XPC!")
    make_bundle(contents + "Library/LoginItems/Login.app", "Login", linker.link("exe-old", "x86_64", "10.9"))
    # Bundles without a dot are known by their main executables.
    make_bundle(contents + "Resources/Tool", "tool", exe)
    make_bundle(contents + "Helpers/Daemon", "daemon", exe)
    put(library, contents + "Helpers/Daemon/Contents/Frameworks/lib.dylib")
    write_plist(contents + "PlugIns/Pictures.bundle/Contents/Info.plist", None, "BNDL")
    make_text(contents + "PlugIns/Pictures.bundle/Contents/Resources/picture")
    framework = contents + "Frameworks/Foo.framework/"
    for version in "AB":
        write_plist(f"{framework}Versions/{version}/Resources/Info.plist", "Foo", "FMWK")
        put(library, framework, "Versions", version, "Foo")
        # Alike in both: ad hoc signed code is known by nothing but its hash.
        put(exe, framework, "Versions", version, "Helpers/tool")
    for name, target in {"Versions/Current": "B", "Foo": "Versions/Current/Foo",
                         "Resources": "Versions/Current/Resources", "Helpers": "Versions/Current/Helpers"}.items():
        os.symlink(target, framework + name)
    os.symlink("data.txt", contents + "Resources/link")
    make_text(contents + "Resources/line\nfeed <&> 日本")
    make_text(contents + "MacOS/script.sh", "#!/bin/sh\n")
    return path


def issue(folder, name, subject, issuer, extensions):
    check_call("openssl", "req", "-newkey", "rsa:2048", "-nodes", "-keyout", name + ".key", "-out", name + ".csr",
               "-subj", subject, cwd=folder)
    with open(f"{folder}/{name}.ext", "w") as file:
        file.write(extensions)
    check_call("openssl", "x509", "-req", "-in", name + ".csr", "-CA", issuer + ".pem", "-CAkey", issuer + ".key",
               "-CAcreateserial", "-days", "3000", "-extfile", name + ".ext", "-out", name + ".pem", cwd=folder)


class Authority:
    """A root that counts as Apple's, a developer's certificate under it, and who stamps time."""
    TEAM = "ABCDE12345"
    HOLDER = f"Developer ID Application: Example GmbH ({TEAM})"

    def __init__(self, folder):
        self.folder = folder
        check_call("openssl", "req", "-x509", "-newkey", "rsa:2048", "-nodes", "-keyout", "root.key", "-out",
                   "root.pem", "-days", "3650", "-subj", "/O=Test Inc./CN=Test Root CA", "-addext",
                   "keyUsage=critical,keyCertSign,cRLSign", cwd=folder)
        issue(folder, "middle", "/O=Test Inc./CN=Developer ID Certification Authority", "root",
              "basicConstraints=critical,CA:true\nkeyUsage=critical,keyCertSign\n1.2.840.113635.100.6.2.6=DER:0500\n")
        issue(folder, "leaf", f"/CN={self.HOLDER}/OU={self.TEAM}/O=Example GmbH/C=DE", "middle",
              "basicConstraints=critical,CA:false\nkeyUsage=critical,digitalSignature\n"
              "extendedKeyUsage=critical,codeSigning\n1.2.840.113635.100.6.1.13=critical,DER:0500\n")
        issue(folder, "stamp", "/O=Test Inc./CN=Test Stamps", "root",
              "keyUsage=critical,digitalSignature\nextendedKeyUsage=critical,timeStamping\n")
        with open(folder + "/tsa.cnf", "w") as file:
            file.write("[tsa]\ndefault_tsa=t\n[t]\nserial=serial\nsigner_cert=stamp.pem\ncerts=root.pem\n"
                       "signer_key=stamp.key\nsigner_digest=sha256\ndefault_policy=1.2.3\ndigests=sha256\n")
        with open(folder + "/serial", "w") as file:
            file.write("01")

    @contextlib.contextmanager
    def time_server(self, together=1, certificates="root.pem", most=None, meanwhile=(0, None)):
        """The URL of a server that stamps, and the number of requests as a list of one.

        It answers as soon as `together` have come, with a file of certificates in each answer; after `most` it refuses.
        `meanwhile` is the number of a request, and what is called when it has come.
        """
        count, lock, folder = [0], threading.Lock(), self.folder
        gathered = threading.Barrier(together, timeout=60)

        class Handler(http.server.BaseHTTPRequestHandler):
            def do_POST(self):
                query = self.rfile.read(int(self.headers["Content-Length"]))
                gathered.wait()
                with lock, tempfile.NamedTemporaryFile() as file:
                    count[0] += 1
                    if count[0] == meanwhile[0]:
                        meanwhile[1]()
                    file.write(query)
                    file.flush()
                    reply = REFUSAL if most and count[0] > most else check_call(
                        "openssl", "ts", "-reply", "-config", "tsa.cnf", "-queryfile", file.name, "-chain", certificates,
                        cwd=folder)
                self.send_response(200)
                self.send_header("Content-Type", "application/timestamp-reply")
                self.send_header("Content-Length", str(len(reply)))
                self.end_headers()
                self.wfile.write(reply)

            def log_message(self, *_):
                pass

        with http.server.ThreadingHTTPServer(("127.0.0.1", 0), Handler) as server:
            threading.Thread(target=server.serve_forever).start()
            try:
                yield f"http://127.0.0.1:{server.server_address[1]}/", count
            finally:
                server.shutdown()


def slices(data):
    """(offset, size) of each architecture."""
    if data[:4] != b"\xca\xfe\xba\xbe":
        return [(0, len(data))]
    return [struct.unpack_from(">2I", data, 16 + 20 * i) for i in range(struct.unpack_from(">I", data, 4)[0])]


def signature_place(data, start):
    """Where the load command of the signature is, and where the signature is, in the file."""
    at = start + 32
    for _ in range(struct.unpack_from("<I", data, start + 16)[0]):
        command, size = struct.unpack_from("<2I", data, at)
        if command == 0x1D:
            return at, start + struct.unpack_from("<I", data, at + 8)[0]
        at += size
    return None, None


def blobs(data, at):
    """The parts of a signature by their slots."""
    count = struct.unpack_from(">I", data, at + 8)[0]
    found = {}
    for index in range(count):
        slot, offset = struct.unpack_from(">2I", data, at + 12 + 8 * index)
        size = struct.unpack_from(">I", data, at + offset + 4)[0]
        found[slot] = data[at + offset:at + offset + size]
    return found


def wrong_hashes(data, start, directory):
    """How many pages of a slice do not have the hash that the code directory says; counted from its bytes."""
    hashes, count, limit = (struct.unpack_from(">I", directory, at)[0] for at in (16, 28, 32))
    size, kind, page = directory[36], directory[37], 1 << directory[39]
    make = hashlib.sha1 if kind == 1 else hashlib.sha256
    return sum(make(data[start + page * i:start + min(page * (i + 1), limit)]).digest() !=
               directory[hashes + size * i:hashes + size * (i + 1)] for i in range(count))
