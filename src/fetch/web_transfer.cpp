#include "fetch/web_transfer.h"

#include "foundation/numbers.h"
#include "foundation/text.h"

#include <algorithm>
#include <cerrno>
#include <curl/curl.h>
#include <memory>
#include <new>
#include <openssl/ssl.h>
#include <string_view>
#include <vector>

namespace platform::web_transfer {

namespace {

using fetch::transportError;
using namespace std::literals;

using Headers = std::unique_ptr<curl_slist, decltype(&curl_slist_free_all)>;
using Handle = std::unique_ptr<CURL, decltype(&curl_easy_cleanup)>;

Handle makeHandle() {
    static const CURLcode ready = curl_global_init(CURL_GLOBAL_DEFAULT);
    return {ready == CURLE_OK ? curl_easy_init() : nullptr, &curl_easy_cleanup};
}

/// The server that a URL names, scheme and host in lower case. All empty for what is no URL.
struct Origin {
    std::string scheme;
    std::string host;
    std::string port;

    bool operator==(const Origin&) const = default;
};

Origin originOf(const std::string& url) {
    const std::unique_ptr<CURLU, decltype(&curl_url_cleanup)> parsed(curl_url(), &curl_url_cleanup);
    if (curl_url_set(parsed.get(), CURLUPART_URL, url.c_str(), CURLU_NON_SUPPORT_SCHEME) != CURLUE_OK) {
        return {};
    }
    const auto part = [&](CURLUPart which) {
        char* text = nullptr;
        curl_url_get(parsed.get(), which, &text, CURLU_DEFAULT_PORT);
        const std::unique_ptr<char, decltype(&curl_free)> owner(text, &curl_free);
        return std::string(text != nullptr ? text : "");
    };
    std::string host = part(CURLUPART_HOST);
    std::ranges::transform(host, host.begin(), text::lower);
    return {part(CURLUPART_SCHEME), host, part(CURLUPART_PORT)};
}

/// Of the request under way, which may be a redirected one.
Origin effectiveOrigin(CURL* handle) {
    const char* url = nullptr;
    curl_easy_getinfo(handle, CURLINFO_EFFECTIVE_URL, &url);
    return originOf(url != nullptr ? url : "");
}

bool isBadDate(CURL* handle) {
    constexpr long notYetValid = 9; // OpenSSL's X509_V_ERR_CERT_NOT_YET_VALID
    constexpr long expired = 10;    // and X509_V_ERR_CERT_HAS_EXPIRED
    long result = 0;
    curl_easy_getinfo(handle, CURLINFO_SSL_VERIFYRESULT, &result);
    return result == notYetValid || result == expired;
}

bool isUnreachable(CURL* handle) {
    long number = 0;
    curl_easy_getinfo(handle, CURLINFO_OS_ERRNO, &number);
    return number == ENETUNREACH;
}

bool isRefusedByProxy(CURL* handle) {
    long status = 0; // of the answer to CONNECT
    curl_easy_getinfo(handle, CURLINFO_HTTP_CONNECTCODE, &status);
    return status >= 300;
}

Error errorOf(CURLcode code, CURL* handle) {
    switch (code) {
    case CURLE_OPERATION_TIMEDOUT:
        return transportError(-1001, "The request timed out.");
    case CURLE_COULDNT_RESOLVE_HOST:
        return transportError(-1003, "The server's name could not be found.");
    case CURLE_COULDNT_CONNECT:
        if (isUnreachable(handle)) {
            return transportError(-1009, "There is no connection to the network.");
        }
        [[fallthrough]];
    case CURLE_COULDNT_RESOLVE_PROXY:
    case CURLE_PROXY:
        return transportError(-1004, "Could not connect to the server.");
    case CURLE_PARTIAL_FILE:
    case CURLE_GOT_NOTHING:
    case CURLE_RECV_ERROR:
    case CURLE_SEND_ERROR:
        return isRefusedByProxy(handle) ? transportError(-1004, "The proxy does not connect to the server.")
                                        : transportError(-1005, "The connection was lost.");
    case CURLE_SSL_CONNECT_ERROR:
    case CURLE_SSL_CACERT_BADFILE:
        return transportError(-1200, "A secure connection could not be made.");
    case CURLE_PEER_FAILED_VERIFICATION:
        return isBadDate(handle) ? transportError(-1201, "The server's certificate is not valid at this time.")
                                 : transportError(-1202, "The server's certificate is not trusted for this server.");
    case CURLE_URL_MALFORMAT:
        return transportError(-1000, "The URL is invalid.");
    case CURLE_UNSUPPORTED_PROTOCOL:
        if (effectiveOrigin(handle).scheme != "https") {
            return transportError(-1002, "The URL is of an unsupported kind.");
        }
        [[fallthrough]]; // HTTP/0.9
    case CURLE_WEIRD_SERVER_REPLY:
        return transportError(-1011, "The server's answer is not HTTP/1.1.");
    case CURLE_TOO_MANY_REDIRECTS:
        return transportError(-1007, "There were too many redirects.");
    case CURLE_ABORTED_BY_CALLBACK:
        return transportError(-1010, "The redirect leads to another server.");
    case CURLE_WRITE_ERROR:
    case CURLE_OUT_OF_MEMORY: // also for one endless header line
        return transportError(-1103, "The answer is too long.");
    default:
        return transportError(-1, curl_easy_strerror(code));
    }
}

/// What has arrived so far.
struct Arrived {
    std::size_t longestAnswer = 0;
    std::string answer = {};
    std::size_t headers = 0; // in bytes
};

/// Ends the transfer when the answer gets too long.
std::size_t receive(const char* bytes, std::size_t /*one*/, std::size_t count, void* destination) {
    auto& [longestAnswer, answer, headers] = *static_cast<Arrived*>(destination);
    if (count > longestAnswer - answer.size()) {
        return CURL_WRITEFUNC_ERROR;
    }
    try {
        answer.append(bytes, count);
    } catch (const std::bad_alloc&) { // must not pass through the library's C frames
        return CURL_WRITEFUNC_ERROR;
    }
    return count;
}

/// The heads of all answers, redirects and interim ones included, and the trailers: the library would keep them without
/// a bound.
std::size_t receiveHeader(const char* /*bytes*/, std::size_t /*one*/, std::size_t count, void* destination) {
    constexpr std::size_t longestHeaders = std::size_t{256} << 10;
    auto& arrived = *static_cast<Arrived*>(destination);
    arrived.headers += count;
    return arrived.headers <= longestHeaders ? count : 0;
}

/// Whether the server has ended the connection by TLS's own goodbye. Without it anybody on the way may have cut the
/// answer, which the library takes for its end where it has no length.
struct Goodbye {
    const SSL_CTX* server = nullptr; // the context of the last connection: a proxy's comes before
    bool hasCome = false;
};

void noteAlert(const SSL* connection, int what, int alert) {
    const SSL_CTX* context = SSL_get_SSL_CTX(connection);
    auto& goodbye = *static_cast<Goodbye*>(SSL_CTX_get_app_data(context));
    if (what == SSL_CB_READ_ALERT && (alert & 0xff) == SSL_AD_CLOSE_NOTIFY && context == goodbye.server) {
        goodbye.hasCome = true;
    }
}

/// Called before each TLS connection of a transfer.
CURLcode watchForGoodbye(CURL* /*handle*/, void* context, void* goodbye) {
    *static_cast<Goodbye*>(goodbye) = {.server = static_cast<SSL_CTX*>(context)};
    SSL_CTX_set_app_data(static_cast<SSL_CTX*>(context), goodbye);
    SSL_CTX_set_info_callback(static_cast<SSL_CTX*>(context), &noteAlert);
    return CURLE_OK;
}

/// The values of a field in the last head, in order.
std::vector<std::string_view> fieldsOf(CURL* handle, const char* name) {
    std::vector<std::string_view> values;
    curl_header* field = nullptr;
    while (curl_easy_header(handle, name, values.size(), CURLH_HEADER, -1, &field) == CURLHE_OK) {
        values.emplace_back(field->value);
    }
    return values;
}

/// Whether the lengths differ or are no lengths: different readers would end the answer in different places.
bool hasDoubtfulLength(CURL* handle) {
    const auto lengths = fieldsOf(handle, "Content-Length");
    return std::ranges::any_of(lengths, [&](std::string_view length) {
        return length != lengths.front() || !text::wholeNumber<curl_off_t>(length);
    });
}

/// Whether only the end of the connection tells where the answer ends.
bool hasNoLength(CURL* handle) {
    long status = 0;
    curl_easy_getinfo(handle, CURLINFO_RESPONSE_CODE, &status);
    const bool isChunked = std::ranges::any_of(fieldsOf(handle, "Transfer-Encoding"), [](std::string_view encoding) {
        return std::ranges::equal(encoding, "chunked"sv, {}, text::lower);
    });
    return status != 204 && status != 304 && !isChunked && fieldsOf(handle, "Content-Length").empty();
}

/// Control characters become blanks: the value may come from a file that every user may write, and a line break in it
/// would add a header.
std::string headerLine(const std::string& name, const std::string& value) {
    std::string line = name + (value.empty() ? ";" : ": " + value); // libcurl's spelling of an empty value
    std::replace_if(
        line.begin(), line.end(), [](unsigned char c) { return c < 0x20 || c == 0x7f; }, ' ');
    return line;
}

/// With what no URL can hold (blanks, control characters, bytes above 127) escaped. Callers leave some in: a serial
/// number in the URL of a deactivation may have blanks.
std::string sendable(const std::string& url) {
    constexpr std::string_view digits = "0123456789ABCDEF";
    std::string escaped;
    for (const char c : url) {
        const auto byte = static_cast<unsigned char>(c);
        if (byte <= 0x20 || byte >= 0x7f) {
            escaped += {'%', digits[byte >> 4], digits[byte & 0xF]};
        } else {
            escaped += c;
        }
    }
    return escaped;
}

Headers headersOf(const fetch::Request& request) {
    curl_slist* list = curl_slist_append(nullptr, "Expect:"); // without a value: not sent
    for (const auto& [name, value] : request.headers) {
        list = curl_slist_append(list, headerLine(name, value).c_str());
    }
    return {list, &curl_slist_free_all};
}

void restrictTransport(CURL* handle, std::chrono::milliseconds timeout) {
    curl_easy_setopt(handle, CURLOPT_TIMEOUT_MS, static_cast<long>(timeout.count()));
    curl_easy_setopt(handle, CURLOPT_NOSIGNAL, 1L);
    curl_easy_setopt(handle, CURLOPT_QUICK_EXIT, 1L); // else a stalled name look-up outlives the time-out
    curl_easy_setopt(handle, CURLOPT_HTTP_VERSION, static_cast<long>(CURL_HTTP_VERSION_1_1));
    curl_easy_setopt(handle, CURLOPT_HTTP09_ALLOWED, 0L);
    curl_easy_setopt(handle, CURLOPT_PROTOCOLS_STR, "https");
    curl_easy_setopt(handle, CURLOPT_REDIR_PROTOCOLS_STR, "https");
    curl_easy_setopt(handle, CURLOPT_SSLVERSION, static_cast<long>(CURL_SSLVERSION_TLSv1_2));
    // After a request with a body longer than its length header, a connection can't be used again, say by a redirect.
    curl_easy_setopt(handle, CURLOPT_FRESH_CONNECT, 1L);
    curl_easy_setopt(handle, CURLOPT_FORBID_REUSE, 1L);
}

/// `request` has to outlive the transfer.
void setSystemsPart(CURL* handle, const fetch::Request& request) {
    curl_easy_setopt(handle, CURLOPT_PROXY, request.proxy.c_str());
    curl_easy_setopt(handle, CURLOPT_NOPROXY, request.proxyExceptions.c_str());
    if (request.trustAnchors) {
        curl_blob anchors{const_cast<char*>(request.trustAnchors->data()), // NOLINT(*-const-cast): only read
                          request.trustAnchors->size(), CURL_BLOB_NOCOPY};
        curl_easy_setopt(handle, CURLOPT_CAINFO_BLOB, &anchors);
        curl_easy_setopt(handle, CURLOPT_CAPATH, nullptr);
    }
}

/// What `keepToOrigin` looks at.
struct Sent {
    CURL* handle = nullptr;
    Origin origin; // of the URL that was asked for
};

/// Called before each request of a transfer. Bodies carry secrets, so a redirect to another server ends it.
int keepToOrigin(void* sent, char* /*address*/, char* /*ownAddress*/, int /*port*/, int /*ownPort*/) {
    const auto& [handle, origin] = *static_cast<const Sent*>(sent);
    try {
        return effectiveOrigin(handle) == origin ? CURL_PREREQFUNC_OK : CURL_PREREQFUNC_ABORT;
    } catch (const std::bad_alloc&) {
        return CURL_PREREQFUNC_ABORT;
    }
}

/// All have to outlive the transfer.
void describe(CURL* handle, const fetch::Request& request, const Headers& headers, Sent& sent) {
    curl_easy_setopt(handle, CURLOPT_URL, sendable(request.url).c_str());
    curl_easy_setopt(handle, CURLOPT_HTTPHEADER, headers.get());
    curl_easy_setopt(handle, CURLOPT_FOLLOWLOCATION, 1L);
    curl_easy_setopt(handle, CURLOPT_MAXREDIRS, 16L);
    if (request.body) {
        curl_easy_setopt(handle, CURLOPT_POSTFIELDSIZE_LARGE, static_cast<curl_off_t>(request.body->size()));
        curl_easy_setopt(handle, CURLOPT_POSTFIELDS, request.body->data());
        // Redirects take the body along: the length header, which is ours, would otherwise announce a missing one.
        curl_easy_setopt(handle, CURLOPT_POSTREDIR, static_cast<long>(CURL_REDIR_POST_ALL));
        curl_easy_setopt(handle, CURLOPT_PREREQFUNCTION, &keepToOrigin);
        curl_easy_setopt(handle, CURLOPT_PREREQDATA, &sent);
    }
    // By name only: CURLOPT_POST would add a length header to a POST without a body.
    curl_easy_setopt(handle, CURLOPT_CUSTOMREQUEST, request.method.c_str());
}

} // namespace

fetch::Outcome perform(const fetch::Request& request) {
    const Handle handle = makeHandle();
    if (!handle) {
        return transportError(-1, "No transport.");
    }
    const Headers headers = headersOf(request);
    Arrived arrived{.longestAnswer = request.longestAnswer};
    Sent sent{handle.get(), originOf(sendable(request.url))};
    restrictTransport(handle.get(), request.timeout);
    setSystemsPart(handle.get(), request);
    describe(handle.get(), request, headers, sent);
    curl_easy_setopt(handle.get(), CURLOPT_WRITEFUNCTION, &receive);
    curl_easy_setopt(handle.get(), CURLOPT_WRITEDATA, &arrived);
    curl_easy_setopt(handle.get(), CURLOPT_HEADERFUNCTION, &receiveHeader);
    curl_easy_setopt(handle.get(), CURLOPT_HEADERDATA, &arrived);
    Goodbye goodbye;
    curl_easy_setopt(handle.get(), CURLOPT_SSL_CTX_FUNCTION, &watchForGoodbye);
    curl_easy_setopt(handle.get(), CURLOPT_SSL_CTX_DATA, &goodbye);
    CURLcode code = curl_easy_perform(handle.get());
    if (code == CURLE_OK && !goodbye.hasCome && hasNoLength(handle.get())) {
        code = CURLE_PARTIAL_FILE;
    }
    if (code == CURLE_OK && hasDoubtfulLength(handle.get())) {
        code = CURLE_WEIRD_SERVER_REPLY;
    }
    if (code != CURLE_OK) {
        return errorOf(code, handle.get());
    }
    return std::move(arrived.answer);
}

} // namespace platform::web_transfer
