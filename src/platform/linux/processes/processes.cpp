#include "platform/processes.h"

#include "foundation/diagnostics.h"
#include "foundation/error.h"
#include "foundation/property_list.h"
#include "foundation/value.h"
#include "platform/files.h"
#include "platform/linux/files/system_files.h"
#include "platform/linux/machine/user_database.h"
#include "platform/linux/processes/child_process.h"
#include "platform/session.h"

#include <array>
#include <poll.h>

namespace platform::processes {

namespace {

using child_process::Child;
using child_process::Pipe;

/// What is kept of each output of a task.
constexpr std::size_t taskLimit = std::size_t{16} << 20;

/// Tasks ask "ps -A" which programs run. A process can give itself any name; what is shown instead, the path of its
/// program, the kernel knows.
constexpr auto listingFormat = "PS_FORMAT=pid,tty,time,exe";

/// Reads both to their ends, in whatever order they write; below 0 is none.
TaskOutput readToEnds(int standardOutput, int standardError) {
    TaskOutput written;
    child_process::Buffer buffer; // NOLINT(*-member-init): only what a read has filled is looked at
    const std::array texts{&written.standardOutput, &written.standardError};
    std::array waiting{pollfd{standardOutput, POLLIN, 0}, pollfd{standardError, POLLIN, 0}};
    while (waiting[0].fd >= 0 || waiting[1].fd >= 0) {
        ::poll(waiting.data(), waiting.size(), -1);
        for (std::size_t i = 0; i < waiting.size(); ++i) {
            if (waiting[i].revents == 0) {
                continue;
            }
            const std::string_view some = child_process::readSome(waiting[i].fd, buffer);
            if (some.empty()) {
                waiting[i].fd = -1;
            }
            texts[i]->append(some.substr(0, taskLimit - texts[i]->size()));
        }
    }
    return written;
}

/// Starts the line as init's child, in a session of its own. Here and below the tools are named by their paths, because
/// PATH need not lead to them.
void startDetached(std::vector<std::string> line) {
    diagnostics::contain("launch", [&] {
        line.insert(line.begin(), "--fork");
        Child("/usr/bin/setsid", line).wait();
    });
}

} // namespace

int system(const std::string& commandLine) {
    try {
        return Child("/bin/sh", {"-c", commandLine}).wait();
    } catch (const Exception&) {
        return -1;
    }
}

TaskOutput runTask(const std::string& program, const std::vector<std::string>& arguments, Capture capture) {
    Pipe out = capture == Capture::standardError ? Pipe{} : child_process::makePipe();
    Pipe error = capture == Capture::standardOutput ? Pipe{} : child_process::makePipe();
    Child child(program, arguments, {.standardOutput = out.writer.get(), .standardError = error.writer.get()},
                child_process::environmentWith(listingFormat));
    out.writer.reset();
    error.writer.reset();
    TaskOutput written = readToEnds(out.reader.get(), error.reader.get());
    child.wait();
    return written;
}

void launch(const std::string& program, const std::vector<std::string>& arguments) {
    std::vector<std::string> line{underRoot(program)};
    line.insert(line.end(), arguments.begin(), arguments.end());
    startDetached(std::move(line));
}

void launchApplication(const std::string& bundlePath) {
    const auto content = files::read(bundlePath + "/Contents/Info.plist");
    const auto information = content ? property_list::parse(*content) : std::nullopt;
    const auto executable = information ? information->textMember("CFBundleExecutable") : std::nullopt;
    const auto name = session::consoleUser();
    const auto user = name ? user_database::find(*name) : std::nullopt;
    if (!executable || executable->find('/') != std::string::npos || !user) {
        diagnostics::report("launch", bundlePath + " names no program, or nobody is at the console");
        return;
    }
    const std::string id = std::to_string(user->id);
    startDetached({"/usr/bin/env", "HOME=" + user->home, "USER=" + user->name, "LOGNAME=" + user->name,
                   "XDG_RUNTIME_DIR=/run/user/" + id, "/usr/bin/setpriv", "--reuid=" + id,
                   "--regid=" + std::to_string(user->group), "--init-groups", "--",
                   underRoot(bundlePath + "/Contents/MacOS/" + *executable)});
}

} // namespace platform::processes
