#pragma once

#include "base/StopSignal.h"
#include "sign/crypto/OpenSsl.h"
#include "sign/identity/Certificate.h"

#include <chrono>
#include <cstdint>
#include <optional>
#include <string>
#include <vector>

// Time stamps of signatures (RFC 3161).
namespace sign {

/// How far the clock here and that of a server may differ.
inline constexpr std::int64_t secondsOfGrace = 300;

/// How long a server is waited for, whose tries share the time behind the pauses.
struct StampPatience {
    std::chrono::milliseconds inAll{30'000};
    std::chrono::milliseconds firstPause{500}; ///< each one is twice as long as the one before
};

/// Whether `url` can be a server's address; Usage says what is asked for. Any thread.
[[nodiscard]] base::Outcome checkStampUrl(const std::string& url);

/// What a time stamp server answered.
class TimeStampReply {
public:
    /// Asks the server at `url` (http) for a token over the bytes of a signature. Tries four times,
    /// with growing pauses, if nothing answers, or if the server cannot now; HttpRoute says which
    /// proxy it goes through. Blocks for as long as `patience` says, or until it is stopped; any
    /// thread, many at once. Unavailable if that does not help, Damaged if the server refuses.
    [[nodiscard]] static base::Result<TimeStampReply> request(const std::string& url,
                                                              base::Bytes signatureValue,
                                                              const base::StopSignal& stop,
                                                              const StampPatience& patience = {});

    /// The token for the same bytes, after all has been checked that a check of the signature asks
    /// for, whose chain is `chain`, the leaf first. Damaged if it is not right.
    [[nodiscard]] base::Result<base::OwnedBytes> token(base::Bytes signatureValue,
                                                       const std::vector<Certificate>& chain) const;

private:
    using RequestOwner = OpenSslOwner<TS_REQ, TS_REQ_free>;

    TimeStampReply(std::string url, RequestOwner request)
        : url_(std::move(url)), request_(std::move(request)) {}

    std::string url_;
    RequestOwner request_;
    base::OwnedBytes token_; ///< as it came; empty if there is none
};

/// The time that a token names, in seconds since 1970, without any check; none if it is no token.
[[nodiscard]] std::optional<std::int64_t> timeOfToken(base::Bytes token);

/// The same after all has been checked: that it is over these bytes, its signature, chain and
/// usage. If `codeRoot`, the root of the code's chain, is Apple's, that of the token has to be
/// Apple's too. Any thread.
[[nodiscard]] base::Result<std::int64_t> checkToken(base::Bytes token, base::Bytes signatureValue,
                                                    const Certificate& codeRoot);

} // namespace sign
