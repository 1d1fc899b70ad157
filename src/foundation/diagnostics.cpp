#include "foundation/diagnostics.h"

#include "foundation/limited_report.h"

#include <algorithm>
#include <cstdio>
#include <initializer_list>
#include <string>

namespace platform::diagnostics {

namespace {

/// One call for the whole text: the C library locks the channel for each.
void write(std::FILE* channel, std::string_view text) noexcept {
    std::fwrite(text.data(), 1, text.size(), channel);
    std::fflush(channel);
}

void reportParts(std::initializer_list<std::string_view> parts) noexcept {
    try {
        std::string text;
        for (const std::string_view part : parts) {
            text += part;
        }
        std::replace_if(
            text.begin(), text.end(), [](unsigned char c) { return c < 0x20 || c == 0x7f; }, '?');
        text += '\n';
        write(stderr, text);
    } catch (const std::exception&) {
        write(stderr, "out of memory\n");
    }
}

} // namespace

void report(std::string_view line) noexcept { reportParts({line}); }

void report(std::string_view where, std::string_view what) noexcept { reportParts({where, ": ", what}); }

void reportLimited(std::string_view where, std::string_view what) noexcept {
    try {
        static LimitedReport limited(20);
        limited(std::string(where).append(": ").append(what));
    } catch (const std::exception&) {
        report(where, what);
    }
}

void print(std::string_view text) noexcept { write(stdout, text); }

} // namespace platform::diagnostics
