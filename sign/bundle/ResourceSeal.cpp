#include "sign/bundle/ResourceSeal.h"

#include "base/ByteReader.h"
#include "base/Printable.h"
#include "base/Utf8.h"
#include "sign/bundle/FileHashes.h"
#include "sign/bundle/MachOFile.h"
#include "sign/bundle/NewFiles.h"
#include "sign/bundle/SealScope.h"
#include "sign/files/FileStamp.h"
#include "sign/files/FileTree.h"

#include <algorithm>
#include <set>

namespace sign {

namespace {

PropertyValue dataOf(base::Bytes bytes) {
    return base::OwnedBytes(bytes.begin(), bytes.end());
}

/// XML can hold a tab and the ends of lines, no other control character, and not the two code
/// points at the end of the first plane.
base::Outcome checkName(const Bundle& bundle, const std::string& name) {
    const bool isText = std::none_of(name.begin(), name.end(), [](char letter) {
        const auto byte = static_cast<unsigned char>(letter);
        return byte < 0x20 && letter != '\t' && letter != '\n' && letter != '\r';
    });
    const bool hasNoncharacter =
        name.find("\uFFFE") != name.npos || name.find("\uFFFF") != name.npos;
    if (isText && !hasNoncharacter && base::isValidUtf8(name))
        return {};
    return base::Error{
        base::ErrorKind::Unsupported,
        "The name of \"" + base::printable(bundle.codeRoot + "/" + name) +
            "\" is not UTF-8, or has characters that XML cannot hold, so no seal can hold it. "
            "Rename it."};
}

class SealMaker {
public:
    SealMaker(const Bundle& bundle, const SealMaking& making, const NestedLookup& nested)
        : bundle_(bundle), making_(making), nested_(nested) {}

    base::Result<ResourceSeal> make() {
        if (auto signable = checkSignable(bundle_); !signable)
            return signable.error();
        const PropertyValue standard = SealRules::standard(bundle_.form);
        const PropertyValue version1 = SealRules::standardVersion1(bundle_.form);
        const auto rules = SealRules::read(standard, bundle_, bundle_.path);
        const auto oldRules = SealRules::read(version1, bundle_, bundle_.path);
        if (!rules || !oldRules)
            return rules ? oldRules.error() : rules.error();
        scope_.emplace(
            SealScope{realPath(bundle_.codeRoot).value_or(bundle_.codeRoot), *rules, nullptr});
        if (auto added = addItems(*rules, *oldRules); !added)
            return added.error();
        warnOfMisplaced();
        if (auto hashed = addHashes(); !hashed)
            return hashed.error();
        PropertyDictionary seal;
        seal.reserve(4);
        seal.emplace_back("files", std::move(oldFiles_));
        seal.emplace_back("files2", std::move(files_));
        seal.emplace_back("rules", version1);
        seal.emplace_back("rules2", standard);
        result_.xml = applePropertyListXml(std::move(seal));
        return std::move(result_);
    }

private:
    /// The rules for a plain file, between its listing and its hashes.
    struct Waiting {
        std::optional<SealRule> rule;
        std::optional<SealRule> oldRule;
    };

    base::Outcome addItems(const SealRules& rules, const SealRules& oldRules) {
        const auto items =
            sealItems(bundle_, rules, {{}, making_.leftovers, making_.newFiles, making_.watch});
        if (!items)
            return items.error();
        // A vector that grows takes twice its memory for a while.
        hashes_.reserve(items->size());
        waiting_.reserve(items->size());
        for (const SealItem& item : *items) {
            if (auto added = add(item, oldRules); !added)
                return added;
        }
        return {};
    }

    base::Outcome add(const SealItem& item, const SealRules& oldRules) {
        if (auto sealable = checkSealable(bundle_, item); !sealable)
            return sealable;
        const std::string path = bundle_.codeRoot + "/" + item.path;
        std::optional<SealRule> oldRule;
        if (item.kind == SealItemKind::File)
            oldRule = oldRules.find(item.path);
        const bool isOld = oldRule && !oldRule->omit;
        if (!item.isSealed() && !isOld)
            return {};
        if (auto named = checkName(bundle_, item.path); !named)
            return named;
        if (item.kind == SealItemKind::Link)
            return addLink(item, path);
        const bool isNested = item.rule && item.rule->nested && !item.rule->omit;
        const auto isMachO = isNested && item.kind == SealItemKind::File
                                 ? isSignableMachO(path)
                                 : base::Result<bool>(false);
        if (!isMachO)
            return isMachO.error();
        const bool isCode = item.kind == SealItemKind::Bundle || *isMachO;
        if (isCode) {
            if (auto added = addCode(item, path); !added)
                return added;
            if (item.kind == SealItemKind::File)
                codeFiles_.push_back(path);
        } else if (isNested) {
            misplaced_.push_back(item.path);
        }
        if (item.kind == SealItemKind::Bundle || (isCode && !isOld))
            return {};
        hashes_.push_back({path, item.size, isOld || making_.withSha1, item.isSealed() && !isCode});
        if (making_.newFiles != nullptr)
            hashes_.back().newVersion = making_.newFiles->find(path);
        waiting_.push_back({item.isSealed() && !isCode ? item.rule : std::nullopt,
                            isOld ? oldRule : std::nullopt});
        return {};
    }

    base::Outcome addLink(const SealItem& item, const std::string& path) {
        auto target = linkTarget(path);
        if (!target || !base::isValidUtf8(*target))
            return base::Error{base::ErrorKind::Unsupported,
                               "The link \"" + base::printable(path) +
                                   "\" leads to a name that is not UTF-8, so no seal can hold it. "
                                   "Rename what it leads to."};
        if (!mayLeadTo(path, *target))
            result_.warnings.push_back(path +
                                       " is a link to what no seal of the package covers, "
                                       "and macOS refuses it. Let it lead to a sealed file.");
        PropertyDictionary entry;
        if (item.rule->optional)
            entry.emplace_back("optional", true);
        entry.emplace_back("symlink", std::move(*target));
        files_.emplace_back(item.path, std::move(entry));
        return {};
    }

    /// Whether a strict check of this bundle, or of one around it, lets a link lead there.
    bool mayLeadTo(const std::string& path, const std::string& target) {
        if (leadsToSealed(path, target, *scope_))
            return true;
        const auto bundle = knowsAround_ ? std::nullopt : realPath(bundle_.path);
        knowsAround_ = true;
        if (bundle)
            scope_->outer = scopeAround(*bundle);
        return leadsToSealed(path, target, *scope_);
    }

    base::Outcome addCode(const SealItem& item, const std::string& path) {
        auto seal = nested_(path);
        if (!seal)
            return seal.error();
        if (path.ends_with(".framework"))
            warnOfVersions(path, *seal);
        PropertyDictionary entry;
        entry.emplace_back("cdhash", std::move(seal->cdhash));
        entry.emplace_back("requirement", std::move(seal->requirement));
        files_.emplace_back(item.path, std::move(entry));
        return {};
    }

    /// A strict check asks of all versions what the seal says of the current one. Code that is
    /// signed ad hoc is known by nothing but its hash.
    void warnOfVersions(const std::string& framework, const NestedSeal& current) {
        for (const std::string& version : otherVersions(framework)) {
            const auto other = nested_(version);
            if (!other || other->requirement != current.requirement)
                result_.warnings.push_back(version +
                                           " does not meet the requirement of the framework's "
                                           "current version, and macOS refuses it. Remove it, or "
                                           "sign both with one identity and identifier.");
        }
    }

    /// A bundle without a dot in its name is no code to the platform, but what it runs is.
    void warnOfMisplaced() {
        std::set<std::string, std::less<>> bundles;
        ExecutableOwners owners;
        if (!misplaced_.empty())
            for (const std::string& file : codeFiles_)
                if (auto bundle = owners.findIn(scope_->realCodeRoot, file))
                    bundles.insert(std::move(*bundle));
        for (const std::string& bundle : bundles)
            if (!liesInOneOf(bundles, bundle))
                result_.warnings.push_back(bundle_.codeRoot + "/" + bundle +
                                           " is a bundle in a folder for code, but has no dot in "
                                           "its name, so all but its code is sealed as data. "
                                           "Give it the ending of its kind, such as \".app\".");
        for (const std::string& file : misplaced_)
            if (!liesInOneOf(bundles, file))
                result_.warnings.push_back(bundle_.codeRoot + "/" + file +
                                           " is no code, but lies in a folder for code. It is "
                                           "sealed as data; move it to Resources.");
    }

    base::Outcome addHashes() {
        if (auto hashed = hashFiles(hashes_, making_.threads); !hashed)
            return hashed;
        files_.reserve(files_.size() + waiting_.size());
        for (std::size_t index = 0; index < waiting_.size(); ++index) {
            const FileHashes& hashes = hashes_[index];
            const Waiting& file = waiting_[index];
            if (hashes.isMissing)
                return changedMeanwhile(hashes.path, "went away");
            if (making_.newFiles != nullptr && hashes.mayBeCode &&
                making_.newFiles->isUnknownCode(hashes.path)) {
                const auto isMachO = isSignableMachO(hashes.path);
                if (!isMachO)
                    return isMachO.error();
                if (*isMachO)
                    return changedMeanwhile(hashes.path, "was added");
            }
            std::string name = hashes.path.substr(bundle_.codeRoot.size() + 1);
            if (file.oldRule)
                addOldEntry(name, *file.oldRule, hashes);
            if (file.rule)
                addEntry(std::move(name), *file.rule, hashes);
        }
        hashes_ = std::vector<FileHashes>(); // unlike {}, frees the memory
        waiting_ = std::vector<Waiting>();
        return {};
    }

    void addOldEntry(const std::string& name, const SealRule& rule, const FileHashes& hashes) {
        if (!rule.optional) {
            oldFiles_.emplace_back(name, dataOf(hashes.sha1));
            return;
        }
        PropertyDictionary entry;
        entry.emplace_back("hash", dataOf(hashes.sha1));
        entry.emplace_back("optional", true);
        oldFiles_.emplace_back(name, std::move(entry));
    }

    void addEntry(std::string name, const SealRule& rule, const FileHashes& hashes) {
        PropertyDictionary entry;
        if (making_.withSha1)
            entry.emplace_back("hash", dataOf(hashes.sha1));
        entry.emplace_back("hash2", dataOf(hashes.sha256));
        if (rule.optional)
            entry.emplace_back("optional", true);
        files_.emplace_back(std::move(name), std::move(entry));
    }

    const Bundle& bundle_;
    const SealMaking& making_;
    const NestedLookup& nested_;
    std::vector<FileHashes> hashes_;
    std::vector<Waiting> waiting_; ///< of the same index
    PropertyDictionary files_;
    PropertyDictionary oldFiles_;
    std::vector<std::string> misplaced_; ///< data in places for code, relative to the code root
    std::vector<std::string> codeFiles_; ///< nested
    std::optional<SealScope> scope_;
    bool knowsAround_ = false; ///< whether the scope has the bundles around this one
    ResourceSeal result_;
};

} // namespace

base::Result<ResourceSeal> makeSeal(const Bundle& bundle, const SealMaking& making,
                                    const NestedLookup& nested) {
    return SealMaker(bundle, making, nested).make();
}

base::Result<SealFacts> sealFacts(base::Bytes seal, std::string_view name) {
    const auto read = readPropertyList(seal, name);
    if (!read)
        return read.error();
    SealFacts facts;
    facts.version = read->find("files2") ? 2 : 1;
    const PropertyValue* rules = read->find(facts.version == 2 ? "rules2" : "rules");
    const PropertyValue* files = read->find(facts.version == 2 ? "files2" : "files");
    facts.rules = rules && rules->dictionary() ? rules->dictionary()->size() : 0;
    facts.files = files && files->dictionary() ? files->dictionary()->size() : 0;
    return facts;
}

} // namespace sign
