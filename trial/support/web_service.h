// A web service of one's own: HTTPS/1.1 on a loopback port that the system chooses. It keeps every request byte for
// byte and answers as scripted, in every way in which a service can go wrong too.
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
    /// As sent: the path with its query.
    std::string target;
    /// In the order and with the spelling in which they came.
    WebHeaders headers;
    /// Every byte that came, also those beyond a "Content-length" that is too short.
    std::string body;

    /// The target up to the first "?".
    std::string path() const;
    /// The first header of exactly that spelling.
    std::optional<std::string> header(std::string_view name) const;
};

struct WebAnswer {
    /// What follows the body: the connection's end, silence until the service goes down, or filler without end.
    enum class Ending { close, stall, endless };

    std::string body = {};
    int status = 200;
    WebHeaders headers = {};
    /// The length to promise instead of the body's own; a longer one and `close` make an answer cut off, and with
    /// `stall` one that stalls in its body. `endless` promises none unless it is set.
    std::optional<std::size_t> promisedLength = {};
    Ending ending = Ending::close;
};

/// How a connection is received.
enum class WebManner { serve, closeAtOnce, stallBeforeTls, stallAfterTls };

class WebService {
  public:
    using Handler = std::function<WebAnswer(const WebRequest&)>;

    /// Listens on 127.0.0.1 from now on; everything is answered by an empty 404 at first. Throws
    /// std::system_error or std::runtime_error when it cannot.
    explicit WebService(const CertificateAuthority& authority, CertificateKind kind = CertificateKind::good);
    /// Ends every connection, stalled ones too.
    ~WebService();
    WebService(const WebService&) = delete;
    WebService& operator=(const WebService&) = delete;

    std::uint16_t port() const;
    /// "127.0.0.1:port".
    std::string host() const;

    /// Scripts the answer for a path, whatever the method and the query. From any thread.
    void answer(const std::string& path, WebAnswer answer);
    /// Scripts the answers for every path without one of its own; called on a connection's thread, several at once.
    void answerWith(Handler handler);
    /// How connections are received from now on.
    void receive(WebManner manner);

    /// The requests so far, in the order in which they were complete.
    std::vector<WebRequest> requests() const;
    /// How many connections have come, whatever became of them.
    std::size_t connections() const;
    /// Waits until that many requests have come; false when they have not within the time.
    bool waitForRequests(std::size_t count, std::chrono::milliseconds within = std::chrono::seconds(10)) const;
    /// Forgets the requests and the scripted answers, and serves again.
    void reset();

  private:
    struct State;
    std::unique_ptr<State> state_;
};

} // namespace trial
