#include "sign/NewCode.h"
#include "sign/RunLock.h"
#include "sign/Signer.h"
#include "sign/StaticCode.h"
#include "sign/bundle/LooseSignature.h"
#include "sign/files/FileTree.h"
#include "sign/macho/SignatureRoom.h"

#include <cerrno>

#include <unistd.h>

namespace sign {
namespace {

base::Outcome copySlice(const CodeFile& file, const MachSlice& slice, const SignatureRoom& room,
                        const AsideFile& to, std::uint64_t offset) {
    constexpr std::uint64_t pieceSize = 1U << 20U;
    base::OwnedBytes buffer(pieceSize);
    for (std::uint64_t at = 0; at < room.size(); at += pieceSize) {
        const FileRange range{at, std::min(pieceSize, room.size() - at)};
        if (auto read = readWithRoom(file, slice, room, buffer.data(), range); !read)
            return read;
        if (auto done = to.write({buffer.data(), range.size}, offset + at); !done)
            return done;
    }
    return {};
}

base::Result<AsideFile> withoutSignature(const CodeFile& file) {
    std::vector<SignatureRoom> rooms;
    for (const MachSlice& slice : file.slices()) {
        auto room = removeSignatureRoom(slice, file.path());
        if (!room)
            return room.error();
        rooms.push_back(std::move(*room));
    }
    auto layout = layOut(file, rooms);
    if (!layout)
        return layout.error();
    auto aside = AsideFile::createFor(realPath(file.path()).value_or(file.path()));
    if (!aside)
        return aside.error();
    if (auto done = aside->write(layout->table, 0); !done)
        return done.error();
    for (std::size_t index = 0; index < rooms.size(); ++index)
        if (auto copied =
                copySlice(file, file.slices()[index], rooms[index], *aside, layout->offsets[index]);
            !copied)
            return copied.error();
    if (auto synced = aside->sync(); !synced)
        return synced.error();
    return aside;
}

} // namespace

base::Outcome removeSignature(const std::string& path, const std::string& bundleVersion) {
    const auto lock = RunLock::take(path);
    if (!lock)
        return lock.error();
    auto code = StaticCode::open(path, bundleVersion);
    if (!code)
        return code.error();
    if (auto checked = code->checkHoldsSignatures(); !checked)
        return checked;
    if (code->bundle()) {
        if (auto layout = checkLayout(*code->bundle()); !layout)
            return layout;
        if (auto executable = checkExecutable(*code->bundle()); !executable)
            return executable;
    }
    NewCode unsignedCode;
    unsignedCode.watch().addFile(code->file().path(), code->file().stamp());
    if (code->file().isMachO()) {
        auto file = withoutSignature(code->file());
        if (!file)
            return file.error();
        unsignedCode.add(std::move(*file));
    }
    if (code->bundle())
        if (auto replaced = unsignedCode.replaceSignatureOf(*code->bundle()); !replaced)
            return replaced;
    if (auto done = NewCode::commit({&unsignedCode}, 1); !done)
        return done;
    if (code->bundle() && ::rmdir(code->bundle()->signatureFolder().c_str()) != 0 &&
        errno != ENOTEMPTY && errno != ENOENT && errno != ENOTDIR)
        return base::systemError("delete", code->bundle()->signatureFolder(), errno);
    return {};
}

} // namespace sign
