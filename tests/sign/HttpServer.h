#pragma once

#include <atomic>
#include <functional>
#include <mutex>
#include <string>
#include <thread>

#include <arpa/inet.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <unistd.h>

/// Answers each request on a port of 127.0.0.1 with what `answer` makes of it, in a thread of its
/// own.
class HttpServer {
public:
    struct Request {
        std::string target; ///< a path, or a whole address if we are the proxy
        std::string body;
        int number = 0; ///< from 1
    };

    explicit HttpServer(std::function<std::string(const Request&)> answer)
        : answer_(std::move(answer)), socket_(::socket(AF_INET, SOCK_STREAM, 0)) {
        sockaddr_in address{};
        address.sin_family = AF_INET;
        address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
        socklen_t size = sizeof address;
        auto* any = reinterpret_cast<sockaddr*>(&address);
        ::bind(socket_, any, size);
        ::listen(socket_, 16);
        ::getsockname(socket_, any, &size);
        port_ = ntohs(address.sin_port);
        thread_ = std::thread([this] { serve(); });
    }
    ~HttpServer() {
        ::shutdown(socket_, SHUT_RDWR);
        thread_.join();
        ::close(socket_);
    }
    HttpServer(const HttpServer&) = delete;
    HttpServer& operator=(const HttpServer&) = delete;

    [[nodiscard]] std::string url() const { return "http://127.0.0.1:" + std::to_string(port_); }
    [[nodiscard]] int requests() const { return count_; }
    /// The request line and all lines of the header of the last request.
    [[nodiscard]] std::string lastHead() const {
        const std::lock_guard lock(mutex_);
        return lastHead_;
    }

    static std::string reply(const std::string& status, const std::string& type,
                             const std::string& body) {
        return "HTTP/1.0 " + status + "\r\nContent-Type: " + type +
               "\r\nContent-Length: " + std::to_string(body.size()) + "\r\n\r\n" + body;
    }

private:
    void serve() {
        for (int peer = 0; (peer = ::accept(socket_, nullptr, nullptr)) >= 0; ::close(peer)) {
            const std::string text = answer_(read(peer));
            (void)::send(peer, text.data(), text.size(), MSG_NOSIGNAL);
        }
    }

    Request read(int peer) {
        std::string text;
        std::size_t head = std::string::npos;
        std::size_t whole = 0;
        while (head == std::string::npos || text.size() < whole) {
            char bytes[4096];
            const ssize_t count = ::recv(peer, bytes, sizeof bytes, 0);
            if (count <= 0)
                break;
            text.append(bytes, static_cast<std::size_t>(count));
            head = text.find("\r\n\r\n");
            const std::size_t length = text.find("Content-Length: ");
            if (head != std::string::npos)
                whole = head + 4 +
                        (length < head ? std::stoul(text.substr(length + 16, 9)) : std::size_t{0});
        }
        const std::size_t begin = text.find(' ') + 1;
        {
            const std::lock_guard lock(mutex_);
            lastHead_ = text.substr(0, head) + "\r\n";
        }
        return {text.substr(begin, text.find(' ', begin) - begin),
                head == std::string::npos ? "" : text.substr(head + 4), ++count_};
    }

    std::function<std::string(const Request&)> answer_;
    int socket_;
    int port_ = 0;
    std::atomic<int> count_{0};
    mutable std::mutex mutex_;
    std::string lastHead_;
    std::thread thread_;
};
