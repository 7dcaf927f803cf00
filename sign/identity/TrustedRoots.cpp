#include "sign/identity/TrustedRoots.h"

#include "sign/identity/CertificateFile.h"

#include <algorithm>
#include <array>
#include <cstdlib>
#include <filesystem>
#include <set>
#include <string_view>

namespace sign {
namespace {

namespace fs = std::filesystem;

/// Apple Root CA, G2 and G3 (apple.com/certificateauthority).
constexpr std::array<std::string_view, 3> appleRoots = {
    "b0b1730ecbc7ff4505142c49f1295e6eda6bcaed7e2c68c5be91b5a11001f024",
    "c2b9b042dd57830e7d117dac55ac8ae19407d38e41d88f3215bc3a890444a050",
    "63343abfb89a6a03ebb57e9b3f5fa7be7c4f5c756f3017b3a8c488c3653e9179"};

std::set<std::string, std::less<>> rootsOfUser() {
    std::set<std::string, std::less<>> roots;
    std::error_code code;
    const std::string folder = identityFolderPath();
    if (folder.empty())
        return roots;
    for (fs::directory_iterator file(fs::path(folder) / "roots", code), end; !code && file != end;
         file.increment(code)) {
        const auto certificates = readCertificates(file->path().string());
        if (!certificates)
            continue;
        for (const Certificate& certificate : *certificates)
            roots.insert(base::hex(certificate.sha256().bytes()));
    }
    return roots;
}

std::string variable(const char* name) {
    const char* value = std::getenv(name);
    return value != nullptr ? value : "";
}

} // namespace

std::string identityFolderPath() {
    if (std::string folder = variable("KELPMORAY_IDENTITIES"); !folder.empty())
        return folder;
    std::string data = variable("XDG_DATA_HOME");
    if (!data.starts_with('/')) {
        const std::string home = variable("HOME");
        if (home.empty())
            return {};
        data = home + "/.local/share";
    }
    return data + "/kelpmoray/identities";
}

bool countsAsAppleRoot(const Certificate& certificate) {
    static const std::set<std::string, std::less<>> ofUser = rootsOfUser();
    const std::string hash = base::hex(certificate.sha256().bytes());
    return std::ranges::find(appleRoots, hash) != appleRoots.end() || ofUser.contains(hash);
}

} // namespace sign
