#include "sign/cms/Cms.h"
#include "sign/cms/TimeStamp.h"
#include "tests/fuzz/FuzzInput.h"

/// A CMS, a time stamp token or a certificate of any bytes.
extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    const base::Bytes bytes(data, size);
    const auto read = sign::readCms(bytes);
    const sign::DirectoryDigest directory{.type = sign::HashType::Sha256,
                                          .digest = sign::digestOf(sign::HashType::Sha256, {})};
    const auto checked = sign::checkCms(bytes, {}, {&directory, 1});
    require(!checked || read, "what is right can be read");
    const auto time = sign::timeOfToken(bytes);
    const auto certificate = sign::Certificate::fromDer(bytes, "input");
    if (certificate) {
        (void)certificate->facts();
        (void)certificate->issuerAddress();
    }
    require(!time || !certificate, "nothing is a token and a certificate");
    return 0;
}
