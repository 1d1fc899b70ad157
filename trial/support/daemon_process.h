// A daemon, mostly the built one, as a child process that ends with its owner.
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
    /// Starts `program` in a session of its own, with no environment but the given one. Its output is appended to the
    /// files "NAME.out" and "NAME.err" in `folder`. It is killed when the calling thread ends. Throws std::system_error
    /// if there can be no child; one whose program can't be run ends with status 127.
    DaemonProcess(const std::filesystem::path& program, const Environment& environment,
                  const std::filesystem::path& folder, const std::string& name = "daemon",
                  const std::vector<std::string>& arguments = {});
    /// Kills it, if it still runs, and every process left in its session.
    ~DaemonProcess();
    DaemonProcess(const DaemonProcess&) = delete;
    DaemonProcess& operator=(const DaemonProcess&) = delete;

    pid_t id() const { return id_; }

    bool isRunning();
    /// Sends the signal if it still runs.
    void signal(int number);
    /// Waits for its end; the raw wait status, nullopt if it has not ended within the time.
    std::optional<int> waitForEnd(std::chrono::milliseconds within = std::chrono::seconds(20));
    /// SIGTERM, and `waitForEnd`.
    std::optional<int> terminate(std::chrono::milliseconds within = std::chrono::seconds(20));

    /// What is in its files so far, the output of earlier processes of the same name included.
    std::string output() const;
    std::string diagnostics() const;

  private:
    pid_t id_;
    std::filesystem::path output_;
    std::filesystem::path diagnostics_;
    std::optional<int> status_;
};

/// The path of one of the system's programs. Throws std::runtime_error if there is none of that name.
std::filesystem::path findProgram(const std::string& name);

/// A raw wait status in words: "status 3", "signal 9".
std::string describeEnd(int waitStatus);

} // namespace trial
