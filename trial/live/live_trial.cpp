#include "trial/live/live_trial.h"

#include "foundation/text.h"
#include "trial/live/commands.h"
#include "trial/live/host_product.h"
#include "trial/support/wait.h"
#include "util/ProductPaths.h"

#include <algorithm>
#include <array>
#include <cstdio>
#include <thread>

namespace trial {

using namespace std::chrono_literals;

namespace {

constexpr std::size_t listedProxies = 64;
constexpr auto deadline = 120s;
constexpr auto lookInterval = 50ms;
constexpr std::size_t rankingColumns = 2;

/// A log line without its timestamp: the view shows one of its own.
std::string message(const std::string& line) {
    constexpr std::size_t length = sizeof "yyyy-MM-dd HH:mm:ss : " - 1;
    const bool stamped = line.size() > length && line.compare(length - 3, 3, " : ") == 0;
    return platform::text::trim(stamped ? line.substr(length) : line, " ");
}

/// Name, object and user information, without line breaks and indents.
std::string inOneLine(const Posted& posted) {
    std::vector<std::string> words{posted.name};
    if (!posted.object.empty()) {
        words.push_back("from " + posted.object);
    }
    if (!posted.userInfo.empty()) {
        words.emplace_back("with");
        for (const std::string& line : platform::text::split(platform::Value(posted.userInfo).description(), "\n")) {
            words.push_back(platform::text::trim(line, " "));
        }
    }
    return platform::text::join(words, " ");
}

std::string rankingCell(std::size_t rank, const ProxyEntry& proxy) {
    std::array<char, 128> cell{};
    std::snprintf(cell.data(), cell.size(), "%4zu  %-6.16s %-16.40s %5lld", rank, proxy.hostName.c_str(),
                  proxy.ipAddr.c_str(), static_cast<long long>(proxy.pingTime));
    return cell.data();
}

} // namespace

LiveTrial::LiveTrial(const std::atomic<bool>& interrupted)
    : interrupted_(interrupted)
    , loginManager_(machine_.bus.address())
    , serviceManager_(machine_.root.folder())
    , proxies_(numberedProxies(listedProxies, "127.0.1"))
    , road_(machine_.root, listedProxies)
    , bus_(machine_.bus.address())
    , files_{{"log", FileTail(machine_.root.at(generalLog))},
             {"host log", FileTail(machine_.root.at(hostLog))},
             {"viewer log", FileTail(machine_.root.at(viewerLog))},
             {"updater", FileTail(updaterLog(machine_))},
             {"stderr", FileTail(machine_.root.folder() / "daemon.err")}} {
    installHostProduct(machine_);
    machine_.service.answer(proxyListPath, listing(proxies_));
}

bool LiveTrial::show() {
    introduce();
    startDaemon();
    const auto isOver = [this] {
        look();
        return road_.isGone() || interrupted_ || !daemon_->isRunning();
    };
    const bool inTime = eventually(isOver, deadline, lookInterval);
    if (!road_.isGone()) {
        return fail(!inTime        ? "it has not come to its end within " + std::to_string(deadline.count()) + " s"
                    : interrupted_ ? "interrupted"
                                   : "the daemon ended with " + describeEnd(*daemon_->waitForEnd()));
    }
    screen_.text("\n" + screen_.bold("Every step has been seen.") + "\n");
    printSteps();
    screen_.text("\n");
    return true;
}

bool LiveTrial::stay() {
    writeCommandScripts(machine_);
    screen_.text("\n" +
                 screen_.bold("It keeps running; ^C ends it and removes its folder. To try from another terminal:") +
                 "\n\n" + commandLines(machine_, daemon_->id()));
    while (!interrupted_) {
        look();
        if (!daemon_->isRunning()) {
            const int status = *daemon_->waitForEnd();
            if (status != 0) {
                return fail("the daemon ended with " + describeEnd(status));
            }
            screen_.event("daemon", "ended with status 0; started again, as its service unit does");
            startDaemon();
        }
        std::this_thread::sleep_for(lookInterval);
    }
    return true;
}

bool LiveTrial::end() {
    const auto status = daemon_->terminate();
    look();
    if (status != 0) {
        return fail("on SIGTERM the daemon " + (status ? "ended with " + describeEnd(*status) : "went on"));
    }
    screen_.event("daemon", "ended with status 0");
    return true;
}

void LiveTrial::printResults() {
    printRanking();
    screen_.text("\n" + screen_.bold("Files") + "\n\n");
    for (const std::string& file :
         {havrel::paths::proxies, havrel::paths::allProxies, hostPreferences, generalLog, hostLog}) {
        screen_.text("  " + machine_.root.at(file).string() + "\n");
    }
    screen_.text("  " + (machine_.root.folder() / "daemon.err").string() + "\n");
}

void LiveTrial::keep() {
    machine_.root.keep();
    screen_.text("\n  rm -r " + machine_.root.path().string() + "   removes it all\n");
}

void LiveTrial::introduce() {
    screen_.text(screen_.bold("Havrel helper: a trial of its main job, the relay-proxy list") + "\n\n" +
                 "  root      " + machine_.root.path().string() + "\n" + "  bus       " + machine_.bus.address() +
                 "\n" + "  service   https://" + machine_.service.host() + ", " + std::to_string(listedProxies) +
                 " proxies from " + proxies_.front().second + " to " + proxies_.back().second + "\n" +
                 "  console   ann, with " + machine_.root.at("/Users/ann/.Trash").string() + "\n" +
                 "  tools     harmless stand-ins, and the system's own ping\n\n");
}

void LiveTrial::startDaemon() {
    Environment environment = machine_.environment();
    environment["NOTIFY_SOCKET"] = serviceManager_.address();
    daemon_ = std::make_unique<DaemonProcess>(HAVREL_DAEMON, environment, machine_.root.folder());
    pings_ = std::make_unique<PingWatch>(daemon_->id());
    shownMeasured_.reset();
    screen_.endProgress();
    screen_.event("daemon", "started as process " + std::to_string(daemon_->id()));
}

void LiveTrial::look() {
    lookAtBus();
    lookAtRequests();
    lookAtTools();
    lookAtFiles();
    lookAtState();
    lookAtPings();
}

void LiveTrial::lookAtRequests() {
    const auto requests = machine_.service.requests();
    for (; shownRequests_ < requests.size(); ++shownRequests_) {
        const WebRequest& request = requests[shownRequests_];
        screen_.event("service",
                      request.method + ' ' + request.target + (request.body.empty() ? "" : " with ") + request.body);
    }
}

void LiveTrial::lookAtTools() {
    const auto calls = machine_.tools.calls();
    for (; shownCalls_ < calls.size(); ++shownCalls_) {
        screen_.event("tool", calls[shownCalls_].line());
    }
}

void LiveTrial::lookAtBus() {
    const auto heard = bus_.heard();
    for (; shownPosts_ < heard.size(); ++shownPosts_) {
        const Posted& posted = heard[shownPosts_];
        road_.notification(posted.name);
        screen_.event("bus", inOneLine(posted));
        if (posted.name == "HVLProxyStateChangedNotification") {
            pings_->beginPass();
            shownMeasured_ = 0;
        }
    }
}

void LiveTrial::lookAtFiles() {
    for (auto& [source, tail] : files_) {
        for (const std::string& line : tail.newLines()) {
            screen_.event(source, message(line));
        }
    }
}

void LiveTrial::lookAtState() {
    const auto& told = serviceManager_.told();
    for (; shownStates_ < told.size(); ++shownStates_) {
        screen_.event("state", told[shownStates_]);
    }
}

void LiveTrial::lookAtPings() {
    if (!daemon_->isRunning()) {
        return; // pings that end with the daemon have measured nothing
    }
    pings_->look();
    if (shownMeasured_ && shownMeasured_ != pings_->measured()) {
        shownMeasured_ = pings_->measured();
        screen_.progress(*shownMeasured_, listedProxies);
    }
    if (shownMeasured_ == listedProxies) {
        shownMeasured_.reset();
    }
}

bool LiveTrial::fail(const std::string& why) {
    look();
    screen_.endProgress();
    screen_.text("\n" + screen_.bad("The trial has failed: ") + why + "\n");
    printSteps();
    return false;
}

void LiveTrial::printSteps() {
    screen_.text("\n");
    for (const auto& [what, done] : road_.steps()) {
        screen_.text((done ? screen_.good("  done     ") : screen_.bad("  missing  ")) + what + "\n");
    }
}

void LiveTrial::printRanking() {
    const auto ranking = machine_.root.proxies(havrel::paths::proxies).value_or(std::vector<ProxyEntry>());
    const std::size_t rows = (ranking.size() + rankingColumns - 1) / rankingColumns;
    const std::string head = "rank  name   address             ms";
    screen_.text("\n" + screen_.bold("Proxies.plist, the fastest first") + "\n\n  " + head + "      " + head + "\n");
    for (std::size_t row = 0; row < rows; ++row) {
        std::string line = "  ";
        for (std::size_t rank = row; rank < ranking.size(); rank += rows) {
            line += (rank == row ? "" : "      ") + rankingCell(rank + 1, ranking[rank]);
        }
        screen_.text(line + "\n");
    }
}

} // namespace trial
