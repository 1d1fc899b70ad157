// The trial of the main job as one watches it: a machine of its own, the daemon on it, and what both do.
#pragma once

#include "trial/live/observers.h"
#include "trial/live/road.h"
#include "trial/live/screen.h"
#include "trial/support/bus_client.h"
#include "trial/support/machine.h"
#include "trial/support/sleep_service.h"

#include <atomic>
#include <cstddef>
#include <memory>
#include <optional>
#include <string>
#include <vector>

namespace trial {

class LiveTrial {
  public:
    /// `interrupted` turns true when the trial is to end at once.
    explicit LiveTrial(const std::atomic<bool>& interrupted);

    /// Shows the road of the proxy list; true when it has been gone to its end in time.
    bool show();
    /// Shows what goes on until interrupted, having said what can be tried; true when nothing went wrong. A daemon that
    /// was asked to end is started again.
    bool stay();
    /// Ends the daemon; true when it ended as it should.
    bool end();
    /// The table of the chosen proxies, and where everything lies.
    void printResults();
    /// Leaves everything where it is when the trial ends, and says how to remove it.
    void keep();

  private:
    void introduce();
    void startDaemon();
    void look();
    void lookAtRequests();
    void lookAtTools();
    void lookAtBus();
    void lookAtFiles();
    void lookAtPings();
    bool fail(const std::string& why);
    void printSteps();
    void printRanking();

    const std::atomic<bool>& interrupted_;
    Screen screen_;
    Machine machine_;
    SleepService loginManager_;
    Proxies proxies_;
    Road road_;
    BusClient bus_;
    std::vector<std::pair<std::string, FileTail>> files_;
    std::unique_ptr<DaemonProcess> daemon_;
    std::unique_ptr<PingWatch> pings_;
    std::size_t shownRequests_ = 0;
    std::size_t shownCalls_ = 0;
    std::size_t shownPosts_ = 0;
    /// How much of the pass over all proxies that is under way has been shown; nothing when none is.
    std::optional<std::size_t> shownMeasured_;
};

} // namespace trial
