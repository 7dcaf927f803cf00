// A time stamp server for benchmarks (RFC 3161 over HTTP): answers each request after a delay,
// however many there are at once. StampServer CERTIFICATE.pem ROOT.pem KEY.pem MILLISECONDS
// prints its port.
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <memory>
#include <string>
#include <thread>
#include <vector>

#include <arpa/inet.h>
#include <netinet/in.h>
#include <openssl/bio.h>
#include <openssl/pem.h>
#include <openssl/ts.h>
#include <sys/socket.h>
#include <unistd.h>

namespace {

struct Stamper {
    X509* certificate = nullptr;
    STACK_OF(X509) * chain = sk_X509_new_null();
    EVP_PKEY* key = nullptr;
};

ASN1_INTEGER* serialNumber(TS_RESP_CTX*, void*) {
    ASN1_INTEGER* number = ASN1_INTEGER_new();
    ASN1_INTEGER_set(number, 1);
    return number;
}

std::string replyTo(const Stamper& stamper, const std::string& query) {
    const std::unique_ptr<TS_RESP_CTX, decltype(&TS_RESP_CTX_free)> context(TS_RESP_CTX_new(),
                                                                            TS_RESP_CTX_free);
    ASN1_OBJECT* policy = OBJ_txt2obj("1.2.3", 1);
    TS_RESP_CTX_set_serial_cb(context.get(), serialNumber, nullptr);
    TS_RESP_CTX_set_signer_cert(context.get(), stamper.certificate);
    TS_RESP_CTX_set_certs(context.get(), stamper.chain);
    TS_RESP_CTX_set_signer_key(context.get(), stamper.key);
    TS_RESP_CTX_set_signer_digest(context.get(), EVP_sha256());
    TS_RESP_CTX_set_def_policy(context.get(), policy);
    TS_RESP_CTX_add_md(context.get(), EVP_sha256());
    ASN1_OBJECT_free(policy);
    BIO* in = BIO_new_mem_buf(query.data(), static_cast<int>(query.size()));
    TS_RESP* response = TS_RESP_create_response(context.get(), in);
    BIO_free(in);
    unsigned char* der = nullptr;
    const int size = i2d_TS_RESP(response, &der);
    std::string reply(reinterpret_cast<char*>(der), static_cast<std::size_t>(size));
    OPENSSL_free(der);
    TS_RESP_free(response);
    return reply;
}

void answer(const Stamper& stamper, int connection, std::chrono::milliseconds delay) {
    const auto due = std::chrono::steady_clock::now() + delay;
    std::string request;
    std::size_t whole = std::string::npos;
    while (request.size() < whole) {
        std::vector<char> piece(4096);
        const ssize_t count = ::read(connection, piece.data(), piece.size());
        if (count <= 0)
            break;
        request.append(piece.data(), static_cast<std::size_t>(count));
        const std::size_t body = request.find("\r\n\r\n");
        const std::size_t length = request.find("ontent-Length:");
        if (body != std::string::npos && length != std::string::npos)
            whole = body + 4 + std::strtoul(request.c_str() + length + 14, nullptr, 10);
    }
    const std::string reply = replyTo(stamper, request.substr(request.find("\r\n\r\n") + 4));
    std::this_thread::sleep_until(due);
    const std::string all = "HTTP/1.0 200 OK\r\nContent-Type: application/timestamp-reply\r\n"
                            "Content-Length: " +
                            std::to_string(reply.size()) + "\r\n\r\n" + reply;
    if (::write(connection, all.data(), all.size()) < 0)
        std::perror("write");
    ::close(connection);
}

} // namespace

int main(int argc, char** argv) {
    if (argc != 5) {
        std::fputs("usage: kelpmoray-bench-stamp-server CERTIFICATE.pem ROOT.pem KEY.pem "
                   "MILLISECONDS\n",
                   stderr);
        return 2;
    }
    Stamper stamper;
    BIO* certificate = BIO_new_file(argv[1], "r");
    BIO* root = BIO_new_file(argv[2], "r");
    BIO* key = BIO_new_file(argv[3], "r");
    if (certificate == nullptr || root == nullptr || key == nullptr)
        return 1;
    stamper.certificate = PEM_read_bio_X509(certificate, nullptr, nullptr, nullptr);
    sk_X509_push(stamper.chain, PEM_read_bio_X509(root, nullptr, nullptr, nullptr));
    stamper.key = PEM_read_bio_PrivateKey(key, nullptr, nullptr, nullptr);
    const std::chrono::milliseconds delay(std::atoi(argv[4]));
    const int listener = ::socket(AF_INET, SOCK_STREAM, 0);
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    socklen_t size = sizeof address;
    if (::bind(listener, reinterpret_cast<sockaddr*>(&address), size) != 0 ||
        ::listen(listener, 1024) != 0 ||
        ::getsockname(listener, reinterpret_cast<sockaddr*>(&address), &size) != 0)
        return 1;
    std::printf("%d\n", ntohs(address.sin_port));
    std::fflush(stdout);
    for (;;) {
        const int connection = ::accept(listener, nullptr, nullptr);
        if (connection >= 0)
            std::thread(answer, std::cref(stamper), connection, delay).detach();
    }
}
