// Notification centres that record posts and deliver only what the test says, on the test's thread.
#pragma once

#include "fakes/steered.h"
#include "platform/notifications.h"

#include <algorithm>
#include <thread>

namespace fakes::notifications {

struct Post {
    std::string name, object;
    std::optional<platform::Dictionary> userInfo;
    std::uint32_t options = 0;
};

inline Steered<std::vector<Post>> posts;

/// Called on the poster's thread with each post.
inline Steered<std::function<void(const Post&)>> onPost;

/// Forgets the posts and the hook; observers stay.
inline void reset() {
    posts({});
    onPost({});
}

inline std::size_t countOf(const std::string& name) {
    const auto made = posts();
    return static_cast<std::size_t>(std::ranges::count(made, name, &Post::name));
}

/// Blocks until that many posts of the name were made.
inline void waitFor(const std::string& name, std::size_t count) {
    while (countOf(name) < count) {
        std::this_thread::yield();
    }
}

/// Calls the distributed and workspace observers of the notification's name.
void deliver(const platform::Notification& notification);

} // namespace fakes::notifications
