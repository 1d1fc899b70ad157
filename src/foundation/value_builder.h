// Puts a value together from what a parser finds, within bounds that hold for every outside format: a hostile file can
// neither cost much time or memory, nor nest so deep that walking it recursively would exhaust the stack.
#pragma once

#include "foundation/value.h"

#include <cstddef>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace platform {

/// The deepest that containers may nest in a value that is read or written.
inline constexpr std::size_t depthLimit = 128;

/// Counts what a value takes as an XML property list, or a little more. Readers and the XML writer keep the same
/// budget, so what was read can be written and what was written can be read. Every operation takes the element's depth,
/// 0 for the root, and returns false when the value exceeds `propertyListLimit`.
class Budget {
  public:
    /// A container without its members, or a scalar that is neither text nor data.
    bool spendElement(std::size_t depth);
    /// A text or the name of a member, in valid UTF-8.
    bool spendText(std::string_view text, std::size_t depth);
    bool spendData(std::size_t bytes, std::size_t depth);

  private:
    bool spend(std::size_t size);

    std::size_t spent_ = 0;
};

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

    std::vector<Level> open_;
    std::optional<Value> root_;
    Budget budget_;
};

} // namespace platform
