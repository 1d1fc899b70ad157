// A daemon, the built one above all, as a process that ends with its owner, in an environment that holds nothing but
// what it is given.
#pragma once

#include <chrono>
#include <filesystem>
#include <map>
#include <optional>
#include <string>
#include <sys/types.h>
#include <vector>

namespace trial {

using Environment = std::map<std::string, std::string>;

class DaemonProcess {
  public:
    /// Starts `program` in a session of its own; what it writes goes to the files "NAME.out" and "NAME.err" in
    /// `folder`, after what is there. It dies with the thread that started it. Throws std::system_error when it cannot
    /// be started.
    DaemonProcess(const std::filesystem::path& program, const Environment& environment,
                  const std::filesystem::path& folder, const std::string& name = "daemon",
                  const std::vector<std::string>& arguments = {});
    /// Kills it if it still runs, and the programs that it has left behind.
    ~DaemonProcess();
    DaemonProcess(const DaemonProcess&) = delete;
    DaemonProcess& operator=(const DaemonProcess&) = delete;

    pid_t id() const { return id_; }

    bool isRunning();
    /// Sends the signal, if the daemon still runs.
    void signal(int number);
    /// Waits for its end; the raw wait status, or nothing when it has not ended within the time.
    std::optional<int> waitForEnd(std::chrono::milliseconds within = std::chrono::seconds(20));
    /// SIGTERM, and `waitForEnd`.
    std::optional<int> terminate(std::chrono::milliseconds within = std::chrono::seconds(20));

    /// What it has written so far, earlier runs with the same folder included.
    std::string output() const;
    std::string diagnostics() const;

  private:
    pid_t id_;
    std::filesystem::path output_;
    std::filesystem::path diagnostics_;
    std::optional<int> status_;
};

/// Where a program of the system's lies. Throws std::runtime_error when there is none.
std::filesystem::path findProgram(const std::string& name);

/// "status 3" or "signal 9": how a process ended, by its wait status.
std::string describeEnd(int waitStatus);

} // namespace trial
