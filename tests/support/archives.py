"""What a package holds on the disk and in an archive: of every entry mode, time of change in seconds and
content, by its name in the archive, in bytes."""
import os
import stat
import struct
import zipfile


def on_disk(package):
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
            found[os.path.relpath(path, os.path.dirname(package))] = (
                status.st_mode, status.st_mtime_ns // 10**9, content)
    return found


def time_of_change(entry):
    """From the extra field that has it in seconds, without a sign."""
    fields = entry.extra
    while len(fields) >= 4:
        kind, size = struct.unpack_from("<HH", fields)
        if kind == 0x5455:
            return struct.unpack_from("<I", fields, 5)[0]
        fields = fields[4 + size:]
    return None


def in_archive(archive):
    """As an independent reader finds it; it checks every sum on the way."""
    with zipfile.ZipFile(archive) as zipped:
        return {info.filename.encode("utf-8" if info.flag_bits & 0x800 else "cp437").rstrip(b"/"):
                (info.external_attr >> 16, time_of_change(info), zipped.read(info)) for info in zipped.infolist()}
