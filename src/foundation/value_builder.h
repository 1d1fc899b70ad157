// Puts a value together from what a parser finds, within bounds that hold for every outside format: a hostile file can
// neither cost much time or memory, nor nest so deep that walking it recursively would exhaust the stack.
#pragma once

#include "foundation/limits.h"
#include "foundation/value.h"

#include <cstddef>
#include <optional>
#include <string>
#include <vector>

namespace platform {

/// What a value read from outside may hold; the writers write no more, so that what they wrote can be read.
inline constexpr std::size_t depthLimit = 128;
inline constexpr std::size_t nodeLimit = std::size_t{1} << 19;
/// The bytes of all texts and data. A recoded text may be longer than its document, and a binary list may refer to the
/// same text many times.
inline constexpr std::size_t contentLimit = 2 * documentLimit;

/// Every operation returns false when it does not fit in or exceeds a bound; then the document is to be given up.
class ValueBuilder {
  public:
    bool openArray() { return open(Array{}); }

    bool openDictionary() { return open(Dictionary{}); }

    /// Names the dictionary's next member. Of two members of one name the later one is kept.
    bool key(std::string name);
    /// A value that is no container.
    bool add(Value value);
    /// Ends the container opened last.
    bool close();

    /// The value; nullopt as long as a container is open.
    std::optional<Value> take();

  private:
    struct Level {
        Value container;
        std::optional<std::string> key;
    };

    bool open(Value container);
    bool place(Value value);
    bool spend(std::size_t bytes);

    std::vector<Level> open_;
    std::optional<Value> root_;
    std::size_t nodes_ = 0;
    std::size_t content_ = 0;
};

} // namespace platform
