// Puts a value together from the events of a parser, within bounds that hold for every outside format: a hostile
// file costs bounded time and memory and leaves nothing that a recursive walk could not stand.
#pragma once

#include "foundation/limits.h"
#include "foundation/value.h"

#include <cstddef>
#include <optional>
#include <string>
#include <vector>

namespace platform {

/// The most that a value read from outside may hold, and that the writers therefore write.
inline constexpr std::size_t depthLimit = 128;
inline constexpr std::size_t nodeLimit = std::size_t{1} << 19;
/// Texts and data together: a parser may recode what it reads, or meet the same bytes again and again.
inline constexpr std::size_t contentLimit = 2 * documentLimit;

/// Every operation returns false when the event does not fit or exceeds a bound; the builder is of no use then.
class ValueBuilder {
  public:
    bool openArray() { return open(Array{}); }

    bool openDictionary() { return open(Dictionary{}); }

    /// Names the dictionary member that comes next. Of two members of one name the later stays.
    bool key(std::string name);
    /// A value that is no container.
    bool add(Value value);
    /// Ends the container opened last.
    bool close();

    /// The value when it is whole, else nothing.
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
