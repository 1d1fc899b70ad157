// Two listings of watched folders: whatever they hold, a move is from a place of the first to another folder of the
// second, where the same item stands.
#include "platform/linux/files/listing.h"
#include "fuzz/require.h"

#include <cstddef>
#include <cstdint>

using platform::Item;
using platform::Listing;
using platform::Place;

namespace {

/// Two bytes an item: a folder and a name of few, and one of few items, so that they meet often.
Listing listingOf(const std::uint8_t* data, std::size_t size) {
    Listing listing;
    for (std::size_t i = 0; i + 1 < size; i += 2) {
        const Place place{data[i] % 4U, std::string(1, static_cast<char>('a' + data[i] / 4 % 16))};
        const Item item{.inode = data[i + 1] % 16U, .isFolder = data[i + 1] % 2 != 0};
        listing.set(place, data[i + 1] < 240 ? std::optional(item) : std::nullopt);
        if (data[i + 1] == 255) {
            listing.clear(place.folder);
        }
    }
    return listing;
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    const Listing before = listingOf(data, size / 2);
    const Listing after = listingOf(data + size / 2, size - size / 2);
    for (const auto& [source, destination, isFolder] : platform::movesBetween(before, after)) {
        const auto item = before.at(source);
        require(item.has_value());
        require(after.at(destination) == item);
        require(after.at(source) != item);
        require(source.folder != destination.folder);
        require(item->isFolder == isFolder);
    }
    return 0;
}
