// A message bus of one's own.
#pragma once

#include "trial/support/daemon_process.h"

#include <filesystem>
#include <memory>
#include <string>
#include <sys/types.h>

namespace trial {

/// A bus daemon that lets everybody do everything. Its address stays the same over restarts.
class PrivateBus {
  public:
    /// Keeps its socket and configuration in `folder`, which must exist. `start` is left to the owner.
    explicit PrivateBus(std::filesystem::path folder);
    /// Stops it.
    ~PrivateBus();
    PrivateBus(const PrivateBus&) = delete;
    PrivateBus& operator=(const PrivateBus&) = delete;

    /// For DBUS_SYSTEM_BUS_ADDRESS.
    const std::string& address() const { return address_; }

    /// Below 0 while it is stopped.
    pid_t pid() const { return daemon_ ? daemon_->id() : -1; }

    /// Returns when it takes connections. Throws std::runtime_error when it cannot be started within ten seconds.
    void start();
    /// As in a crash: at once, and its socket stays behind.
    void stop();

  private:
    std::filesystem::path folder_;
    std::string address_;
    std::unique_ptr<DaemonProcess> daemon_;
};

} // namespace trial
