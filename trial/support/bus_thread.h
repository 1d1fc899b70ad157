// A bus connection that is served in the background.
#pragma once

#include "platform/linux/bus/bus_connection.h"
#include "platform/run_loop.h"

#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <systemd/sd-bus.h>
#include <thread>

namespace trial {

/// A connection and the thread that it belongs to. Its operations may be called from any thread.
class BusThread {
  public:
    /// `setUp` is called at once and on this thread; what it returns lives as long as the connection. Throws
    /// std::system_error when there is no bus at that address.
    BusThread(const std::string& address, const std::function<platform::BusSlot(sd_bus& bus)>& setUp);
    /// What is queued is done and sent.
    ~BusThread();
    BusThread(const BusThread&) = delete;
    BusThread& operator=(const BusThread&) = delete;

    /// Lends the connection to the work, on its thread.
    void perform(std::function<void(sd_bus& bus)> work);

    platform::RunLoop& loop() { return loop_; }

  private:
    struct Release {
        void operator()(sd_bus* bus) const { sd_bus_flush_close_unref(bus); }
    };

    platform::RunLoop loop_;
    std::optional<platform::RunLoop::Source> keepsRunning_{loop_};
    std::unique_ptr<sd_bus, Release> bus_;
    platform::BusSlot slot_;
    std::thread thread_;
};

} // namespace trial
