// A web service of the trial's own: HTTPS/1.1 on a loopback port that the system chooses. It keeps every request byte
// by byte and answers as scripted, which includes the ways in which a service can misbehave (hostile_answers.h).
#pragma once

#include "trial/support/certificates.h"

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace trial {

using WebHeaders = std::vector<std::pair<std::string, std::string>>;

struct WebRequest {
    std::string method;
    /// The path with its query, as sent.
    std::string target;
    /// In the order and spelling in which they came.
    WebHeaders headers;
    /// All of it, also what goes beyond a "Content-length" that is too short.
    std::string body;

    /// The target up to the first "?".
    std::string path() const;
    /// The first header of exactly that spelling.
    std::optional<std::string> header(std::string_view name) const;
};

struct WebAnswer {
    /// What follows the body.
    enum class Ending {
        close,   ///< TLS's goodbye, then the connection's end
        cut,     ///< the connection's end without that goodbye
        stall,   ///< silence until the service goes down
        endless, ///< `filler` again and again, as fast as it is taken
        slow,    ///< `filler` every few milliseconds
    };

    std::string body = {};
    int status = 200;
    WebHeaders headers = {};
    /// "Content-Length", if not the body's: a larger one makes an answer that is cut off or, with `stall`, stalls in
    /// its body. Left out with `endless`, unless set here.
    std::optional<std::size_t> promisedLength = {};
    Ending ending = Ending::close;
    std::string filler = " ";
    /// Sent as it stands in place of the status line, all headers and the empty line behind them.
    std::optional<std::string> head = {};
};

/// What happens to a connection.
enum class WebManner {
    serve,
    stallBeforeTls,
    stallAfterTls,
    /// Speaks TLS 1.1 only.
    oldTls,
    /// Serves behind a proxy: a CONNECT request comes first. It is recorded and answered like any other, its target
    /// standing for the path, and TLS follows an answer that is whole and 200.
    proxy,
};

/// Thread-safe.
class WebService {
  public:
    using Handler = std::function<WebAnswer(const WebRequest&)>;

    /// Listens on 127.0.0.1 and answers with an empty 404 until scripted. Throws std::system_error or
    /// std::runtime_error if it can't.
    explicit WebService(const CertificateAuthority& authority, CertificateKind kind = CertificateKind::good);
    /// Closes all connections, stalled ones included.
    ~WebService();
    WebService(const WebService&) = delete;
    WebService& operator=(const WebService&) = delete;

    std::uint16_t port() const;
    /// "127.0.0.1:port".
    std::string host() const;

    /// Scripts the answer for a path, for any method and query.
    void answer(const std::string& path, WebAnswer answer);
    /// Scripts the answers for all other paths. The handler is called on the connections' threads, concurrently.
    void answerWith(Handler handler);
    /// Sets what happens to connections from now on.
    void receive(WebManner manner);

    /// The requests so far, in the order in which they were completed.
    std::vector<WebRequest> requests() const;
    /// How many connections have come, served or not.
    std::size_t connections() const;
    /// Blocks until that many requests have come; false if they do not within the time.
    bool waitForRequests(std::size_t count, std::chrono::milliseconds within = std::chrono::seconds(10)) const;
    /// Forgets requests, connections and scripts, and serves again.
    void reset();

  private:
    struct State;
    std::unique_ptr<State> state_;
};

} // namespace trial
