#include "platform/linux/files/listing.h"

namespace platform {

void Listing::set(const Place& place, const std::optional<Item>& item) {
    if (const auto old = items_.find(place); old != items_.end()) {
        const auto seen = places_.find(old->second);
        if (seen != places_.end() && seen->second == place) {
            places_.erase(seen);
        }
        items_.erase(old);
        --sizes_[place.folder];
    }
    if (item && sizes_[place.folder] < capacity) {
        items_.emplace(place, *item);
        places_.insert_or_assign(*item, place);
        ++sizes_[place.folder];
    }
}

void Listing::clear(std::size_t folder) {
    for (auto next = items_.lower_bound({folder, ""}); next != items_.end() && next->first.folder == folder;) {
        set(Place((next++)->first), std::nullopt);
    }
}

std::optional<Item> Listing::at(const Place& place) const {
    const auto found = items_.find(place);
    return found != items_.end() ? std::optional(found->second) : std::nullopt;
}

std::optional<Place> Listing::find(const Item& item) const {
    const auto found = places_.find(item);
    return found != places_.end() ? std::optional(found->second) : std::nullopt;
}

std::vector<ItemMove> movesBetween(const Listing& before, const Listing& after) {
    std::vector<ItemMove> moves;
    for (const auto& [source, item] : before.items()) {
        const auto destination = after.find(item);
        // An item that still stands at its source was not moved but got a second name.
        if (destination && destination->folder != source.folder && after.at(source) != item) {
            moves.push_back({source, *destination, item.isFolder});
        }
    }
    return moves;
}

} // namespace platform
