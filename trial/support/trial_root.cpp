#include "trial/support/trial_root.h"

#include "foundation/property_list.h"
#include "foundation/text.h"
#include "util/ProductPaths.h"

namespace trial {

namespace fs = std::filesystem;

namespace {

constexpr std::size_t timestampLength = sizeof "yyyy-MM-dd HH:mm:ss : " - 1;

/// The facts of a machine with a serial number and one wired interface, which holds the default route.
void makeUpMachine(const TrialRoot& root) {
    const std::string interface = "/sys/class/net/eth0/";
    root.write(interface + "address", "02:00:5e:10:00:01\n");
    root.write(interface + "addr_assign_type", "0\n");
    root.write(interface + "type", "1\n");
    root.write(interface + "operstate", "up\n");
    root.write(interface + "carrier", "1\n");
    root.write(interface + "flags", "0x1003\n");
    root.write(interface + "device/uevent", "DRIVER=trial\n");
    root.write("/proc/net/route",
               "Iface\tDestination\tGateway \tFlags\tRefCnt\tUse\tMetric\tMask\t\tMTU\tWindow\tIRTT\n"
               "eth0\t00000000\t010200C0\t0003\t0\t0\t100\t00000000\t0\t0\t0\n");
    root.write("/sys/class/dmi/id/product_name", "Trial machine\n");
    root.write("/sys/class/dmi/id/product_serial", "TRIAL-0001\n");
}

std::string textMember(const platform::Value& record, std::string_view key) {
    const platform::Value* value = record.member(key);
    return value != nullptr ? value->description() : std::string();
}

} // namespace

TrialRoot::TrialRoot() {
    for (const std::string& wanted :
         {havrel::paths::hostSupport, havrel::paths::viewerSupport, havrel::paths::suiteSupport,
          std::string("/Applications"), std::string("/Users"), std::string("/trial")}) {
        fs::create_directories(at(wanted));
    }
    write(havrel::paths::hostInstallMarker, "");
    makeUpMachine(*this);
}

void TrialRoot::logIn(const std::string& user) const {
    write("/etc/passwd", "ann:x:501:20:Ann:/Users/ann:/bin/sh\nbob:x:502:20:Bob:/Users/bob:/bin/sh\n");
    fs::create_directories(at("/Users/" + user + "/.Trash"));
    write("/run/systemd/seats/seat0", "ACTIVE=c1\n");
    write("/run/systemd/sessions/c1",
          std::string("UID=") + (user == "ann" ? "501" : "502") + "\nCLASS=user\nTYPE=wayland\n");
}

void TrialRoot::installApplication(const std::string& name) const {
    const std::string contents = "/Applications/" + name + ".app/Contents/";
    write(contents + "Info.plist",
          platform::property_list::toXml(platform::Dictionary{{"CFBundleExecutable", name}}).value());
    fs::create_directories(at(contents + "MacOS"));
    writeProgram(at(contents + "MacOS/" + name), "#!/bin/sh\n");
}

std::optional<platform::Value> TrialRoot::propertyList(std::string_view absolute) const {
    return platform::property_list::parse(read(absolute));
}

std::optional<std::vector<ProxyEntry>> TrialRoot::proxies(std::string_view absolute) const {
    const auto root = propertyList(absolute);
    if (!root || root->array() == nullptr) {
        return std::nullopt;
    }
    std::vector<ProxyEntry> entries;
    for (const platform::Value& record : *root->array()) {
        const platform::Value* time = record.member("pingTime");
        entries.push_back({textMember(record, "hostName"), textMember(record, "ipAddr"),
                           textMember(record, "mappedHostName"), time != nullptr ? time->integerValue() : 0});
    }
    return entries;
}

std::vector<std::string> TrialRoot::logged(std::string_view absolute) const {
    std::vector<std::string> messages;
    for (const std::string& line : platform::text::split(read(absolute), "\n")) {
        if (line.size() > timestampLength) {
            messages.push_back(line.substr(timestampLength, line.size() - timestampLength - 1));
        }
    }
    return messages;
}

} // namespace trial
