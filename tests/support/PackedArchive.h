#pragma once

#include "base/FileDescriptor.h"
#include "zip/ArchiveWriter.h"
#include "zip/JobCutter.h"
#include "zip/JobEncoder.h"

#include <cstdint>
#include <cstdlib>
#include <optional>
#include <string>
#include <vector>

#include <fcntl.h>

/// Packs on this thread, behind `start` bytes that are left alone; returns where pieces
/// end. Ends the program if it cannot.
inline std::vector<zip::PieceEnd> packed(const std::string& archive, const std::string& package,
                                         std::optional<std::int64_t> fixedTime,
                                         std::uint64_t start = 0) {
    auto tree = zip::listPackage(package, 1);
    if (!tree)
        std::abort();
    const auto opened =
        base::FileDescriptor::openAt(AT_FDCWD, archive.c_str(), O_RDWR | O_CREAT | O_TRUNC, 0666);
    zip::ArchiveWriter writer(opened.get(), archive, *tree, fixedTime, start);
    zip::JobCutter cutter(tree->entries);
    zip::JobEncoder encoder(*tree, 5, fixedTime);
    zip::EncodedJob encoded;
    while (const auto job = cutter.next()) {
        encoded.job = *job;
        if (!encoder.encode(encoded) || !writer.write(encoded))
            std::abort();
    }
    if (!writer.finish())
        std::abort();
    return {writer.pieceEnds().begin(), writer.pieceEnds().end()};
}
