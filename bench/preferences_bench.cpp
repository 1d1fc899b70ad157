// What a preference costs: each read parses the whole file, each write replaces it and waits for the disk. For
// comparison, plistlib_bench.py does the same with the same content.
#include "foundation/deployment.h"
#include "foundation/property_list.h"
#include "platform/notifications.h"
#include "prefs/HVLUserPrefManager.h"
#include "trial/support/temporary_folder.h"
#include "util/ProductPaths.h"

#include <benchmark/benchmark.h>

#include <cstdlib>

// There is no bus here: it is the file that is measured.
void platform::distributed_center::post(const std::string& /*name*/, const std::string& /*object*/,
                                        const std::optional<Dictionary>& /*userInfo*/, std::uint32_t /*options*/) {}

namespace {

using havrel::HVLUserPrefManager;
using platform::Dictionary;

constexpr int keyCount = 200;
const std::string hostFile = havrel::paths::hostSupport + "/.HostPref.plist";

Dictionary settings() {
    Dictionary dictionary;
    for (int key = 1000; key < 1000 + keyCount; ++key) {
        dictionary["setting" + std::to_string(key)] = "the value of setting " + std::to_string(key);
    }
    return dictionary;
}

std::string bigEndian(std::uint64_t number, int bytes) {
    std::string text;
    for (int shift = 8 * (bytes - 1); shift >= 0; shift -= 8) {
        text += static_cast<char>(number >> shift);
    }
    return text;
}

/// The binary form of a dictionary of short ASCII texts: the dictionary is object 0; the keys follow, then the values.
std::string binary(const Dictionary& dictionary) {
    std::string bytes = "bplist00";
    std::string offsets = bigEndian(bytes.size(), 2);
    bytes += "\xdf\x11" + bigEndian(dictionary.size(), 2);
    for (std::size_t object = 1; object <= 2 * dictionary.size(); ++object) {
        bytes += bigEndian(object, 2);
    }
    const auto add = [&](const std::string& text) {
        offsets += bigEndian(bytes.size(), 2);
        bytes += "\x5f\x10" + bigEndian(text.size(), 1) + text;
    };
    for (const auto& [key, value] : dictionary) {
        add(key);
    }
    for (const auto& [key, value] : dictionary) {
        add(*value.text());
    }
    const std::size_t table = bytes.size();
    return bytes + offsets + std::string(6, '\0') + "\x02\x02" + bigEndian(2 * dictionary.size() + 1, 8) +
           bigEndian(0, 8) + bigEndian(table, 8);
}

const trial::TemporaryFolder& root() {
    static const trial::TemporaryFolder folder;
    return folder;
}

HVLUserPrefManager& preferencesIn(const std::string& content) {
    root().write(hostFile, content);
    return HVLUserPrefManager::sharedHVLUserPrefManager().hostPref();
}

void readOneKey(benchmark::State& state, const std::string& content) {
    HVLUserPrefManager& preferences = preferencesIn(content);
    for ([[maybe_unused]] const auto once : state) {
        if (!preferences.objectForKey("setting1100")) {
            state.SkipWithError("the setting is not there");
        }
    }
}

void writeOneKey(benchmark::State& state, const std::string& content) {
    HVLUserPrefManager& preferences = preferencesIn(content);
    int value = 0;
    for ([[maybe_unused]] const auto once : state) {
        preferences.setObject(++value, "setting1100");
    }
    if (preferences.objectForKey("setting1100") != value) {
        state.SkipWithError("the last write is not there");
    }
}

} // namespace

int main(int argc, char** argv) {
    setenv("HAVREL_ROOT", root().path().c_str(), 1);
    const std::string xml = platform::property_list::toXml(settings()).value();
    benchmark::RegisterBenchmark("objectForKey of 200, XML", readOneKey, xml);
    benchmark::RegisterBenchmark("objectForKey of 200, binary", readOneKey, binary(settings()));
    benchmark::RegisterBenchmark("setObject in 200, flushed", writeOneKey, xml)->UseRealTime();
    benchmark::Initialize(&argc, argv);
    benchmark::RunSpecifiedBenchmarks();
}
