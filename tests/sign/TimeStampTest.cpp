#include "sign/cms/TimeStamp.h"

#include "base/ByteReader.h"
#include "tests/sign/HttpServer.h"
#include "tests/sign/TestAuthority.h"
#include "tests/support/ExpectFails.h"
#include "tests/support/ScopedEnvironment.h"
#include "tests/support/TemporaryFolder.h"

#include <gmock/gmock.h>

namespace sign {
namespace {

using testing::HasSubstr;

const base::OwnedBytes signature = {1, 2, 3, 4};
constexpr const char* replyType = "application/timestamp-reply";

using RequestOwner = OpenSslOwner<TS_REQ, TS_REQ_free>;

RequestOwner requestIn(const HttpServer::Request& request) {
    const auto* at = reinterpret_cast<const unsigned char*>(request.body.data());
    return RequestOwner(d2i_TS_REQ(nullptr, &at, static_cast<long>(request.body.size())));
}

base::OwnedBytes imprintIn(TS_REQ* request) {
    const ASN1_OCTET_STRING* hash = TS_MSG_IMPRINT_get_msg(TS_REQ_get_msg_imprint(request));
    return {ASN1_STRING_get0_data(hash), ASN1_STRING_get0_data(hash) + ASN1_STRING_length(hash)};
}

std::string responseWith(long status, const base::OwnedBytes& token) {
    const OpenSslOwner<TS_RESP, TS_RESP_free> response(TS_RESP_new());
    const OpenSslOwner<TS_STATUS_INFO, TS_STATUS_INFO_free> info(TS_STATUS_INFO_new());
    TS_STATUS_INFO_set_status(info.get(), static_cast<int>(status));
    TS_RESP_set_status_info(response.get(), info.get());
    if (!token.empty()) {
        const unsigned char* at = token.data();
        PKCS7* decoded = d2i_PKCS7(nullptr, &at, static_cast<long>(token.size()));
        TS_RESP_set_tst_info(response.get(), decoded, PKCS7_to_TS_TST_INFO(decoded));
    }
    return std::string(base::textOf(derOf(i2d_TS_RESP, response.get())));
}

std::string granted(const base::OwnedBytes& token) {
    return HttpServer::reply("200 OK", replyType, responseWith(TS_STATUS_GRANTED, token));
}

/// How far the honest server's clock is ahead of ours.
constexpr std::int64_t fast = 240;

/// What an honest server answers.
std::string honest(const HttpServer::Request& request) {
    const Authorities& made = Authorities::shared();
    const RequestOwner asked = requestIn(request);
    return granted(
        tokenOf({imprintIn(asked.get()), std::time(nullptr) + fast, TS_REQ_get_nonce(asked.get())},
                made.clock, {made.root.certificate}));
}

/// For a signer under a root that counts as Apple's, with a certificate from ten days ago.
base::Result<base::OwnedBytes> stampOf(const std::string& url, const StampPatience& patience = {}) {
    static const Authorities& made = Authorities::shared();
    static const Issued leaf = issue("New", &made.middle, forCode, {-10 * day, 365 * day});
    const auto reply = TimeStampReply::request(url, signature, base::StopSignal(), patience);
    return reply ? reply->token(signature,
                                {leaf.certificate, made.middle.certificate, made.root.certificate})
                 : reply.error();
}

class TimeStampTest : public testing::Test {
    TemporaryFolder folder_;
    ScopedEnvironment environment_{"KELPMORAY_IDENTITIES", folder_.path()};
    std::string root_ = folder_.makeFile(
        "roots/root.der", std::string(base::textOf(Authorities::shared().root.certificate.der())));
};

TEST_F(TimeStampTest, AsksForATokenOverTheSignatureAndItsCertificates) {
    const HttpServer server([](const HttpServer::Request& request) {
        const RequestOwner asked = requestIn(request);
        EXPECT_EQ(request.target, "/ts01");
        EXPECT_EQ(imprintIn(asked.get()), sha256Of(signature));
        EXPECT_EQ(TS_REQ_get_cert_req(asked.get()), 1);
        EXPECT_EQ(TS_REQ_get_policy_id(asked.get()), nullptr);
        return honest(request);
    });
    const auto token = stampOf(server.url() + "/ts01");
    ASSERT_TRUE(token) << token.error().sentence;
    EXPECT_NEAR(static_cast<double>(timeOfToken(*token).value_or(0)),
                static_cast<double>(std::time(nullptr) + fast), 60);
    EXPECT_TRUE(checkToken(*token, signature, Authorities::shared().otherRoot.certificate));
}

TEST_F(TimeStampTest, BelievesNoServerThatLies) {
    const Authorities& made = Authorities::shared();
    const Issued usedUp = issue("Used Up", &made.root, forTime, {-10 * day, -day});
    const std::vector<Certificate> root = {made.root.certificate};
    struct Case {
        const char* what;
        std::function<base::OwnedBytes(TS_REQ*)> token;
        const char* sentence;
        long status = TS_STATUS_GRANTED;
    };
    const OpenSslOwner<ASN1_INTEGER, ASN1_INTEGER_free> one(ASN1_INTEGER_new());
    ASN1_INTEGER_set(one.get(), 1);
    const auto by = [](const Issued& clock, const std::vector<Certificate>& issuers,
                       long days = 0) {
        return [&clock, issuers, days](TS_REQ* asked) {
            return tokenOf(
                {imprintIn(asked), std::time(nullptr) + days * day, TS_REQ_get_nonce(asked)}, clock,
                issuers);
        };
    };
    const Case cases[] = {
        {"other imprint",
         [&](TS_REQ* asked) {
             return tokenOf({.imprint = base::OwnedBytes(32, 7), .nonce = TS_REQ_get_nonce(asked)},
                            made.clock, root);
         },
         "imprint"},
        {"other nonce",
         [&](TS_REQ* asked) {
             return tokenOf({.imprint = imprintIn(asked), .nonce = one.get()}, made.clock, root);
         },
         "nonce"},
        {"no nonce",
         [&](TS_REQ* asked) { return tokenOf({.imprint = imprintIn(asked)}, made.clock, root); },
         "nonce"},
        {"no usage", by(made.leaf, {made.middle.certificate, made.root.certificate}),
         "certificate verify error"},
        {"expired", by(usedUp, root), "certificate verify error"},
        {"no root", by(made.clock, {}), "certificate verify error"},
        {"another root, beside Apple's",
         by(made.otherClock, {made.otherRoot.certificate, made.root.certificate}),
         "do not lead to a root of Apple"},
        {"the future", by(made.clock, root, 21), "its time has not come yet"},
        {"before the signer's certificate", by(made.clock, root, -20),
         "the certificate \"New\" is not valid at its time"},
        {"refusal", [](TS_REQ*) { return base::OwnedBytes(); }, "it refuses", TS_STATUS_REJECTION},
    };
    for (const Case& each : cases) {
        const HttpServer server([&](const HttpServer::Request& request) {
            const RequestOwner asked = requestIn(request);
            return HttpServer::reply("200 OK", replyType,
                                     responseWith(each.status, each.token(asked.get())));
        });
        const auto token = stampOf(server.url());
        ASSERT_FALSE(token) << each.what;
        EXPECT_THAT(token.error().sentence, HasSubstr(each.sentence)) << each.what;
        EXPECT_THAT(token.error().sentence, HasSubstr(server.url())) << each.what;
        EXPECT_EQ(server.requests(), 1) << each.what;
    }
}

/// A refusal in the words "too\nbusy", for a reason that is a string of bits in DER.
std::string refusal(const std::string& reason) {
    const auto element = [](char type, const std::string& content) {
        return std::string{type, static_cast<char>(content.size())} + content;
    };
    const std::string status = element('\x02', "\x02");
    const std::string words = element('\x30', element('\x0C', "too") + element('\x0C', "\nbusy"));
    const std::string info = element('\x30', status + words + element('\x03', reason));
    return HttpServer::reply("200 OK", replyType, element('\x30', info));
}

constexpr StampPatience littlePatience{std::chrono::seconds(10), std::chrono::milliseconds(1)};
const std::string systemFailure("\x06\0\0\0\x40", 5);
const std::string timeNotAvailable("\x01\0\x02", 3);
const std::string badRequest("\x05\x20", 2);

TEST_F(TimeStampTest, TriesAgainWhenNothingUsefulAnswers) {
    const HttpServer server([](const HttpServer::Request& request) {
        switch (request.number) {
        case 1:
            return HttpServer::reply("503 Busy", "text/plain", "later");
        case 2:
            return HttpServer::reply("200 OK", "text/html", "<p>later");
        case 3:
            return refusal(systemFailure);
        default:
            return honest(request);
        }
    });
    const auto token = stampOf(server.url(), littlePatience);
    EXPECT_TRUE(token) << token.error().sentence;
    EXPECT_EQ(server.requests(), 4);
}

TEST_F(TimeStampTest, TellsTheWordsOfARefusalAndWhetherItMayPass) {
    const struct {
        std::string reason;
        base::ErrorKind kind;
        const char* said;
        int requests;
    } rows[] = {
        {systemFailure, base::ErrorKind::Unavailable, "/ says \"too ?busy\". Try again later.", 4},
        {timeNotAvailable, base::ErrorKind::Unavailable, "The timestamp service is not available; ",
         4},
        {badRequest, base::ErrorKind::Damaged,
         "it refuses the request, saying \"too ?busy\". Use another one.", 1},
    };
    for (const auto& [reason, kind, said, requests] : rows) {
        const std::string refused = refusal(reason);
        const HttpServer server([&](const HttpServer::Request&) { return refused; });
        const auto token = stampOf(server.url(), littlePatience);
        ASSERT_FALSE(token);
        EXPECT_EQ(token.error().kind, kind);
        EXPECT_THAT(token.error().sentence, HasSubstr(said));
        EXPECT_EQ(server.requests(), requests) << said;
    }
}

TEST_F(TimeStampTest, SaysWhenNoServiceIsThere) {
    const HttpServer server([](const HttpServer::Request&) { return std::string(); });
    const auto token = stampOf(server.url());
    ASSERT_FALSE(token);
    EXPECT_EQ(token.error().kind, base::ErrorKind::Unavailable);
    EXPECT_EQ(token.error().sentence, "The timestamp service is not available.");
    EXPECT_EQ(server.requests(), 4);
    EXPECT_EQ(stampOf("https://127.0.0.1/").error().kind, base::ErrorKind::Usage);
}

TEST_F(TimeStampTest, TriesAllTimesWhenAServerSaysNothing) {
    const int silent = ::socket(AF_INET, SOCK_STREAM | SOCK_NONBLOCK, 0);
    sockaddr_in address{};
    socklen_t size = sizeof address;
    address.sin_family = AF_INET;
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    auto* any = reinterpret_cast<sockaddr*>(&address);
    ASSERT_EQ(::bind(silent, any, size), 0);
    ASSERT_EQ(::listen(silent, 16), 0);
    ASSERT_EQ(::getsockname(silent, any, &size), 0);
    const std::string url = "http://127.0.0.1:" + std::to_string(ntohs(address.sin_port));
    const auto start = std::chrono::steady_clock::now();
    const std::chrono::seconds inAll(1);
    EXPECT_EQ(stampOf(url, {inAll, std::chrono::milliseconds(20)}).error().kind,
              base::ErrorKind::Unavailable);
    EXPECT_LT(std::chrono::steady_clock::now() - start, 3 * inAll);
    int asked = 0;
    for (int peer = 0; (peer = ::accept(silent, nullptr, nullptr)) >= 0; ::close(peer))
        ++asked;
    ::close(silent);
    EXPECT_EQ(asked, 4);
}

TEST_F(TimeStampTest, TakesAsAddressOnlyWhatOneCanBeSentTo) {
    for (const char* url : {"http://a.b", "HTTP://a.b:65535/x?y", "http://[::1]:1/", "http://a.b:"})
        EXPECT_TRUE(checkStampUrl(url)) << url;
    for (const char* url :
         {"", "a.b", "https://a.b/", "http://", "http:///x", "http://a.b:0/", "http://a.b:65536/",
          "http://a.b:x/", "http://[::1/", "http://a.b/c d", "http://a.b/\r\nX: 1"})
        EXPECT_FAILS(checkStampUrl(url), Usage) << url;
}

TEST_F(TimeStampTest, SaysToWhomItSpeaksAndWhoAsks) {
    const HttpServer server([](const HttpServer::Request& /*request*/) {
        return HttpServer::reply("200 OK", std::string(replyType) + ";charset=UTF-8",
                                 responseWith(TS_STATUS_REJECTION, {}));
    });
    const std::string host = server.url().substr(7);
    const std::string refused = stampOf("Http://me:p%40ss@" + host + "/ts?a").error().sentence;
    const std::string head = server.lastHead();
    EXPECT_THAT(head, HasSubstr("POST /ts?a HTTP/1.0\r\n"));
    EXPECT_THAT(head, HasSubstr("\r\nHost: " + host + "\r\n"));
    EXPECT_THAT(head, HasSubstr("\r\nAuthorization: Basic bWU6cEBzcw==\r\n"));
    EXPECT_THAT(refused, HasSubstr("service http://" + host + "/ts?a gave"));
}

TEST_F(TimeStampTest, GoesThroughTheProxyExceptWhereItIsToldNotTo) {
    const HttpServer proxy(honest);
    const HttpServer server(honest);
    const std::string host = server.url().substr(7);
    const std::string local = "http://Localhost" + server.url().substr(16);
    const std::string throughProxy = "me:x@" + proxy.url().substr(7);
    const ScopedEnvironment none("http_proxy", std::nullopt);
    const ScopedEnvironment all("all_proxy", throughProxy);
    const struct {
        std::string url;
        const char* exempt;
        bool isProxied;
    } rows[] = {{"http://time.invalid/ts01", "", true},
                {server.url(), "127.0.0.1", false},
                {server.url(), "a.b, 127.0.0.1", false},
                {server.url(), "*", false},
                {server.url(), "27.0.0.1,.0.0.2,.,b", true},
                {local, ".localHost", false},
                {local, "*.localhost", false},
                {local, "host", true}};
    for (const auto& [url, exempt, isProxied] : rows) {
        const ScopedEnvironment except("no_proxy", exempt);
        const int before = proxy.requests();
        EXPECT_TRUE(stampOf(url)) << url << ' ' << exempt;
        EXPECT_EQ(proxy.requests() - before, isProxied ? 1 : 0) << url << ' ' << exempt;
        const std::string head = (isProxied ? proxy : server).lastHead();
        EXPECT_EQ(head.find("\r\nProxy-Authorization: Basic bWU6eA==\r\n") != std::string::npos,
                  isProxied);
    }
    EXPECT_TRUE(stampOf("http://time.invalid/ts01"));
    const std::string head = proxy.lastHead();
    EXPECT_THAT(head, HasSubstr("POST http://time.invalid:80/ts01 HTTP"));
    EXPECT_THAT(head, HasSubstr("\r\nHost: time.invalid\r\n"));
    for (const char* value : {"https://a.b", "socks5://a.b", "a.b:x"}) {
        const ScopedEnvironment unusable("http_proxy", value);
        EXPECT_EQ(stampOf(server.url()).error().sentence,
                  "The proxy that http_proxy names cannot be used: it is no address such as "
                  "http://HOST:PORT. Name one that is, or \"127.0.0.1\" in no_proxy.");
    }
}

} // namespace
} // namespace sign
