// The product's fixed paths. The fixed command lines that contain some of them are literals where they are run.
#pragma once

#include <string>

namespace havrel::paths {

inline const std::string applicationSupport = "/Library/Application Support";
inline const std::string hostSupport = applicationSupport + "/HVLHostForMac";
inline const std::string viewerSupport = applicationSupport + "/HVLViewForMac";
inline const std::string suiteSupport = applicationSupport + "/HVLForMac";

/// Created by the product's installer; while one exists, that product's sound driver is installed on request. While the
/// host's exists, every start also fetches the proxy list.
inline const std::string hostInstallMarker = hostSupport + "/LoadSoundDrivers.txt";
inline const std::string suiteInstallMarker = suiteSupport + "/LoadSoundDrivers.txt";

/// Every proxy that the service lists, with its last latency.
inline const std::string allProxies = hostSupport + "/AllProxies.plist";
/// The proxies that answered, fastest first.
inline const std::string proxies = hostSupport + "/Proxies.plist";

} // namespace havrel::paths
