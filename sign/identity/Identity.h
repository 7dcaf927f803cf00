#pragma once

#include "sign/identity/Certificate.h"

#include <memory>
#include <mutex>
#include <string>
#include <vector>

namespace sign {

/// A private key, in memory or on a token. Any thread may sign with it.
class SigningKey {
public:
    /// A token does one thing at a time.
    SigningKey(KeyOwner handle, bool isOnToken)
        : handle_(std::move(handle)), isOnToken_(isOnToken) {}

    [[nodiscard]] EVP_PKEY* handle() const { return handle_.get(); }
    /// To be held while the key works: waits for other threads if the key is on a token.
    [[nodiscard]] std::unique_lock<std::mutex> hold() {
        return isOnToken_ ? std::unique_lock(mutex_) : std::unique_lock<std::mutex>();
    }

private:
    KeyOwner handle_;
    bool isOnToken_;
    std::mutex mutex_;
};

/// What code is signed with.
struct Identity {
    std::string hash;               ///< SHA-1 of the leaf, 40 capital hexadecimal digits
    std::string label;              ///< of the leaf, "Kind: Holder"
    std::vector<Certificate> chain; ///< the leaf first, the root last
    std::shared_ptr<SigningKey> key;
};

} // namespace sign
