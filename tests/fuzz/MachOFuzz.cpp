#include "sign/SignatureVerifier.h"
#include "sign/Signer.h"
#include "sign/StaticCode.h"
#include "tests/fuzz/FuzzInput.h"
#include "tests/support/TemporaryFolder.h"

namespace {

void requireSentence(const base::Error& error) {
    require(error.sentence.size() > 10, "an error has a sentence");
}

bool isValid(const std::string& path) {
    sign::VerifyOptions options;
    options.strict = true;
    const auto report = sign::verify(path, options);
    if (!report)
        requireSentence(report.error());
    return report && report->faults.empty();
}

} // namespace

/// Any file is signed so that it is valid, or refused and left as it is.
extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    const TemporaryFolder folder;
    const std::string content(reinterpret_cast<const char*>(data), size);
    const std::string path = folder.makeFile("code", content);
    (void)isValid(path);
    sign::SigningOptions options;
    options.force = true;
    const auto done = sign::sign(path, options, {});
    if (!done) {
        requireSentence(done.error());
        require(contentOf(path) == content, "what is refused stays as it is");
        return 0;
    }
    require(isValid(path), "what was signed is valid");
    const std::string signedContent = contentOf(path);
    options.preserve = {true, true, true, true, true};
    require(bool(sign::sign(path, options, {})), "what was signed can be signed again");
    require(contentOf(path) == signedContent, "signing again gives the same bytes");
    require(bool(sign::removeSignature(path, {})), "the signature can be removed");
    const auto code = sign::StaticCode::open(path);
    require(code && !code->signature(0), "it is no longer signed");
    return 0;
}
