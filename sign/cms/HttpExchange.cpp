#include "sign/cms/HttpExchange.h"

#include "base/ByteReader.h"

#include <algorithm>
#include <cerrno>
#include <string>
#include <string_view>

#include <openssl/http.h>
#include <poll.h>

namespace sign {
namespace {

using Clock = std::chrono::steady_clock;
using ExchangeOwner = OpenSslOwner<OSSL_HTTP_REQ_CTX, OSSL_HTTP_REQ_CTX_free>;
using AnyOwner = OpenSslOwner<ASN1_TYPE, ASN1_TYPE_free>;

/// How long it may take until a stop is noticed.
constexpr std::chrono::milliseconds slice{100};

std::string base64(std::string_view text) {
    base::OwnedBytes encoded((text.size() + 2) / 3 * 4 + 1);
    const base::Bytes bytes = base::bytesOf(text);
    const int size = EVP_EncodeBlock(encoded.data(), bytes.data(), static_cast<int>(bytes.size()));
    return std::string(base::textOf(encoded).substr(0, static_cast<std::size_t>(size)));
}

/// One request and its answer, without ever blocking for longer than a slice.
class Exchange {
public:
    Exchange(Clock::time_point end, const base::StopSignal& stop) : end_(end), stop_(stop) {}

    bool connect(const HttpAddress& to) {
        connection_.reset(BIO_new_connect(to.host.c_str()));
        if (!connection_)
            return false;
        BIO_set_conn_port(connection_.get(), to.port.c_str());
        BIO_set_nbio(connection_.get(), 1);
        while (BIO_do_connect(connection_.get()) != 1)
            if (BIO_should_retry(connection_.get()) == 0 || !awaitReady(POLLOUT))
                return false;
        return true;
    }

    bool prepare(const HttpRoute& route, const char* mediaType, const base::OwnedBytes& der,
                 std::size_t most) {
        request_.reset(OSSL_HTTP_REQ_CTX_new(connection_.get(), connection_.get(), 0));
        const unsigned char* at = der.data();
        const AnyOwner body(d2i_ASN1_TYPE(nullptr, &at, static_cast<long>(der.size())));
        OSSL_HTTP_REQ_CTX* request = request_.get();
        if (!request_ || !body)
            return false;
        const HttpAddress& server = route.server;
        OSSL_HTTP_REQ_CTX_set_max_response_length(request, most);
        // The media type of the answer may have parameters, and its bytes tell what it is.
        return OSSL_HTTP_REQ_CTX_set_request_line(
                   request, 1, route.proxy ? server.host.c_str() : nullptr,
                   route.proxy ? server.port.c_str() : nullptr, server.path.c_str()) == 1 &&
               addHeader("Host", server.authority()) && addUser("Authorization", server) &&
               (!route.proxy || addUser("Proxy-Authorization", *route.proxy)) &&
               OSSL_HTTP_REQ_CTX_set_expected(request, nullptr, 1, 0, 0) == 1 &&
               OSSL_HTTP_REQ_CTX_set1_req(request, mediaType, ASN1_ITEM_rptr(ASN1_ANY),
                                          reinterpret_cast<ASN1_VALUE*>(body.get())) == 1;
    }

    std::optional<base::OwnedBytes> run() {
        int done = 0;
        while ((done = OSSL_HTTP_REQ_CTX_nbio(request_.get())) < 0)
            if (!awaitReady(BIO_should_write(connection_.get()) != 0 ? POLLOUT : POLLIN))
                return std::nullopt;
        BIO* answer = done == 1 ? OSSL_HTTP_REQ_CTX_get0_mem_bio(request_.get()) : nullptr;
        return answer != nullptr ? std::optional(bytesOf(answer)) : std::nullopt;
    }

private:
    bool addHeader(const char* name, const std::string& value) {
        return OSSL_HTTP_REQ_CTX_add1_header(request_.get(), name, value.c_str()) == 1;
    }

    bool addUser(const char* name, const HttpAddress& address) {
        return address.user.empty() || addHeader(name, "Basic " + base64(address.user));
    }

    /// Whether the server is ready for it in time.
    [[nodiscard]] bool awaitReady(int events) const {
        pollfd socket{static_cast<int>(BIO_get_fd(connection_.get(), nullptr)),
                      static_cast<short>(events), 0};
        for (Clock::time_point now = Clock::now(); now < end_ && !stop_.isStopped();
             now = Clock::now()) {
            const auto left = std::chrono::ceil<std::chrono::milliseconds>(end_ - now);
            const int ready = ::poll(&socket, 1, static_cast<int>(std::min(left, slice).count()));
            if (ready > 0)
                return true;
            if (ready < 0 && errno != EINTR)
                return false;
        }
        return false;
    }

    Clock::time_point end_;
    const base::StopSignal& stop_;
    BioOwner connection_;
    ExchangeOwner request_; ///< which uses the connection
};

} // namespace

std::optional<base::OwnedBytes> postDer(const HttpRoute& route, const char* mediaType,
                                        const base::OwnedBytes& der, std::size_t most,
                                        std::chrono::steady_clock::time_point end,
                                        const base::StopSignal& stop) {
    std::optional<base::OwnedBytes> answer;
    Exchange exchange(end, stop);
    if (exchange.connect(route.proxy.value_or(route.server)) &&
        exchange.prepare(route, mediaType, der, most))
        answer = exchange.run();
    forgetOpenSslErrors();
    return answer;
}

} // namespace sign
