"""A local time stamp server for benchmarks. Its key signs fast, so that it leaves the processors to what is measured."""
import contextlib
import os
import subprocess

import fixtures

ROOT = os.path.dirname(os.path.dirname(os.path.abspath(__file__)))
STAMPER = os.path.join(ROOT, "build/release/bench/kelpmoray-bench-stamp-server")


@contextlib.contextmanager
def time_server(authority_folder, delay):
    """The URL of a server that takes `delay` seconds for each stamp, however many are asked for at once."""
    def openssl(*arguments):
        fixtures.check_call("openssl", *arguments, cwd=authority_folder)
    openssl("ecparam", "-name", "prime256v1", "-genkey", "-noout", "-out", "fast.key")
    openssl("req", "-new", "-key", "fast.key", "-subj", "/O=Test Inc./CN=Fast Stamps", "-out", "fast.csr")
    openssl("x509", "-req", "-in", "fast.csr", "-CA", "root.pem", "-CAkey", "root.key", "-CAcreateserial",
            "-extfile", "stamp.ext", "-out", "fast.pem")
    with subprocess.Popen([STAMPER, "fast.pem", "root.pem", "fast.key", str(int(1000 * delay))],
                          cwd=authority_folder, stdout=subprocess.PIPE, text=True) as server:
        try:
            yield f"http://127.0.0.1:{server.stdout.readline().strip()}/"
        finally:
            server.kill()
