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

from trees import in_archive, on_disk  # noqa: E402


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
    return {composed(name): found for name, found in on_disk(package).items()}


def with_7z(archive, target, package):
    said = run(["7z", "x", "-bso0", archive, "-o" + target], may_fail=True)
    # Links that it holds for dangerous are not made, but can be printed.
    refused = re.findall(rb"^ERROR: Dangerous link path was ignored : (.*) : (.*)$", said, re.M)
    if len(refused) != said.count(b"ERROR"):
        sys.exit(f"7z failed: {said.decode(errors='replace')}")
    found = without_link_times(on_disk(package))
    for made in found.values():
        # It lets absolute links start at the folder that it unpacks to.
        if stat.S_ISLNK(made["mode"]):
            made["content"] = made["content"].removeprefix(os.fsencode(target))
    for name, target_of_link in refused:
        found[name] = {"mode": stat.S_IFLNK | 0o777, "content": target_of_link}
    return found


def as_7z_restores(entries):
    """Without the bits that lend someone else's rights."""
    found = without_link_times(entries)
    for made in found.values():
        made["mode"] &= ~0o7000
    return found


def without_link_times(entries):
    """For the readers that leave them as they come."""
    return {name: {key: value for key, value in found.items()
                   if key != "time" or not stat.S_ISLNK(found["mode"])}
            for name, found in entries.items()}


def composed(name):
    """As bsdtar makes names that are marked as UTF-8."""
    return unicodedata.normalize("NFC", name.decode(errors="surrogateescape")).encode(
        errors="surrogateescape")


def compare(reader, expected, found):
    """Prints what differs; returns how many entries do."""
    differing = [name for name in sorted(expected.keys() | found.keys())
                 if expected.get(name) != found.get(name)]
    for name in differing:
        print(f"{reader}: {name!r}: {expected.get(name)} became {found.get(name)}")
    return len(differing)


def check(packer, package):
    package = os.fsencode(os.path.abspath(package))
    expected = on_disk(package)
    readers = (("unzip", with_unzip, without_link_times(expected)),
               ("bsdtar", with_bsdtar, {composed(name): found for name, found in expected.items()}),
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
                found = read(archive, target, unpacked)
                differences += compare(reader, expected_of_reader, found)
    name = os.path.basename(package).decode(errors="replace")
    print(f"{name}: {len(expected)} entries, {differences} differences in four readers")
    return differences


if __name__ == "__main__":
    if len(sys.argv) < 3:
        sys.exit(__doc__)
    os.environ["LC_ALL"] = "C.UTF-8"
    os.umask(0)
    sys.exit(1 if sum(check(sys.argv[1], package) for package in sys.argv[2:]) else 0)
