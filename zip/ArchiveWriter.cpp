#include "zip/ArchiveWriter.h"

#include "zip/SourceFile.h"

#include <algorithm>
#include <cerrno>

namespace zip {

ArchiveWriter::ArchiveWriter(int descriptor, std::string path, const PackageTree& tree,
                             std::optional<std::int64_t> fixedTime, std::uint64_t start)
    : descriptor_(descriptor), path_(std::move(path)), tree_(tree), fixedTime_(fixedTime),
      position_(start), writtenBack_(start), records_(tree.entries.size()) {}

base::Outcome ArchiveWriter::write(EncodedJob& encoded) {
    if (encoded.job.isPiece)
        return writePiece(encoded);
    for (std::size_t index = 0; index < encoded.records.size(); ++index) {
        encoded.records[index].localHeaderOffset += position_;
        records_[encoded.job.firstEntry + index] = encoded.records[index];
    }
    return append(encoded.bytes.bytes());
}

base::Outcome ArchiveWriter::writePiece(const EncodedJob& encoded) {
    const Job& job = encoded.job;
    const EntryRecord& piece = encoded.records.front();
    EntryRecord& whole = records_[job.firstEntry];
    if (job.isFirstPiece()) {
        whole = piece;
        whole.localHeaderOffset = position_;
    } else {
        whole.crc32 = crc32OfJoined(whole.crc32, piece.crc32, job.size);
        whole.compressedSize += piece.compressedSize;
    }
    if (auto appended = append(encoded.bytes.bytes()); !appended)
        return appended;
    if (job.isLastPiece)
        return closeFile(job.firstEntry);
    pieceEnds_.push_back({.position = position_, .offset = job.offset + job.size});
    return {};
}

/// Writes the local file header again, now that all of it is known.
base::Outcome ArchiveWriter::closeFile(std::size_t entry) {
    if (records_[entry].compressedSize >= tree_.entries[entry].contentSize())
        if (auto stored = storeInstead(entry); !stored)
            return stored;
    const EntryRecord& record = records_[entry];
    base::ByteBuffer header;
    appendLocalFileHeader(header, headerFields(tree_.entries[entry], record, fixedTime_));
    if (!base::writeAt(descriptor_, header.bytes(), record.localHeaderOffset))
        return base::systemError("write", path_, errno);
    return {};
}

base::Outcome ArchiveWriter::storeInstead(std::size_t entry) {
    const Entry& file = tree_.entries[entry];
    EntryRecord& record = records_[entry];
    OpenFolder folder(tree_);
    auto source = SourceFile::open(folder, file);
    if (!source)
        return source.error();
    position_ -= record.compressedSize;
    while (!pieceEnds_.empty() && pieceEnds_.back().position > position_)
        pieceEnds_.pop_back();
    base::ByteBuffer content;
    for (std::uint64_t offset = 0; offset < file.contentSize(); offset += content.size()) {
        content.clear();
        const auto size = static_cast<std::size_t>(
            std::min<std::uint64_t>(file.contentSize() - offset, longestPiece));
        if (auto read = source->read(content.tail(size), size, offset); !read)
            return read;
        content.extend(size);
        if (auto appended = append(content.bytes()); !appended)
            return appended;
    }
    record.method = Method::Stored;
    record.compressedSize = file.contentSize();
    return {};
}

base::Outcome ArchiveWriter::finish() {
    constexpr std::size_t flushSize = std::size_t{64} << 10;
    const std::uint64_t directoryOffset = position_;
    base::ByteBuffer directory;
    for (std::size_t entry = 0; entry < records_.size(); ++entry) {
        appendCentralDirectoryHeader(
            directory, headerFields(tree_.entries[entry], records_[entry], fixedTime_));
        if (directory.size() < flushSize)
            continue;
        if (auto appended = append(directory.bytes()); !appended)
            return appended;
        directory.clear();
    }
    const std::uint64_t directorySize = position_ + directory.size() - directoryOffset;
    appendEndOfCentralDirectory(directory, records_.size(), directoryOffset, directorySize);
    if (auto appended = append(directory.bytes()); !appended)
        return appended;
    if (!base::truncateTo(descriptor_, position_))
        return base::systemError("write", path_, errno);
    return {};
}

base::Outcome ArchiveWriter::append(base::Bytes bytes) {
    if (!base::writeAt(descriptor_, bytes, position_))
        return base::systemError("write", path_, errno);
    position_ += bytes.size();
    constexpr std::uint64_t writeBackSize = std::uint64_t{1} << 20;
    if (position_ > writtenBack_ + writeBackSize) {
        base::startWriteBack(descriptor_, writtenBack_, position_ - writtenBack_);
        writtenBack_ = position_;
    }
    return {};
}

} // namespace zip
