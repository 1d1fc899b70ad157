// The product's display texts in the user's language.
#pragma once

#include <optional>
#include <string>

namespace havrel {

class HVLLocalizableString {
  public:
    /// The localized form of a text, or the text itself when the table of the main application has none; empty for an
    /// absent text. The comment is ignored. The table is read once; while it cannot be, every call tries again. From
    /// any thread.
    static std::string doLocalizeString(const std::optional<std::string>& text,
                                        const std::optional<std::string>& comment);
};

} // namespace havrel
