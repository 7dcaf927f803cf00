#include "base/NeverDestroyed.h"
#include "sign/identity/Secret.h"
#include "sign/identity/Token.h"
#include "sign/identity/TokenUri.h"

#include <cstdlib>
#include <libp11.h>
#include <map>
#include <span>
#include <vector>

namespace sign {
namespace {

using Attributes = std::map<std::string, std::string, std::less<>>;

constexpr const char* everyKnownModule = "p11-kit-proxy.so";

std::string attribute(const Attributes& attributes, std::string_view name) {
    const auto found = attributes.find(name);
    return found == attributes.end() ? std::string() : found->second;
}

bool fits(const std::string& wanted, const char* there) {
    return wanted.empty() || (there != nullptr && wanted == there);
}

base::Error unavailable(const std::string& what) {
    forgetOpenSslErrors();
    return {base::ErrorKind::Unavailable, what};
}

struct Pin {
    std::string file; ///< empty if there is none
    Secret secret;
};

/// A module that is loaded, its tokens, and the one that is used. Stays loaded to the end of the
/// process: the keys that were opened refer to it.
class Module {
public:
    base::Outcome load(const std::string& path) {
        context_ = PKCS11_CTX_new();
        if (context_ == nullptr || PKCS11_CTX_load(context_, path.c_str()) != 0)
            return unavailable("The PKCS#11 module " + path +
                               " cannot be loaded. Install it, or name another with module-path in "
                               "the URI.");
        if (PKCS11_enumerate_slots(context_, &slots_, &slotCount_) != 0)
            slotCount_ = 0;
        return {};
    }

    base::Outcome chooseToken(const Attributes& attributes) {
        for (PKCS11_SLOT& slot : std::span(slots_, slotCount_)) {
            if (slot.token != nullptr && fits(attribute(attributes, "token"), slot.token->label) &&
                fits(attribute(attributes, "serial"), slot.token->serialnr)) {
                slot_ = &slot;
                return {};
            }
        }
        return unavailable("No token fits the URI. Plug it in, or see \"p11tool --list-tokens\".");
    }

    base::Outcome logIn(const Pin& pin) {
        if (slot_->token->loginRequired == 0)
            return {};
        if (pin.file.empty())
            return unavailable("The key on the token is locked. Name the file with its PIN in "
                               "KELPMORAY_PIN_FILE.");
        if (PKCS11_login(slot_, 0, pin.secret.text().c_str()) != 0)
            return unavailable("The key on the token is locked: the PIN in " + pin.file +
                               " is not accepted. Correct it.");
        return {};
    }

    [[nodiscard]] PKCS11_KEY* findKey(const Attributes& attributes) {
        PKCS11_KEY* keys = nullptr;
        unsigned count = 0;
        if (PKCS11_enumerate_keys(slot_->token, &keys, &count) != 0)
            return nullptr;
        for (PKCS11_KEY& key : std::span(keys, count)) {
            const std::string id(reinterpret_cast<const char*>(key.id), key.id_len);
            const std::string wanted = attribute(attributes, "id");
            if (fits(attribute(attributes, "object"), key.label) &&
                (wanted.empty() || wanted == id))
                return &key;
        }
        return nullptr;
    }

    [[nodiscard]] static std::optional<Certificate> certificateOf(PKCS11_KEY* key) {
        PKCS11_CERT* certificate = PKCS11_find_certificate(key);
        if (certificate == nullptr || certificate->x509 == nullptr)
            return std::nullopt;
        X509_up_ref(certificate->x509);
        return Certificate(CertificateOwner(certificate->x509));
    }

private:
    PKCS11_CTX* context_ = nullptr;
    PKCS11_SLOT* slots_ = nullptr;
    unsigned slotCount_ = 0;
    PKCS11_SLOT* slot_ = nullptr;
};

base::Result<Pin> pinFor(const Attributes& attributes) {
    Pin pin{.file = attribute(attributes, "pin-source"), .secret = {}};
    if (pin.file.starts_with("file:"))
        pin.file.erase(0, std::string_view("file:").size());
    const char* file = std::getenv("KELPMORAY_PIN_FILE");
    if (pin.file.empty() && file != nullptr)
        pin.file = file;
    if (pin.file.empty())
        return pin;
    auto secret = Secret::inFile(pin.file);
    if (!secret)
        return secret.error();
    pin.secret = *std::move(secret);
    return pin;
}

} // namespace

base::Result<TokenKey> openTokenKey(const std::string& uri) {
    const auto attributes = tokenUriAttributes(uri);
    if (!attributes)
        return attributes.error();
    auto pin = pinFor(*attributes);
    if (!pin)
        return pin.error();
    // Never freed, and known to the end: the keys that were opened refer to them.
    static auto& modules = base::neverDestroyed<std::vector<Module*>>();
    auto* module = modules.emplace_back(new Module);
    const std::string path = attribute(*attributes, "module-path");
    if (auto loaded = module->load(path.empty() ? everyKnownModule : path); !loaded)
        return loaded.error();
    if (auto chosen = module->chooseToken(*attributes); !chosen)
        return chosen.error();
    if (auto loggedIn = module->logIn(*pin); !loggedIn)
        return loggedIn.error();
    PKCS11_KEY* key = module->findKey(*attributes);
    KeyOwner handle(key != nullptr ? PKCS11_get_private_key(key) : nullptr);
    if (!handle)
        return unavailable("No key on the token fits the URI. See \"p11tool --list-all\".");
    return TokenKey{std::make_shared<SigningKey>(std::move(handle), true),
                    Module::certificateOf(key)};
}

} // namespace sign
