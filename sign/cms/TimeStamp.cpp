#include "sign/cms/TimeStamp.h"

#include "sign/cms/BerElements.h"
#include "sign/cms/TimeStampToken.h"

#include <algorithm>
#include <chrono>
#include <ctime>
#include <thread>

#include <openssl/http.h>
#include <openssl/rand.h>

namespace sign {
namespace {

using RequestOwner = OpenSslOwner<TS_REQ, TS_REQ_free>;
using StatusOwner = OpenSslOwner<TS_STATUS_INFO, TS_STATUS_INFO_free>;
using AlgorithmOwner = OpenSslOwner<X509_ALGOR, X509_ALGOR_free>;
using ImprintOwner = OpenSslOwner<TS_MSG_IMPRINT, TS_MSG_IMPRINT_free>;
using IntegerOwner = OpenSslOwner<ASN1_INTEGER, ASN1_INTEGER_free>;
using NumberOwner = OpenSslOwner<BIGNUM, BN_free>;

constexpr int secondsToAnswer = 15;
/// A server that is gone takes the whole time of a try, for OpenSSL tries to connect until then.
constexpr int secondsInAll = 30;
constexpr std::size_t longestReply = std::size_t{1} << 20U;
constexpr int tries = 4;
constexpr std::chrono::milliseconds firstPause{500};

base::Error unavailable() {
    return {base::ErrorKind::Unavailable, "The timestamp service is not available."};
}

base::Error wrongReply(const std::string& url, const std::string& what) {
    return {base::ErrorKind::Damaged, "The timestamp service " + url +
                                          " gave an answer that is not valid: " + what +
                                          ". Use another one."};
}

/// The parts of an address.
struct Address {
    std::string host;
    std::string port;
    std::string path;
};

base::Result<Address> addressIn(const std::string& url) {
    char* host = nullptr;
    char* port = nullptr;
    char* path = nullptr;
    int isTls = 0;
    const int parsed = OSSL_HTTP_parse_url(url.c_str(), &isTls, nullptr, &host, &port, nullptr,
                                           &path, nullptr, nullptr);
    Address address;
    if (parsed == 1)
        address = {host, port, path};
    OPENSSL_free(host);
    OPENSSL_free(port);
    OPENSSL_free(path);
    if (parsed == 1 && isTls == 0 && url.starts_with("http://"))
        return address;
    forgetOpenSslErrors();
    return base::Error{base::ErrorKind::Usage,
                       "The timestamp service \"" + url +
                           "\" is no address that begins with http://. Give "
                           "the address of a server for RFC 3161."};
}

RequestOwner requestFor(base::Bytes signatureValue) {
    RequestOwner request(TS_REQ_new());
    TS_REQ_set_version(request.get(), 1);
    const AlgorithmOwner algorithm(X509_ALGOR_new());
    X509_ALGOR_set0(algorithm.get(), OBJ_nid2obj(NID_sha256), V_ASN1_NULL, nullptr);
    const ImprintOwner imprint(TS_MSG_IMPRINT_new());
    TS_MSG_IMPRINT_set_algo(imprint.get(), algorithm.get());
    const Digest digest = digestOf(HashType::Sha256, signatureValue);
    base::OwnedBytes bytes(digest.bytes().begin(), digest.bytes().end());
    TS_MSG_IMPRINT_set_msg(imprint.get(), bytes.data(), static_cast<int>(bytes.size()));
    TS_REQ_set_msg_imprint(request.get(), imprint.get());
    const NumberOwner number(BN_new());
    BN_rand(number.get(), 64, BN_RAND_TOP_ANY, BN_RAND_BOTTOM_ANY);
    const IntegerOwner nonce(BN_to_ASN1_INTEGER(number.get(), nullptr));
    TS_REQ_set_nonce(request.get(), nonce.get());
    TS_REQ_set_cert_req(request.get(), 1);
    return request;
}

/// A TimeStampResp, not checked yet.
struct Reply {
    long status = 0;
    base::OwnedBytes token; ///< as it came; empty if there is none
};

std::optional<Reply> readReply(BIO* answer) {
    base::OwnedBytes bytes(BIO_ctrl_pending(answer));
    const int size = BIO_read(answer, bytes.data(), static_cast<int>(bytes.size()));
    const auto whole = size > 0 ? firstElementIn({bytes.data(), std::size_t(size)}) : std::nullopt;
    const auto parts = whole && whole->isSequence() ? elementsIn(whole->content) : std::nullopt;
    if (!parts || parts->empty() || parts->size() > 2)
        return std::nullopt;
    const unsigned char* at = parts->front().whole.data();
    const auto length = static_cast<long>(parts->front().whole.size());
    const StatusOwner status(d2i_TS_STATUS_INFO(nullptr, &at, length));
    if (!status)
        return std::nullopt;
    Reply reply{ASN1_INTEGER_get(TS_STATUS_INFO_get0_status(status.get())), {}};
    if (parts->size() == 2)
        reply.token.assign(parts->back().whole.begin(), parts->back().whole.end());
    return reply;
}

/// Sends the request once. Absent if nothing answers in time, or something that is no reply.
std::optional<Reply> exchange(const Address& address, TS_REQ* request, int seconds) {
    const base::OwnedBytes der = derOf(i2d_TS_REQ, request);
    BioOwner body(BIO_new(BIO_s_mem()));
    BIO_write(body.get(), der.data(), static_cast<int>(der.size()));
    const BioOwner answer(OSSL_HTTP_transfer(
        nullptr, address.host.c_str(), address.port.c_str(), address.path.c_str(), 0, nullptr,
        nullptr, nullptr, nullptr, nullptr, nullptr, 0, nullptr, "application/timestamp-query",
        body.get(), "application/timestamp-reply", 1, longestReply, seconds, 0));
    std::optional<Reply> reply;
    if (answer)
        reply = readReply(answer.get());
    if (!reply)
        forgetOpenSslErrors();
    return reply;
}

std::optional<Reply> exchangeInTries(const Address& address, TS_REQ* request) {
    using Clock = std::chrono::steady_clock;
    const Clock::time_point end = Clock::now() + std::chrono::seconds(secondsInAll);
    auto reply = exchange(address, request, secondsToAnswer);
    for (int pause = 0; pause < tries - 1 && !reply; ++pause) {
        std::this_thread::sleep_for(firstPause * (1 << pause));
        const auto left = std::chrono::ceil<std::chrono::seconds>(end - Clock::now()).count();
        if (left <= 0)
            break;
        reply = exchange(address, request, std::min(static_cast<int>(left), secondsToAnswer));
    }
    return reply;
}

/// Empty if a signature with that chain may have been made then; else why not.
std::string faultOfTime(std::int64_t time, const std::vector<Certificate>& chain) {
    if (time > std::time(nullptr) + secondsOfGrace)
        return "its time has not come yet";
    for (const Certificate& certificate : chain)
        if (!certificate.isValidAt(time))
            return "the certificate \"" + certificate.label() + "\" is not valid at its time";
    return {};
}

} // namespace

base::Result<TimeStampReply> TimeStampReply::request(const std::string& url,
                                                     base::Bytes signatureValue) {
    auto address = addressIn(url);
    if (!address)
        return address.error();
    TimeStampReply answered(url, requestFor(signatureValue));
    auto reply = exchangeInTries(*address, answered.request_.get());
    if (!reply)
        return unavailable();
    answered.status_ = reply->status;
    answered.token_ = std::move(reply->token);
    return answered;
}

base::Result<base::OwnedBytes> TimeStampReply::token(base::Bytes signatureValue,
                                                     const std::vector<Certificate>& chain) const {
    if (status_ != TS_STATUS_GRANTED && status_ != TS_STATUS_GRANTED_WITH_MODS)
        return wrongReply(url_, "it refuses the request");
    const Pkcs7Owner decoded = decodedToken(token_);
    if (!decoded)
        return wrongReply(url_, "it holds no token");
    std::string fault = faultOfToken(decoded.get(), signatureValue,
                                     TS_REQ_get_nonce(request_.get()), rootsFor(chain.back()));
    if (fault.empty())
        fault = faultOfTime(timeOfToken(token_).value_or(0), chain);
    if (!fault.empty())
        return wrongReply(url_, fault);
    return token_;
}

} // namespace sign
