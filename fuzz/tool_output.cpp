// What the tools write: sleep timers and process lists. A first byte that is odd goes with words on standard error.
#include "daemon/ProcessList.h"
#include "daemon/SystemSetingsClass.h"
#include "fakes/fake_processes.h"
#include "fuzz/require.h"

#include <cstdint>

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    using havrel::SystemSetingsClass;
    const std::string output(reinterpret_cast<const char*>(data), size);
    const bool failed = size > 0 && data[0] % 2 == 1;
    fakes::processes::onTask([&](const std::string&) {
        return platform::processes::TaskOutput{output, failed ? output : std::string()};
    });
    const std::uint64_t sleep = SystemSetingsClass::getComputerSleep();
    require(sleep == SystemSetingsClass::never || failed || output.find("Computer Sleep: after") != std::string::npos);
    SystemSetingsClass::getDisplaySleep();
    SystemSetingsClass::setDisableComputerSleep(5);
    require(!havrel::isListed("ps -A", "HVLVersionUpdate") || output.find("HVLVersionUpdate") != std::string::npos);
    fakes::processes::reset();
    return 0;
}
