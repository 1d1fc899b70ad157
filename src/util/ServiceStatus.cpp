#include "util/ServiceStatus.h"

#include "foundation/diagnostics.h"
#include "foundation/format.h"
#include "foundation/text.h"
#include "platform/clock.h"
#include "platform/notifications.h"
#include "platform/service_manager.h"

#include <algorithm>
#include <atomic>
#include <chrono>
#include <condition_variable>
#include <future>
#include <iterator>
#include <mutex>
#include <system_error>
#include <thread>
#include <utility>
#include <vector>

namespace havrel {

namespace {

namespace manager = platform::service_manager;
namespace text = platform::text;
using namespace std::chrono_literals;
using std::chrono::steady_clock;

/// The bus may be missing and a tool slow: what waits for the daemon does not wait longer.
constexpr auto readyAtTheLatest = 5s;
/// A service manager's usual limit for a start. By then it has given up, and there is no point in telling it any more.
constexpr auto managersStartLimit = 90s;
/// The shortest time from one status line to the next, so that a flood of commands doesn't become a flood of lines.
/// Work that is over sooner may not show.
constexpr auto pause = 1s;

std::string webStatus(const ServiceFacts& facts) {
    if (facts.silentServers.empty()) {
        return facts.hasWebAnswered ? "web service reachable" : "no web request yet";
    }
    std::vector<std::string> servers;
    for (const auto& [server, silence] : facts.silentServers) {
        servers.push_back(text::format("%@ unreachable since %@ (%@)", server, silence.since, silence.reason));
    }
    return text::join(servers, ", ");
}

/// The thread that tells, and what it shares with those that note.
class Teller {
  public:
    static Teller& shared() {
        static Teller& teller = *new Teller;
        return teller;
    }

    void begin() {
        if (!manager::isListening()) {
            return;
        }
        isListening_ = true;
        note([](ServiceFacts& facts) {
            facts.activities.insert("starting up");
            facts.busAwaySince = platform::clock::timestamp();
        });
        platform::distributed_center::watchConnection([this](bool isReachable) { noteBus(isReachable); });
        try {
            std::thread([this] { platform::diagnostics::contain("service manager", [this] { tell(); }); }).detach();
        } catch (const std::system_error& error) {
            platform::diagnostics::report("service manager", error.what());
            manager::tellReady(); // too early is better than never: the manager would end the daemon
        }
    }

    void startUpEnded() {
        startUp_.set_value();
        note([](ServiceFacts& facts) { facts.activities.erase("starting up"); });
    }

    template <typename Change>
    void note(const Change& change) {
        if (!isListening_) {
            return;
        }
        platform::diagnostics::contain("service manager", [&] {
            const std::lock_guard lock(mutex_);
            change(facts_);
            line_ = statusLine(facts_);
            changed_.notify_one();
        });
    }

  private:
    void noteBus(bool isReachable) {
        note([isReachable](ServiceFacts& facts) {
            if (isReachable) {
                facts.busAwaySince.reset();
            } else if (!facts.busAwaySince) {
                facts.busAwaySince = platform::clock::timestamp();
            }
        });
    }

    void tell() {
        const auto deadline = steady_clock::now() + readyAtTheLatest;
        if (startUp_.get_future().wait_until(deadline) == std::future_status::ready) {
            platform::distributed_center::flush(
                std::chrono::duration_cast<std::chrono::milliseconds>(deadline - steady_clock::now()));
        }
        // For want of a descriptor nothing can be told, and a manager that isn't told would end the daemon.
        for (auto left = managersStartLimit; left > 0s && !manager::tellReady(); left -= pause) {
            platform::clock::sleep(pause);
        }
        for (;;) {
            tellChange();
            platform::clock::sleep(pause);
        }
    }

    /// Waits until the line is another one than was told last.
    void tellChange() {
        std::unique_lock lock(mutex_);
        changed_.wait(lock, [this] { return line_ != toldLine_; });
        toldLine_ = line_;
        lock.unlock();
        manager::tellStatus(toldLine_);
    }

    std::atomic<bool> isListening_{false};
    std::promise<void> startUp_;

    std::mutex mutex_;
    std::condition_variable changed_;
    ServiceFacts facts_;
    std::string line_;

    std::string toldLine_; // the thread's own
};

} // namespace

std::string statusLine(const ServiceFacts& facts) {
    std::vector<std::string> activities;
    std::ranges::unique_copy(facts.activities, std::back_inserter(activities));
    std::vector<std::string> parts;
    parts.push_back(activities.empty() ? "Idle" : "Busy: " + text::join(activities, ", "));
    parts.push_back(facts.busAwaySince ? "bus unreachable since " + *facts.busAwaySince : "bus reachable");
    parts.push_back(webStatus(facts));
    parts.push_back(facts.proxies ? text::format("%lu of %lu proxies answered at %@", facts.proxies->answered,
                                                 facts.proxies->asked, facts.proxies->at)
                                  : "no proxy measured yet");
    if (facts.isHostServiceOn) {
        parts.emplace_back(*facts.isHostServiceOn ? "host service on" : "host service off");
    }
    return text::join(parts, "; ");
}

namespace service_status {

void begin() { Teller::shared().begin(); }

void startUpEnded() { Teller::shared().startUpEnded(); }

Activity::Activity(std::string name) : name_(std::move(name)) {
    Teller::shared().note([this](ServiceFacts& facts) { facts.activities.insert(name_); });
}

Activity::~Activity() {
    Teller::shared().note([this](ServiceFacts& facts) {
        if (const auto found = facts.activities.find(name_); found != facts.activities.end()) {
            facts.activities.erase(found);
        }
    });
}

void noteRequest(const std::string& url, const std::optional<platform::Error>& failure) {
    Teller::shared().note([&](ServiceFacts& facts) {
        const std::string server = platform::text::split(url, "/").at(2);
        if (!failure) {
            facts.hasWebAnswered = true;
            facts.silentServers.erase(server);
        } else if (!facts.silentServers.contains(server)) {
            facts.silentServers[server] = {platform::clock::timestamp(), failure->localizedDescription};
        }
    });
}

void noteProxies(std::size_t answered, std::size_t asked) {
    if (asked > 0) {
        Teller::shared().note([=](ServiceFacts& facts) {
            facts.proxies = {.answered = answered, .asked = asked, .at = platform::clock::timestamp()};
        });
    }
}

void noteHostService(bool isOn) {
    Teller::shared().note([isOn](ServiceFacts& facts) { facts.isHostServiceOn = isOn; });
}

} // namespace service_status

} // namespace havrel
