#include "platform/linux/files/move_queue.h"

#include <utility>

namespace platform {

using std::chrono::steady_clock;

Move& MoveQueue::halfOf(std::uint32_t cookie, bool isFolder) {
    if (auto half = halves_.extract(cookie)) {
        return *half.mapped();
    }
    Entry& added = moves_.emplace_back();
    added.isFolder = isFolder;
    added.seen = steady_clock::now();
    added.cookie = cookie;
    halves_.emplace(cookie, std::prev(moves_.end()));
    return added;
}

void MoveQueue::addSource(std::uint32_t cookie, const Place& place, bool isFolder, const std::optional<Item>& item) {
    Move& move = halfOf(cookie, isFolder);
    move.source = place;
    move.item = item;
}

void MoveQueue::addDestination(std::uint32_t cookie, const Place& place, bool isFolder) {
    halfOf(cookie, isFolder).destination = place;
}

void MoveQueue::addWhole(const ItemMove& move) {
    Entry& added = moves_.emplace_back();
    added.source = move.source;
    added.destination = move.destination;
    added.isFolder = move.isFolder;
    added.seen = steady_clock::now();
}

Move MoveQueue::take() {
    Entry& oldest = moves_.front();
    if (const auto half = halves_.find(oldest.cookie); half != halves_.end() && half->second == moves_.begin()) {
        halves_.erase(half);
    }
    Move move = std::move(oldest);
    moves_.pop_front();
    return move;
}

} // namespace platform
