#include "foundation/binary_property_list.h"

#include "foundation/unicode.h"
#include "foundation/value_builder.h"

#include <bit>
#include <cstdint>
#include <limits>

namespace platform::property_list {

namespace {

// A file is a header, the objects, a table of the objects' offsets, and a trailer: six unused bytes, the sizes in bytes
// of an offset and of a reference, and three 64-bit numbers (how many objects, the root's number, the table's offset).
// All numbers are big-endian. Containers refer to their members by number, so an object may be referred to many times
// or contain itself; the builder's bounds end the walk then.
constexpr std::string_view header = "bplist00";
constexpr std::size_t trailerSize = 32;

std::uint64_t bigEndian(std::string_view bytes) {
    std::uint64_t number = 0;
    for (const char byte : bytes) {
        number = number << 8 | static_cast<unsigned char>(byte);
    }
    return number;
}

/// UTF-16, big-endian.
std::string fromUtf16(std::string_view bytes) {
    std::u16string units;
    units.reserve(bytes.size() / 2);
    for (; !bytes.empty(); bytes.remove_prefix(2)) {
        units += static_cast<char16_t>(bigEndian(bytes.substr(0, 2)));
    }
    return text::utf8(units);
}

Value integerOf(std::string_view bytes) {
    if (bytes.size() < 8) {
        return bigEndian(bytes);
    }
    const std::uint64_t low = bigEndian(bytes.substr(bytes.size() - 8));
    if (bytes.size() == 8) {
        return static_cast<std::int64_t>(low);
    }
    // Of 128 bits; what 64 can't hold becomes the nearest that they can.
    const std::uint64_t high = bigEndian(bytes.substr(0, 8));
    const bool isNegative = high >> 63 != 0;
    if (isNegative) {
        const bool fits = high == ~std::uint64_t{0} && low >> 63 != 0;
        return fits ? static_cast<std::int64_t>(low) : std::numeric_limits<std::int64_t>::min();
    }
    return high == 0 ? low : std::numeric_limits<std::uint64_t>::max();
}

double realOf(std::string_view bytes) {
    const std::uint64_t bits = bigEndian(bytes);
    return bytes.size() == 4 ? std::bit_cast<float>(static_cast<std::uint32_t>(bits)) : std::bit_cast<double>(bits);
}

class Reader {
  public:
    explicit Reader(std::string_view bytes) : bytes_(bytes) {}

    std::optional<Value> read() {
        if (bytes_.size() < header.size() + trailerSize) {
            return std::nullopt;
        }
        const std::string_view trailer = bytes_.substr(bytes_.size() - trailerSize);
        offsetSize_ = bigEndian(trailer.substr(6, 1));
        referenceSize_ = bigEndian(trailer.substr(7, 1));
        count_ = bigEndian(trailer.substr(8, 8));
        const std::uint64_t root = bigEndian(trailer.substr(16, 8));
        const std::uint64_t table = bigEndian(trailer.substr(24, 8));
        bytes_.remove_suffix(trailerSize);
        if (offsetSize_ < 1 || offsetSize_ > 8 || referenceSize_ < 1 || referenceSize_ > 8 || table < header.size() ||
            table > bytes_.size() || count_ > (bytes_.size() - table) / offsetSize_) {
            return std::nullopt;
        }
        table_ = bytes_.substr(table);
        bytes_ = bytes_.substr(0, table);
        return object(root) ? builder_.take() : std::nullopt;
    }

  private:
    /// An object's first byte, taken apart, and where its content begins. The size counts items, or is what the byte's
    /// low half says for kinds without items.
    struct Marker {
        unsigned kind = 0;
        std::uint64_t size = 0;
        std::size_t content = 0;
    };

    std::optional<Marker> marker(std::uint64_t reference) const {
        if (reference >= count_) {
            return std::nullopt;
        }
        const std::uint64_t offset = bigEndian(table_.substr(reference * offsetSize_, offsetSize_));
        if (offset < header.size() || offset >= bytes_.size()) {
            return std::nullopt;
        }
        const unsigned byte = static_cast<unsigned char>(bytes_[offset]);
        Marker marker{byte >> 4U, byte & 0xfU, offset + 1};
        if (marker.kind >= 4 && marker.size == 0xf) {
            return withLongSize(marker);
        }
        return marker;
    }

    /// A size of 15 or more follows the marker as an integer object.
    std::optional<Marker> withLongSize(Marker marker) const {
        const auto byte = slice(marker.content, 1, 1);
        if (!byte || static_cast<unsigned char>(byte->front()) >> 4U != 1) {
            return std::nullopt;
        }
        const std::size_t width = std::size_t{1} << (static_cast<unsigned char>(byte->front()) & 0xfU);
        const auto size = width <= 8 ? slice(marker.content + 1, 1, width) : std::nullopt;
        if (!size) {
            return std::nullopt;
        }
        return Marker{marker.kind, bigEndian(*size), marker.content + 1 + width};
    }

    /// `count` items of `width` bytes each; nullopt when they reach beyond the objects.
    std::optional<std::string_view> slice(std::size_t offset, std::uint64_t count, std::size_t width) const {
        if (offset > bytes_.size() || count > (bytes_.size() - offset) / width) {
            return std::nullopt;
        }
        return bytes_.substr(offset, count * width);
    }

    std::uint64_t referenceAt(std::string_view references, std::size_t index) const {
        return bigEndian(references.substr(index * referenceSize_, referenceSize_));
    }

    /// Recursive, as deep as the builder allows.
    bool object(std::uint64_t reference) {
        const auto found = marker(reference);
        if (!found) {
            return false;
        }
        switch (found->kind) {
        case 0xa:
            return array(*found);
        case 0xd:
            return dictionary(*found);
        default: {
            auto value = scalar(*found);
            return value && builder_.add(std::move(*value));
        }
        }
    }

    bool array(const Marker& marker) {
        const auto references = slice(marker.content, marker.size, referenceSize_);
        if (!references || !builder_.openArray()) {
            return false;
        }
        for (std::size_t i = 0; i < marker.size; ++i) {
            if (!object(referenceAt(*references, i))) {
                return false;
            }
        }
        return builder_.close();
    }

    bool dictionary(const Marker& marker) {
        const auto references = slice(marker.content, marker.size, 2 * referenceSize_);
        if (!references || !builder_.openDictionary()) {
            return false;
        }
        for (std::size_t i = 0; i < marker.size; ++i) {
            if (!key(referenceAt(*references, i)) || !object(referenceAt(*references, marker.size + i))) {
                return false;
            }
        }
        return builder_.close();
    }

    bool key(std::uint64_t reference) {
        const auto found = marker(reference);
        auto name = found ? text(*found) : std::nullopt;
        return name && builder_.key(std::move(*name));
    }

    std::optional<std::string> text(const Marker& marker) const {
        const bool ascii = marker.kind == 5;
        const auto bytes = ascii || marker.kind == 6 ? slice(marker.content, marker.size, ascii ? 1 : 2) : std::nullopt;
        if (!bytes) {
            return std::nullopt;
        }
        return ascii ? text::makeValidUtf8(*bytes) : fromUtf16(*bytes);
    }

    std::optional<Value> scalar(const Marker& marker) const {
        if (marker.kind == 0) {
            return marker.size == 8 || marker.size == 9 ? std::optional<Value>(marker.size == 9) : std::nullopt;
        }
        if (marker.kind == 5 || marker.kind == 6) {
            return text(marker);
        }
        if (marker.kind == 4) {
            const auto bytes = slice(marker.content, marker.size, 1);
            return bytes ? std::optional<Value>(Data{std::string(*bytes)}) : std::nullopt;
        }
        return number(marker);
    }

    /// Integers, reals and dates, of two to the power of the marker's size bytes.
    std::optional<Value> number(const Marker& marker) const {
        const auto bytes = marker.size <= 4 ? slice(marker.content, 1, std::size_t{1} << marker.size) : std::nullopt;
        if (!bytes) {
            return std::nullopt;
        }
        if (marker.kind == 1) {
            return integerOf(*bytes);
        }
        if (marker.kind == 2 && (marker.size == 2 || marker.size == 3)) {
            return realOf(*bytes);
        }
        if (marker.kind == 3 && marker.size == 3) {
            return Date{realOf(*bytes)};
        }
        return std::nullopt;
    }

    std::string_view bytes_;
    std::string_view table_;
    std::size_t offsetSize_ = 0;
    std::size_t referenceSize_ = 0;
    std::uint64_t count_ = 0;
    ValueBuilder builder_;
};

} // namespace

bool isBinary(std::string_view bytes) { return bytes.starts_with(header); }

std::optional<Value> parseBinary(std::string_view bytes) { return Reader(bytes).read(); }

} // namespace platform::property_list
