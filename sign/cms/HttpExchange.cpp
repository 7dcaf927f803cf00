#include "sign/cms/HttpExchange.h"

#include <algorithm>
#include <cerrno>

#include <openssl/http.h>
#include <poll.h>

namespace sign {
namespace {

using Clock = std::chrono::steady_clock;
using ExchangeOwner = OpenSslOwner<OSSL_HTTP_REQ_CTX, OSSL_HTTP_REQ_CTX_free>;
using AnyOwner = OpenSslOwner<ASN1_TYPE, ASN1_TYPE_free>;

/// How long it may take until a stop is noticed.
constexpr std::chrono::milliseconds slice{100};

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

    /// `proxied` is the address as a proxy is told it; null if there is none.
    bool prepare(const HttpAddress& address, const HttpAddress* proxied, const HttpTypes& types,
                 const base::OwnedBytes& der, std::size_t most) {
        request_.reset(OSSL_HTTP_REQ_CTX_new(connection_.get(), connection_.get(), 0));
        const unsigned char* at = der.data();
        const AnyOwner body(d2i_ASN1_TYPE(nullptr, &at, static_cast<long>(der.size())));
        OSSL_HTTP_REQ_CTX* request = request_.get();
        if (!request_ || !body)
            return false;
        OSSL_HTTP_REQ_CTX_set_max_response_length(request, most);
        return OSSL_HTTP_REQ_CTX_set_request_line(
                   request, 1, proxied != nullptr ? proxied->host.c_str() : nullptr,
                   proxied != nullptr ? proxied->port.c_str() : nullptr,
                   address.path.c_str()) == 1 &&
               OSSL_HTTP_REQ_CTX_add1_header(request, "Host", address.host.c_str()) == 1 &&
               OSSL_HTTP_REQ_CTX_set_expected(request, types.reply, 1, 0, 0) == 1 &&
               OSSL_HTTP_REQ_CTX_set1_req(request, types.query, ASN1_ITEM_rptr(ASN1_ANY),
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

std::optional<HttpAddress> HttpAddress::in(const std::string& url) {
    char* host = nullptr;
    char* port = nullptr;
    char* path = nullptr;
    int isTls = 0;
    const int parsed = OSSL_HTTP_parse_url(url.c_str(), &isTls, nullptr, &host, &port, nullptr,
                                           &path, nullptr, nullptr);
    std::optional<HttpAddress> address;
    if (parsed == 1 && isTls == 0)
        address = {host, port, path};
    OPENSSL_free(host);
    OPENSSL_free(port);
    OPENSSL_free(path);
    forgetOpenSslErrors();
    return address;
}

std::optional<base::OwnedBytes> postDer(const HttpAddress& address, const HttpTypes& types,
                                        const base::OwnedBytes& der, std::size_t most,
                                        std::chrono::steady_clock::time_point end,
                                        const base::StopSignal& stop) {
    const char* named = OSSL_HTTP_adapt_proxy(nullptr, nullptr, address.host.c_str(), 0);
    const auto proxy = named != nullptr ? HttpAddress::in(named) : std::nullopt;
    std::optional<base::OwnedBytes> answer;
    Exchange exchange(end, stop);
    if ((named == nullptr || proxy) && exchange.connect(proxy.value_or(address)) &&
        exchange.prepare(address, proxy ? &address : nullptr, types, der, most))
        answer = exchange.run();
    forgetOpenSslErrors();
    return answer;
}

} // namespace sign
