#include "fakes/fake_machine.h"

#include "platform/session.h"

#include <random>

using namespace platform;

device_registry::Status device_registry::findPrimaryInterfaces(std::vector<EthernetInterface>& interfaces) {
    interfaces = fakes::machine::interfaces();
    return fakes::machine::searchStatus();
}

std::optional<std::string> device_registry::serialNumber() { return fakes::machine::serialNumber(); }

system_info::Version system_info::systemVersion() { return fakes::machine::version(); }

std::optional<std::chrono::seconds> system_info::uptime() { return fakes::machine::uptime(); }

std::string system_info::hardwareModel() { return "Model1,1"; }

std::string system_info::bundlePath() { return fakes::machine::bundlePath(); }

std::uint32_t system_info::random() { return std::random_device()(); }

std::uint32_t system_info::randomBelow(std::uint32_t bound) {
    if (const auto steered = fakes::machine::randomBelow()) {
        return steered(bound);
    }
    return bound < 2 ? 0 : random() % bound;
}

std::optional<std::string> session::consoleUser() { return fakes::machine::consoleUser(); }

std::set<std::string> session::users() { return fakes::machine::users(); }

std::optional<std::string> session::homeFolder(const std::string& user) {
    return user == "ann" || user == "bob" ? std::optional("/Users/" + user) : std::nullopt;
}

std::string session::currentHomeFolder() { return "/var/root"; }
