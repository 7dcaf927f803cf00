#!/usr/bin/env python3
"""Packs packages and compares what independent readers find in the archives with the folders.

usage: readers.py PACKER PACKAGE...

The readers are unzip, bsdtar, 7z and Python's zipfile; `zip -T` and `7z t` check the structure. What
a reader cannot restore by itself is left out of its comparison alone, and named there.
"""
import hashlib
import os
import re
import stat
import struct
import subprocess
import sys
import tempfile
import time
import unicodedata
import zipfile


def entry(mode, modified, content):
    kept = content if stat.S_ISLNK(mode) else hashlib.sha256(content).hexdigest()
    return {"mode": mode, "time": modified, "content": kept}


def on_disk(package):
    """Every entry from the package on, by its name in the archive, in bytes."""
    parent = os.path.dirname(package)
    found = {}
    for folder, folders, files in os.walk(package):
        for path in [folder] + [os.path.join(folder, name) for name in folders + files]:
            status = os.lstat(path)
            content = b""
            if stat.S_ISLNK(status.st_mode):
                content = os.readlink(path)
            elif stat.S_ISREG(status.st_mode):
                with open(path, "rb") as file:
                    content = file.read()
            found[os.path.relpath(path, parent)] = entry(
                status.st_mode, status.st_mtime_ns // 10**9, content)
    return found


def dos_time(seconds):
    local = time.localtime(seconds)[:6]
    return min(max(local[:5] + (local[5] // 2 * 2,), (1980, 1, 1, 0, 0, 0)),
               (2107, 12, 31, 23, 59, 58))


def in_archive(archive):
    """The same as zipfile sees it."""
    found = {}
    with zipfile.ZipFile(archive) as zipped:
        for info in zipped.infolist():
            name = info.filename.encode("utf-8" if info.flag_bits & 0x800 else "cp437")
            stamp = struct.unpack("<I", info.extra[-4:])[0]
            if info.date_time != dos_time(stamp):
                sys.exit(f"zipfile: {name}: {info.date_time} is not {stamp} in local time")
            found[name.rstrip(b"/")] = entry(info.external_attr >> 16, stamp, zipped.read(info))
    return found


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
