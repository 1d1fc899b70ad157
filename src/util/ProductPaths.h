// The product's fixed paths. Command lines that name them are fixed texts of their own and stand where they are run.
#pragma once

#include <string>

namespace havrel::paths {

inline const std::string applicationSupport = "/Library/Application Support";
inline const std::string hostSupport = applicationSupport + "/HVLHostForMac";
inline const std::string viewerSupport = applicationSupport + "/HVLViewForMac";
inline const std::string suiteSupport = applicationSupport + "/HVLForMac";

/// Placed by the installation; the proxy list is fetched and the sound driver installed only while it is there.
inline const std::string hostInstallMarker = hostSupport + "/LoadSoundDrivers.txt";
inline const std::string suiteInstallMarker = suiteSupport + "/LoadSoundDrivers.txt";

/// Every proxy of the service with its last latency, and the answered ones, fastest first.
inline const std::string allProxies = hostSupport + "/AllProxies.plist";
inline const std::string proxies = hostSupport + "/Proxies.plist";

} // namespace havrel::paths
