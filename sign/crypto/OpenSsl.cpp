#include "sign/crypto/OpenSsl.h"

#include <openssl/err.h>

namespace sign {

BioOwner bioOf(base::Bytes bytes) {
    return BioOwner(BIO_new_mem_buf(bytes.data(), static_cast<int>(bytes.size())));
}

base::OwnedBytes bytesOf(BIO* sink) {
    char* bytes = nullptr;
    const long size = BIO_get_mem_data(sink, &bytes);
    return {bytes, bytes + std::max(size, 0L)};
}

std::string openSslReason() {
    const unsigned long code = ERR_peek_last_error();
    const char* reason = ERR_reason_error_string(code);
    forgetOpenSslErrors();
    return reason != nullptr ? reason : "unknown reason";
}

void forgetOpenSslErrors() {
    ERR_clear_error();
}

base::Error openSslError(const std::string& what, const std::string& remedy) {
    return {base::ErrorKind::System, what + ": " + openSslReason() + ". " + remedy};
}

} // namespace sign
