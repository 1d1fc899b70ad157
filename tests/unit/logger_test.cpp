#include "logging/HVLLogger.h"

#include "foundation/unicode.h"
#include "support/core_test.h"
#include "support/thread_shortage.h"

namespace text = platform::text;
using namespace havrel;
using namespace std::string_literals;
using support::repeated;
using Lines = std::vector<std::string>;

class Logger : public support::CoreTest {
  protected:
    Logger() { logger->setLogFilePath(file); }

    const std::string file = paths::hostSupport + "/test.log";
    const std::unique_ptr<HVLLogger> logger = HVLLogger::initWithLogFile(file);
};

/// What the file has to hold after the lines, made line by line and in UTF-16.
static std::u16string oneByOne(const std::string& file, const Lines& lines) {
    auto content = text::isValidUtf8(file) ? std::optional(text::utf16(file)) : std::nullopt;
    for (const std::string& line : lines) {
        content = (content ? *std::move(content) + u'\n' : u"") + text::utf16("2001-01-01 00:00:00 : " + line + " ");
        content->erase(0, content->size() - std::min<std::size_t>(content->size(), 102'400));
        const bool beginsWithHalfAPair = content->front() >= 0xdc00 && content->front() < 0xe000;
        content->erase(0, beginsWithHalfAPair ? 1 : 0);
    }
    return *content;
}

TEST_F(Logger, WritesABurstAsIfLineByLine) {
    struct Row {
        const char* name;
        std::string before;
        Lines lines;
    };

    const std::string pair = "\xf0\x9f\x98\x80"; // one character, two UTF-16 units
    const std::string old = repeated("old line\n", 20'000);
    const std::string pairs = repeated(pair, 60'000);
    const Row rows[] = {
        {"as made", "", {"first", "second"}},
        {"kept", "kept", {"", "two\nlines", "NUL\0NUL"s}},
        {"not UTF-8", "caf\xe9", {"first", "second"}},
        {"longer than the cap", old, {"first"}},
        {"too long to be read whole", repeated(pair, 4'200'000) + "x", {"first", "second"}},
        {"exactly the cap", std::string(102'400, 'x'), {"first"}},
        {"cut inside a pair", pairs, {"odd"}},
        {"one huge line", old, {repeated(pair, 5'000'000) + "end"}},
        {"lines that aren't UTF-8", "", {"caf\xe9", "\x80\x80\xf0\x9f", repeated("\xe2\x82", 70'000)}},
        {"many lines", old, Lines(5'000, "a line of the length that callers write, more or less")},
    };
    for (const Row& row : rows) {
        SCOPED_TRACE(row.name);
        root.write(file, row.before);
        for (const std::string& line : row.lines) {
            logger->logString(line);
        }
        logger->drain();
        const std::string content = root.read(file);
        EXPECT_TRUE(text::isValidUtf8(content));
        EXPECT_TRUE(text::utf16(content) == oneByOne(row.before, row.lines)); // too long to be printed
    }
}

TEST_F(Logger, DropsWaitingLinesOnlyWhenTheFileCannotHoldThem) {
    for (const std::size_t size : {100, 1'000, 40'000}) {
        PendingLines pending;
        Lines all;
        for (std::size_t before = 0; pending.count() >= before;) {
            before = pending.count();
            all.push_back(repeated("\xe2\x82\xac", size / 3) + std::to_string(all.size()));
            pending.add(all.back());
        }
        EXPECT_TRUE(oneByOne("", all) == oneByOne("", pending.take())) << size;
    }
}

TEST_F(Logger, WritesLaterWhatItHasNoThreadFor) {
    {
        const support::ThreadShortage shortage;
        logger->logString("first");
    }
    logger->logString("second");
    logger->drain();
    EXPECT_EQ(root.read(file), "\n2001-01-01 00:00:00 : first \n2001-01-01 00:00:00 : second ");
}

TEST_F(Logger, LeavesTheFileAloneWithoutAMessageOrAPath) {
    create_hard_link(root.at(file), root.at("/as made")); // a file that is written is a new one
    logger->logString(std::nullopt);
    logger->drain();
    for (const auto& path : {std::optional<std::string>(), std::optional("/absent/test.log"s)}) {
        logger->setLogFilePath(path);
        logger->logString("lost");
        logger->drain();
    }
    EXPECT_TRUE(equivalent(root.at(file), root.at("/as made")));
    EXPECT_EQ(root.read(file), "");
    EXPECT_FALSE(exists(root.at("/absent")));
}
