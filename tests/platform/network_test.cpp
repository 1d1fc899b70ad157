#include "platform/network.h"

#include "platform/linux/files/descriptor.h"
#include "support/root_test.h"
#include "trial/support/hostile_answers.h"
#include "trial/support/process_table.h"

#include <arpa/inet.h>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <net/if.h>
#include <sched.h>
#include <sys/ioctl.h>
#include <sys/stat.h>

using namespace platform;
using namespace std::literals;

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
        EXPECT_NE(answer.has_value(), error.has_value());
        if (!error) {
            return 0;
        }
        EXPECT_EQ(error->domain, "NSURLErrorDomain");
        return error->code;
    }

    trial::CertificateAuthority authority{root.at("/ca.pem")};
    trial::WebService service{authority};
    const std::string base = "https://" + service.host();
    std::optional<std::string> answer;
};

TEST_F(Network, AnswersAreTakenOrRefusedInTimeAndMemory) {
    const long usual = trial::peakMemory();
    for (const auto& answers : {trial::hostileAnswers(), trial::slowAnswers(), trial::oddAnswers()}) {
        for (const trial::HostileAnswer& row : answers) {
            SCOPED_TRACE(row.name);
            service.answer("/hostile", row.answer);
            EXPECT_EQ(send({.url = base + "/hostile", .timeout = row.timeout}), row.errorCode);
            EXPECT_EQ(answer, row.body);
            EXPECT_LT(trial::peakMemory(), usual + 256'000) << "kilobytes";
        }
    }
}

TEST_F(Network, ServersThatCannotBeTrustedAreRefused) {
    const trial::WebService wrongHost(authority, trial::CertificateKind::wrongHost);
    const trial::WebService expired(authority, trial::CertificateKind::expired);
    EXPECT_EQ(send({.url = "https://" + wrongHost.host()}), -1202);
    EXPECT_EQ(send({.url = "https://" + expired.host()}), -1201);
    service.receive(trial::WebManner::oldTls);
    EXPECT_EQ(send({.url = base}), -1200);
    service.receive(trial::WebManner::stallBeforeTls);
    EXPECT_EQ(send({.url = base, .timeout = 300ms}), -1001);
    EXPECT_THAT(service.requests(), testing::IsEmpty());
}

TEST_F(Network, NothingIsSentWithoutTheAnchors) {
    root.write("/empty.pem", "");
    ASSERT_EQ(mkfifo(root.at("/pipe.pem").c_str(), 0600), 0);
    for (const char* anchors : {"/missing.pem", "/empty.pem", "/pipe.pem", "/"}) {
        fakes::deployment::setTrustAnchorFile(root.at(anchors));
        EXPECT_EQ(send({.url = base, .timeout = 5s}), -1200) << anchors;
    }
    fakes::deployment::setTrustAnchorFile("");
    EXPECT_EQ(send({.url = base}), -1202) << "the system does not know this authority";
    EXPECT_THAT(service.requests(), testing::IsEmpty());
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
}

TEST_F(Network, WhatAUrlCannotHoldIsEscaped) {
    EXPECT_EQ(send({.url = base + "/id=A B\0\n\x7f\u00e9"s}), 0);
    EXPECT_EQ(service.requests().back().target, "/id=A%20B%00%0A%7F%C3%A9");
    const std::string rest = "/a%20%zz?b=\"<>[]{}|\\^`~!*'();:@&=+$,";
    EXPECT_EQ(send({.url = base + rest}), 0);
    EXPECT_EQ(service.requests().back().target, rest);
}

TEST_F(Network, HeadersStayOnTheirLine) {
    EXPECT_EQ(send({.url = base, .headers = {{"User-Agent", "1\r\nX-Evil: 1"}}}), 0);
    EXPECT_EQ(service.requests().back().header("User-Agent"), "1  X-Evil: 1");
}

TEST_F(Network, RedirectsTakeTheBodyAlong) {
    const std::string port = std::to_string(service.port());
    service.answer("/old", redirectTo("HTTPS://LocalHost:" + port + "/new", 301));
    EXPECT_EQ(send({.url = "https://localhost:" + port + "/old", .method = "POST", .body = "a=b"}), 0);
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
}

TEST_F(Network, ProxiesComeFromTheEnvironmentElseTheSystemsFile) {
    struct {
        const char* name;
        trial::WebHeaders environment;
        std::string file;
        std::string type;
    } const cases[] = {
        {"for every scheme", {{"ALL_PROXY", "socks5h://proxy"}}, "", "SOCKS"},
        {"an excepted domain", {{"https_proxy", "proxy"}, {"no_proxy", "a.org, .EXAMPLE.org"}}, "", "None"},
        {"the file", {}, "#https_proxy=a\n  export https_proxy=\"http://p:1\"\n", "HTTPS"},
        {"the environment first", {{"https_proxy", "socks4://a"}}, "https_proxy=b", "SOCKS"},
    };

    for (const auto& row : cases) {
        setProxies(row.environment);
        root.write("/etc/environment", row.file);
        EXPECT_EQ(network::proxyType("https://www.example.org/"), "kCFProxyType" + row.type) << row.name;
    }
}

TEST_F(Network, RequestsTakeTheProxy) {
    const std::string opened = "HTTP/1.1 200 OK\r\n";

    struct {
        const char* name;
        trial::WebAnswer connected; // the answer to CONNECT
        std::int64_t code;
        std::optional<std::string> body = {};
    } const cases[] = {
        {"opens the way", {.head = opened + "\r\n"}, 0, "behind the proxy"},
        {"refuses", {.status = 403}, -1004},
        {"an endless head", {.ending = trial::WebAnswer::Ending::endless, .filler = "A: b\r\n", .head = opened}, -1103},
    };

    root.write("/etc/environment", "https_proxy=http://" + service.host() + "\n");
    service.receive(trial::WebManner::proxy);
    service.answer("/", {.body = "behind the proxy"});
    for (const auto& row : cases) {
        SCOPED_TRACE(row.name);
        service.answer(service.host(), row.connected);
        EXPECT_EQ(send({.url = base + "/"}), row.code);
        EXPECT_EQ(answer, row.body);
    }
}

/// Adds 127.9.9.9 with the label "lo:1" in a network of this process's own, and expects it among the addresses of "lo".
[[noreturn]] void findLabelledAddress() {
    ifreq request{};
    std::strcpy(request.ifr_name, "lo:1");
    const sockaddr_in address{AF_INET, 0, {inet_addr("127.9.9.9")}, {}};
    std::memcpy(&request.ifr_addr, &address, sizeof address);
    const bool isOwn = unshare(CLONE_NEWNET) == 0 || unshare(CLONE_NEWUSER | CLONE_NEWNET) == 0;
    const Descriptor socket(::socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0));
    if (!isOwn || ioctl(socket.get(), SIOCSIFADDR, &request) != 0) {
        std::perror("no network of its own");
    }
    EXPECT_THAT(network::interfaceAddresses().value(),
                testing::Contains(testing::FieldsAre("lo", testing::_, "127.9.9.9")));
    std::exit(testing::Test::HasFailure());
}

TEST(NetworkAddresses, WithALabelBelongToTheirInterface) {
    EXPECT_EXIT(findLabelledAddress(), testing::ExitedWithCode(0), "");
}

} // namespace
