#include "platform/processes.h"

#include "foundation/error.h"
#include "foundation/property_list.h"
#include "foundation/value.h"
#include "platform/files.h"
#include "platform/linux/files/system_files.h"
#include "platform/linux/processes/child_process.h"
#include "platform/linux/processes/ping_program.h"
#include "platform/session.h"

#include <algorithm>
#include <array>
#include <poll.h>
#include <span>

namespace platform {

namespace {

using child_process::Child;
using child_process::Pipe;

/// What of a task's output is kept.
constexpr std::size_t taskLimit = std::size_t{16} << 20;

struct Output {
    Descriptor source;
    std::string& text;
};

void readToEnds(std::span<Output> outputs) {
    child_process::Buffer buffer; // NOLINT(*-member-init): only what a read has filled is looked at
    const auto open = [](const Output& output) { return static_cast<bool>(output.source); };
    while (std::any_of(outputs.begin(), outputs.end(), open)) {
        std::vector<pollfd> waiting;
        for (const Output& output : outputs) {
            waiting.push_back({output.source.get(), POLLIN, 0});
        }
        ::poll(waiting.data(), waiting.size(), -1);
        for (std::size_t i = 0; i < waiting.size(); ++i) {
            if (waiting[i].revents == 0) {
                continue;
            }
            const std::string_view some = child_process::readSome(waiting[i].fd, buffer);
            if (some.empty()) {
                outputs[i].source.reset();
            }
            outputs[i].text += some.substr(0, taskLimit - outputs[i].text.size());
        }
    }
}

bool isPlainFileName(const std::string& name) {
    return !name.empty() && name != "." && name != ".." &&
           name.find_first_of(std::string_view("/\0", 2)) == std::string::npos;
}

} // namespace

namespace processes {

int system(const std::string& commandLine) {
    try {
        return Child("/bin/sh", {"-c", commandLine}, child_process::environmentWith({}), {}).wait();
    } catch (const Exception&) {
        return -1;
    }
}

TaskOutput runTask(const std::string& program, const std::vector<std::string>& arguments, Capture capture) {
    Pipe out = capture == Capture::standardError ? Pipe{} : child_process::makePipe();
    Pipe error = capture == Capture::standardOutput ? Pipe{} : child_process::makePipe();
    Child child(program, arguments, child_process::environmentWith({}), {out.writer.get(), error.writer.get()});
    out.writer.reset();
    error.writer.reset();
    TaskOutput written;
    std::array<Output, 2> outputs{Output{std::move(out.reader), written.standardOutput},
                                  Output{std::move(error.reader), written.standardError}};
    readToEnds(outputs);
    child.wait();
    return written;
}

bool launch(const std::string& program, const std::vector<std::string>& arguments) {
    return child_process::startDetached(underRoot(program), arguments, std::nullopt);
}

bool launchApplication(const std::string& bundlePath) {
    const auto content = files::read(bundlePath + "/Contents/Info.plist");
    const auto information = content ? property_list::parse(*content) : std::nullopt;
    const auto executable = information ? information->textMember("CFBundleExecutable") : std::nullopt;
    const auto user = session::consoleUser();
    const auto account = user ? child_process::accountOf(*user) : std::nullopt;
    if (!executable || !isPlainFileName(*executable) || !account) {
        return false;
    }
    const std::string path = underRoot(bundlePath + "/Contents/MacOS/" + *executable);
    return child_process::startDetached(path, {}, account);
}

std::string ping(const std::string& address) {
    using namespace std::chrono_literals;
    // ping ends itself after six seconds; a name lookup that stalls does not count for it.
    return runPing(address, {8s, 2s});
}

} // namespace processes

} // namespace platform
