#include "platform/system_info.h"

#include "foundation/numbers.h"
#include "foundation/text.h"
#include "platform/linux/files/system_files.h"
#include "platform/linux/machine/system_fact.h"

#include <array>
#include <charconv>
#include <climits>
#include <cstdlib>
#include <string_view>
#include <sys/utsname.h>
#include <unistd.h>

namespace platform::system_info {

Version systemVersion() {
    utsname system{};
    ::uname(&system);
    std::string_view release = system.release;
    Version version;
    for (std::int64_t* part : {&version.major, &version.minor, &version.patch}) {
        const auto [end, error] = std::from_chars(release.data(), release.data() + release.size(), *part);
        release.remove_prefix(static_cast<std::size_t>(end - release.data()));
        if (error != std::errc{} || !release.starts_with('.')) {
            break;
        }
        release.remove_prefix(1);
    }
    return version;
}

std::optional<std::chrono::seconds> uptime() {
    const std::string kernel = readSystemFile("/proc/uptime").value_or("");
    const std::string process = readSystemFile("/proc/1/stat").value_or("");
    // The second field, the process's name, may hold anything; the first after it has index 1.
    const auto fields = text::split(process.substr(process.rfind(')') + 1), " ");
    constexpr std::size_t startTime = 20;
    const auto now = text::wholeNumber<std::int64_t>(text::split(kernel, ".").front());
    const auto ticks = text::wholeNumber<std::int64_t>(fields.size() > startTime ? fields[startTime] : "");
    if (!now || !ticks) {
        return std::nullopt;
    }
    const std::int64_t startedAt = *ticks / ::sysconf(_SC_CLK_TCK);
    // What a container sees as the kernel's time may count from the container's own start.
    return std::chrono::seconds(*now < startedAt ? *now : *now - startedAt);
}

std::string hardwareModel() {
    for (const auto* path :
         {"/sys/class/dmi/id/product_name", "/sys/firmware/devicetree/base/model", "/proc/device-tree/model"}) {
        if (std::string model = systemFact(path); !model.empty()) {
            return model;
        }
    }
    return "";
}

std::string bundlePath() {
    std::array<char, PATH_MAX> buffer{};
    const ssize_t size = ::readlink("/proc/self/exe", buffer.data(), buffer.size());
    const std::string_view executable(buffer.data(), size < 0 ? 0 : static_cast<std::size_t>(size));
    return std::string(executable.substr(0, executable.rfind('/')));
}

std::uint32_t random() { return ::arc4random(); }

std::uint32_t randomBelow(std::uint32_t bound) { return ::arc4random_uniform(bound); }

} // namespace platform::system_info
