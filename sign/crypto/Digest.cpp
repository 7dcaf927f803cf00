#include "sign/crypto/Digest.h"

#include <algorithm>
#include <new>

#include <openssl/evp.h>

namespace sign {
namespace {

const char* algorithmName(HashType type) {
    switch (type) {
    case HashType::Sha1:
        return "SHA1";
    case HashType::Sha384:
        return "SHA384";
    default:
        return "SHA256";
    }
}

/// Fetched once: a fetch takes longer than the hash of a page.
const EVP_MD* algorithm(HashType type) {
    static const EVP_MD* sha1 = EVP_MD_fetch(nullptr, algorithmName(HashType::Sha1), nullptr);
    static const EVP_MD* sha256 = EVP_MD_fetch(nullptr, algorithmName(HashType::Sha256), nullptr);
    static const EVP_MD* sha384 = EVP_MD_fetch(nullptr, algorithmName(HashType::Sha384), nullptr);
    switch (type) {
    case HashType::Sha1:
        return sha1;
    case HashType::Sha384:
        return sha384;
    default:
        return sha256;
    }
}

} // namespace

std::size_t digestSize(HashType type) {
    switch (type) {
    case HashType::Sha1:
    case HashType::Sha256Cut:
        return 20;
    case HashType::Sha256:
        return 32;
    case HashType::Sha384:
        return 48;
    }
    return 0;
}

std::string_view digestName(HashType type) {
    switch (type) {
    case HashType::Sha1:
        return "sha1";
    case HashType::Sha256:
        return "sha256";
    case HashType::Sha256Cut:
        return "sha256t";
    case HashType::Sha384:
        return "sha384";
    }
    return "unknown";
}

Digest::Digest(base::Bytes bytes) : size_(std::min(bytes.size(), most)) {
    std::copy_n(bytes.begin(), size_, bytes_.begin());
}

Digest Digest::cut(std::size_t size) const {
    return Digest(bytes().first(std::min(size, size_)));
}

struct Hasher::Context {
    explicit Context(HashType hashType) : type(hashType), handle(EVP_MD_CTX_new()) {
        if (handle == nullptr || EVP_DigestInit_ex2(handle, algorithm(type), nullptr) != 1)
            throw std::bad_alloc();
    }
    Context(const Context&) = delete;
    Context& operator=(const Context&) = delete;
    ~Context() { EVP_MD_CTX_free(handle); }

    HashType type;
    EVP_MD_CTX* handle;
};

Hasher::Hasher(HashType type) : context_(std::make_unique<Context>(type)) {}
Hasher::Hasher(Hasher&&) noexcept = default;
Hasher& Hasher::operator=(Hasher&&) noexcept = default;
Hasher::~Hasher() = default;

void Hasher::update(base::Bytes bytes) {
    EVP_DigestUpdate(context_->handle, bytes.data(), bytes.size());
}

Digest Hasher::finish() {
    std::array<std::uint8_t, EVP_MAX_MD_SIZE> bytes{};
    unsigned size = 0;
    EVP_DigestFinal_ex(context_->handle, bytes.data(), &size);
    EVP_DigestInit_ex2(context_->handle, nullptr, nullptr);
    return Digest({bytes.data(), std::min<std::size_t>(size, digestSize(context_->type))});
}

Digest digestOf(HashType type, base::Bytes bytes) {
    Hasher hasher(type);
    hasher.update(bytes);
    return hasher.finish();
}

} // namespace sign
