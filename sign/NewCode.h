#pragma once

#include "sign/bundle/Bundle.h"
#include "sign/bundle/FileWatch.h"
#include "sign/bundle/NewFiles.h"
#include "sign/files/AsideFile.h"

#include <string>
#include <vector>

namespace sign {

/// The new files of one code object, until those of all objects that are signed with it are whole.
/// One thread at a time.
class NewCode {
public:
    NewCode() = default;
    NewCode(NewCode&& other) noexcept
        : watch_(std::move(other.watch_)), signatureFolder_(std::move(other.signatureFolder_)),
          newFolder_(std::exchange(other.newFolder_, {})), files_(std::move(other.files_)),
          unused_(std::move(other.unused_)) {}
    NewCode& operator=(NewCode&& other) = delete;
    /// What has not taken its place goes away.
    ~NewCode();

    /// `path` is that of the old file as the package's seals have it: links on the way are kept.
    void add(std::string path, AsideFile file) {
        files_.push_back({std::move(path), std::move(file)});
    }
    void add(AsideFile file) {
        std::string path = file.path();
        add(std::move(path), std::move(file));
    }
    /// Makes the _CodeSignature of a bundle, if there is none: a walk over the package has to find
    /// what will be in it.
    [[nodiscard]] base::Outcome makeSignatureFolder(const Bundle& bundle);
    /// All files were added: those of an earlier signature that are not among them will go away.
    [[nodiscard]] base::Outcome replaceSignatureOf(const Bundle& bundle);
    /// What the new files were made from, and must not change until they take its place.
    [[nodiscard]] FileWatch& watch() { return watch_; }
    /// After the last of these calls this object must stay where it is.
    void putInto(NewFiles& newFiles) const;
    /// So that no descriptors are needed until the end.
    [[nodiscard]] base::Outcome close();

    /// Lets the files of all take their places, one right after the other in that order; signals
    /// that end the process wait meanwhile. Changed, and none does, if anything watched changed.
    [[nodiscard]] static base::Outcome commit(const std::vector<NewCode*>& all, unsigned threads);

private:
    struct File {
        std::string path;
        AsideFile aside;
    };

    FileWatch watch_;
    std::string signatureFolder_; ///< where the new signature is to be; empty if nowhere
    std::string newFolder_;       ///< the same if it was made; else empty
    std::vector<File> files_;
    std::vector<std::string> unused_;
};

} // namespace sign
