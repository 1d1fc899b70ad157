#include "trial/support/service_manager.h"

#include <array>
#include <cerrno>
#include <sys/socket.h>
#include <sys/un.h>
#include <system_error>
#include <unistd.h>

namespace trial {

ServiceManager::ServiceManager(const std::filesystem::path& folder)
    : address_(folder / "notify")
    , socket_(::socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC, 0)) {
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    address_.copy(static_cast<char*>(address.sun_path), sizeof(address.sun_path) - 1);
    if (::bind(socket_, reinterpret_cast<const sockaddr*>(&address), sizeof(address)) != 0) {
        const int error = errno;
        ::close(socket_);
        throw std::system_error(error, std::generic_category(), address_);
    }
}

ServiceManager::~ServiceManager() { ::close(socket_); }

const std::vector<std::string>& ServiceManager::told() {
    std::array<char, 4096> message{};
    for (ssize_t size = 0; (size = ::recv(socket_, message.data(), message.size(), MSG_DONTWAIT)) >= 0;) {
        told_.emplace_back(message.data(), static_cast<std::size_t>(size));
    }
    return told_;
}

} // namespace trial
