// What every test of the core starts from: a root with the product's folders, and stand-ins in their first state.
#pragma once

#include "fakes/fake_clock.h"
#include "fakes/fake_deployment.h"
#include "fakes/fake_machine.h"
#include "fakes/fake_network.h"
#include "fakes/fake_notifications.h"
#include "fakes/fake_processes.h"
#include "foundation/format.h"
#include "foundation/text.h"
#include "logging/HVLLogger.h"
#include "support/print_value.h"
#include "trial/support/temporary_folder.h"
#include "util/ProductPaths.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace support {

inline std::string repeated(std::string_view piece, std::size_t count) {
    return platform::text::replaceAll(std::string(count, 'x'), "x", piece);
}

class CoreTest : public testing::Test {
  protected:
    CoreTest() {
        for (const auto& folder :
             {havrel::paths::hostSupport, havrel::paths::viewerSupport, havrel::paths::suiteSupport}) {
            std::filesystem::create_directories(root.at(folder));
        }
        fakes::deployment::setRoot(root.path().string());
        fakes::clock::reset();
        fakes::machine::reset();
        fakes::network::reset();
        fakes::notifications::reset();
        fakes::processes::reset();
    }

    /// The loggers outlive the root: what a test logged must not end up in the next one's.
    ~CoreTest() override { havrel::HVLLogger::drainAll(); }

    static constexpr const char* generalLog = "/Havrel.log";
    static constexpr const char* hostLog = "/HavrelHost7.log";

    /// The messages in the log, in order, without timestamps; they are taken out of it.
    std::vector<std::string> takeLog(const std::string& log) const {
        havrel::HVLLogger::drainAll();
        const std::string file = havrel::paths::hostSupport + log;
        auto messages = platform::text::split(std::string("\n").append(root.read(file)), "\n2001-01-01 00:00:00 : ");
        std::filesystem::remove(root.at(file));
        messages.erase(messages.begin());
        for (std::string& message : messages) {
            message.pop_back();
        }
        return messages;
    }

    /// The last post as "name/object/options", with what user information goes along behind it.
    static std::string lastPost() {
        const auto post = fakes::notifications::posts().back();
        const std::string userInfo = post.userInfo ? platform::Value(*post.userInfo).description() : "";
        return platform::text::format("%@/%@/%d%@", post.name, post.object, post.options, userInfo);
    }

    trial::TemporaryFolder root;
};

} // namespace support
