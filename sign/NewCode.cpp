#include "sign/NewCode.h"

#include "base/FileDescriptor.h"
#include "base/HiddenName.h"
#include "base/Leftovers.h"
#include "sign/bundle/LooseSignature.h"
#include "sign/files/SignalPause.h"

#include <cerrno>

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

namespace sign {
namespace {

/// As if it had come with the package: whoever may read that must be able to check the signature.
void makeLike(const std::string& folder, const std::string& around) {
    const auto opened =
        base::FileDescriptor::openAt(AT_FDCWD, folder.c_str(), O_RDONLY | O_DIRECTORY | O_NOFOLLOW);
    struct stat status {};
    if (!opened.open() || ::stat(around.c_str(), &status) != 0)
        return;
    // Only some users may give a folder away.
    (void)!::fchown(opened.get(), status.st_uid, status.st_gid);
    (void)!::fchmod(opened.get(), status.st_mode & 07777U);
}

} // namespace

NewCode::~NewCode() {
    if (newFolder_.empty())
        return;
    ::rmdir(newFolder_.c_str());
    base::keepAtEnd(newFolder_);
}

base::Outcome NewCode::makeSignatureFolder(const Bundle& bundle) {
    signatureFolder_ = bundle.signatureFolder();
    base::removeAtEnd(signatureFolder_); // from before it is there
    if (::mkdir(signatureFolder_.c_str(), 0755) == 0) {
        newFolder_ = signatureFolder_;
        makeLike(signatureFolder_, bundle.codeRoot);
        return {};
    }
    const int code = errno;
    base::keepAtEnd(signatureFolder_);
    return code == EEXIST ? base::Outcome() : base::systemError("create", signatureFolder_, code);
}

base::Outcome NewCode::replaceSignatureOf(const Bundle& bundle) {
    base::removeLeftovers(bundle.signatureFolder()); // which no walk enters
    std::vector<std::string> kept;
    const std::string folder = bundle.signatureFolder() + '/';
    for (const File& file : files_)
        if (file.path.starts_with(folder))
            kept.push_back(file.path.substr(folder.size()));
    auto unused = unusedSignatureFiles(bundle, kept);
    if (!unused)
        return unused.error();
    unused_ = std::move(*unused);
    return {};
}

void NewCode::putInto(NewFiles& newFiles) const {
    for (const File& file : files_)
        newFiles.add(file.path, file.aside);
    for (const std::string& path : unused_)
        newFiles.remove(path);
}

base::Outcome NewCode::close() {
    for (File& file : files_)
        if (auto closed = file.aside.close(); !closed)
            return closed;
    return {};
}

base::Outcome NewCode::commit(const std::vector<NewCode*>& all, unsigned threads) {
    for (const NewCode* code : all) {
        if (auto same = code->watch_.check(threads); !same)
            return same;
        if (!code->signatureFolder_.empty())
            if (auto alone = checkSignatureFolder(code->signatureFolder_); !alone)
                return alone;
    }
    const SignalPause pause;
    std::vector<AsideFile*> files;
    std::vector<std::string> unused;
    for (NewCode* code : all) {
        for (File& file : code->files_)
            files.push_back(&file.aside);
        unused.insert(unused.end(), code->unused_.begin(), code->unused_.end());
    }
    if (auto done = AsideFile::commit(files, unused); !done)
        return done;
    for (NewCode* code : all)
        if (!code->newFolder_.empty())
            base::keepAtEnd(std::exchange(code->newFolder_, {}));
    return {};
}

} // namespace sign
