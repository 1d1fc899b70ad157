// Everything that the daemon needs, made for a trial: a root, a bus, a web service and tools. It reaches nothing else
// of the machine.
#pragma once

#include "trial/support/certificates.h"
#include "trial/support/daemon_process.h"
#include "trial/support/private_bus.h"
#include "trial/support/stand_in_tools.h"
#include "trial/support/trial_root.h"
#include "trial/support/web_service.h"

#include <string>
#include <utility>
#include <vector>

namespace trial {

inline const std::string generalLog = "/Library/Application Support/HVLHostForMac/Havrel.log";
inline const std::string hostLog = "/Library/Application Support/HVLHostForMac/HavrelHost7.log";
inline const std::string viewerLog = "/Library/Application Support/HVLForMac/HavrelView7.log";
inline const std::string hostPreferences = "/Library/Application Support/HVLHostForMac/.HostPref.plist";
inline const std::string proxyListPath = "/cgi-bin/hvl/v4/get_proxy_list.cgi";

/// A proxy's name and address.
using Proxies = std::vector<std::pair<std::string, std::string>>;

/// P1, P2 and so on at `network`.1, `network`.2 and so on; at most 250.
Proxies numberedProxies(std::size_t count, const std::string& network);
/// The web service's answer that lists these proxies.
WebAnswer listing(const Proxies& proxies);

struct Machine {
    explicit Machine(CertificateKind certificate = CertificateKind::good);

    TrialRoot root;
    CertificateAuthority authority;
    WebService service;
    StandInTools tools;
    PrivateBus bus;

    /// The second name of the web service, so that requests to the API host can be told from those to the service host.
    std::string apiHost() const;
    /// For the daemon: this bus, root, PATH and web service. Hosts that it sends no requests to resolve nowhere.
    Environment environment() const;
};

} // namespace trial
