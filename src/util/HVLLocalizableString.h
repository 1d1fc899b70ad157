// The product's display texts in the user's language.
#pragma once

#include <optional>
#include <string>

namespace havrel {

class HVLLocalizableString {
  public:
    /// The localized form of a text, or the text itself if the main application's table has none; "" for nullopt. The
    /// comment is ignored. The table is loaded once and kept; until that succeeds, every call tries again. Thread-safe.
    static std::string doLocalizeString(const std::optional<std::string>& text,
                                        const std::optional<std::string>& comment);
};

} // namespace havrel
