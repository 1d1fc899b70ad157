#include "platform/termination.h"

#include "foundation/diagnostics.h"

#include <csignal>
#include <thread>

namespace platform::termination {

void onRequest(std::function<void()> handler) {
    sigset_t signals;
    sigemptyset(&signals);
    sigaddset(&signals, SIGTERM);
    sigaddset(&signals, SIGINT);
    pthread_sigmask(SIG_BLOCK, &signals, nullptr); // in the threads to come, too
    try {
        std::thread([signals, handler = std::move(handler)] {
            int number = 0;
            while (::sigwait(&signals, &number) != 0) {
            }
            diagnostics::contain("end of the process", handler);
        }).detach();
    } catch (...) {
        pthread_sigmask(SIG_UNBLOCK, &signals, nullptr);
        throw;
    }
}

} // namespace platform::termination
