// Installing the product's sound driver from an application bundle. The marker file that asks for it is the only state:
// it stays until a load has succeeded.
#include "daemon/Helper.h"

#include "foundation/format.h"
#include "foundation/unicode.h"
#include "logging/HVLLogger.h"
#include "platform/files.h"
#include "platform/processes.h"
#include "util/ProductPaths.h"

namespace havrel {

namespace {

using platform::processes::system;
namespace text = platform::text;

struct Packaging {
    std::string marker;
    std::string extension;
    std::string loaderScript;
    std::string copyCommand;
};

const Packaging hostApplication{
    paths::hostInstallMarker,
    "/Applications/HavrelHost.app/Contents/Resources/HavrelSound.kext",
    "/Applications/HavrelHost.app/Contents/Resources/LoadDriver.sh",
    "sudo cp -r /Applications/HavrelHost.app/Contents/Resources/HavrelSound.kext /Library/Extensions/",
};
const Packaging fullApplication{
    paths::suiteInstallMarker,
    "/Applications/HavrelSuite.app/Contents/Resources/HavrelSound.kext",
    "/Applications/HavrelSuite.app/Contents/Resources/LoadDriver.sh",
    "sudo cp -r /Applications/HavrelSuite.app/Contents/Resources/HavrelSound.kext /Library/Extensions/",
};

bool isInstallationAskedFor(const Packaging& packaging) {
    const bool asked = platform::files::exists(packaging.marker);
    HVLLogger::instanceHost().logString(asked
                                            ? "Helper :  app is installed now so needed to load sound drivers"
                                            : "Helper :  app is not installed now so no needed to load sound drivers");
    return asked;
}

bool copyExtension(const Packaging& packaging) {
    HVLLogger::instanceHost().logString("HVLHelper : LoadsoundDrivers : Called");
    if (!platform::files::exists(packaging.extension)) {
        HVLLogger::instanceHost().logString("kext file not exists in suite");
    }
    const int failed = system(packaging.copyCommand) == 0 ? 0 : 1;
    HVLLogger::instanceHost().logString(text::format("copy status:%d", failed));
    return failed == 0;
}

void finish(const Packaging& packaging) {
    HVLLogger::instanceHost().logString("sound driver loaded sucessfully");
    platform::files::remove(packaging.marker);
}

void load(const Packaging& packaging) {
    using namespace platform;
    if (!copyExtension(packaging)) {
        return;
    }
    const auto output = processes::runTask("/bin/sh", {packaging.loaderScript}, processes::Capture::standardError);
    HVLLogger::instance().logString(text::format("output:%@", text::decodeUtf8(output.standardError)));
    // Looked for in the bytes: what else the script writes need not be UTF-8.
    if (output.standardError.find("/Library/Extensions/HavrelSound.kext failed to load") != std::string::npos) {
        HVLLogger::instance().logString("Sound Driver not loaded Show kext Extension allow dialog");
        distributed_center::post("KEXTALLOWDIALOG");
    } else {
        finish(packaging);
    }
}

} // namespace

void Helper::installHostSoundDriver() {
    if (isInstallationAskedFor(hostApplication)) {
        loadHostSoundDrivers();
    }
}

void Helper::loadHostSoundDrivers() { load(hostApplication); }

void Helper::installSoundDriver() {
    if (isInstallationAskedFor(fullApplication)) {
        LoadsoundDrivers();
    }
}

void Helper::LoadsoundDrivers() { load(fullApplication); }

void Helper::LoadsoundDriversOld() {
    if (!copyExtension(fullApplication)) {
        return;
    }
    HVLLogger::instanceHost().logString("sound kext copied to local machine now loading will called.");
    const int failed = system("sudo kextload /Library/Extensions/HavrelSound.kext") == 0 ? 0 : 1;
    HVLLogger::instanceHost().logString(text::format("StatusLoad:%d", failed));
    if (failed == 0) {
        finish(fullApplication);
    }
}

} // namespace havrel
