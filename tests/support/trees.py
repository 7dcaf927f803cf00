"""What a package holds on the disk, and what an archive of it holds: each entry by its name, in bytes."""
import hashlib
import os
import stat
import struct
import time
import zipfile


def entry(mode, modified, content):
    kept = content if stat.S_ISLNK(mode) else hashlib.sha256(content).hexdigest()
    return {"mode": mode, "time": modified, "content": kept}


def on_disk(package):
    """Every entry from the package on, named from the folder that holds it."""
    package = os.fsencode(package)
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
            found[os.path.relpath(path, os.path.dirname(package))] = entry(
                status.st_mode, status.st_mtime_ns // 10**9, content)
    return found


def dos_time(seconds):
    local = time.localtime(seconds)[:6]
    return min(max(local[:5] + (local[5] // 2 * 2,), (1980, 1, 1, 0, 0, 0)),
               (2107, 12, 31, 23, 59, 58))


def in_archive(archive):
    """The same as Python's zipfile finds it; it checks every sum on the way."""
    found = {}
    with zipfile.ZipFile(os.fsdecode(archive)) as zipped:
        for info in zipped.infolist():
            name = info.filename.encode("utf-8" if info.flag_bits & 0x800 else "cp437")
            # Seconds since 1970, up to 2106: without a sign.
            stamp = struct.unpack("<I", info.extra[-4:])[0]
            if info.date_time != dos_time(stamp):
                raise AssertionError(f"{name}: {info.date_time} is not {stamp} in local time")
            found[name.rstrip(b"/")] = entry(info.external_attr >> 16, stamp, zipped.read(info))
    return found
