#include "unit/helper_test.h"

using namespace havrel;
using platform::processes::TaskOutput;
using SoundDriver = HelperTest;
using Lines = std::vector<std::string>;

namespace {

const std::string hostBundle = "/Applications/HavrelHost.app/Contents/Resources/";
const std::string suiteBundle = "/Applications/HavrelSuite.app/Contents/Resources/";
const std::string loadOfOld = "sudo kextload /Library/Extensions/HavrelSound.kext";
const std::string refusal = "/Library/Extensions/HavrelSound.kext failed to load - (libkern/kext)";

std::string copyFrom(const std::string& bundle) {
    return "sudo cp -r " + bundle + "HavrelSound.kext /Library/Extensions/";
}

std::string scriptOf(const std::string& bundle) { return "/bin/sh " + bundle + "LoadDriver.sh"; }

const std::string asked = "Helper :  app is installed now so needed to load sound drivers";
const std::string notAsked = "Helper :  app is not installed now so no needed to load sound drivers";
const std::string begun = "HVLHelper : LoadsoundDrivers : Called";
const std::string copied = "copy status:0";
const std::string copiedForOld = "sound kext copied to local machine now loading will called.";
const std::string loaded = "sound driver loaded sucessfully";
const std::string dialog = "Sound Driver not loaded Show kext Extension allow dialog";

} // namespace

TEST_F(SoundDriver, IsCopiedAndLoadedAndItsMarkerRemovedOnlyThen) {
    const struct {
        const char* name;
        void (Helper::*install)();
        std::string bundle = suiteBundle;
        bool hasMarker = true;
        bool hasExtension = true;
        std::string failing = {};
        TaskOutput output = {};
        Lines calls = {};
        Lines hostLog = {};
        Lines generalLog = {};
        bool keepsMarker = false;
    } cases[] = {
        {.name = "not asked for", .install = &Helper::installSoundDriver, .hasMarker = false, .hostLog = {notAsked}},
        {.name = "no extension in the bundle",
         .install = &Helper::installSoundDriver,
         .hasExtension = false,
         .failing = copyFrom(suiteBundle),
         .calls = {copyFrom(suiteBundle)},
         .hostLog = {asked, begun, "kext file not exists in suite", "copy status:1"},
         .keepsMarker = true},
        {.name = "another complaint",
         .install = &Helper::installSoundDriver,
         .output = {"", "warning"},
         .calls = {copyFrom(suiteBundle), scriptOf(suiteBundle)},
         .hostLog = {asked, begun, copied, loaded},
         .generalLog = {"output:warning"}},
        {.name = "refused",
         .install = &Helper::installSoundDriver,
         .output = {"", refusal},
         .calls = {copyFrom(suiteBundle), scriptOf(suiteBundle)},
         .hostLog = {asked, begun, copied},
         .generalLog = {"output:" + refusal, dialog},
         .keepsMarker = true},
        {.name = "refused in a text that is not UTF-8",
         .install = &Helper::installSoundDriver,
         .output = {"", "\xff" + refusal},
         .calls = {copyFrom(suiteBundle), scriptOf(suiteBundle)},
         .hostLog = {asked, begun, copied},
         .generalLog = {"output:(null)", dialog},
         .keepsMarker = true},
        {.name = "the refusal on standard output",
         .install = &Helper::installHostSoundDriver,
         .bundle = hostBundle,
         .output = {refusal, ""},
         .calls = {copyFrom(hostBundle), scriptOf(hostBundle)},
         .hostLog = {asked, begun, copied, loaded},
         .generalLog = {"output:"}},
        {.name = "the older way",
         .install = &Helper::LoadsoundDriversOld,
         .calls = {copyFrom(suiteBundle), loadOfOld},
         .hostLog = {begun, copied, copiedForOld, "StatusLoad:0", loaded}},
        {.name = "the older way, refused",
         .install = &Helper::LoadsoundDriversOld,
         .failing = loadOfOld,
         .calls = {copyFrom(suiteBundle), loadOfOld},
         .hostLog = {begun, copied, copiedForOld, "StatusLoad:1"},
         .keepsMarker = true},
    };

    for (const auto& row : cases) {
        SCOPED_TRACE(row.name);
        const std::string marker = row.bundle == hostBundle ? paths::hostInstallMarker : paths::suiteInstallMarker;
        std::filesystem::remove_all(root.at(row.bundle));
        std::filesystem::remove(root.at(marker));
        root.write(row.hasExtension ? row.bundle + "HavrelSound.kext" : "/elsewhere", "");
        root.write(row.hasMarker ? marker : "/elsewhere", "");
        fakes::processes::reset();
        fakes::notifications::reset();
        fakes::processes::onSystem([&row](const std::string& line) { return line == row.failing ? 256 : 0; });
        fakes::processes::onTask([&row](const auto&) { return row.output; });
        (helper.get()->*row.install)();
        EXPECT_EQ(fakes::processes::calls(), row.calls);
        EXPECT_EQ(takeLog(hostLog), row.hostLog);
        EXPECT_EQ(takeLog(generalLog), row.generalLog);
        EXPECT_EQ(std::filesystem::exists(root.at(marker)), row.keepsMarker);
        EXPECT_EQ(fakes::notifications::countOf("KEXTALLOWDIALOG"), std::ranges::count(row.generalLog, dialog));
    }
}
