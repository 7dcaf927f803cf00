#pragma once

#include "base/FileDescriptor.h"
#include "sign/files/FileStamp.h"
#include "sign/macho/MachFile.h"

#include <string>
#include <vector>

namespace sign {

/// A file that can be signed, open for reading: a thin or universal Mach-O file, or any other file,
/// which has no slices. Its bytes are read, not mapped, so that a file that is cut short meanwhile
/// is an error and not the end of the process.
class CodeFile {
public:
    /// Reads the headers of all slices. Damaged or Unsupported if it claims to be a Mach-O file and
    /// contradicts itself. Any thread.
    [[nodiscard]] static base::Result<CodeFile> open(const std::string& path);

    [[nodiscard]] const std::string& path() const { return path_; }
    [[nodiscard]] std::uint64_t size() const { return stamp_.size; }
    /// When it was opened.
    [[nodiscard]] const FileStamp& stamp() const { return stamp_; }
    [[nodiscard]] bool isMachO() const { return !slices_.empty(); }
    /// Whether it has the header of a universal file, be it with one slice.
    [[nodiscard]] bool isUniversal() const { return isUniversal_; }
    /// Same, with offsets of 64 bits, which nobody's tools sign.
    [[nodiscard]] bool isUniversal64() const { return isUniversal64_; }
    /// In the order of the file.
    [[nodiscard]] const std::vector<MachSlice>& slices() const { return slices_; }
    /// The one that stands for all in a description: arm64 if it is there, else the first. Not for
    /// a file without slices.
    [[nodiscard]] std::size_t nativeSlice() const;

    /// Reads all of the range into `to`. Changed if the file is shorter by now. Any thread.
    [[nodiscard]] base::Outcome read(std::uint8_t* to, FileRange range) const;
    [[nodiscard]] base::Result<base::OwnedBytes> read(FileRange range) const;

    /// Whether the file holds nothing but its slices, each of which ends with its __LINKEDIT: what
    /// the platform asks for in its strict mode. The error tells what is wrong.
    [[nodiscard]] base::Outcome checkStructure() const;
    /// Whether its slices, of one file type, are all that a universal file holds: what a new file
    /// that is made of them would lose otherwise. The error tells what is wrong.
    [[nodiscard]] base::Outcome checkNothingElse() const;

private:
    CodeFile() = default;

    [[nodiscard]] base::Outcome readSlices();
    [[nodiscard]] base::Outcome readUniversal(base::Bytes start);
    [[nodiscard]] base::Outcome addSlice(FileRange range);
    [[nodiscard]] std::vector<std::size_t> slicesByOffset() const;
    [[nodiscard]] base::Outcome checkAlignments() const;

    std::string path_;
    base::FileDescriptor file_;
    FileStamp stamp_;
    bool isUniversal_ = false;
    bool isUniversal64_ = false;
    std::vector<MachSlice> slices_;
    std::vector<std::uint32_t> alignments_;
};

} // namespace sign
