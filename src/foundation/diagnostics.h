// Lines for the operator on standard error and standard output, about what belongs into no log file. Thread-safe;
// nothing here fails or throws.
#pragma once

#include <exception>
#include <string_view>

namespace platform::diagnostics {

/// Writes one line to standard error, which other threads' lines don't break up. Control characters in the text,
/// which may come from outside, become "?".
void report(std::string_view line) noexcept;
/// The same for the line "WHERE: WHAT".
void report(std::string_view where, std::string_view what) noexcept;

/// Writes the text as it is to standard output and flushes it.
void print(std::string_view text) noexcept;

/// The same, at a limited rate for all callers together.
void reportLimited(std::string_view where, std::string_view what) noexcept;

/// Runs `work` and reports what it throws, at a limited rate, as one line that begins with `where`. The outermost frame
/// of every background thread, queue operation and handler, so that an exception there does not end the daemon.
template <typename Work>
void contain(std::string_view where, Work&& work) noexcept {
    try {
        work();
    } catch (const std::exception& error) {
        reportLimited(where, error.what());
    } catch (...) {
        reportLimited(where, "unknown exception");
    }
}

} // namespace platform::diagnostics
