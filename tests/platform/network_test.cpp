#include "platform/network.h"

#include "platform/linux/files/descriptor.h"
#include "support/root_test.h"
#include "trial/support/web_service.h"

#include <arpa/inet.h>
#include <atomic>
#include <cstdlib>
#include <netdb.h>
#include <tuple>

using namespace platform;
using namespace std::chrono_literals;
using trial::CertificateKind;
using trial::WebManner;

namespace {

std::atomic<bool> lookupStalls;

} // namespace

/// In place of the C library's: knows no name, and takes its time over one of them.
int getaddrinfo(const char* name, const char* /*service*/, const addrinfo* /*hints*/, addrinfo** /*found*/) {
    if (std::string_view(name) == "stalls.test") {
        lookupStalls.wait(true);
    }
    return EAI_NONAME;
}

namespace {

trial::WebAnswer redirectTo(const std::string& url, int status = 302) {
    return {.status = status, .headers = {{"Location", url}}};
}

class Network : public support::RootTest {
  protected:
    Network() {
        fakes::deployment::setTrustAnchorFile(authority.file());
        setProxies({});
    }

    /// These proxy variables and no others.
    static void setProxies(const trial::WebHeaders& variables) {
        for (const char* name : {"http_proxy", "https_proxy", "all_proxy", "no_proxy", "HTTP_PROXY", "HTTPS_PROXY",
                                 "ALL_PROXY", "NO_PROXY"}) {
            unsetenv(name);
        }
        for (const auto& [name, value] : variables) {
            setenv(name.c_str(), value.c_str(), 1);
        }
    }

    /// The error's code, 0 for an answer, which is kept.
    std::int64_t send(const network::Request& request) {
        std::optional<Error> error;
        answer = network::sendSynchronousRequest(request, error);
        EXPECT_EQ(answer.has_value(), !error.has_value());
        return error ? error->code : 0;
    }

    trial::CertificateAuthority authority{root.at("/ca.pem")};
    trial::WebService service{authority};
    const std::string base = "https://" + service.host();
    std::optional<std::string> answer;
};

TEST_F(Network, FaultsHaveTheirCodesAndStallsEndInTime) {
    const trial::WebService untrusted(authority, CertificateKind::untrusted);
    const trial::WebService wrongHost(authority, CertificateKind::wrongHost);
    const trial::WebService expired(authority, CertificateKind::expired);
    service.answer("/plain", redirectTo("http://" + service.host()));
    service.answer("/local", redirectTo("file:///etc/hostname"));
    service.answer("/circle", redirectTo(base + "/circle"));
    service.answer("/cut", {.body = "half", .promisedLength = 9});
    service.answer("/stall", {.body = "half", .promisedLength = 9, .ending = trial::WebAnswer::Ending::stall});
    service.answer("/endless", {.ending = trial::WebAnswer::Ending::endless});
    service.answer("/long", {.body = std::string(network::answerLimit + 1, 'x')});
    // Clients beyond the first find no room in its queue: their connections neither fail nor come about.
    const Descriptor full(socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0));
    const Descriptor first(socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0));
    sockaddr_in local{AF_INET, 0, {htonl(INADDR_LOOPBACK)}, {}};
    auto* const address = reinterpret_cast<sockaddr*>(&local);
    socklen_t size = sizeof local;
    EXPECT_EQ(bind(full.get(), address, size) + listen(full.get(), 0) + getsockname(full.get(), address, &size) +
                  connect(first.get(), address, size),
              0);
    const std::string fullPort = "https://127.0.0.1:" + std::to_string(ntohs(local.sin_port));
    const std::tuple<std::int64_t, WebManner, std::vector<std::string>> rows[] = {
        {0, WebManner::serve, {base}},
        {-1000, WebManner::serve, {"", "https://a b/", base + std::string("/\0x", 3)}},
        {-1001, WebManner::serve, {"https://stalls.test", fullPort, base + "/stall"}},
        {-1001, WebManner::stallBeforeTls, {base}},
        {-1001, WebManner::stallAfterTls, {base}},
        {-1002, WebManner::serve, {base + "/plain", base + "/local", "http://" + service.host(), "file:///x"}},
        {-1003, WebManner::serve, {"https://nowhere.test"}},
        {-1004, WebManner::serve, {"https://127.0.0.1:1/"}},
        {-1005, WebManner::serve, {base + "/cut"}},
        {-1007, WebManner::serve, {base + "/circle"}},
        {-1103, WebManner::serve, {base + "/endless", base + "/long"}},
        {-1200, WebManner::closeAtOnce, {base}},
        {-1201, WebManner::serve, {"https://" + expired.host()}},
        {-1202, WebManner::serve, {"https://" + untrusted.host(), "https://" + wrongHost.host()}},
    };
    lookupStalls = true;
    for (const auto& [code, manner, urls] : rows) {
        service.receive(manner);
        for (const std::string& url : urls) {
            const auto start = std::chrono::steady_clock::now();
            EXPECT_EQ(send({.url = url, .timeout = code == -1001 ? 300ms : 20s}), code) << url;
            EXPECT_LT(std::chrono::steady_clock::now() - start, 10s) << url;
        }
    }
    lookupStalls = false;
    lookupStalls.notify_all();
    fakes::deployment::setTrustAnchorFile("");
    EXPECT_EQ(send({.url = base}), -1202) << "the system does not know this authority";
}

TEST_F(Network, RequestsAreSentAsDescribed) {
    const std::tuple<std::string, trial::WebHeaders, std::optional<std::string>> rows[] = {
        {"GET", {{"User-Agent", "Havrel Mac:1"}, {"X-Empty", ""}}, {}},
        {"POST", {}, {}},
        {"POST", {{"Content-length", "0"}}, ""},
        {"POST", {{"Content-length", "3"}}, "\u00e9=1"},
        {"POST", {{"Content-length", "2000000"}}, std::string(2'000'000, 'x')},
    };
    service.answerWith([](const trial::WebRequest&) { return trial::WebAnswer{.body = "fault", .status = 500}; });
    for (const auto& [method, headers, body] : rows) {
        EXPECT_EQ(send({.url = base + "/a?b=c", .method = method, .headers = headers, .body = body}), 0);
        EXPECT_EQ(answer, "fault");
        trial::WebRequest seen = service.requests().back();
        EXPECT_EQ(seen.method + seen.target + seen.body, method + "/a?b=c" + body.value_or(""));
        // Ours, as spelt and in order, and of the transport's own no other length, encoding or expectation.
        std::erase_if(seen.headers, [](const auto& header) {
            return header.first == "Host" || header.first == "Accept" || header.first == "Content-Type";
        });
        EXPECT_EQ(seen.headers, headers);
    }
    EXPECT_EQ(service.connections(), std::size(rows));
    EXPECT_EQ(send({.url = base, .headers = {{"User-Agent", "1\r\nX-Evil: 1"}}}), 0);
    EXPECT_EQ(service.requests().back().header("User-Agent"), "1  X-Evil: 1");
}

TEST_F(Network, RedirectsTakeTheBodyAlongButNotToAnotherServer) {
    service.answer("/old", redirectTo(base + "/new", 301));
    service.answer("/new", {.body = std::string(network::answerLimit, 'x')});
    EXPECT_EQ(send({.url = base + "/old", .method = "POST", .headers = {{"Content-length", "3"}}, .body = "a=b"}), 0);
    EXPECT_EQ(answer.value_or("").size(), network::answerLimit);
    EXPECT_EQ(service.requests().back().method + service.requests().back().body, "POSTa=b");
    const trial::WebService other(authority);
    for (const int status : {301, 302, 303, 307, 308}) {
        service.answer("/away", redirectTo("https://" + other.host(), status));
        EXPECT_EQ(send({.url = base + "/away", .method = "POST", .body = "secret"}), -1010);
        EXPECT_EQ(send({.url = base + "/away"}), 0);
    }
    EXPECT_EQ(other.requests().size(), 5U);
}

TEST_F(Network, ProxiesComeFromTheEnvironmentElseTheSystemsFile) {
    const std::string https = "https://www.example.org/", http = "http://www.example.org/";
    const std::tuple<trial::WebHeaders, std::string, std::string, std::string> rows[] = {
        {{}, "", https, "None"},
        {{{"https_proxy", "proxy"}}, "", "no url", "None"},
        {{{"https_proxy", "http://proxy:3128"}}, "", https, "HTTPS"},
        {{{"HTTP_PROXY", "proxy:3128"}}, "", http, "HTTP"},
        {{{"ALL_PROXY", "socks5h://proxy"}}, "", https, "SOCKS"},
        {{{"https_proxy", "proxy"}, {"no_proxy", "a.org, .EXAMPLE.org"}}, "", https, "None"},
        {{{"https_proxy", "proxy"}, {"no_proxy", "w.example.org,ample.org,,"}}, "", https, "HTTPS"},
        {{{"https_proxy", "proxy"}, {"NO_PROXY", "*"}}, "", https, "None"},
        {{}, "#https_proxy=a\n  export https_proxy=\"http://p:1\"\nhttp_proxy=''", https, "HTTPS"},
        {{}, "https_proxy=\"http://p:1\"\nhttp_proxy=''", http, "None"},
        {{{"https_proxy", "socks4://a"}}, "https_proxy=b", https, "SOCKS"},
    };
    for (const auto& [environment, file, url, type] : rows) {
        setProxies(environment);
        root.write("/etc/environment", file);
        EXPECT_EQ(network::proxyType(url), "kCFProxyType" + type) << url << file;
    }
    // And requests go the same way.
    root.write("/etc/environment", "https_proxy=http://127.0.0.1:1\n");
    setProxies({});
    EXPECT_EQ(send({.url = base}), -1004);
    setProxies({{"no_proxy", "127.0.0.1"}});
    EXPECT_EQ(send({.url = base}), 0);
}

TEST(NetworkAddresses, HoldTheLoopback) {
    EXPECT_THAT(network::interfaceAddresses().value(),
                testing::Contains(testing::FieldsAre(network::loopbackInterface(), true, "127.0.0.1")));
    EXPECT_FALSE(network::isIPv4Address(std::string("10.0.0.1\0", 9)));
}

} // namespace
