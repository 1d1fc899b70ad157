#include "trial/support/web_service.h"

#include "platform/linux/files/descriptor.h"

#include <algorithm>
#include <arpa/inet.h>
#include <array>
#include <condition_variable>
#include <csignal>
#include <cstdlib>
#include <map>
#include <mutex>
#include <netinet/in.h>
#include <openssl/err.h>
#include <openssl/ssl.h>
#include <poll.h>
#include <strings.h>
#include <sys/eventfd.h>
#include <sys/socket.h>
#include <system_error>
#include <thread>
#include <unistd.h>

namespace trial {

namespace {

using platform::Descriptor;
using std::chrono::milliseconds;

constexpr milliseconds forever{-1};
/// How long to wait for bytes beyond the stated length of a body. Clients send them together with the rest.
constexpr milliseconds excessGrace{20};
constexpr milliseconds lingering{2000};
/// Between the pieces of a slow answer.
constexpr milliseconds pace{20};
/// What is written at once.
constexpr std::size_t portionSize = std::size_t{1} << 16;
constexpr std::size_t headLimit = std::size_t{64} << 10;

int must(int result, const char* what) {
    if (result < 0) {
        throw std::system_error(errno, std::generic_category(), what);
    }
    return result;
}

/// Waits until the descriptor is ready; false if the time is over or the service goes down.
bool waitFor(int descriptor, short events, const Descriptor& down, milliseconds within) {
    std::array<pollfd, 2> watched{{{descriptor, events, 0}, {down.get(), POLLIN, 0}}};
    int ready = 0;
    do {
        ready = ::poll(watched.data(), watched.size(), static_cast<int>(within.count()));
    } while (ready < 0 && errno == EINTR);
    return ready > 0 && watched[1].revents == 0;
}

/// One connection, in plain text until `accept`. Its operations give up when the service goes down.
class Connection {
  public:
    Connection(int socket, const Descriptor& down) : socket_(socket), down_(down) {}

    /// Goes on with TLS, of the old version only or of today's.
    bool accept(SSL_CTX* context, bool isOld) {
        tls_.reset(SSL_new(context));
        if (tls_ && isOld) {
            SSL_set_security_level(tls_.get(), 0);
            SSL_set_min_proto_version(tls_.get(), TLS1_1_VERSION);
            SSL_set_max_proto_version(tls_.get(), TLS1_1_VERSION);
        }
        return tls_ && SSL_set_fd(tls_.get(), socket_.get()) == 1 &&
               drive([this] { return SSL_accept(tls_.get()); }, POLLIN, forever) > 0;
    }

    /// Appends what comes next; false at the end, or if nothing comes within the time.
    bool read(std::string& to, milliseconds within = forever) {
        std::array<char, 16384> buffer{};
        const auto step = [&] {
            return tls_ ? SSL_read(tls_.get(), buffer.data(), buffer.size())
                        : static_cast<int>(::recv(socket_.get(), buffer.data(), buffer.size(), 0));
        };
        const int count = drive(step, POLLIN, within);
        to.append(buffer.data(), count > 0 ? static_cast<std::size_t>(count) : 0);
        return count > 0;
    }

    bool write(std::string_view bytes) {
        while (!bytes.empty()) {
            const std::size_t portion = std::min(bytes.size(), portionSize);
            const auto step = [&] {
                return tls_ ? SSL_write(tls_.get(), bytes.data(), static_cast<int>(portion))
                            : static_cast<int>(::send(socket_.get(), bytes.data(), portion, 0));
            };
            const int count = drive(step, POLLOUT, forever);
            if (count <= 0) {
                return false;
            }
            bytes.remove_prefix(static_cast<std::size_t>(count));
        }
        return true;
    }

    /// Ends writing only: closing the socket over unread bytes would reset the connection, and the answer would be
    /// lost.
    void finish() {
        drive([this] { return SSL_shutdown(tls_.get()) < 0 ? -1 : 1; }, POLLOUT, lingering);
        ::shutdown(socket_.get(), SHUT_WR);
    }

    void stall() { pause(forever); }

    /// False if the service goes down meanwhile.
    bool pause(milliseconds time) {
        pollfd watched{down_.get(), POLLIN, 0};
        return ::poll(&watched, 1, static_cast<int>(time.count())) == 0;
    }

  private:
    /// The result of the step when it has done something, else 0. In plain text it waits for `plainEvents`.
    template <typename Step>
    int drive(Step step, short plainEvents, milliseconds within) {
        for (;;) {
            ERR_clear_error();
            const int result = step();
            if (result > 0) {
                return result;
            }
            const short awaited = tls_ ? awaitedByTls(result) : awaitedInPlain(result, plainEvents);
            if (awaited == 0 || !waitFor(socket_.get(), awaited, down_, within)) {
                return 0;
            }
        }
    }

    static short awaitedInPlain(int result, short events) {
        return result < 0 && errno == EAGAIN ? events : static_cast<short>(0);
    }

    short awaitedByTls(int result) const {
        switch (SSL_get_error(tls_.get(), result)) {
        case SSL_ERROR_WANT_READ:
            return POLLIN;
        case SSL_ERROR_WANT_WRITE:
            return POLLOUT;
        default:
            return 0;
        }
    }

    Descriptor socket_;
    const Descriptor& down_;
    std::unique_ptr<SSL, decltype(&SSL_free)> tls_{nullptr, SSL_free};
};

WebRequest parseHead(std::string_view head) {
    WebRequest request;
    const std::string_view line = head.substr(0, head.find("\r\n"));
    const std::size_t first = line.find(' ');
    const std::size_t last = line.rfind(' ');
    if (first != std::string_view::npos && first < last) {
        request.method = line.substr(0, first);
        request.target = line.substr(first + 1, last - first - 1);
    }
    for (std::size_t at = line.size() + 2; at < head.size();) {
        const std::string_view field = head.substr(at, head.find("\r\n", at) - at);
        const std::size_t colon = std::min(field.find(':'), field.size());
        std::string_view value = field.substr(std::min(colon + 1, field.size()));
        value.remove_prefix(std::min(value.find_first_not_of(' '), value.size()));
        request.headers.emplace_back(field.substr(0, colon), value);
        at += field.size() + 2;
    }
    return request;
}

std::size_t statedLength(const WebRequest& request) {
    for (const auto& [name, value] : request.headers) {
        if (::strcasecmp(name.c_str(), "content-length") == 0) {
            return std::strtoull(value.c_str(), nullptr, 10);
        }
    }
    return 0;
}

std::optional<WebRequest> readRequest(Connection& connection) {
    std::string bytes;
    std::size_t end = std::string::npos;
    while ((end = bytes.find("\r\n\r\n")) == std::string::npos) {
        if (bytes.size() > headLimit || !connection.read(bytes)) {
            return std::nullopt;
        }
    }
    WebRequest request = parseHead(std::string_view(bytes).substr(0, end + 2));
    request.body = bytes.substr(end + 4);
    if (const std::size_t length = statedLength(request); length > 0) {
        while (request.body.size() < length && connection.read(request.body)) {
        }
        while (connection.read(request.body, excessGrace)) {
        }
    }
    return request;
}

std::string headOf(const WebAnswer& answer) {
    if (answer.head) {
        return *answer.head;
    }
    std::string head = "HTTP/1.1 " + std::to_string(answer.status) + " Scripted\r\nConnection: close\r\n";
    for (const auto& [name, value] : answer.headers) {
        head.append(name).append(": ").append(value).append("\r\n");
    }
    if (answer.promisedLength || answer.ending != WebAnswer::Ending::endless) {
        head += "Content-Length: " + std::to_string(answer.promisedLength.value_or(answer.body.size())) + "\r\n";
    }
    return head + "\r\n";
}

/// True when the answer was sent whole and the connection is to be closed properly.
bool deliver(Connection& connection, const WebAnswer& answer) {
    using Ending = WebAnswer::Ending;
    if (!connection.write(headOf(answer)) || !connection.write(answer.body)) {
        return false;
    }
    if (answer.ending == Ending::stall) {
        connection.stall();
    }
    while (answer.ending == Ending::slow && connection.write(answer.filler) && connection.pause(pace)) {
    }
    std::string portion;
    while (answer.ending == Ending::endless && portion.size() < portionSize) {
        portion += answer.filler;
    }
    while (answer.ending == Ending::endless && connection.write(portion)) {
    }
    return answer.ending == Ending::close;
}

} // namespace

std::string WebRequest::path() const { return target.substr(0, target.find('?')); }

std::optional<std::string> WebRequest::header(std::string_view name) const {
    const auto found =
        std::find_if(headers.begin(), headers.end(), [&](const auto& field) { return field.first == name; });
    return found == headers.end() ? std::nullopt : std::optional(found->second);
}

struct WebService::State {
    std::shared_ptr<SSL_CTX> context;
    Descriptor down{must(::eventfd(0, EFD_CLOEXEC), "eventfd")};
    Descriptor listener{must(::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0), "socket")};
    std::uint16_t port = 0;

    mutable std::mutex mutex;
    mutable std::condition_variable arrival;
    std::map<std::string, WebAnswer> answers;
    Handler handler;
    WebManner manner = WebManner::serve;
    std::vector<WebRequest> requests;
    // Counts the calls of `reset`, so that late bytes are not added to the wrong request.
    std::uint64_t age = 0;
    std::size_t connections = 0;
    // Started by the acceptor only, and joined after it.
    std::vector<std::jthread> conversations;
    std::jthread acceptor;

    void listen() {
        sockaddr_in address{};
        address.sin_family = AF_INET;
        address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
        socklen_t size = sizeof address;
        must(::bind(listener.get(), reinterpret_cast<sockaddr*>(&address), size), "bind");
        must(::listen(listener.get(), SOMAXCONN), "listen");
        must(::getsockname(listener.get(), reinterpret_cast<sockaddr*>(&address), &size), "getsockname");
        port = ntohs(address.sin_port);
        acceptor = std::jthread([this] { acceptConnections(); });
    }

    void acceptConnections() {
        // A client that has gone should make a write fail, not raise a signal.
        sigset_t pipe;
        sigemptyset(&pipe);
        sigaddset(&pipe, SIGPIPE);
        pthread_sigmask(SIG_BLOCK, &pipe, nullptr);
        while (waitFor(listener.get(), POLLIN, down, forever)) {
            const int socket = ::accept4(listener.get(), nullptr, nullptr, SOCK_CLOEXEC | SOCK_NONBLOCK);
            if (socket >= 0) {
                conversations.emplace_back([this, socket] { converse(socket); });
            }
        }
    }

    WebManner countConnection() {
        const std::lock_guard lock(mutex);
        ++connections;
        return manner;
    }

    void converse(int socket) {
        Connection connection(socket, down);
        const WebManner received = countConnection();
        if (received == WebManner::stallBeforeTls) {
            return connection.stall();
        }
        if (received == WebManner::proxy && !openTunnel(connection)) {
            return;
        }
        if (!connection.accept(context.get(), received == WebManner::oldTls)) {
            return;
        }
        const auto request = readRequest(connection);
        if (!request) {
            return;
        }
        const auto [index, recordAge] = record(*request);
        if (received == WebManner::stallAfterTls) {
            return connection.stall();
        }
        if (!deliver(connection, answerTo(*request))) {
            return;
        }
        connection.finish();
        for (std::string late; connection.read(late, lingering); late.clear()) {
            amend(index, recordAge, late);
        }
    }

    /// What a proxy on the way to the service does; false if it refuses.
    bool openTunnel(Connection& connection) {
        const auto request = readRequest(connection);
        if (!request) {
            return false;
        }
        record(*request);
        const WebAnswer answer = answerTo(*request);
        return deliver(connection, answer) && answer.status == 200;
    }

    std::pair<std::size_t, std::uint64_t> record(const WebRequest& request) {
        const std::lock_guard lock(mutex);
        requests.push_back(request);
        arrival.notify_all();
        return {requests.size() - 1, age};
    }

    void amend(std::size_t index, std::uint64_t recordAge, const std::string& late) {
        const std::lock_guard lock(mutex);
        if (recordAge == age) {
            requests[index].body += late;
        }
    }

    WebAnswer answerTo(const WebRequest& request) {
        std::unique_lock lock(mutex);
        if (const auto scripted = answers.find(request.path()); scripted != answers.end()) {
            return scripted->second;
        }
        const Handler scripted = handler;
        lock.unlock();
        return scripted ? scripted(request) : WebAnswer{.status = 404};
    }
};

WebService::WebService(const CertificateAuthority& authority, CertificateKind kind)
    : state_(std::make_unique<State>()) {
    state_->context = authority.serverContext(kind);
    state_->listen();
}

WebService::~WebService() {
    ::eventfd_write(state_->down.get(), 1);
    state_->acceptor.join();
    state_->conversations.clear();
}

std::uint16_t WebService::port() const { return state_->port; }

std::string WebService::host() const { return "127.0.0.1:" + std::to_string(state_->port); }

void WebService::answer(const std::string& path, WebAnswer answer) {
    const std::lock_guard lock(state_->mutex);
    state_->answers.insert_or_assign(path, std::move(answer));
}

void WebService::answerWith(Handler handler) {
    const std::lock_guard lock(state_->mutex);
    state_->handler = std::move(handler);
}

void WebService::receive(WebManner manner) {
    const std::lock_guard lock(state_->mutex);
    state_->manner = manner;
}

std::vector<WebRequest> WebService::requests() const {
    const std::lock_guard lock(state_->mutex);
    return state_->requests;
}

std::size_t WebService::connections() const {
    const std::lock_guard lock(state_->mutex);
    return state_->connections;
}

bool WebService::waitForRequests(std::size_t count, std::chrono::milliseconds within) const {
    std::unique_lock lock(state_->mutex);
    return state_->arrival.wait_for(lock, within, [&] { return state_->requests.size() >= count; });
}

void WebService::reset() {
    const std::lock_guard lock(state_->mutex);
    state_->answers.clear();
    state_->handler = nullptr;
    state_->manner = WebManner::serve;
    state_->requests.clear();
    ++state_->age;
    state_->connections = 0;
}

} // namespace trial
