#include "platform/system_info.h"

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
