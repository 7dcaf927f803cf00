#include "sign/identity/Secret.h"

#include "base/ByteReader.h"
#include "base/FileDescriptor.h"

#include <cerrno>
#include <utility>

#include <fcntl.h>
#include <openssl/crypto.h>
#include <openssl/rand.h>
#include <poll.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <unistd.h>
#ifdef __linux__
#include <sys/prctl.h>
#endif

namespace sign {
namespace {

constexpr std::size_t longest = 4096;

/// Waits up to ten seconds for the writer of a pipe. False if nothing comes.
bool comes(int descriptor) {
    constexpr int milliseconds = 10'000;
    struct pollfd waiting = {descriptor, POLLIN, 0};
    const int ready = ::poll(&waiting, 1, milliseconds);
    errno = EAGAIN;
    return ready != 0;
}

/// Reads up to the end or the limit, from what need not be a file.
base::Result<Secret> readFirstLine(int descriptor, const std::string& path) {
    char bytes[longest];
    std::size_t size = 0;
    ssize_t count = 1;
    while (size < longest && count != 0) {
        count = ::read(descriptor, bytes + size, longest - size);
        if (count < 0 && errno == EAGAIN && !comes(descriptor))
            return base::Error{base::ErrorKind::Unavailable,
                               "Nothing comes from " + path + ". Name a file there."};
        if (count < 0 && errno != EINTR && errno != EAGAIN)
            return base::systemError("read", path, errno);
        size += count > 0 ? static_cast<std::size_t>(count) : 0;
    }
    const std::string_view text(bytes, size);
    Secret secret(text.substr(0, text.find_first_of("\r\n")));
    OPENSSL_cleanse(bytes, sizeof bytes);
    return secret;
}

} // namespace

Secret::Secret(Secret&& other) noexcept : text_(other.text_) {
    other.wipe();
}

Secret& Secret::operator=(Secret&& other) noexcept {
    if (this != &other) {
        wipe();
        text_ = other.text_;
        other.wipe();
    }
    return *this;
}

Secret::~Secret() {
    wipe();
}

void Secret::wipe() {
    OPENSSL_cleanse(text_.data(), text_.size());
    text_.clear();
}

Secret Secret::random() {
    unsigned char bytes[32];
    if (RAND_priv_bytes(bytes, sizeof bytes) != 1)
        return {};
    Secret secret(base::hex({bytes, sizeof bytes}));
    OPENSSL_cleanse(bytes, sizeof bytes);
    return secret;
}

base::Result<Secret> Secret::inFile(const std::string& path) {
    if (path == "-")
        return readFirstLine(STDIN_FILENO, "standard input");
    const auto file = base::FileDescriptor::openAt(AT_FDCWD, path.c_str(), O_RDONLY | O_NONBLOCK);
    struct stat status {};
    if (!file.open() || ::fstat(file.get(), &status) != 0)
        return base::systemError("read", path, errno);
    if (S_ISREG(status.st_mode) && (status.st_mode & 077U) != 0)
        return base::Error{base::ErrorKind::Denied, "Others can read the secret in " + path +
                                                        ". Set its permissions with chmod 600."};
    return readFirstLine(file.get(), path);
}

void hideMemory() {
    const struct rlimit none {};
    ::setrlimit(RLIMIT_CORE, &none);
#ifdef __linux__
    // The limit alone does not hold where core files go to a program.
    ::prctl(PR_SET_DUMPABLE, 0);
#endif
}

} // namespace sign
