#pragma once

#include "sign/SignatureVerifier.h"
#include "sign/StaticCode.h"
#include "sign/signature/PageHashes.h"
#include "sign/signature/RequirementCheck.h"

#include <memory>
#include <optional>
#include <string>
#include <vector>

namespace sign {

/// How much of one code object is checked.
struct CodeChecking {
    std::string path;
    std::string version;                    ///< of a framework
    std::optional<std::string> requirement; ///< text, of the seal that holds it; not of the operand
    std::string holder;     ///< absolute path of the nested code that seals it; else empty
    std::string framework;  ///< the one that it is another version of; else empty
    bool isShallow = false; ///< only who signed it, neither pages nor files
    bool isStrict = false;
    bool isLone = false;  ///< a file that is known to be no bundle's main executable
    unsigned threads = 1; ///< for sealed files
    std::shared_ptr<const SealScope> outer;
};

/// The check of one code object, up to the pages, whose hashes are made for many at once.
class CodeCheck {
public:
    /// Reads the signatures and checks all but pages. The error is one of the system.
    [[nodiscard]] base::Outcome run(const CodeChecking& checking);

    /// Work for hashPages(); valid as long as this object.
    void addPages(std::vector<PageJob>& jobs);
    /// Compares the hashes that were made.
    void comparePages();
    /// What is wrong, the first to be told first.
    [[nodiscard]] std::vector<VerifyFault> faults() const;
    /// Of the code, as far as it can be resolved.
    [[nodiscard]] const std::string& realPath() const { return realPath_; }
    [[nodiscard]] const std::vector<SealedCode>& nested() const { return seal_.nested; }
    [[nodiscard]] const std::shared_ptr<const SealScope>& scope() const { return seal_.scope; }
    [[nodiscard]] bool meetsInAll(const Requirement& requirement) const;
    /// Whether it is valid, but not the code that was sealed.
    [[nodiscard]] bool isOtherCode() const { return isOtherCode_; }

private:
    struct Slice {
        std::string architecture;
        SignatureParts parts;
        CodeFacts facts;
        std::vector<base::OwnedBytes> hashes; ///< of the pages, for each directory
        FileRange place;
    };

    [[nodiscard]] base::Outcome open();
    [[nodiscard]] base::Outcome checkSlice(std::size_t index);
    [[nodiscard]] base::Outcome checkSlots(Slice& slice, std::size_t index);
    [[nodiscard]] base::Outcome readFacts(Slice& slice, std::size_t index);
    [[nodiscard]] base::Outcome checkResources();
    [[nodiscard]] base::Outcome checkStrictly();
    void checkOuterRequirement();
    void addLater(const SealFault& fault);
    void fail(FaultCode code, const std::string& architecture = {});

    CodeChecking checking_;
    std::string realPath_;
    std::optional<StaticCode> code_;
    std::optional<base::OwnedBytes> sealBytes_;
    std::vector<Slice> slices_;
    std::vector<VerifyFault> own_;   ///< of signatures and pages
    std::vector<VerifyFault> later_; ///< of files and structure
    SealReport seal_;
    bool isOtherCode_ = false;
};

} // namespace sign
