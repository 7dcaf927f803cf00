#include "sign/cms/TimeStamp.h"

#include "base/Printable.h"
#include "sign/cms/BerElements.h"
#include "sign/cms/HttpExchange.h"
#include "sign/cms/TimeStampToken.h"

#include <algorithm>
#include <ctime>

#include <openssl/rand.h>

namespace sign {
namespace {

using RequestOwner = OpenSslOwner<TS_REQ, TS_REQ_free>;
using StatusOwner = OpenSslOwner<TS_STATUS_INFO, TS_STATUS_INFO_free>;
using AlgorithmOwner = OpenSslOwner<X509_ALGOR, X509_ALGOR_free>;
using ImprintOwner = OpenSslOwner<TS_MSG_IMPRINT, TS_MSG_IMPRINT_free>;
using IntegerOwner = OpenSslOwner<ASN1_INTEGER, ASN1_INTEGER_free>;
using NumberOwner = OpenSslOwner<BIGNUM, BN_free>;

constexpr std::size_t longestReply = std::size_t{1} << 20U;
constexpr const char* mediaType = "application/timestamp-query";
constexpr int tries = 4;

base::Error unavailable() {
    return {base::ErrorKind::Unavailable, "The timestamp service is not available."};
}

base::Error wrongReply(const std::string& url, const std::string& what) {
    return {base::ErrorKind::Damaged, "The timestamp service " + url +
                                          " gave an answer that is not valid: " + what +
                                          ". Use another one."};
}

base::Result<HttpAddress> addressIn(const std::string& url) {
    if (auto address = HttpAddress::in(url))
        return *std::move(address);
    return base::Error{base::ErrorKind::Usage,
                       "The timestamp service \"" + url +
                           "\" is no address such as http://HOST:PORT/PATH, with a port up to "
                           "65535 and no blanks. Give the address of a server for RFC 3161."};
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
    bool isGranted = false;
    bool mayPass = false;   ///< whether a refusal is one that a later try may not meet
    std::string says;       ///< the server's words about it
    base::OwnedBytes token; ///< as it came; empty if there is none
};

Reply replyOf(const TS_STATUS_INFO* info) {
    constexpr std::size_t longest = 200;
    Reply reply;
    const long status = ASN1_INTEGER_get(TS_STATUS_INFO_get0_status(info));
    reply.isGranted = status == TS_STATUS_GRANTED || status == TS_STATUS_GRANTED_WITH_MODS;
    const ASN1_BIT_STRING* reasons = TS_STATUS_INFO_get0_failure_info(info);
    for (const int reason : {TS_INFO_TIME_NOT_AVAILABLE, TS_INFO_SYSTEM_FAILURE})
        if (!reply.isGranted && reasons != nullptr && ASN1_BIT_STRING_get_bit(reasons, reason) == 1)
            reply.mayPass = true;
    const STACK_OF(ASN1_UTF8STRING)* texts = TS_STATUS_INFO_get0_text(info);
    for (int at = 0; texts != nullptr && at < sk_ASN1_UTF8STRING_num(texts); ++at) {
        const ASN1_UTF8STRING* text = sk_ASN1_UTF8STRING_value(texts, at);
        reply.says += (reply.says.empty() ? "" : " ");
        reply.says.append(reinterpret_cast<const char*>(ASN1_STRING_get0_data(text)),
                          static_cast<std::size_t>(ASN1_STRING_length(text)));
    }
    reply.says = base::printable(reply.says.substr(0, longest));
    return reply;
}

std::optional<Reply> readReply(base::Bytes bytes) {
    const auto whole = firstElementIn(bytes);
    const auto parts = whole && whole->isSequence() ? elementsIn(whole->content) : std::nullopt;
    if (!parts || parts->empty() || parts->size() > 2)
        return std::nullopt;
    const unsigned char* at = parts->front().whole.data();
    const auto length = static_cast<long>(parts->front().whole.size());
    const StatusOwner status(d2i_TS_STATUS_INFO(nullptr, &at, length));
    if (!status)
        return std::nullopt;
    Reply reply = replyOf(status.get());
    if (parts->size() == 2)
        reply.token.assign(parts->back().whole.begin(), parts->back().whole.end());
    return reply;
}

base::Error refused(const std::string& url, const Reply& reply) {
    if (!reply.mayPass)
        return wrongReply(url, "it refuses the request" +
                                   (reply.says.empty() ? "" : ", saying \"" + reply.says + '"'));
    if (reply.says.empty())
        return unavailable();
    return {base::ErrorKind::Unavailable, "The timestamp service is not available; " + url +
                                              " says \"" + reply.says + "\". Try again later."};
}

/// Absent if nothing answers in time, or something that is no reply. Also asks again
/// after a refusal that may pass.
std::optional<Reply> exchangeInTries(const HttpRoute& route, TS_REQ* request,
                                     const StampPatience& patience, const base::StopSignal& stop) {
    using Clock = std::chrono::steady_clock;
    const base::OwnedBytes der = derOf(i2d_TS_REQ, request);
    const Clock::time_point end = Clock::now() + patience.inAll;
    const auto pauses = patience.firstPause * ((1 << (tries - 1)) - 1);
    // So that a server that says nothing does not take the time of the other tries.
    const auto each = (patience.inAll - pauses) / tries;
    std::optional<Reply> reply;
    for (int count = 0; count < tries && (!reply || reply->mayPass); ++count) {
        if (count > 0) {
            const auto pause = patience.firstPause * (1 << (count - 1));
            if (Clock::now() + pause >= end || stop.waitFor(pause))
                break;
        }
        const auto until = std::min(end, Clock::now() + each);
        if (const auto answer = postDer(route, mediaType, der, longestReply, until, stop))
            if (auto read = readReply(*answer))
                reply = std::move(read);
    }
    forgetOpenSslErrors();
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

base::Outcome checkStampUrl(const std::string& url) {
    const auto address = addressIn(url);
    return address ? base::Outcome() : address.error();
}

base::Result<TimeStampReply> TimeStampReply::request(const std::string& url,
                                                     base::Bytes signatureValue,
                                                     const base::StopSignal& stop,
                                                     const StampPatience& patience) {
    auto address = addressIn(url);
    if (!address)
        return address.error();
    TimeStampReply answered(address->shown(), requestFor(signatureValue));
    const auto route = HttpRoute::to(*std::move(address));
    if (!route)
        return route.error();
    auto reply = exchangeInTries(*route, answered.request_.get(), patience, stop);
    if (!reply)
        return unavailable();
    if (!reply->isGranted)
        return refused(answered.url_, *reply);
    answered.token_ = std::move(reply->token);
    return answered;
}

base::Result<base::OwnedBytes> TimeStampReply::token(base::Bytes signatureValue,
                                                     const std::vector<Certificate>& chain) const {
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
