// The trial that one watches: the daemon at its main job, on a machine of the trial's own.
#pragma once

#include "trial/live/observers.h"
#include "trial/live/road.h"
#include "trial/live/screen.h"
#include "trial/support/bus_client.h"
#include "trial/support/machine.h"
#include "trial/support/service_manager.h"
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
    /// `interrupted` becomes true when the trial is to end at once.
    explicit LiveTrial(const std::atomic<bool>& interrupted);

    /// Shows the road of the proxy list; true if the daemon goes it to the end in time.
    bool show();
    /// Says what can be tried and shows what happens until interrupted. Starts the daemon again when it ends with
    /// status 0; false if it ends in another way.
    bool stay();
    /// Ends the daemon; true if it ended with status 0.
    bool end();
    /// The table of the chosen proxies, and where everything lies.
    void printResults();
    /// Leaves the trial's folder in place and says how to remove it.
    void keep();

  private:
    void introduce();
    void startDaemon();
    void look();
    void lookAtRequests();
    void lookAtTools();
    void lookAtBus();
    void lookAtFiles();
    void lookAtState();
    void lookAtPings();
    bool fail(const std::string& why);
    void printSteps();
    void printRanking();

    const std::atomic<bool>& interrupted_;
    Screen screen_;
    Machine machine_;
    SleepService loginManager_;
    ServiceManager serviceManager_;
    Proxies proxies_;
    Road road_;
    BusClient bus_;
    std::vector<std::pair<std::string, FileTail>> files_;
    std::unique_ptr<DaemonProcess> daemon_;
    std::unique_ptr<PingWatch> pings_;
    std::size_t shownRequests_ = 0;
    std::size_t shownCalls_ = 0;
    std::size_t shownPosts_ = 0;
    std::size_t shownStates_ = 0;
    /// The progress last shown of the all-proxies pass; nullopt while there is none.
    std::optional<std::size_t> shownMeasured_;
};

} // namespace trial
