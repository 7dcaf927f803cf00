#include "zip/JobEncoder.h"

#include "zip/SourceFile.h"

#include <algorithm>

#include <libdeflate.h>

namespace zip {
namespace {

std::uint32_t crc32Of(const PaddedContent& content) {
    const base::Bytes bytes = content.bytes();
    return libdeflate_crc32(0, bytes.data(), bytes.size());
}

} // namespace

HeaderFields headerFields(const Entry& entry, const EntryRecord& record,
                          std::optional<std::int64_t> fixedTime) {
    const std::int64_t modified = fixedTime.value_or(entry.state.modified.tv_sec);
    return {.name = entry.name,
            .mode = entry.mode(),
            .modified = modified,
            .dosModified = dosTime(modified, fixedTime.has_value()),
            .method = record.method,
            .crc32 = record.crc32,
            .compressedSize = record.compressedSize,
            .size = entry.contentSize(),
            .localHeaderOffset = record.localHeaderOffset};
}

base::Outcome JobEncoder::encode(EncodedJob& encoded) {
    encoded.bytes.clear();
    encoded.records.clear();
    if (encoded.job.isPiece)
        return encodePiece(encoded);
    const std::span entries(tree_.entries);
    for (const Entry& entry : entries.subspan(encoded.job.firstEntry, encoded.job.entryCount))
        if (auto done = encodeEntry(entry, encoded); !done)
            return done;
    return {};
}

base::Outcome JobEncoder::encodePiece(EncodedJob& encoded) {
    const Job& job = encoded.job;
    const Entry& file = tree_.entries[job.firstEntry];
    if (auto done = readContent(file, job.offset, job.size); !done)
        return done;
    EntryRecord record{.method = Method::Deflated};
    if (job.isFirstPiece())
        appendLocalFileHeader(encoded.bytes, headerFields(file, record, fixedTime_));
    const std::size_t dataStart = encoded.bytes.size();
    compressor_.deflatePiece(content_, job.isLastPiece, encoded.bytes);
    record.crc32 = crc32Of(content_);
    record.compressedSize = encoded.bytes.size() - dataStart;
    encoded.records.push_back(record);
    return {};
}

base::Outcome JobEncoder::encodeEntry(const Entry& entry, EncodedJob& encoded) {
    EntryRecord record{.localHeaderOffset = encoded.bytes.size()};
    if (auto done = readContent(entry, 0, entry.contentSize()); !done)
        return done;
    record.crc32 = crc32Of(content_);
    deflated_.clear();
    if (entry.type == EntryType::File && compressor_.deflateWhole(content_, deflated_))
        record.method = Method::Deflated;
    const base::Bytes data =
        record.method == Method::Deflated ? deflated_.bytes() : content_.bytes();
    record.compressedSize = data.size();
    appendLocalFileHeader(encoded.bytes, headerFields(entry, record, fixedTime_));
    encoded.bytes.append(data);
    encoded.records.push_back(record);
    return {};
}

base::Outcome JobEncoder::readContent(const Entry& entry, std::uint64_t offset, std::size_t size) {
    std::uint8_t* const content = content_.resize(size);
    if (entry.type == EntryType::Link) {
        auto target = readLinkTarget(folder_, entry);
        if (!target)
            return target.error();
        std::copy(target->begin(), target->end(), content);
    } else if (entry.type == EntryType::File) {
        auto source = SourceFile::open(folder_, entry);
        if (!source)
            return source.error();
        if (auto read = source->read(content, size, offset); !read)
            return read;
        if (offset == 0)
            source->addAttributesTo(attributes_);
    }
    return {};
}

} // namespace zip
