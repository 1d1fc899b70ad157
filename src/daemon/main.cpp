#include "daemon/HVLAutoUninstaller.h"
#include "daemon/Helper.h"
#include "daemon/ProcessEnd.h"
#include "foundation/diagnostics.h"
#include "logging/HVLLogger.h"
#include "platform/run_loop.h"

#include <cstdlib>

namespace {

void serve() {
    // Taken first: from here on SIGTERM and SIGINT wait for the loop, in every thread.
    platform::RunLoop& loop = platform::RunLoop::main();
    havrel::Helper helper;
    helper.called();
    havrel::HVLAutoUninstaller uninstaller;
    platform::diagnostics::contain("trash watcher", [&] { uninstaller.launchWather(); });
    loop.run();
    havrel::HVLLogger::instance().logString("HavrelHelper : Called : Down");
    havrel::endProcess(EXIT_SUCCESS);
}

} // namespace

int main() {
    platform::diagnostics::contain("HavrelHelper", serve);
    havrel::endProcess(EXIT_FAILURE);
}
