#include "platform/diagnostics.h"

#include "platform/linux/system_files.h"

#include <algorithm>
#include <initializer_list>
#include <string>
#include <unistd.h>

namespace platform::diagnostics {

namespace {

void reportParts(std::initializer_list<std::string_view> parts) noexcept {
    try {
        std::string text;
        for (const std::string_view part : parts) {
            text += part;
        }
        std::replace_if(
            text.begin(), text.end(), [](unsigned char c) { return c < 0x20 || c == 0x7f; }, '?');
        text += '\n';
        writeAll(STDERR_FILENO, text);
    } catch (const std::exception&) {
        writeAll(STDERR_FILENO, "out of memory\n");
    }
}

} // namespace

void report(std::string_view line) noexcept { reportParts({line}); }

void report(std::string_view where, std::string_view what) noexcept { reportParts({where, ": ", what}); }

void print(std::string_view text) noexcept { writeAll(STDOUT_FILENO, text); }

} // namespace platform::diagnostics
