#include "logging/HVLLogger.h"

#include "foundation/unicode.h"
#include "support/core_test.h"
#include "support/thread_shortage.h"

namespace text = platform::text;
using namespace havrel;
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
    const Row rows[] = {
        {"too long to be read whole, cut inside a pair", repeated(pair, 4'200'000) + "x", {"first", "odd"}},
        {"one huge line", "old", {repeated(pair, 5'000'000) + "end"}},
        {"lines that aren't UTF-8", "", {"caf\xe9", "\x80\x80\xf0\x9f", repeated("\xe2\x82", 70'000)}},
    };
    for (const Row& row : rows) {
        root.write(file, row.before);
        for (const std::string& line : row.lines) {
            logger->logString(line);
        }
        logger->drain();
        // Too long to be printed.
        EXPECT_TRUE(text::utf16(root.read(file)) == oneByOne(row.before, row.lines)) << row.name;
    }
}

TEST_F(Logger, DropsWaitingLinesOnlyWhenTheFileCannotHoldThem) {
    PendingLines pending;
    Lines all;
    while (pending.count() == all.size()) {
        all.push_back(repeated("\xe2\x82\xac", 300) + std::to_string(all.size()));
        pending.add(all.back());
    }
    EXPECT_TRUE(oneByOne("", all) == oneByOne("", pending.take()));
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
