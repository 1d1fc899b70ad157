#include "daemon/SystemSetingsClass.h"

#include "foundation/diagnostics.h"
#include "foundation/error.h"
#include "foundation/format.h"
#include "foundation/numbers.h"
#include "foundation/text.h"
#include "foundation/unicode.h"
#include "platform/processes.h"

namespace havrel {

namespace {

using platform::processes::TaskOutput;
namespace text = platform::text;

TaskOutput run(const std::string& command) {
    using namespace platform::processes;
    try {
        TaskOutput output = runTask("/bin/bash", {"-c", command}, Capture::both);
        // Of standard error it only matters whether there is any, UTF-8 or not.
        output.standardOutput = text::decodeUtf8(output.standardOutput).value_or("");
        return output;
    } catch (const platform::Exception& exception) {
        // Without a shell the tool can't be run, which callers see as an error of the tool.
        return {"", exception.what()};
    }
}

std::uint64_t minutesIn(const TaskOutput& output, const std::string& label) {
    if (!output.standardError.empty()) {
        return SystemSetingsClass::failed;
    }
    const auto pieces = text::split(output.standardOutput, label);
    if (pieces.size() < 2) {
        return SystemSetingsClass::never;
    }
    const auto number = text::split(pieces[1], "minutes");
    if (number.size() < 2) {
        return SystemSetingsClass::never;
    }
    return static_cast<std::uint64_t>(text::integerValue(number[0]));
}

bool setTimer(const std::string& command, std::uint64_t minutes) {
    const std::string timer = minutes < SystemSetingsClass::never ? std::to_string(minutes) : "Never";
    const TaskOutput output = run(text::format(command, timer));
    return output.standardError.empty() && !output.standardOutput.empty();
}

} // namespace

std::uint64_t SystemSetingsClass::getComputerSleep() {
    return minutesIn(run("systemsetup -getcomputersleep"), "Computer Sleep: after");
}

std::uint64_t SystemSetingsClass::getDisplaySleep() {
    return minutesIn(run("systemsetup -getdisplaysleep"), "Display Sleep: after");
}

bool SystemSetingsClass::setDisableComputerSleep(std::uint64_t minutes) {
    return setTimer("systemsetup -setcomputersleep %@", minutes);
}

bool SystemSetingsClass::setDisableDisplaySleep(std::uint64_t minutes) {
    return setTimer("systemsetup -setdisplaysleep %@", minutes);
}

} // namespace havrel
