#include "sign/bundle/SealCheck.h"

#include "sign/bundle/FileHashes.h"
#include "sign/bundle/SealScope.h"
#include "sign/bundle/SealWalk.h"
#include "sign/files/FileTree.h"

#include <algorithm>
#include <unordered_map>

namespace sign {

namespace {

/// An entry of a seal, and whether the walk came by it.
struct Entry {
    const PropertyValue* value = nullptr;
    bool isSeen = false;
};

const PropertyData* hashIn(const PropertyValue& entry, std::string_view key) {
    if (entry.data()) // short for SHA-1 alone
        return key == "hash" ? entry.data() : nullptr;
    const PropertyValue* hash = entry.find(key);
    return hash ? hash->data() : nullptr;
}

bool isOptional(const PropertyValue& entry) {
    const PropertyValue* optional = entry.find("optional");
    return optional && optional->boolean() && *optional->boolean();
}

template <std::size_t size>
bool equals(const PropertyData* sealed, const std::array<std::uint8_t, size>& found) {
    return !sealed || std::equal(sealed->begin(), sealed->end(), found.begin(), found.end());
}

class Checker {
public:
    Checker(const Bundle& bundle, const SealChecking& checking)
        : bundle_(bundle), checking_(checking) {}

    base::Result<SealReport> check(base::OwnedBytes seal) {
        const auto read = readPropertyList(seal, bundle_.sealPath());
        seal = base::OwnedBytes(); // unlike {}, frees the memory
        if (!read || !takeTables(*read))
            return unusable();
        auto rules = SealRules::read(*rules_, bundle_, bundle_.sealPath());
        const auto root = realPath(bundle_.codeRoot);
        if (!rules && rules.error().kind == base::ErrorKind::Damaged)
            return unusable();
        if (!rules)
            return rules.error();
        auto scope = std::make_shared<SealScope>(
            SealScope{root.value_or(bundle_.codeRoot), std::move(*rules), checking_.outer});
        if (checking_.strict) {
            if (auto checked = checkStrictly(); !checked)
                return checked.error();
        }
        if (auto checked = checkItems(*scope); !checked)
            return checked.error();
        if (auto hashed = checkHashes(); !hashed)
            return hashed.error();
        addMissing();
        std::stable_sort(report_.faults.begin() + static_cast<std::ptrdiff_t>(ruleFaults_),
                         report_.faults.end(),
                         [](const SealFault& a, const SealFault& b) { return a.file < b.file; });
        report_.scope = std::move(scope);
        return std::move(report_);
    }

private:
    SealReport unusable() {
        report_.faults = {{FaultCode::ResourcesInvalid, bundle_.sealPath(), SealChange::None}};
        return std::move(report_);
    }

    bool takeTables(const PropertyValue& seal) {
        isVersion1_ = seal.find("files2") == nullptr;
        const PropertyValue* oldRules = seal.find("rules");
        const PropertyValue* oldFiles = seal.find("files");
        rules_ = isVersion1_ ? oldRules : seal.find("rules2");
        const PropertyValue* files = isVersion1_ ? oldFiles : seal.find("files2");
        for (const PropertyValue* table : {oldRules, oldFiles, rules_, files}) {
            if (!table || !table->dictionary())
                return false;
        }
        entries_.reserve(files->dictionary()->size());
        for (const auto& [name, value] : *files->dictionary())
            entries_[name] = {&value, false};
        return true;
    }

    base::Outcome checkStrictly() {
        for (const LayoutFault& fault : bundle_.layoutFaults)
            report_.structureFaults.push_back({fault.code, fault.file, SealChange::None});
        if (areWeak(*rules_, isVersion1_, bundle_.form))
            report_.faults.push_back(
                {FaultCode::WeakResourceRules, bundle_.sealPath(), SealChange::None});
        if (isVersion1_)
            report_.faults.push_back(
                {FaultCode::WeakResourceEnvelope, bundle_.sealPath(), SealChange::None});
        ruleFaults_ = report_.faults.size();
        return checkSignatureFolder();
    }

    /// The seal does not cover the folder that it is in.
    base::Outcome checkSignatureFolder() {
        const auto entries = entriesOf(bundle_.signatureFolder());
        if (!entries)
            return entries.error();
        for (const FileEntry& entry : *entries) {
            const auto& used = checking_.signatureFiles;
            const bool isUsed = std::find(used.begin(), used.end(), entry.name) != used.end();
            const bool isEmptyRest = entry.name == "CodeSignature" && entry.stamp.size == 0;
            if (!entry.isFile() || (!isUsed && !isEmptyRest))
                report_.structureFaults.push_back({FaultCode::UnsealedAppRoot,
                                                   bundle_.signatureFolder() + "/" + entry.name,
                                                   SealChange::None});
        }
        return {};
    }

    base::Outcome checkItems(const SealScope& scope) {
        const auto items = sealItems(bundle_, scope.rules);
        if (!items)
            return items.error();
        // A vector that grows takes twice its memory for a while.
        hashes_.reserve(items->size());
        hashed_.reserve(items->size());
        for (const SealItem& item : *items)
            checkItem(item, scope);
        return {};
    }

    void addFault(const std::string& file, SealChange change,
                  FaultCode code = FaultCode::BadResource) {
        report_.faults.push_back({code, file, change});
    }

    void checkItem(const SealItem& item, const SealScope& scope) {
        const std::string path = bundle_.codeRoot + "/" + item.path;
        const bool isLink = item.kind == SealItemKind::Link;
        if (checking_.strict && item.isForbidden())
            return addFault(path, SealChange::Added);
        if (!item.isSealed())
            return;
        const auto found = entries_.find(item.path);
        if (found == entries_.end()) {
            if (!isVersion1_ || !isLink)
                addFault(path, SealChange::Added);
            return;
        }
        found->second.isSeen = true;
        checkEntry(*found->second.value, item, path, scope);
    }

    void checkEntry(const PropertyValue& entry, const SealItem& item, const std::string& path,
                    const SealScope& scope) {
        const SealItemKind kind = item.kind;
        if (const std::string* requirement = entry.findString("requirement")) {
            if (kind == SealItemKind::Link || kind == SealItemKind::Other)
                return addFault(path, SealChange::Modified);
            report_.nested.push_back(
                {path, *requirement, path.ends_with(".framework"), kind == SealItemKind::File});
            return;
        }
        if (const std::string* sealed = entry.findString("symlink")) {
            const auto target = linkTarget(path);
            if (kind != SealItemKind::Link || target != *sealed)
                return addFault(path, SealChange::Modified);
            if (checking_.strict && !leadsToSealed(path, *target, scope))
                addFault(path, SealChange::None, FaultCode::InvalidSymlink);
            return;
        }
        const bool hasHashes = (!needsSha1() || hashIn(entry, "hash")) &&
                               (!needsSha256() || hashIn(entry, "hash2")) &&
                               (hashIn(entry, "hash") || hashIn(entry, "hash2"));
        if (kind != SealItemKind::File || !hasHashes)
            return addFault(path, SealChange::Modified);
        hashes_.push_back(
            {path, item.size, hashIn(entry, "hash") != nullptr, hashIn(entry, "hash2") != nullptr});
        hashed_.push_back(&entry);
    }

    bool needsSha1() const { return checking_.sha1 || isVersion1_; }
    bool needsSha256() const { return checking_.sha256 && !isVersion1_; }

    base::Outcome checkHashes() {
        if (auto hashed = hashFiles(hashes_, checking_.threads); !hashed)
            return hashed;
        for (std::size_t index = 0; index < hashes_.size(); ++index) {
            const FileHashes& found = hashes_[index];
            const PropertyValue& entry = *hashed_[index];
            if (found.isMissing)
                addFault(found.path, SealChange::Missing);
            else if (!equals(hashIn(entry, "hash"), found.sha1) ||
                     !equals(hashIn(entry, "hash2"), found.sha256))
                addFault(found.path, SealChange::Modified);
        }
        return {};
    }

    void addMissing() {
        for (const auto& [name, entry] : entries_) {
            if (!entry.isSeen && !isOptional(*entry.value))
                addFault(bundle_.codeRoot + "/" + std::string(name), SealChange::Missing);
        }
    }

    const Bundle& bundle_;
    const SealChecking& checking_;
    bool isVersion1_ = false;
    const PropertyValue* rules_ = nullptr;
    std::unordered_map<std::string_view, Entry> entries_;
    std::vector<FileHashes> hashes_;
    std::vector<const PropertyValue*> hashed_; ///< the entries, by the same index
    std::size_t ruleFaults_ = 0;
    SealReport report_;
};

} // namespace

std::string_view changeName(SealChange change) {
    switch (change) {
    case SealChange::Added:
        return "added";
    case SealChange::Modified:
        return "modified";
    case SealChange::Missing:
        return "missing";
    default:
        return "refused";
    }
}

base::Result<SealReport> checkSeal(const Bundle& bundle, base::OwnedBytes seal,
                                   const SealChecking& checking) {
    return Checker(bundle, checking).check(std::move(seal));
}

} // namespace sign
