// A stand-in for the service manager, of the part that hears from its services.
#pragma once

#include <filesystem>
#include <string>
#include <vector>

namespace trial {

class ServiceManager {
  public:
    /// Listens at a socket in `folder`, which must exist. Throws std::system_error.
    explicit ServiceManager(const std::filesystem::path& folder);
    ~ServiceManager();
    ServiceManager(const ServiceManager&) = delete;
    ServiceManager& operator=(const ServiceManager&) = delete;

    /// For NOTIFY_SOCKET.
    const std::string& address() const { return address_; }

    /// What it was told so far, in order: "READY=1", "STATUS=…".
    const std::vector<std::string>& told();

  private:
    std::string address_;
    int socket_;
    std::vector<std::string> told_;
};

} // namespace trial
