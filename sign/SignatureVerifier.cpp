#include "sign/SignatureVerifier.h"

#include "base/WorkerThreads.h"
#include "sign/CodeCheck.h"
#include "sign/bundle/Bundle.h"
#include "sign/bundle/SealScope.h"
#include "sign/files/FileTree.h"
#include "sign/files/OpenFiles.h"

#include <algorithm>
#include <unordered_map>
#include <unordered_set>

namespace sign {
namespace {

/// Nobody nests code deeper; what does is made to exhaust us.
constexpr unsigned mostLevels = 64;

/// Checks code objects level by level, the operand first: what a level seals is the next one.
class PackageCheck {
public:
    explicit PackageCheck(const VerifyOptions& options) : options_(options) {}

    base::Result<VerifyReport> run(const std::string& path) {
        CodeChecking operand;
        operand.path = path;
        operand.version = options_.bundleVersion;
        operand.isStrict = options_.strict;
        std::vector<CodeChecking> level{operand};
        for (unsigned depth = 0; !level.empty(); ++depth) {
            if (depth > mostLevels) {
                report_.faults.push_back({FaultCode::BadBundleFormat, {}, {}, {}});
                break;
            }
            std::vector<CodeChecking> next;
            const std::size_t most = mostOpenObjects();
            for (std::size_t at = 0; at < level.size(); at += most) {
                const auto from = level.begin() + std::ptrdiff_t(at);
                const auto to = from + std::ptrdiff_t(std::min(most, level.size() - at));
                if (auto checked = checkAll({from, to}, depth == 0, next); !checked)
                    return checked.error();
            }
            level = std::move(next);
        }
        return std::move(report_);
    }

private:
    base::Outcome checkAll(std::vector<CodeChecking> level, bool isOperand,
                           std::vector<CodeChecking>& next) {
        std::vector<CodeCheck> checks(level.size());
        const bool isSingle = level.size() < options_.threads;
        for (CodeChecking& checking : level)
            checking.threads = isSingle ? options_.threads : 1;
        const auto check = [&](std::size_t index) { return checks[index].run(level[index]); };
        if (auto done = base::forEach(level.size(), isSingle ? 1 : options_.threads, check); !done)
            return done;
        std::vector<PageJob> jobs;
        for (CodeCheck& one : checks)
            one.addPages(jobs);
        if (auto hashed = hashPages(jobs, options_.threads); !hashed)
            return hashed;
        for (std::size_t index = 0; index < checks.size(); ++index) {
            checks[index].comparePages();
            take(level[index], checks[index], isOperand);
            addNested(level[index], checks[index], isOperand, next);
        }
        return {};
    }

    void take(const CodeChecking& checking, const CodeCheck& check, bool isOperand) {
        const std::string place = isOperand ? "" : check.realPath();
        const bool isValid = check.faults().empty() && !check.isOtherCode();
        if (!checking.framework.empty()) {
            if (!isValid)
                report_.faults.push_back({FaultCode::BadFrameworkVersion,
                                          realPath(checking.framework).value_or(place),
                                          {},
                                          {}});
            return;
        }
        if (check.isOtherCode())
            report_.faults.push_back(
                {FaultCode::BadNestedCode,
                 checking.holder,
                 {},
                 {{FaultCode::BadNestedCode, checking.path, SealChange::Modified}}});
        for (VerifyFault fault : check.faults()) {
            fault.subcomponent = place;
            report_.faults.push_back(std::move(fault));
        }
        if (!isOperand && isValid)
            report_.nested.push_back(place);
        if (isOperand && options_.requirement)
            report_.meetsRequirement = check.meetsInAll(*options_.requirement);
    }

    void addNested(const CodeChecking& outer, const CodeCheck& check, bool isOperand,
                   std::vector<CodeChecking>& next) {
        if (outer.isShallow)
            return;
        const std::string holder = isOperand ? "" : check.realPath();
        for (const SealedCode& code : check.nested()) {
            CodeChecking nested;
            nested.path = code.path;
            nested.requirement = code.requirement;
            // In a bundle without a dot in its name, code is sealed by that and by all around it.
            nested.isShallow = !options_.deep || !whole_.insert(realPathOf(code.path)).second;
            nested.isStrict = options_.strict;
            nested.isLone = code.isFile && !owners_.findIn(check.scope()->realCodeRoot, code.path);
            nested.outer = check.scope();
            nested.holder = holder;
            next.push_back(nested);
            if (!code.isFramework || !options_.strict)
                continue;
            for (const std::string& version : otherVersions(code.path)) {
                nested.path = version;
                nested.framework = code.path;
                next.push_back(nested);
            }
        }
    }

    /// Of what is no link. Each folder is resolved once.
    std::string realPathOf(const std::string& path) {
        const std::size_t slash = path.rfind('/');
        const auto [folder, isNew] = realFolders_.try_emplace(path.substr(0, slash));
        if (isNew)
            folder->second = realPath(folder->first).value_or(folder->first);
        return folder->second + path.substr(slash);
    }

    const VerifyOptions& options_;
    VerifyReport report_;
    ExecutableOwners owners_;
    std::unordered_map<std::string, std::string> realFolders_;
    std::unordered_set<std::string> whole_; ///< paths of nested code that is checked whole
};

} // namespace

base::Result<VerifyReport> verify(const std::string& path, const VerifyOptions& options) {
    return PackageCheck(options).run(path);
}

} // namespace sign
