#include "sign/identity/KeyFile.h"

#include <algorithm>

#include <openssl/decoder.h>
#include <openssl/pem.h>
#include <openssl/rsa.h>

namespace sign {
namespace {

using KeyInfoOwner = OpenSslOwner<PKCS8_PRIV_KEY_INFO, PKCS8_PRIV_KEY_INFO_free>;
using SignatureOwner = OpenSslOwner<X509_SIG, X509_SIG_free>;
using AlgorithmOwner = OpenSslOwner<X509_ALGOR, X509_ALGOR_free>;
using DecoderOwner = OpenSslOwner<OSSL_DECODER_CTX, OSSL_DECODER_CTX_free>;

// Some 16 MB and a twentieth of a second for each attempt to guess.
constexpr std::uint64_t scryptCost = 16384;
constexpr std::uint64_t scryptBlocks = 8;
constexpr std::uint64_t scryptLanes = 1;

constexpr unsigned keyBits = 2048;

std::string idOf(X509_PUBKEY* key) {
    const unsigned char* bytes = nullptr;
    int size = 0;
    X509_PUBKEY_get0_param(nullptr, &bytes, &size, nullptr, key);
    return base::hex(digestOf(HashType::Sha1, {bytes, static_cast<std::size_t>(size)}).bytes());
}

} // namespace

std::string keyIdOf(EVP_PKEY* key) {
    X509_PUBKEY* encoded = nullptr;
    if (X509_PUBKEY_set(&encoded, key) != 1)
        return {};
    const OpenSslOwner<X509_PUBKEY, X509_PUBKEY_free> owner(encoded);
    return idOf(encoded);
}

std::string keyIdOf(const Certificate& certificate) {
    return idOf(X509_get_X509_PUBKEY(certificate.handle()));
}

base::Result<KeyOwner> newKey() {
    KeyOwner key(EVP_RSA_gen(keyBits));
    if (!key)
        return openSslError("The key could not be made");
    return key;
}

base::Result<base::OwnedBytes> encryptedPem(EVP_PKEY* key, const Secret& passphrase) {
    const KeyInfoOwner info(EVP_PKEY2PKCS8(key));
    AlgorithmOwner algorithm(PKCS5_pbe2_set_scrypt(EVP_aes_256_cbc(), nullptr, 0, nullptr,
                                                   scryptCost, scryptBlocks, scryptLanes));
    if (!info || !algorithm)
        return openSslError("The key could not be encrypted");
    const SignatureOwner encrypted(PKCS8_set0_pbe(passphrase.text().data(),
                                                  static_cast<int>(passphrase.text().size()),
                                                  info.get(), algorithm.get()));
    if (!encrypted)
        return openSslError("The key could not be encrypted");
    (void)algorithm.release(); // is the encrypted key's now
    const BioOwner sink(BIO_new(BIO_s_mem()));
    if (PEM_write_bio_PKCS8(sink.get(), encrypted.get()) != 1)
        return openSslError("The key could not be written");
    return bytesOf(sink.get());
}

base::Result<KeyOwner> decodedKey(base::Bytes bytes, const Secret& passphrase,
                                  const std::string& name) {
    EVP_PKEY* handle = nullptr;
    const DecoderOwner decoder(OSSL_DECODER_CTX_new_for_pkey(
        &handle, nullptr, nullptr, nullptr, OSSL_KEYMGMT_SELECT_PRIVATE_KEY, nullptr, nullptr));
    OSSL_DECODER_CTX_set_passphrase(
        decoder.get(), reinterpret_cast<const unsigned char*>(passphrase.text().data()),
        passphrase.text().size());
    const unsigned char* at = bytes.data();
    std::size_t size = bytes.size();
    const bool isDecoded = OSSL_DECODER_from_data(decoder.get(), &at, &size) == 1;
    forgetOpenSslErrors();
    if (isDecoded)
        return KeyOwner(handle);
    constexpr std::string_view mark = "ENCRYPTED PRIVATE KEY";
    const bool isEncrypted =
        std::search(bytes.begin(), bytes.end(), mark.begin(), mark.end()) != bytes.end();
    if (isEncrypted)
        return base::Error{base::ErrorKind::Denied, "The passphrase does not open the key in " +
                                                        name + ". Give the right one."};
    return base::Error{base::ErrorKind::Damaged,
                       name + " holds no private key. Give a file in PEM, DER or PKCS#12."};
}

} // namespace sign
