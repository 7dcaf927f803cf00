#include "base/ByteReader.h"
#include "sign/bundle/ResourceSeal.h"
#include "sign/bundle/SealCheck.h"
#include "tests/fuzz/FuzzInput.h"
#include "tests/support/TemporaryFolder.h"

#include <algorithm>

namespace {

/// SHA-256 of "abc".
const sign::PropertyData hash = {0xba, 0x78, 0x16, 0xbf, 0x8f, 0x01, 0xcf, 0xea, 0x41, 0x41, 0x40,
                                 0xde, 0x5d, 0xae, 0x22, 0x23, 0xb0, 0x03, 0x61, 0xa3, 0x96, 0x17,
                                 0x7a, 0x9c, 0xb4, 0x10, 0xff, 0x61, 0xf2, 0x00, 0x15, 0xad};

bool hasHash(const sign::PropertyValue& value) {
    if (const auto* dictionary = value.dictionary())
        return std::ranges::any_of(*dictionary,
                                   [](const auto& entry) { return hasHash(entry.second); });
    return value.data() && *value.data() == hash;
}

sign::Bundle makeBundle(const TemporaryFolder& folder) {
    const std::string app = folder.makeApplication("a.app");
    folder.makeFile("a.app/Contents/Resources/a.txt", "abc");
    folder.makeLink("a.app/Contents/Resources/link", "a.txt");
    folder.makeFile("a.app/Contents/_CodeSignature/CodeResources");
    return *sign::openBundle(app);
}

} // namespace

/// The seal of a bundle that stays the same.
extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    static const TemporaryFolder folder;
    static const sign::Bundle bundle = makeBundle(folder);
    const base::Bytes seal(data, size);
    sign::SealChecking checking;
    checking.strict = true;
    const auto report = sign::checkSeal(bundle, {seal.begin(), seal.end()}, checking);
    require(report || report.error().kind == base::ErrorKind::Unsupported,
            "a seal is no reason to fail, unless its rules are not taken");
    if (!report)
        return 0;
    if (report->faults.empty()) {
        const auto read = sign::readPropertyList(seal, "seal");
        require(read && hasHash(*read), "only a seal with a file's hash is valid for it");
    }
    (void)sign::sealFacts(seal, "seal");
    return 0;
}
