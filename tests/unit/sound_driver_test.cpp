#include "unit/helper_test.h"

using namespace havrel;
using SoundDriver = HelperTest;

TEST_F(SoundDriver, IsCopiedLoadedAndItsMarkerRemovedOnlyThen) {
    const auto suite = &Helper::installSoundDriver, host = &Helper::installHostSoundDriver,
               old = &Helper::LoadsoundDriversOld;
    const std::string refusal = "/Library/Extensions/HavrelSound.kext failed to load - (libkern/kext)";
    const std::string notAsked = "Helper :  app is not installed now so no needed to load sound drivers|";
    const std::string begun = "HVLHelper : LoadsoundDrivers : Called\n", missing = "kext file not exists in suite\n";
    const std::string asked = "Helper :  app is installed now so needed to load sound drivers\n" + begun;
    const std::string loaded = "sound driver loaded sucessfully|", copied = "copy status:0";
    const std::string dialog = "\nSound Driver not loaded Show kext Extension allow dialog";
    const std::string oldWay = begun + copied + "\nsound kext copied to local machine now loading will called.\n";
    const std::tuple<void (Helper::*)(), std::string, std::string, std::string, bool> rows[] = {
        // what is called, what is amiss, what the loader complains of; the logs, is the marker left?
        {suite, "marker", "", notAsked, false},
        {suite, "kext, copy", "", asked + missing + "copy status:1|", true},
        {suite, "", "warning", asked + copied + "\n" + loaded + "output:warning", false},
        {suite, "", refusal, asked + copied + "|output:" + refusal + dialog, true},
        {host, "", "", asked + copied + "\n" + loaded + "output:", false},
        {old, "", "", oldWay + "StatusLoad:0\n" + loaded, false},
        {old, "", refusal, oldWay + "StatusLoad:1|", true}};
    for (const auto& [install, amiss, complaint, logs, keepsMarker] : rows) {
        const auto lacks = [&what = amiss](const char* one) { return what.find(one) != std::string::npos; };
        const std::string app = install == host ? "/Applications/HavrelHost.app" : "/Applications/HavrelSuite.app";
        const std::string kext = app + "/Contents/Resources/HavrelSound.kext";
        const std::string marker = install == host ? paths::hostInstallMarker : paths::suiteInstallMarker;
        std::filesystem::remove_all(root.at(app));
        std::filesystem::remove(root.at(marker));
        root.write(lacks("kext") ? "/elsewhere" : kext, "");
        root.write(lacks("marker") ? "/elsewhere" : marker, "");
        fakes::processes::reset();
        fakes::notifications::reset();
        fakes::processes::onSystem([&, &text = complaint](const std::string& line) {
            return (line.starts_with("sudo cp") ? lacks("copy") : !text.empty()) ? 256 : 0;
        });
        fakes::processes::onTask([&text = complaint](const auto&) {
            return platform::processes::TaskOutput{"", text};
        });
        (helper.get()->*install)();
        EXPECT_EQ(takeLogs(), logs);
        const std::string load = install == old ? "|sudo kextload /Library/Extensions/HavrelSound.kext"
                                                : "|/bin/sh " + app + "/Contents/Resources/LoadDriver.sh";
        EXPECT_EQ(platform::text::join(fakes::processes::calls(), "|"),
                  lacks("marker") ? "" : "sudo cp -r " + kext + " /Library/Extensions/" + (lacks("copy") ? "" : load))
            << logs;
        EXPECT_EQ(std::filesystem::exists(root.at(marker)), keepsMarker) << logs;
        EXPECT_EQ(fakes::notifications::countOf("KEXTALLOWDIALOG"), logs.ends_with(dialog) ? 1 : 0) << logs;
    }
}
