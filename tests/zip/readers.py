#!/usr/bin/env python3
"""Packs packages and compares what independent readers find in the archives with the folders.

usage: readers.py PACKER PACKAGE...

The readers are unzip, bsdtar, 7z and Python's zipfile; `zip -T` and `7z t` check the structure. What
a reader cannot restore by itself is left out of its comparison alone, and named there.
"""
import os
import re
import stat
import subprocess
import sys
import tempfile
import unicodedata

sys.path.insert(0, os.path.join(os.path.dirname(os.path.abspath(__file__)), "../support"))

from archives import in_archive, on_disk  # noqa: E402


def run(command, may_fail=False):
    done = subprocess.run(command, stdout=subprocess.PIPE, stderr=subprocess.STDOUT, check=False)
    if done.returncode != 0 and not may_fail:
        sys.exit(f"{command[0]} failed: {done.stdout.decode(errors='replace')}")
    return done.stdout


def with_unzip(archive, target, package):
    run(["unzip", "-qq", "-K", "-^", archive, "-d", target])
    return without_link_times(on_disk(package))


def with_bsdtar(archive, target, package):
    run(["bsdtar", "-xpf", archive, "-C", target])
    return composed(on_disk(package))


def with_7z(archive, target, package):
    said = run(["7z", "x", "-bso0", archive, "-o" + target], may_fail=True)
    # Links that it holds for dangerous are not made, but can be printed.
    refused = re.findall(rb"^ERROR: Dangerous link path was ignored : (.*) : (.*)$", said, re.M)
    if len(refused) != said.count(b"ERROR"):
        sys.exit(f"7z failed: {said.decode(errors='replace')}")
    # It lets absolute links start at the folder that it unpacks to.
    found = {name: (mode, time, content.removeprefix(os.fsencode(target)) if stat.S_ISLNK(mode) else content)
             for name, (mode, time, content) in without_link_times(on_disk(package)).items()}
    return found | {name: (stat.S_IFLNK | 0o777, None, link) for name, link in refused}


def as_7z_restores(entries):
    """Without the bits that lend someone else's rights."""
    return {name: (mode & ~0o7000, *rest) for name, (mode, *rest) in without_link_times(entries).items()}


def without_link_times(entries):
    """For the readers that leave them as they come."""
    return {name: (mode, None if stat.S_ISLNK(mode) else time, content)
            for name, (mode, time, content) in entries.items()}


def composed(entries):
    """As bsdtar makes names that are marked as UTF-8."""
    return {unicodedata.normalize("NFC", os.fsdecode(name)): found for name, found in entries.items()}


def compare(reader, expected, found):
    """Prints what differs; returns how many entries do."""
    differing = [name for name in sorted(expected.keys() | found.keys())
                 if expected.get(name) != found.get(name)]
    for name in differing:
        print(f"{reader}: {name!r}: {str(expected.get(name))[:80]} became {str(found.get(name))[:80]}")
    return len(differing)


def check(packer, package):
    package = os.fsencode(os.path.abspath(package))
    expected = on_disk(package)
    readers = (("unzip", with_unzip, without_link_times(expected)),
               ("bsdtar", with_bsdtar, composed(expected)),
               ("7z", with_7z, as_7z_restores(expected)))
    with tempfile.TemporaryDirectory() as scratch:
        archive = os.path.join(scratch, "packed.zip")
        run([packer, "--verify", archive, package])
        run(["zip", "-qT", archive])
        run(["7z", "t", "-bso0", archive])
        differences = compare("zipfile", expected, in_archive(archive))
        for reader, read, expected_of_reader in readers:
            with tempfile.TemporaryDirectory(dir=scratch) as target:
                unpacked = os.path.join(os.fsencode(target), os.path.basename(package))
                differences += compare(reader, expected_of_reader, read(archive, target, unpacked))
    name = os.path.basename(package).decode(errors="replace")
    print(f"{name}: {len(expected)} entries, {differences} differences in four readers")
    return differences


if __name__ == "__main__":
    if len(sys.argv) < 3:
        sys.exit(__doc__)
    os.environ["LC_ALL"] = "C.UTF-8"
    os.umask(0)
    sys.exit(1 if sum(check(sys.argv[1], package) for package in sys.argv[2:]) else 0)
