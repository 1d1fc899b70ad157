#include "platform/network.h"

#include "platform/linux/files/descriptor.h"
#include "support/root_test.h"
#include "trial/support/web_service.h"

#include <arpa/inet.h>
#include <atomic>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <iostream>
#include <net/if.h>
#include <netdb.h>
#include <sched.h>
#include <sys/ioctl.h>

using namespace platform;
using namespace std::chrono_literals;
using trial::CertificateKind;
using trial::WebManner;

namespace {

std::atomic<bool> lookupStalls;

} // namespace

/// In place of the C library's: no name exists, and the look-up of one stalls.
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

    /// The error's code; 0 for an answer, which is kept.
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

TEST_F(Network, StallsEndInTime) {
    service.answer("/stall", {.body = "half", .promisedLength = 9, .ending = trial::WebAnswer::Ending::stall});

    struct {
        const char* name;
        std::string url;
        WebManner manner = WebManner::serve;
    } const cases[] = {
        {"in the name look-up", "https://stalls.test"},
        {"before TLS", base, WebManner::stallBeforeTls},
        {"after TLS", base, WebManner::stallAfterTls},
        {"in the body", base + "/stall"},
    };

    lookupStalls = true;
    for (const auto& row : cases) {
        SCOPED_TRACE(row.name);
        service.receive(row.manner);
        const auto start = std::chrono::steady_clock::now();
        EXPECT_EQ(send({.url = row.url, .timeout = 300ms}), -1001);
        EXPECT_LT(std::chrono::steady_clock::now() - start, 10s);
    }
    lookupStalls = false;
    lookupStalls.notify_all();
}

TEST_F(Network, FaultsHaveTheirCodes) {
    const trial::WebService untrusted(authority, CertificateKind::untrusted);
    const trial::WebService wrongHost(authority, CertificateKind::wrongHost);
    const trial::WebService expired(authority, CertificateKind::expired);
    service.answer("/plain", redirectTo("http://" + service.host()));
    service.answer("/circle", redirectTo(base + "/circle"));
    service.answer("/cut", {.body = "half", .promisedLength = 9});
    service.answer("/endless", {.ending = trial::WebAnswer::Ending::endless});
    service.answer("/long", {.body = std::string(network::answerLimit + 1, 'x')});

    struct {
        const char* name;
        std::string url;
        std::int64_t code;
        WebManner manner = WebManner::serve;
    } const cases[] = {
        {"none", base, 0},
        {"no URL", "https://a b/", -1000},
        {"plain HTTP", "http://" + service.host(), -1002},
        {"redirected to plain HTTP", base + "/plain", -1002},
        {"an unknown name", "https://nowhere.test", -1003},
        {"a closed port", "https://127.0.0.1:1/", -1004},
        {"a body cut short", base + "/cut", -1005},
        {"redirected in a circle", base + "/circle", -1007},
        {"an endless answer", base + "/endless", -1103},
        {"an answer too long", base + "/long", -1103},
        {"closed before TLS", base, -1200, WebManner::closeAtOnce},
        {"an expired certificate", "https://" + expired.host(), -1201},
        {"an untrusted certificate", "https://" + untrusted.host(), -1202},
        {"another host's certificate", "https://" + wrongHost.host(), -1202},
    };

    for (const auto& row : cases) {
        SCOPED_TRACE(row.name);
        service.receive(row.manner);
        EXPECT_EQ(send({.url = row.url}), row.code);
    }
    fakes::deployment::setTrustAnchorFile("");
    EXPECT_EQ(send({.url = base}), -1202) << "the system does not know this authority";
}

TEST_F(Network, RequestsAreSentAsDescribed) {
    struct {
        const char* name;
        std::string method;
        trial::WebHeaders headers;
        std::optional<std::string> body;
    } const cases[] = {
        {"headers", "GET", {{"User-Agent", "Havrel Mac:1"}, {"X-Empty", ""}}, {}},
        {"a POST without a body", "POST", {}, {}},
        {"an empty body", "POST", {{"Content-length", "0"}}, ""},
        {"a body longer than its length header", "POST", {{"Content-length", "3"}}, "\u00e9=1"},
        {"a long body", "POST", {{"Content-length", "2000000"}}, std::string(2'000'000, 'x')},
    };

    service.answerWith([](const trial::WebRequest&) { return trial::WebAnswer{.body = "fault", .status = 500}; });
    for (const auto& row : cases) {
        SCOPED_TRACE(row.name);
        EXPECT_EQ(send({.url = base + "/a?b=c", .method = row.method, .headers = row.headers, .body = row.body}), 0);
        EXPECT_EQ(answer, "fault");
        trial::WebRequest seen = service.requests().back();
        EXPECT_EQ(seen.method, row.method);
        EXPECT_EQ(seen.target, "/a?b=c");
        EXPECT_EQ(seen.body, row.body.value_or(""));
        // Of the transport's own headers these three and no other: no length, no encoding, no expectation.
        std::erase_if(seen.headers, [](const auto& header) {
            return header.first == "Host" || header.first == "Accept" || header.first == "Content-Type";
        });
        EXPECT_EQ(seen.headers, row.headers);
    }
    EXPECT_EQ(service.connections(), std::size(cases));
}

TEST_F(Network, WhatAUrlCannotHoldIsEscaped) {
    struct {
        const char* name;
        std::string target;
        std::string sent;
    } const cases[] = {
        {"blanks", "/a?id=A B", "/a?id=A%20B"},
        {"control characters", std::string("/\0\n\x7f", 4), "/%00%0A%7F"},
        {"beyond ASCII", "/é", "/%C3%A9"},
        {"nothing else", "/a%20%zz?b=\"<>[]{}|\\^`~!*'();:@&=+$,", "/a%20%zz?b=\"<>[]{}|\\^`~!*'();:@&=+$,"},
    };

    for (const auto& row : cases) {
        SCOPED_TRACE(row.name);
        EXPECT_EQ(send({.url = base + row.target}), 0);
        ASSERT_FALSE(service.requests().empty());
        EXPECT_EQ(service.requests().back().target, row.sent);
    }
}

TEST_F(Network, HeadersStayOnTheirLine) {
    EXPECT_EQ(send({.url = base, .headers = {{"User-Agent", "1\r\nX-Evil: 1"}}}), 0);
    EXPECT_EQ(service.requests().back().header("User-Agent"), "1  X-Evil: 1");
}

TEST_F(Network, RedirectsTakeTheBodyAlong) {
    const std::string port = std::to_string(service.port());
    service.answer("/old", redirectTo("HTTPS://LocalHost:" + port + "/new", 301));
    service.answer("/new", {.body = std::string(network::answerLimit, 'x')});
    EXPECT_EQ(send({.url = "https://localhost:" + port + "/old", .method = "POST", .body = "a=b"}), 0);
    EXPECT_EQ(answer.value_or("").size(), network::answerLimit);
    EXPECT_EQ(service.requests().back().method, "POST");
    EXPECT_EQ(service.requests().back().body, "a=b");
}

TEST_F(Network, RedirectsTakeNoBodyToAnotherServer) {
    const trial::WebService other(authority);
    for (const int status : {301, 302, 303, 307, 308}) {
        service.answer("/away", redirectTo("https://" + other.host(), status));
        EXPECT_EQ(send({.url = base + "/away", .method = "POST", .body = "secret"}), -1010) << status;
    }
    EXPECT_THAT(other.requests(), testing::IsEmpty());
    EXPECT_EQ(send({.url = base + "/away"}), 0);
}

TEST_F(Network, ProxiesComeFromTheEnvironmentElseTheSystemsFile) {
    const std::string https = "https://www.example.org/";
    const std::string http = "http://www.example.org/";

    struct {
        const char* name;
        trial::WebHeaders environment;
        std::string file;
        std::string url;
        std::string type;
    } const cases[] = {
        {"none", {}, "", https, "None"},
        {"a URL", {{"https_proxy", "http://proxy:3128"}}, "", https, "HTTPS"},
        {"upper case", {{"HTTP_PROXY", "proxy:3128"}}, "", http, "HTTP"},
        {"for every scheme", {{"ALL_PROXY", "socks5h://proxy"}}, "", https, "SOCKS"},
        {"an excepted domain", {{"https_proxy", "proxy"}, {"no_proxy", "a.org, .EXAMPLE.org"}}, "", https, "None"},
        {"other domains", {{"https_proxy", "proxy"}, {"no_proxy", "w.example.org,ample.org,,"}}, "", https, "HTTPS"},
        {"all excepted", {{"https_proxy", "proxy"}, {"NO_PROXY", "*"}}, "", https, "None"},
        {"the file", {}, "#https_proxy=a\n  export https_proxy=\"http://p:1\"\n", https, "HTTPS"},
        {"an empty setting", {}, "https_proxy=\"http://p:1\"\nhttp_proxy=''", http, "None"},
        {"the environment first", {{"https_proxy", "socks4://a"}}, "https_proxy=b", https, "SOCKS"},
    };

    for (const auto& row : cases) {
        setProxies(row.environment);
        root.write("/etc/environment", row.file);
        EXPECT_EQ(network::proxyType(row.url), "kCFProxyType" + row.type) << row.name;
    }
}

TEST_F(Network, RequestsTakeTheProxy) {
    root.write("/etc/environment", "https_proxy=http://127.0.0.1:1\n");
    EXPECT_EQ(send({.url = base}), -1004);
    setProxies({{"no_proxy", "127.0.0.1"}});
    EXPECT_EQ(send({.url = base}), 0);
}

TEST(NetworkAddresses, HoldTheLoopback) {
    EXPECT_THAT(network::interfaceAddresses().value(),
                testing::Contains(testing::FieldsAre(network::loopbackInterface(), true, "127.0.0.1")));
}

/// Adds 127.9.9.9 with the label "lo:1" in a network of this process's own; tells which interfaces hold 127.9.9.9.
[[noreturn]] void listLabelledAddress() {
    ifreq request{};
    std::strcpy(request.ifr_name, "lo:1");
    const sockaddr_in address{AF_INET, 0, {inet_addr("127.9.9.9")}, {}};
    std::memcpy(&request.ifr_addr, &address, sizeof address);
    const bool isOwn = unshare(CLONE_NEWNET) == 0 || unshare(CLONE_NEWUSER | CLONE_NEWNET) == 0;
    const Descriptor socket(::socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0));
    if (!isOwn || ioctl(socket.get(), SIOCSIFADDR, &request) != 0) {
        std::perror("no network of its own");
    }
    const auto addresses = network::interfaceAddresses().value();
    for (const auto& entry : addresses) {
        if (entry.ipv4 == "127.9.9.9") {
            std::cerr << "held by " << entry.interfaceName << ";\n";
        }
    }
    std::exit(0);
}

TEST(NetworkAddresses, WithALabelBelongToTheirInterface) {
    EXPECT_EXIT(listLabelledAddress(), testing::ExitedWithCode(0), "^held by lo;\n$");
}

TEST(NetworkAddresses, EndAtTheirEnd) { EXPECT_FALSE(network::isIPv4Address(std::string("10.0.0.1\0", 9))); }

} // namespace
