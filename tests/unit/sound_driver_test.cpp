#include "unit/helper_test.h"

using namespace havrel;
using platform::processes::TaskOutput;
using SoundDriver = HelperTest;
using Lines = std::vector<std::string>;

namespace {

const std::string bundle = "/Applications/HavrelHost.app/Contents/Resources/";
const std::string copy = "sudo cp -r " + bundle + "HavrelSound.kext /Library/Extensions/";
const std::string load = "/bin/sh " + bundle + "LoadDriver.sh";
const std::string refusal = "/Library/Extensions/HavrelSound.kext failed to load - (libkern/kext)";

const std::string asked = "Helper :  app is installed now so needed to load sound drivers";
const std::string notAsked = "Helper :  app is not installed now so no needed to load sound drivers";
const std::string begun = "HVLHelper : LoadsoundDrivers : Called";
const std::string copied = "copy status:0";
const std::string loaded = "sound driver loaded sucessfully";
const std::string dialog = "Sound Driver not loaded Show kext Extension allow dialog";

} // namespace

TEST_F(SoundDriver, IsCopiedAndLoadedAndItsMarkerRemovedOnlyThen) {
    const struct {
        const char* name;
        bool hasMarker = true;
        int copyStatus = 0;
        TaskOutput output = {};
        Lines calls = {}, hostLog = {}, generalLog = {};
        bool keepsMarker = false;
    } cases[] = {
        {.name = "not asked for", .hasMarker = false, .hostLog = {notAsked}},
        {.name = "not copied",
         .copyStatus = 256,
         .calls = {copy},
         .hostLog = {asked, begun, "copy status:1"},
         .keepsMarker = true},
        {.name = "refused in a text that is not UTF-8",
         .output = {"", "\xff" + refusal},
         .calls = {copy, load},
         .hostLog = {asked, begun, copied},
         .generalLog = {"output:(null)", dialog},
         .keepsMarker = true},
        {.name = "the refusal on standard output",
         .output = {refusal, ""},
         .calls = {copy, load},
         .hostLog = {asked, begun, copied, loaded},
         .generalLog = {"output:"}},
    };

    root.write(bundle + "HavrelSound.kext", "");
    for (const auto& row : cases) {
        SCOPED_TRACE(row.name);
        root.write(row.hasMarker ? paths::hostInstallMarker : "/elsewhere", "");
        fakes::processes::reset();
        fakes::notifications::reset();
        fakes::processes::onSystem([&row](const std::string&) { return row.copyStatus; });
        fakes::processes::onTask([&row](const auto&) { return row.output; });
        helper->installHostSoundDriver();
        EXPECT_EQ(fakes::processes::calls(), row.calls);
        EXPECT_EQ(takeLog(hostLog), row.hostLog);
        EXPECT_EQ(takeLog(generalLog), row.generalLog);
        EXPECT_EQ(std::filesystem::exists(root.at(paths::hostInstallMarker)), row.keepsMarker);
        EXPECT_EQ(fakes::notifications::countOf("KEXTALLOWDIALOG"), std::ranges::count(row.generalLog, dialog));
    }
}
