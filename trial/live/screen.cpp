#include "trial/live/screen.h"

#include <algorithm>
#include <array>
#include <cstdio>
#include <cstdlib>
#include <string>
#include <unistd.h>

namespace trial {

namespace {

constexpr std::size_t barWidth = 32;
constexpr std::size_t labelWidth = 11;
/// How many progress lines there are without a terminal.
constexpr std::size_t progressLines = 8;

std::string bar(std::size_t done, std::size_t all) {
    const std::size_t filled = all == 0 ? 0 : barWidth * done / all;
    std::string drawn;
    for (std::size_t i = 0; i < barWidth; ++i) {
        drawn += i < filled ? "█" : "░";
    }
    return drawn;
}

std::string harmless(std::string_view text) {
    std::string shown(text);
    std::replace_if(
        shown.begin(), shown.end(), [](unsigned char c) { return c < 0x20 || c == 0x7f; }, '?');
    return shown;
}

} // namespace

Screen::Screen()
    : isTerminal_(::isatty(STDOUT_FILENO) == 1)
    , hasColours_(isTerminal_ && std::getenv("NO_COLOR") == nullptr) {}

void Screen::text(std::string_view lines) {
    // The progress bar is erased and drawn again below the new text.
    write((isDrawn_ ? "\r\033[K" : "") + std::string(lines) + progressLine_);
    isDrawn_ = !progressLine_.empty();
}

void Screen::event(std::string_view source, std::string_view what) {
    const std::chrono::duration<double> elapsed = std::chrono::steady_clock::now() - start_;
    std::array<char, 64> head{};
    std::snprintf(head.data(), head.size(), "%7.2f s  ", elapsed.count());
    std::string label(source);
    label.resize(std::max(label.size(), labelWidth), ' ');
    text(styled("2", head.data()) + styled("36", label) + harmless(what) + "\n");
}

void Screen::progress(std::size_t done, std::size_t all) {
    reported_ = std::min(reported_, done);
    const std::string words = "measured " + std::to_string(done) + " of " + std::to_string(all);
    if (isTerminal_) {
        progressLine_ =
            done < all ? std::string(12, ' ') + styled("36", "ping       ") + bar(done, all) + "  " + words : "";
        text("");
    }
    if (done == all || (!isTerminal_ && done >= reported_ + std::max<std::size_t>(all / progressLines, 1))) {
        reported_ = done;
        event("ping", words);
    }
}

void Screen::endProgress() {
    progressLine_.clear();
    text("");
}

std::string Screen::bold(std::string_view text) const { return styled("1", text); }

std::string Screen::good(std::string_view text) const { return styled("32", text); }

std::string Screen::bad(std::string_view text) const { return styled("31", text); }

std::string Screen::styled(const char* style, std::string_view text) const {
    return hasColours_ ? std::string("\033[") + style + 'm' + std::string(text) + "\033[m" : std::string(text);
}

void Screen::write(std::string_view bytes) {
    std::fwrite(bytes.data(), 1, bytes.size(), stdout);
    std::fflush(stdout);
}

} // namespace trial
