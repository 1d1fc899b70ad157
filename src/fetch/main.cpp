// HavrelFetch [USER GROUP]: does the web transfer that standard input describes and writes the outcome to standard
// output. The numbers name whom root wants it to run as. It is a process of its own so that whoever takes over what
// reads the network's bytes has gained nothing: see sandbox.h.
#include "fetch/message.h"
#include "fetch/sandbox.h"
#include "fetch/web_transfer.h"
#include "foundation/numbers.h"

#include <algorithm>
#include <cerrno>
#include <cstdlib>
#include <exception>
#include <malloc.h>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <system_error>
#include <unistd.h>

namespace {

using namespace platform;

void require(bool isFine) {
    if (!isFine) {
        throw Exception("usage: HavrelFetch [USER GROUP]");
    }
}

unsigned number(std::string_view argument) {
    const auto value = text::wholeNumber<unsigned>(argument);
    require(value.has_value());
    return *value;
}

std::optional<sandbox::User> userOf(std::span<char*> arguments) {
    if (arguments.empty()) {
        return std::nullopt;
    }
    require(arguments.size() == 2);
    return sandbox::User{number(arguments[0]), number(arguments[1])};
}

/// Everything up to the end, or as much as makes it too long.
std::string readRequest() {
    std::string message;
    std::string some(std::size_t{64} << 10, '\0');
    while (message.size() <= fetch::longestRequest) {
        const ssize_t count = ::read(STDIN_FILENO, some.data(), some.size());
        if (count == 0) {
            break;
        }
        if (count < 0 && errno != EINTR) {
            throw std::system_error(errno, std::generic_category(), "standard input");
        }
        message.append(some, 0, static_cast<std::size_t>(std::max<ssize_t>(count, 0)));
    }
    return message;
}

fetch::Outcome transfer() {
    const auto request = fetch::decodeRequest(readRequest());
    return request ? web_transfer::perform(*request) : fetch::transportError(-1, "The request is not understood.");
}

bool write(std::string_view message) {
    while (!message.empty()) {
        const ssize_t count = ::write(STDOUT_FILENO, message.data(), message.size());
        if (count <= 0 && errno != EINTR) {
            return false;
        }
        message.remove_prefix(static_cast<std::size_t>(std::max<ssize_t>(count, 0)));
    }
    return true;
}

} // namespace

int main(int count, char** arguments) {
    // A second arena takes half of the address space that a transfer may have.
    ::mallopt(M_ARENA_MAX, 1);
    fetch::Outcome outcome;
    try {
        sandbox::enter(userOf({arguments + 1, arguments + count}));
        outcome = transfer();
    } catch (const std::exception& error) {
        outcome = fetch::transportError(-1, error.what());
    }
    // Without destructors: a name look-up that stalls may still run.
    std::_Exit(write(fetch::encode(outcome)) ? EXIT_SUCCESS : EXIT_FAILURE);
}
