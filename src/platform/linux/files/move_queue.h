// Renames that wait to be handed on. The system names the old and the new place one by one, with a number (cookie) that
// both share.
#pragma once

#include "platform/file_system_events.h"
#include "platform/linux/files/listing.h"

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <list>
#include <optional>
#include <unordered_map>

namespace platform {

struct Move {
    std::optional<Place> source;
    std::optional<Place> destination;
    bool isFolder = false;
    /// What was known to stand at the source.
    std::optional<Item> item;
    std::chrono::steady_clock::time_point seen;
};

/// In the order of their first halves. For one thread.
class MoveQueue {
  public:
    void addSource(std::uint32_t cookie, const Place& place, bool isFolder, const std::optional<Item>& item);
    void addDestination(std::uint32_t cookie, const Place& place, bool isFolder);
    void addWhole(const ItemMove& move);

    /// Removes the oldest move; the queue must not be empty. Should its other half come later, it is a move of its own.
    Move take();

    bool empty() const { return moves_.empty(); }

    std::size_t size() const { return moves_.size(); }

    std::chrono::steady_clock::time_point oldest() const { return moves_.front().seen; }

  private:
    struct Entry : Move {
        std::uint32_t cookie = 0;
    };

    /// The move with that cookie that lacks a half, or a new one.
    Move& halfOf(std::uint32_t cookie, bool isFolder);

    std::list<Entry> moves_;
    std::unordered_map<std::uint32_t, std::list<Entry>::iterator> halves_;
};

} // namespace platform
