#include "contract/file_system.h"

#include <gmock/gmock.h>

namespace {

struct Rename {
    std::string source;
    std::string destination;
};

struct Case {
    std::string name;
    std::vector<Rename> renames;
    std::vector<std::string> batches;
};

class FileSystemEventsContract : public testing::TestWithParam<Case> {};

TEST_P(FileSystemEventsContract, TellsEachMoveAsABatchOfItsOwn) {
    const auto files = contract::makeFileSystem();
    for (const char* folder : {"/Apps", "/Apps/A.app", "/Apps/A.app/in", "/Apps/B.app", "/Trash", "/Else", "/Else/C"}) {
        files->makeFolder(folder);
    }
    files->makeFile("/Apps/file");
    files->watch({"/Apps", "/Trash"});
    for (const Rename& rename : GetParam().renames) {
        files->rename(rename.source, rename.destination);
    }
    EXPECT_EQ(files->told(), GetParam().batches);
}

INSTANTIATE_TEST_SUITE_P(
    Renames, FileSystemEventsContract,
    testing::Values(Case{"InsideAFolder", {{"/Apps/A.app", "/Apps/D.app"}}, {"/Apps/A.app/ > /Apps/D.app/"}},
                    Case{"BetweenFolders", {{"/Apps/A.app", "/Trash/A.app"}}, {"/Apps/A.app/ > /Trash/A.app/"}},
                    Case{"OfAFile", {{"/Apps/file", "/Trash/file"}}, {"/Apps/file > /Trash/file"}},
                    Case{"OutOfSight", {{"/Apps/A.app", "/Else/A.app"}}, {"/Apps/A.app/"}},
                    Case{"IntoSight", {{"/Else/C", "/Trash/C"}}, {"/Trash/C/"}},
                    Case{"ElsewhereAltogether", {{"/Else/C", "/Else/D"}}, {}},
                    Case{"BelowAnEntry", {{"/Apps/A.app/in", "/Apps/A.app/out"}}, {}},
                    Case{"FromBelowAnEntry", {{"/Apps/A.app/in", "/Trash/in"}}, {"/Trash/in/"}},
                    Case{"ThereAndBack",
                         {{"/Apps/A.app", "/Trash/A.app"}, {"/Trash/A.app", "/Apps/A.app"}},
                         {"/Apps/A.app/ > /Trash/A.app/", "/Trash/A.app/ > /Apps/A.app/"}},
                    Case{"NamesThatChangeHands",
                         {{"/Apps/A.app", "/Apps/t"}, {"/Apps/B.app", "/Apps/A.app"}, {"/Apps/t", "/Apps/B.app"}},
                         {"/Apps/A.app/ > /Apps/t/", "/Apps/B.app/ > /Apps/A.app/", "/Apps/t/ > /Apps/B.app/"}},
                    // One user's halves never make a whole with another's.
                    Case{"LoneHalvesApart",
                         {{"/Apps/A.app", "/Else/A.app"}, {"/Else/C", "/Trash/C"}},
                         {"/Apps/A.app/", "/Trash/C/"}}),
    [](const auto& row) { return row.param.name; });

} // namespace
