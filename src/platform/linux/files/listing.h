// What stood in the watched folders when they were last looked at. Where the system loses events, two listings tell
// what moved. For one thread.
#pragma once

#include <compare>
#include <cstddef>
#include <cstdint>
#include <map>
#include <optional>
#include <string>
#include <vector>

namespace platform {

/// A file or folder, wherever it is moved. The time of its birth tells it from a later one that was given the same
/// inode.
struct Item {
    std::uint64_t device = 0;
    std::uint64_t inode = 0;
    std::int64_t born = 0; ///< nanoseconds; 0 where the file system doesn't know
    bool isFolder = false;

    auto operator<=>(const Item&) const = default;
};

/// A name in one of the watched folders, which are numbered.
struct Place {
    std::size_t folder = 0;
    std::string name;

    auto operator<=>(const Place&) const = default;
};

class Listing {
  public:
    /// How many items of one folder are remembered. The product's own folder is small; a Trash may be of any size.
    static constexpr std::size_t capacity = 4096;

    /// Nullopt empties the place. A new item is ignored when its folder has reached `capacity`.
    void set(const Place& place, const std::optional<Item>& item);
    void clear(std::size_t folder);

    std::optional<Item> at(const Place& place) const;
    /// Where the item was seen last.
    std::optional<Place> find(const Item& item) const;

    const std::map<Place, Item>& items() const { return items_; }

  private:
    std::map<Place, Item> items_;
    std::map<Item, Place> places_;
    std::map<std::size_t, std::size_t> sizes_;
};

struct ItemMove {
    Place source;
    Place destination;
    bool isFolder = false;

    bool operator==(const ItemMove&) const = default;
};

/// The items of `before` that `after` has in another folder, and no longer where they were.
std::vector<ItemMove> movesBetween(const Listing& before, const Listing& after);

} // namespace platform
