#include "daemon/TrashRule.h"

#include <gtest/gtest.h>

namespace {

using namespace havrel;

constexpr std::uint32_t folder = platform::itemRenamed | platform::itemIsDir;
constexpr std::uint32_t file = platform::itemRenamed | platform::itemIsFile;
const std::string app = "/Applications/HavrelHost.app";
const std::string other = "/Applications/Other.app";
const std::string trashed = "/Users/ann/.Trash/HavrelHost.app";
const std::string moved = "/Users/ann/Host.app";

struct Batch {
    std::string name;
    std::vector<platform::FileSystemEvent> events;
    std::vector<FolderMove> moves;
};

class TrashRule : public testing::TestWithParam<Batch> {};

TEST_P(TrashRule, PairsTheRenamesOfOneBatch) { EXPECT_EQ(folderMoves(GetParam().events), GetParam().moves); }

INSTANTIATE_TEST_SUITE_P(
    Batches, TrashRule,
    testing::Values(
        Batch{"NoDestination", {{app, folder}}, {}},
        Batch{"ToATrash", {{app, folder}, {trashed, folder}}, {{app, trashed}}},
        Batch{"TheSourceStaysForTheNext", {{app, folder}, {other, folder}, {trashed, folder}}, {{app, trashed}}},
        Batch{"AFileIsNoDestination", {{app, folder}, {trashed, file}}, {}},
        Batch{"NorIsWhatIsNeither", {{app, folder}, {trashed, platform::itemRenamed}}, {}},
        Batch{"ASourceMayBeOfAnyKind", {{app, file}, {trashed, folder}}, {{app, trashed}}},
        Batch{"WhatIsNoRenameIsSkipped", {{other, 0}, {app, folder}, {app, 0}, {trashed, folder}}, {{app, trashed}}},
        Batch{"TheThirdIsTheNextSource",
              {{app, folder}, {trashed, folder}, {other, folder}, {moved, folder}},
              {{app, trashed}, {other, moved}}}),
    [](const auto& row) { return row.param.name; });

struct Product {
    std::string path;
    TrashedProduct product;
};

TEST(TrashedProduct, IsKnownByItsExactPath) {
    const std::string suite = "/Library/Application Support/HVLForMac/";
    const Product rows[] = {
        {"/Applications/HavrelSuite.app", TrashedProduct::host},
        {"/Applications/HavrelHost.app", TrashedProduct::host},
        {suite + "Resources/File Transfer.app", TrashedProduct::host},
        {suite + "Resources/HVLVersionUpdate", TrashedProduct::host},
        {"/Applications/HavrelViewer.app", TrashedProduct::viewer},
        {"/Applications/havrelhost.app", TrashedProduct::none},
        {"/Applications/HavrelHost.app/", TrashedProduct::none},
        {"/Applications/HavrelHost.app.old", TrashedProduct::none},
    };
    for (const Product& row : rows) {
        EXPECT_EQ(trashedProduct({row.path, "/Users/ann/.Trash/x"}), row.product) << row.path;
        EXPECT_EQ(trashedProduct({row.path, "/Users/ann/Desktop/x"}), TrashedProduct::none) << row.path;
    }
}

} // namespace
