#include "daemon/TrashRule.h"
#include "foundation/text.h"

#include <gtest/gtest.h>

using namespace havrel;

TEST(TrashRule, PairsTheRenamesOfOneBatch) {
    constexpr std::uint32_t folder = platform::itemRenamed | platform::itemIsDir;
    constexpr std::uint32_t file = platform::itemRenamed | platform::itemIsFile;
    const std::string app = "/Applications/HavrelHost.app", other = "/Applications/Other.app";
    const std::string trashed = "/Users/ann/.Trash/HavrelHost.app", moved = "/Users/ann/Host.app";
    // clang-format off
    const std::tuple<const char*, std::vector<platform::FileSystemEvent>, std::vector<FolderMove>> rows[] = {
        {"nothing",                      {}, {}},
        {"no destination",               {{app, folder}}, {}},
        {"to a Trash",                   {{app, folder}, {trashed, folder}}, {{app, trashed}}},
        {"to another folder",            {{app, folder}, {moved, folder}}, {{app, moved}}},
        {"inside its folder: it stays",  {{app, folder}, {other, folder}, {trashed, folder}}, {{app, trashed}}},
        {"a file is no destination",     {{app, folder}, {trashed, file}}, {}},
        {"nor what is both",             {{app, folder}, {trashed, folder | file}}, {}},
        {"nor what is neither",          {{app, folder}, {trashed, platform::itemRenamed}}, {}},
        {"a source may be of any kind",  {{app, file}, {trashed, folder}}, {{app, trashed}}},
        {"what is no rename is skipped", {{other, 0}, {app, folder}, {app, 0}, {trashed, folder}}, {{app, trashed}}},
        {"the third is the next source",
         {{app, folder}, {trashed, folder}, {other, folder}, {moved, folder}}, {{app, trashed}, {other, moved}}}};
    // clang-format on
    for (const auto& [what, batch, moves] : rows) {
        EXPECT_EQ(folderMoves(batch), moves) << what;
    }
}

TEST(TrashRule, KnowsTheProductsByTheirExactPaths) {
    // clang-format off
    const std::tuple<TrashedProduct, std::string, std::string> rows[] = {
        {TrashedProduct::host, "/Applications/", "HavrelSuite.app|HavrelSuite|HavrelHost|HavrelHost.app"},
        {TrashedProduct::host, "/Library/Application Support/HVLForMac/", "HavrelUninstaller.app|Resources"},
        {TrashedProduct::host, "/Library/Application Support/HVLForMac/Resources/",
         "File Transfer.app|Host File Transfer.app|HavrelDesktop.app|HavrelView.app|HVLNote.app|HVLVersionUpdate"},
        {TrashedProduct::viewer, "/Applications/", "HavrelViewer|HavrelViewer.app"},
        {TrashedProduct::none, "/Applications/", "havrelhost.app|HavrelHost.app/|HavrelHost.app.old|Havrel|"}};
    // clang-format on
    for (const auto& [product, folder, names] : rows) {
        for (const std::string& name : platform::text::split(names, "|")) {
            EXPECT_EQ(trashedProduct({folder + name, "/Users/ann/.Trash/x"}), product) << name;
            EXPECT_EQ(trashedProduct({folder + name, "/Users/ann/Desktop/x"}), TrashedProduct::none);
        }
    }
}
