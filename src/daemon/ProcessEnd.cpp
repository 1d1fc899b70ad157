#include "daemon/ProcessEnd.h"

#include "foundation/diagnostics.h"
#include "logging/HVLLogger.h"
#include "platform/clock.h"
#include "platform/files.h"
#include "platform/network.h"
#include "platform/notifications.h"
#include "platform/processes.h"
#include "platform/run_loop.h"
#include "platform/service_manager.h"
#include "platform/termination.h"

#include <cstdlib>
#include <functional>
#include <future>
#include <memory>
#include <mutex>
#include <system_error>
#include <thread>

namespace havrel {

namespace {

using namespace std::chrono_literals;

/// How long the main thread may take to end the process by itself.
constexpr auto patience = 500ms;
/// How long the last lines, files and posts may take: a file system or a bus that hangs must not keep the process.
constexpr auto closingTime = 1s;

void close(const std::function<void()>& lastWords) {
    lastWords();
    HVLLogger::drainAll();
    platform::files::endWrites();
    platform::service_manager::tellStopping();
    platform::distributed_center::flush();
}

/// Does the work on a thread of its own, and returns when it is done or the time is over.
void doWithin(std::chrono::milliseconds time, const std::function<void()>& work) {
    const auto done = std::make_shared<std::promise<void>>();
    try {
        std::thread([work, done] {
            platform::diagnostics::contain("end of the process", work);
            done->set_value();
        }).detach();
        done->get_future().wait_for(time);
    } catch (const std::system_error&) { // there are no threads left
        platform::diagnostics::contain("end of the process", work);
    }
}

[[noreturn]] void endProcess(int status, const std::function<void()>& lastWords) {
    static std::mutex once;
    once.lock(); // never unlocked: whoever comes second waits here for the end
    doWithin(closingTime, [lastWords] { close(lastWords); });
    platform::processes::endPings(); // after the last file, since a killed ping looks like one without an answer
    std::_Exit(status);
}

} // namespace

void endProcessOnRequest() {
    platform::termination::onRequest([] {
        platform::diagnostics::contain("main loop", [] { platform::RunLoop::main().stop(); });
        platform::network::endRequests(); // which the main thread may be waiting for
        platform::clock::sleep(patience);
        shutDown();
    });
}

void shutDown() {
    endProcess(EXIT_SUCCESS, [] { HVLLogger::instance().logString("HavrelHelper : Called : Down"); });
}

void endProcess(int status) {
    endProcess(status, [] {});
}

} // namespace havrel
