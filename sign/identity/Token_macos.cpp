#include "sign/identity/Token.h"

namespace sign {

base::Result<TokenKey> openTokenKey(const std::string&) {
    return base::Error{base::ErrorKind::Unsupported,
                       "Keys on tokens are not supported on this system. Use the keychain."};
}

} // namespace sign
