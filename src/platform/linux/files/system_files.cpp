#include "platform/linux/files/system_files.h"

#include "foundation/deployment.h"
#include "foundation/error.h"
#include "foundation/text.h"
#include "platform/linux/files/descriptor.h"

#include <algorithm>
#include <cerrno>
#include <fcntl.h>
#include <sys/stat.h>
#include <system_error>
#include <unistd.h>

namespace platform {

namespace {

/// The size that the file claims, or a page's worth: in procfs it claims 0.
std::size_t sizeHint(int descriptor) {
    struct stat facts {};

    return ::fstat(descriptor, &facts) == 0 && facts.st_size > 0 ? static_cast<std::size_t>(facts.st_size) : 4095;
}

std::string unquoted(std::string_view value) {
    if (value.size() < 2 || value.front() != value.back() || (value.front() != '"' && value.front() != '\'')) {
        return std::string(value);
    }
    const bool escapes = value.front() == '"';
    std::string plain;
    for (std::size_t i = 1; i + 1 < value.size(); ++i) {
        i += escapes && value[i] == '\\' && i + 2 < value.size() ? 1 : 0;
        plain += value[i];
    }
    return plain;
}

} // namespace

std::string underRoot(std::string_view path) { return deployment::settings().root + std::string(path); }

std::optional<std::string> readAll(int descriptor, std::size_t limit) {
    // With room for one byte more, a second read finds the end of the file without a resize, and a file that is too
    // long shows.
    std::string content(std::min(sizeHint(descriptor), limit) + 1, '\0');
    std::size_t filled = 0;
    while (true) {
        const ssize_t count = ::read(descriptor, content.data() + filled, content.size() - filled);
        if (count < 0 && errno == EINTR) {
            continue;
        }
        if (count < 0) {
            return std::nullopt;
        }
        filled += static_cast<std::size_t>(count);
        if (count == 0) {
            content.resize(filled);
            return content;
        }
        if (filled > limit) {
            errno = EFBIG;
            return std::nullopt;
        }
        if (filled == content.size()) {
            content.resize(std::min(2 * filled, limit + 1));
        }
    }
}

bool writeAll(int descriptor, std::string_view content) noexcept {
    while (!content.empty()) {
        const ssize_t count = ::write(descriptor, content.data(), content.size());
        if (count < 0 && errno == EINTR) {
            continue;
        }
        if (count <= 0) {
            return false;
        }
        content.remove_prefix(static_cast<std::size_t>(count));
    }
    return true;
}

bool isShortage(int error) { return error == EMFILE || error == ENFILE || error == ENOMEM; }

std::optional<std::string> readSystemFile(std::string_view path, std::size_t limit) {
    const Descriptor file(::open(underRoot(path).c_str(), O_RDONLY | O_NONBLOCK | O_NOCTTY | O_CLOEXEC));
    if (!file && isShortage(errno)) {
        throw Exception(std::string(path) + " can't be read at the moment: " + std::generic_category().message(errno));
    }

    struct stat facts {};

    if (!file || ::fstat(file.get(), &facts) != 0 || !S_ISREG(facts.st_mode)) {
        return std::nullopt;
    }
    return readAll(file.get(), limit);
}

std::optional<std::string> assignedValue(std::string_view lines, std::string_view name) {
    std::optional<std::string> value;
    for (const std::string& line : text::split(lines, "\n")) {
        std::string_view assignment = line;
        assignment.remove_prefix(std::min(assignment.find_first_not_of(" \t"), assignment.size()));
        if (assignment.starts_with("export ")) {
            assignment.remove_prefix(7);
        }
        if (assignment.starts_with(name) && assignment.substr(name.size()).starts_with('=')) {
            value = unquoted(text::trim(assignment.substr(name.size() + 1), " \t\r"));
        }
    }
    return value;
}

} // namespace platform
