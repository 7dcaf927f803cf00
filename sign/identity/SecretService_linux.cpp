#include "sign/identity/SecretService.h"

#include <cstdlib>
#include <memory>

#include <libsecret/secret.h>

namespace sign {
namespace {

const SecretSchema* schema() {
    static const SecretSchema identities = {
        "com.quenbark.kelpmoray.identities",
        SECRET_SCHEMA_NONE,
        {{"purpose", SECRET_SCHEMA_ATTRIBUTE_STRING}, {nullptr, SECRET_SCHEMA_ATTRIBUTE_STRING}},
        0,
        nullptr,
        nullptr,
        nullptr,
        nullptr,
        nullptr,
        nullptr,
        nullptr};
    return &identities;
}

/// Without a session bus the library would start one, and wait.
bool hasSessionBus() {
    return std::getenv("DBUS_SESSION_BUS_ADDRESS") != nullptr;
}

} // namespace

std::optional<Secret> passphraseOfService() {
    if (!hasSessionBus())
        return std::nullopt;
    GError* error = nullptr;
    gchar* found =
        secret_password_lookup_sync(schema(), nullptr, &error, "purpose", "signing", nullptr);
    g_clear_error(&error);
    if (found == nullptr)
        return std::nullopt;
    Secret passphrase(found);
    secret_password_free(found);
    return passphrase;
}

bool keepInService(const Secret& passphrase) {
    if (!hasSessionBus())
        return false;
    GError* error = nullptr;
    const bool kept =
        secret_password_store_sync(schema(), SECRET_COLLECTION_DEFAULT,
                                   "Kelpmoray signing identities", passphrase.text().c_str(),
                                   nullptr, &error, "purpose", "signing", nullptr) != FALSE;
    g_clear_error(&error);
    return kept;
}

} // namespace sign
