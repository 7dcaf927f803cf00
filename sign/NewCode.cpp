#include "sign/NewCode.h"

#include "base/Leftovers.h"
#include "sign/bundle/LooseSignature.h"
#include "sign/files/SignalPause.h"

#include <cerrno>

#include <sys/stat.h>
#include <unistd.h>

namespace sign {

NewCode::~NewCode() {
    files_.clear();
    if (!folder_.empty())
        ::rmdir(folder_.c_str());
}

base::Outcome NewCode::makeSignatureFolder(const Bundle& bundle) {
    const std::string folder = bundle.signatureFolder();
    if (::mkdir(folder.c_str(), 0755) == 0)
        folder_ = folder;
    else if (errno != EEXIST)
        return base::systemError("create", folder, errno);
    base::removeLeftovers(folder); // which no walk enters
    return {};
}

base::Outcome NewCode::replaceSignatureOf(const Bundle& bundle) {
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
    for (const NewCode* code : all)
        if (auto same = code->watch_.check(threads); !same)
            return same;
    const SignalPause pause;
    std::vector<AsideFile*> files;
    for (NewCode* code : all)
        for (File& file : code->files_)
            files.push_back(&file.aside);
    if (auto done = AsideFile::commit(files); !done)
        return done;
    for (NewCode* code : all) {
        code->folder_.clear();
        for (const std::string& path : code->unused_)
            if (::unlink(path.c_str()) != 0 && errno != ENOENT)
                return base::systemError("delete", path, errno);
    }
    return {};
}

} // namespace sign
