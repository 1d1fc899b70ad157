// The operator's channels. Log files are the Logger's; these are for what happens outside every file.
#pragma once

#include <exception>
#include <string_view>

namespace platform::diagnostics {

/// Writes one line to standard error, whole even when threads report at once. Control characters in the text,
/// which may come from outside, are shown as "?". Never fails, never throws.
void report(std::string_view line) noexcept;
/// The same for the line "WHERE: WHAT".
void report(std::string_view where, std::string_view what) noexcept;

/// Writes text to standard output as it is, at once. Never fails, never throws.
void print(std::string_view text) noexcept;

/// Runs `work`; an exception ends it there, as one reported line that begins with `where`. For the outermost frame
/// of every background thread, queue operation and handler: the daemon lives on.
template <typename Work>
void contain(std::string_view where, Work&& work) noexcept {
    try {
        work();
    } catch (const std::exception& error) {
        report(where, error.what());
    } catch (...) {
        report(where, "unknown exception");
    }
}

} // namespace platform::diagnostics
