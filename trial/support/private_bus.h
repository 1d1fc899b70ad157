// A message bus of the trial's own.
#pragma once

#include "trial/support/daemon_process.h"

#include <filesystem>
#include <memory>
#include <string>
#include <sys/types.h>

namespace trial {

/// A bus daemon whose policy allows everything. Its address stays the same when it is restarted.
class PrivateBus {
  public:
    /// Writes its configuration to `folder`, which must exist. It is not running yet.
    explicit PrivateBus(std::filesystem::path folder);
    /// Stops it.
    ~PrivateBus();
    PrivateBus(const PrivateBus&) = delete;
    PrivateBus& operator=(const PrivateBus&) = delete;

    /// For DBUS_SYSTEM_BUS_ADDRESS.
    const std::string& address() const { return address_; }

    /// Negative while it is stopped.
    pid_t pid() const { return daemon_ ? daemon_->id() : -1; }

    /// Returns once it takes connections. Throws std::runtime_error if it does not within ten seconds.
    void start();
    /// Kills it. Its clients see the connection break, and nobody can connect any more.
    void stop();

  private:
    std::filesystem::path folder_;
    std::string address_;
    std::unique_ptr<DaemonProcess> daemon_;
};

} // namespace trial
