#include "trial/support/private_bus.h"

#include "trial/support/wait.h"

#include <array>
#include <chrono>
#include <cstdio>
#include <fstream>
#include <stdexcept>
#include <string_view>

namespace trial {

namespace {

/// As a value in a bus address, where special characters are written as "%XX".
std::string escaped(const std::string& value) {
    constexpr std::string_view plain = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789-_/.";
    std::string text;
    for (const char c : value) {
        std::array<char, 4> code{c};
        if (plain.find(c) == std::string_view::npos) {
            std::snprintf(code.data(), code.size(), "%%%02x", static_cast<unsigned>(static_cast<unsigned char>(c)));
        }
        text += code.data();
    }
    return text;
}

} // namespace

PrivateBus::PrivateBus(std::filesystem::path folder)
    : folder_(std::move(folder))
    , address_("unix:path=" + escaped(folder_ / "bus")) {
    std::ofstream(folder_ / "bus.conf")
        << "<!DOCTYPE busconfig PUBLIC \"-//freedesktop//DTD D-Bus Bus Configuration 1.0//EN\"\n"
           " \"http://www.freedesktop.org/standards/dbus/1.0/busconfig.dtd\">\n"
           "<busconfig>\n  <type>system</type>\n  <listen>"
        << address_
        << "</listen>\n  <auth>EXTERNAL</auth>\n"
           "  <policy context=\"default\">\n    <allow send_destination=\"*\" eavesdrop=\"true\"/>\n"
           "    <allow eavesdrop=\"true\"/>\n    <allow own=\"*\"/>\n    <allow user=\"*\"/>\n  </policy>\n"
           "</busconfig>\n";
}

PrivateBus::~PrivateBus() { stop(); }

void PrivateBus::start() {
    // The bus prints its address once it listens.
    std::filesystem::remove(folder_ / "bus.out");
    daemon_ =
        std::make_unique<DaemonProcess>(findProgram("dbus-daemon"), Environment{}, folder_, "bus",
                                        std::vector<std::string>{"--config-file=" + (folder_ / "bus.conf").string(),
                                                                 "--nofork", "--nopidfile", "--print-address=1"});
    if (!eventually([this] { return !daemon_->output().empty(); }, std::chrono::seconds(10))) {
        stop();
        throw std::runtime_error("the bus does not start");
    }
}

void PrivateBus::stop() {
    daemon_.reset();
    std::filesystem::remove(folder_ / "bus");
}

} // namespace trial
