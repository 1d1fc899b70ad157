// A bus connection with a thread of its own.
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

/// Thread-safe.
class BusThread {
  public:
    /// Calls `setUp` on the caller's thread and keeps its result as long as the connection. Throws std::system_error if
    /// there is no bus at that address.
    BusThread(const std::string& address, const std::function<platform::BusSlot(sd_bus& bus)>& setUp);
    /// Does and sends what is queued.
    ~BusThread();
    BusThread(const BusThread&) = delete;
    BusThread& operator=(const BusThread&) = delete;

    /// Calls `work` with the connection, on its thread and later.
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
