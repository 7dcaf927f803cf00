#pragma once

#include "base/Result.h"
#include "sign/bundle/Bundle.h"
#include "sign/macho/CodeFile.h"
#include "sign/signature/CodeDirectory.h"

#include <optional>
#include <string>
#include <vector>

namespace sign {

/// The parts of one signature: that of a slice, or the files of a bundle without Mach-O code.
struct SignatureParts {
    std::vector<CodeDirectory> directories; ///< the primary one first; at least one
    BlobMap components;                     ///< what special slots hash, headers included
    base::OwnedBytes cms;                   ///< without the header of a blob; empty if ad hoc

    /// The directory by which the platform knows the code: the one with the best hash.
    [[nodiscard]] const CodeDirectory& best() const;
    [[nodiscard]] bool isLinkerSigned() const;
    /// Null if there is none.
    [[nodiscard]] const base::OwnedBytes* component(std::uint32_t slot) const;
};

/// Reads the bytes at an LC_CODE_SIGNATURE. Damaged if they are no signature. Any thread.
[[nodiscard]] base::Result<SignatureParts> readSignature(base::Bytes bytes, std::string_view name);

/// Code on the disk, signed or not: a bundle, or a file of its own.
class StaticCode {
public:
    /// `path` may name a bundle, its main executable (which stands for it) or a lone file.
    /// `version` is that of a framework, the current one if empty. Any thread.
    [[nodiscard]] static base::Result<StaticCode> open(const std::string& path,
                                                       std::string_view version = {});

    /// Same, for a file that is known to be no bundle's main executable.
    [[nodiscard]] static base::Result<StaticCode> openFile(const std::string& path);

    /// As given, without slashes at the end.
    [[nodiscard]] const std::string& path() const { return path_; }
    /// Absent for a lone file.
    [[nodiscard]] const std::optional<Bundle>& bundle() const { return bundle_; }
    /// The main executable; of a bundle without code, its Info.plist.
    [[nodiscard]] const CodeFile& file() const { return file_; }

    /// Unsupported if it is a lone file that is no Mach-O, in which no signature can be.
    [[nodiscard]] base::Outcome checkHoldsSignatures() const;
    /// How many signatures it should have: one for each slice, or one in files.
    [[nodiscard]] std::size_t signatureCount() const;
    /// NotFound, with the platform's message, if there is none.
    [[nodiscard]] base::Result<SignatureParts> signature(std::size_t index) const;
    /// The Info.plist that special slot 1 of that signature hashes; absent if there is none.
    [[nodiscard]] base::Result<std::optional<base::OwnedBytes>> infoPlist(std::size_t index) const;
    /// The bytes of CodeResources; absent if there is none.
    [[nodiscard]] base::Result<std::optional<base::OwnedBytes>> seal() const;

private:
    StaticCode(std::string path, std::optional<Bundle> bundle, CodeFile file)
        : path_(std::move(path)), bundle_(std::move(bundle)), file_(std::move(file)) {}

    std::string path_;
    std::optional<Bundle> bundle_;
    CodeFile file_;
};

} // namespace sign
