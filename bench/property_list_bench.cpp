// What reading and writing a preference file of 200 keys costs, without the disk. For comparison,
// plistlib_codec_bench.py does the same with Python's plistlib.
#include "foundation/property_list.h"
#include "foundation/value.h"

#include <benchmark/benchmark.h>
#include <bit>
#include <string>
#include <vector>

namespace {

using platform::Array;
using platform::Dictionary;
using platform::Value;

Value preferences() {
    Dictionary members;
    for (int i = 0; i < 40; ++i) {
        const std::string number = std::to_string(i);
        members["text" + number] = "a setting of ordinary length, number " + number;
        members["flag" + number] = i % 2 == 0;
        members["count" + number] = i * 1000;
        members["when" + number] = platform::Date{i * 86400.0};
        members["list" + number] = Array{"one", "two", i};
    }
    return members;
}

std::string big(std::uint64_t number, std::size_t width) {
    std::string bytes(width, '\0');
    for (std::size_t i = width; i-- > 0; number >>= 8) {
        bytes[i] = static_cast<char>(number & 0xff);
    }
    return bytes;
}

/// The daemon writes no binary lists, so the bench has its own writer, for the kinds of value above.
class BinaryWriter {
  public:
    std::string write(const Value& root) {
        const std::uint64_t top = add(root);
        std::string bytes = "bplist00";
        std::string table;
        for (const std::string& object : objects_) {
            table += big(bytes.size(), 4);
            bytes += object;
        }
        const std::uint64_t start = bytes.size();
        return bytes + table + std::string(6, '\0') + "\4\2" + big(objects_.size(), 8) + big(top, 8) + big(start, 8);
    }

  private:
    std::uint64_t add(const Value& value) {
        std::string object;
        if (const auto* dictionary = value.dictionary()) {
            std::string members;
            object = marker(0xd, dictionary->size());
            for (const auto& [key, member] : *dictionary) {
                object += big(add(key), 2);
                members += big(add(member), 2);
            }
            object += members;
        } else if (const auto* array = value.array()) {
            object = marker(0xa, array->size());
            for (const Value& element : *array) {
                object += big(add(element), 2);
            }
        } else if (const auto* text = value.text()) {
            object = marker(5, text->size()) + *text;
        } else if (const auto* flag = value.as<bool>()) {
            object = static_cast<char>(*flag ? 9 : 8);
        } else if (const auto* date = value.as<platform::Date>()) {
            object = marker(3, 3) + big(std::bit_cast<std::uint64_t>(date->seconds), 8);
        } else {
            object = "\x13" + big(static_cast<std::uint64_t>(value.integerValue()), 8);
        }
        objects_.push_back(std::move(object));
        return objects_.size() - 1;
    }

    static std::string marker(unsigned kind, std::size_t size) {
        const auto high = static_cast<char>(kind << 4);
        return size < 15 ? std::string(1, static_cast<char>(high | static_cast<char>(size)))
                         : std::string(1, static_cast<char>(high | 0xf)) + "\x11" + big(size, 2);
    }

    std::vector<std::string> objects_;
};

void readList(benchmark::State& state, const std::string& bytes) {
    if (platform::property_list::parse(bytes) != preferences()) {
        state.SkipWithError("read wrongly");
    }
    for ([[maybe_unused]] const auto once : state) {
        benchmark::DoNotOptimize(platform::property_list::parse(bytes));
    }
    state.SetBytesProcessed(static_cast<std::int64_t>(bytes.size()) * state.iterations());
}

void readXml(benchmark::State& state) { readList(state, *platform::property_list::toXml(preferences())); }

void readBinary(benchmark::State& state) { readList(state, BinaryWriter().write(preferences())); }

void writeXml(benchmark::State& state) {
    const Value value = preferences();
    for ([[maybe_unused]] const auto once : state) {
        benchmark::DoNotOptimize(platform::property_list::toXml(value));
    }
}

/// What no property list has; the parser alone would take seconds for it.
void refuseAttributes(benchmark::State& state) {
    std::string document = "<plist";
    while (document.size() < 4'000'000) {
        document += " a" + std::to_string(document.size()) + "=''";
    }
    document += "><true/></plist>";
    for ([[maybe_unused]] const auto once : state) {
        benchmark::DoNotOptimize(platform::property_list::parse(document));
    }
}

BENCHMARK(readXml)->Unit(benchmark::kMicrosecond);
BENCHMARK(readBinary)->Unit(benchmark::kMicrosecond);
BENCHMARK(writeXml)->Unit(benchmark::kMicrosecond);
BENCHMARK(refuseAttributes)->Unit(benchmark::kMicrosecond);

} // namespace

BENCHMARK_MAIN();
