#include "trial/support/hostile_answers.h"

namespace trial {

namespace {

using Ending = WebAnswer::Ending;

constexpr std::int64_t timedOut = -1001;
constexpr std::int64_t unsupported = -1002;
constexpr std::int64_t lost = -1005;
constexpr std::int64_t tooManyRedirects = -1007;
constexpr std::int64_t badAnswer = -1011;
constexpr std::int64_t tooLong = -1103;

const std::string ok = "HTTP/1.1 200 OK\r\n";
const std::string chunked = ok + "Transfer-Encoding: chunked\r\n\r\n";
const std::string field = "X-Filler: 0123456789\r\n";

/// A whole answer whose head has these lines beside its status.
WebAnswer headed(const std::string& lines, const std::string& body = "half") {
    return {.body = body, .head = ok + lines + "\r\n"};
}

WebAnswer endless(const std::string& head, const std::string& filler) {
    return {.ending = Ending::endless, .filler = filler, .head = head};
}

WebAnswer cut(const std::string& head) { return {.body = "half", .ending = Ending::cut, .head = head}; }

WebAnswer slow(const std::string& head) { return {.ending = Ending::slow, .filler = "0", .head = head}; }

WebAnswer redirect(const std::string& location) { return {.status = 302, .headers = {{"Location", location}}}; }

} // namespace

std::vector<HostileAnswer> hostileAnswers() {
    return {
        {"EndlessHead", endless(ok, field), tooLong},
        {"EndlessStatusLine", endless("HTTP/1.1 200 ", "x"), tooLong},
        {"EndlessHeaderLine", endless(ok + "X-Filler: ", "x"), tooLong},
        {"EndlessPreliminaryAnswers", endless("", "HTTP/1.1 100 Continue\r\n\r\n"), tooLong},
        {"EndlessBody", endless(ok + "\r\n", "x"), tooLong},
        {"EndlessChunks", endless(chunked, "400\r\n" + std::string(0x400, 'x') + "\r\n"), tooLong},
        {"EndlessTrailers", endless(chunked + "0\r\n", field), tooLong},
        {"EndlessTrailerLine", endless(chunked + "0\r\nX-Filler: ", "x"), lost},
        {"HugeLength", endless(ok + "Content-Length: 9223372036854775807\r\n\r\n", "x"), tooLong},
        {"LengthBeyond64Bits", endless(ok + "Content-Length: 99999999999999999999\r\n\r\n", "x"), tooLong},
        {"LengthOfAnother", headed("Content-Length: 5\r\n"), lost},
        {"NegativeLength", headed("Content-Length: -1\r\n"), badAnswer},
        {"TwoLengths", headed("Content-Length: 9\r\nContent-Length: 4\r\n"), badAnswer},
        {"ListOfLengths", headed("Content-Length: 4, 9\r\n"), badAnswer},
        {"LengthInWords", headed("Content-Length: four\r\n"), badAnswer},
        {"ChunkOfNoSize", {.body = "no size\r\n", .head = chunked}, lost},
        {"ChunkBeyond64Bits", {.body = "fffffffffffffffff\r\n", .head = chunked}, lost},
        {"CutHead", cut(ok), lost},
        {"CutBodyOfKnownLength", cut(ok + "Content-Length: 5\r\n\r\n"), lost},
        {"CutBodyOfUnknownLength", cut(ok + "\r\n"), lost},
        {"CutBodyOfLengthBeyond64Bits", cut(ok + "Content-Length: 99999999999999999999\r\n\r\n"), badAnswer},
        {"CutBodyInNoEncoding", cut(ok + "Transfer-Encoding: identity\r\n\r\n"), lost},
        {"CutHeadOfKnownLength", {.ending = Ending::cut, .head = ok + "Content-Length: 4\r\n"}, lost},
        {"CutHeadOfChunks", {.ending = Ending::cut, .head = ok + "Transfer-Encoding: chunked\r\n"}, lost},
        {"CutChunk", cut(chunked + "5\r\n"), lost},
        {"CutBeforeTheLastChunk", {.body = "4\r\nhalf\r\n", .head = chunked}, lost},
        {"NothingAtAll", {.head = ""}, lost},
        {"Http09", {.body = "half", .head = ""}, badAnswer},
        {"AnotherProtocol", {.body = "SSH-2.0-service\r\n", .head = ""}, badAnswer},
        {"Http9", {.body = "half", .head = "HTTP/9.0 200 OK\r\n\r\n"}, badAnswer},
        {"RedirectToPlainHttp", redirect("http://localhost/"), unsupported},
        {"RedirectToAFile", redirect("file:///etc/passwd"), unsupported},
        {"RedirectToItself", redirect("?"), tooManyRedirects},
    };
}

std::vector<HostileAnswer> slowAnswers() {
    std::vector<HostileAnswer> answers{
        {"SlowHead", slow(ok + "X-Filler: "), timedOut},
        {"SlowBody", slow(ok + "\r\n"), timedOut},
        {"SlowChunkExtension", slow(chunked + "1;"), timedOut},
        {"EndlessChunkExtension", endless(chunked + "1;", "x"), timedOut},
        {"NothingButSilence", {.ending = Ending::stall, .head = ""}, timedOut},
        {"StalledBody", {.body = "half", .promisedLength = 5, .ending = Ending::stall}, timedOut},
        {"SwitchToAnotherProtocol", {.ending = Ending::stall, .head = "HTTP/1.1 101 Other\r\n\r\n"}, timedOut},
    };
    for (HostileAnswer& answer : answers) {
        answer.timeout = std::chrono::milliseconds(300);
    }
    return answers;
}

std::vector<HostileAnswer> oddAnswers() {
    const std::string body = "\x1f\x8bwhole";
    const std::string chunk = "7\r\n" + body + "\r\n";
    std::vector<HostileAnswer> answers{
        {"EncodingThatNobodyAskedFor", {.body = body, .headers = {{"Content-Encoding", "gzip"}}}},
        {"BodyThatEndsWithTheConnection", headed("", body)},
        {"OneLengthTwice", headed("Content-Length: 7\r\ncontent-length:7\r\n", body)},
        {"LengthBesideChunks", headed("Content-Length: 9\r\nTransfer-Encoding: chunked\r\n", chunk + "0\r\n\r\n")},
        {"Trailer", {.body = chunk + "0\r\n" + field + "\r\n", .ending = Ending::cut, .head = chunked}},
        {"InterimAnswer", {.body = body, .head = "HTTP/1.1 103 Hints\r\n" + field + "\r\n" + ok + "\r\n"}},
        {"Fault", {.body = body, .status = 500}},
    };
    for (HostileAnswer& answer : answers) {
        answer.body = body;
    }
    return answers;
}

} // namespace trial
