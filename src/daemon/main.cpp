#include "daemon/HVLAutoUninstaller.h"
#include "daemon/Helper.h"
#include "daemon/ProcessEnd.h"
#include "foundation/deployment.h"
#include "foundation/diagnostics.h"
#include "foundation/limited_report.h"
#include "platform/clock.h"
#include "platform/memory.h"
#include "platform/run_loop.h"
#include "util/ServiceStatus.h"

#include <cstdlib>
#include <optional>

namespace {

using platform::RunLoop;
using platform::diagnostics::contain;
using namespace std::chrono_literals;

/// Without descriptors there is no loop; there may be some later.
RunLoop& mainLoop() {
    platform::LimitedReport report(1);
    for (;;) {
        try {
            return RunLoop::main();
        } catch (const std::exception& error) {
            report(std::string("main loop: ") + error.what());
            platform::clock::sleep(1s);
        }
    }
}

} // namespace

int main() {
    platform::memory::shareHeap();
    contain("settings", platform::deployment::reportMissing);
    contain("signals", havrel::endProcessOnRequest);
    contain("service manager", havrel::service_status::begin);
    RunLoop& loop = mainLoop();
    const RunLoop::Source keepsRunning(loop); // whatever of the following fails
    std::optional<havrel::Helper> helper;
    contain("start-up", [&] { helper.emplace().called(); });
    std::optional<havrel::HVLAutoUninstaller> uninstaller;
    contain("trash watcher", [&] { uninstaller.emplace().launchWather(); });
    havrel::service_status::startUpEnded();
    contain("main loop", [&] {
        loop.run();
        havrel::shutDown();
    });
    havrel::endProcess(EXIT_FAILURE);
}
