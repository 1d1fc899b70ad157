// The service's list of proxies, the files that keep it, and the texts that applications hand over.
#include "foundation/error.h"
#include "foundation/property_list.h"
#include "fuzz/require.h"
#include "proxy/HVLPlistManager.h"
#include "util/PropertyListFile.h"

#include <cstdint>

namespace {

/// The one file that there is.
std::optional<platform::Value> content;

void checkList(havrel::HVLPingMutableArray list) {
    list.sortPingArrayByMinimumPingTime();
    for (const auto& host : list) {
        require(host != nullptr);
        require(list.findHost(host->hostName()) != nullptr || !host->hostName());
    }
    list.toJSONFormat();
    list.toRegisterJSONFormat();
    list.getPintableString();
    list.removeAllZeroPings();
    require(list.countNoZeroPingTimeProxies() == list.count());
}

/// A list that can be written is read back as it was.
void checkFile(const havrel::HVLPingMutableArray& list) {
    try {
        if (list.writeProxyOnFile("")) {
            const auto again = havrel::HVLPingMutableArray::initWithPlistWithPath("");
            require(again.count() == list.count());
            require(again.writeProxyOnFile(""));
        }
    } catch (const platform::Exception&) {
        // A record without a name or an address: no list to write.
    }
}

} // namespace

std::optional<platform::Value> havrel::readPropertyList(const std::string& /*path*/) { return content; }

bool havrel::writePropertyList(const std::string& /*path*/, const platform::Value& value) {
    const auto xml = platform::property_list::toXml(value);
    content = xml ? platform::property_list::parse(*xml) : std::nullopt;
    require(!xml || content);
    return xml.has_value();
}

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    using havrel::HVLPingMutableArray;
    const std::string bytes(reinterpret_cast<const char*>(data), size);
    if (const auto list = havrel::HVLPlistManager().mapProxyStringToProxyList(bytes)) {
        checkList(list->copyArray());
        checkFile(*list);
    }
    content = platform::property_list::parse(bytes);
    const auto stored = HVLPingMutableArray::initWithPlistWithPath("");
    checkList(stored.copyArray());
    checkFile(stored);
    checkList(HVLPingMutableArray::initWithPingStringWithCommaSeprator(bytes));
    checkList(HVLPingMutableArray::initWithPingStringWithSpaceSeprator(bytes));
    return 0;
}
