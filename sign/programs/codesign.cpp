#include "base/ByteReader.h"
#include "base/Printable.h"
#include "base/ProgramStart.h"
#include "base/ProgressChannel.h"
#include "base/Version.h"
#include "sign/Description.h"
#include "sign/SignatureVerifier.h"
#include "sign/Signer.h"
#include "sign/bundle/NestedCode.h"
#include "sign/files/FileTree.h"
#include "sign/identity/IdentityList.h"
#include "sign/programs/CodesignOptions.h"
#include "sign/programs/Facts.h"

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <string>
#include <string_view>
#include <thread>

namespace sign {
namespace {

constexpr int done = 0;
constexpr int failed = 1;
constexpr int wrongUsage = 2;
constexpr int requirementNotMet = 3;

/// Writes one line that a terminal shows and does not obey, whatever is in it.
void printLine(std::FILE* to, const std::string& line) {
    std::fprintf(to, "%s\n", base::printable(line).c_str());
}

/// "PATH: SENTENCE", unless the sentence names the path itself.
int reportOf(const std::string& path, const base::Error& error) {
    constexpr std::string_view second = "\nIn subcomponent: ";
    const std::size_t end = error.sentence.find(second);
    const std::string first = error.sentence.substr(0, end);
    const bool isNamed = first.starts_with(withoutSlashes(path) + ": ");
    printLine(stderr, isNamed ? first : path + ": " + first);
    if (end != std::string::npos)
        printLine(stderr, error.sentence.substr(end + 1));
    return failed;
}

int signOne(const std::string& path, const CodesignOptions& options) {
    SigningObserver observer;
    observer.replacesSignature = [](const std::string& replaced) {
        printLine(stderr, replaced + ": replacing existing signature");
    };
    observer.warns = [](const std::string& sentence) { printLine(stderr, sentence); };
    if (options.verbosity > 0)
        observer.isSigned = [](const SignedCode& code) {
            printLine(stderr, code.path + ": signed " + code.format + " [" + code.identifier + ']');
        };
    base::ProgressChannel progress;
    if (progress.open())
        observer.progresses = [&progress](std::size_t signedOnes, std::size_t all) {
            progress.tell(signedOnes, all);
        };
    const auto signedIt = sign(path, options.signing, observer);
    return signedIt ? done : reportOf(path, signedIt.error());
}

int displayOne(const std::string& path, const CodesignOptions& options) {
    const auto code = StaticCode::open(path, options.signing.bundleVersion);
    if (!code)
        return reportOf(path, code.error());
    const auto text = describe(*code, std::min(options.verbosity, 4U));
    if (!text)
        return reportOf(path, text.error());
    std::fputs(text->c_str(), stderr);
    if (options.showRequirements) {
        const auto requirements = requirementsOf(*code);
        if (!requirements)
            return reportOf(path, requirements.error());
        std::fputs(requirements->c_str(), stdout);
    }
    if (options.showEntitlements) {
        const auto entitlements = entitlementsOf(*code);
        if (!entitlements)
            return reportOf(path, entitlements.error());
        if (!entitlements->empty())
            std::fwrite(entitlements->data(), 1, entitlements->size(), stdout);
    }
    return done;
}

/// A line for each file that a fault is about.
void printChanges(const VerifyFault& fault) {
    for (const SealFault& change : fault.changes)
        printLine(stdout, "file " + std::string(changeName(change.change)) + ": " + change.file);
}

int reportFault(const std::string& path, const VerifyFault& fault, unsigned verbosity) {
    printLine(stderr, path + ": " + std::string(faultMessage(fault.code)));
    if (!fault.subcomponent.empty())
        printLine(stderr, "In subcomponent: " + fault.subcomponent);
    if (!fault.architecture.empty())
        printLine(stderr, "In architecture: " + fault.architecture);
    if (verbosity > 0)
        printChanges(fault);
    return failed;
}

base::Result<VerifyReport> verified(const std::string& path, const CodesignOptions& options) {
    return verify(path, {.deep = options.signing.deep,
                         .strict = options.strict,
                         .requirement = options.requirement,
                         .bundleVersion = options.signing.bundleVersion,
                         .threads = options.signing.threads});
}

int verifyOne(const std::string& path, const CodesignOptions& options) {
    const auto report = verified(path, options);
    if (!report)
        return reportOf(path, report.error());
    if (options.verbosity > 1)
        for (const std::string& nested : report->nested)
            for (const char* step : {"--prepared:", "--validated:"})
                printLine(stderr, step + nested);
    if (!report->faults.empty())
        return reportFault(path, report->faults.front(), options.verbosity);
    if (options.verbosity > 0)
        for (const char* fact : {": valid on disk", ": satisfies its Designated Requirement"})
            printLine(stderr, path + fact);
    if (!options.requirement)
        return done;
    if (!report->meetsRequirement) {
        printLine(stderr,
                  "test-requirement: " + std::string(faultMessage(FaultCode::RequirementFailed)));
        return requirementNotMet;
    }
    if (options.verbosity > 0)
        printLine(stderr, path + ": explicit requirement satisfied");
    return done;
}

base::Result<std::vector<CodeObject>> planned(const std::string& path,
                                              const CodesignOptions& options) {
    auto plan = planOf(path, Leftovers::AreSkipped, options.signing.bundleVersion);
    if (!plan || plan->back().isBundle)
        return plan;
    const auto code = StaticCode::open(path);
    if (!code)
        return code.error();
    if (auto checked = code->checkHoldsSignatures(); !checked)
        return checked.error();
    return plan;
}

int planOne(const std::string& path, const CodesignOptions& options) {
    const auto plan = planned(path, options);
    if (!plan)
        return reportOf(path, plan.error());
    for (const CodeObject& object : *plan)
        std::fwrite(object.path.c_str(), 1, object.path.size() + 1, stdout);
    return done;
}

struct Answer {
    base::Json::Object facts;
    int status = done;
};

/// What an operation that changes nothing finds out.
base::Result<Answer> answerOf(const std::string& path, const CodesignOptions& options) {
    if (options.operation == Operation::Verify) {
        const auto report = verified(path, options);
        if (!report)
            return report.error();
        return Answer{validityFacts(*report), !report->faults.empty()    ? failed
                                              : report->meetsRequirement ? done
                                                                         : requirementNotMet};
    }
    if (options.operation == Operation::Plan) {
        const auto plan = planned(path, options);
        if (!plan)
            return plan.error();
        base::Json::Array objects;
        for (const CodeObject& object : *plan)
            objects.emplace_back(object.path);
        return Answer{{{"plan", std::move(objects)}}};
    }
    const auto code = StaticCode::open(path, options.signing.bundleVersion);
    if (!code)
        return code.error();
    auto facts = signatureFacts(*code);
    if (!facts)
        return facts.error();
    return Answer{*std::move(facts)};
}

int answerInJson(const std::string& path, const CodesignOptions& options) {
    auto answer = answerOf(path, options);
    base::Json::Object line = {{"path", path}};
    if (answer)
        std::ranges::move(answer->facts, std::back_inserter(line));
    else
        line.emplace_back("error", answer.error().sentence);
    std::printf("%s\n", base::Json(std::move(line)).text().c_str());
    return answer ? answer->status : failed;
}

int removeOne(const std::string& path, const CodesignOptions& options) {
    const auto removed = removeSignature(path, options.signing.bundleVersion);
    return removed ? done : reportOf(path, removed.error());
}

int runOn(const std::string& path, const CodesignOptions& options) {
    if (options.json)
        return answerInJson(path, options);
    switch (options.operation) {
    case Operation::Sign:
        return signOne(path, options);
    case Operation::Verify:
        return verifyOne(path, options);
    case Operation::Display:
        return displayOne(path, options);
    case Operation::RemoveSignature:
        return removeOne(path, options);
    default:
        return planOne(path, options);
    }
}

/// The status, unless what was printed did not arrive.
int flushed(int status) {
    errno = 0;
    if (std::fflush(stdout) == 0 && std::ferror(stdout) == 0)
        return status;
    const int reason = errno == 0 ? EIO : errno;
    printLine(stderr, "kelpmoray-codesign: " +
                          base::systemError("write", "standard output", reason).sentence);
    return failed;
}

int run(int count, char** arguments) {
    base::startProgram();
    auto options = readCodesignOptions(count, arguments);
    if (!options) {
        printLine(stderr, "kelpmoray-codesign: " + options.error().sentence);
        return wrongUsage;
    }
    if (options->operation == Operation::Help || options->operation == Operation::Version) {
        const bool isHelp = options->operation == Operation::Help;
        const std::string version = std::string("kelpmoray-codesign ") + base::version() + '\n';
        std::fputs(isHelp ? codesignUsage : version.c_str(), stdout);
        return flushed(done);
    }
    if (options->operation == Operation::RemoveSignature && options->signing.deep) {
        printLine(stderr, "kelpmoray-codesign: --remove-signature takes one signature away and "
                          "none in nested code. Leave out --deep, or give each path that --plan "
                          "prints.");
        return wrongUsage;
    }
    if (options->operation == Operation::Sign && options->identity != "-") {
        auto identity = findIdentity(options->identity);
        if (!identity) {
            // What the platform tells of the name given begins with that name.
            const std::string& sentence = identity.error().sentence;
            const bool isOfName = sentence.starts_with(options->identity + ": ");
            printLine(stderr, (isOfName ? "" : "kelpmoray-codesign: ") + sentence);
            return failed;
        }
        options->signing.identity = std::make_shared<Identity>(std::move(*identity));
    }
    options->signing.threads = std::max(1U, std::thread::hardware_concurrency());
    int status = done;
    for (const std::string& path : options->paths)
        if (const int one = runOn(path, *options); one != done && status != failed)
            status = one;
    return flushed(status);
}

} // namespace
} // namespace sign

int main(int argc, char** argv) {
    return sign::run(argc, argv);
}
