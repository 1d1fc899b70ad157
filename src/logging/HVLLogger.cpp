// However many lines wait, one read and one rewrite of the file take them all: appending them one after the other and
// cutting at the end leaves the same text as cutting after each, since a cut only ever removes the oldest characters.
#include "logging/HVLLogger.h"

#include "foundation/diagnostics.h"
#include "foundation/unicode.h"
#include "platform/clock.h"
#include "platform/files.h"
#include "platform/session.h"
#include "platform/system_info.h"
#include "util/ProductPaths.h"

#include <utility>

namespace havrel {

namespace files = platform::files;
namespace text = platform::text;

namespace {

/// The generation of the log files, part of their names.
constexpr auto generation = "7";

struct SharedLoggers {
    std::mutex mutex;
    std::vector<HVLLogger*> created;
};

/// Outlives every thread, as the loggers themselves do.
SharedLoggers& sharedLoggers() {
    static auto& loggers = *new SharedLoggers;
    return loggers;
}

} // namespace

HVLLogger& HVLLogger::shared(const std::string& path) {
    auto logger = initWithLogFile(path);
    logger->setLogFilePath(path);
    const std::lock_guard lock(sharedLoggers().mutex);
    sharedLoggers().created.push_back(logger.get());
    return *logger.release();
}

HVLLogger& HVLLogger::instance() {
    static HVLLogger& logger = shared(paths::hostSupport + "/Havrel.log");
    return logger;
}

HVLLogger& HVLLogger::instanceHost() {
    static HVLLogger& logger = shared(paths::hostSupport + "/HavrelHost" + generation + ".log");
    return logger;
}

HVLLogger& HVLLogger::instanceViewer() {
    static HVLLogger& logger =
        shared(viewerLogFile(platform::system_info::bundlePath(), platform::session::currentHomeFolder()));
    return logger;
}

std::unique_ptr<HVLLogger> HVLLogger::initWithLogFile(const std::string& path) {
    files::createEmpty(path);
    return std::unique_ptr<HVLLogger>(new HVLLogger);
}

std::string HVLLogger::viewerLogFile(const std::string& bundlePath, const std::string& homeFolder) {
    const std::string webLauncher = homeFolder + "/Library/HVLWebLauncher";
    std::string folder = paths::suiteSupport;
    if (bundlePath == paths::viewerSupport + "/HavrelView.app") {
        folder = paths::viewerSupport;
    } else if (bundlePath == webLauncher + "/HavrelView.app") {
        folder = webLauncher;
    }
    return folder + "/HavrelView" + generation + ".log";
}

void HVLLogger::drainAll() {
    std::vector<HVLLogger*> loggers;
    {
        const std::lock_guard lock(sharedLoggers().mutex);
        loggers = sharedLoggers().created;
    }
    for (HVLLogger* logger : loggers) {
        logger->drain();
    }
}

void HVLLogger::logString(std::optional<std::string> message) {
    if (!message) {
        return;
    }
    platform::diagnostics::contain("HVLLogger", [&] {
        const std::lock_guard lock(mutex_);
        pending_.add(*std::move(message));
        if (!writeQueued_) {
            serialQueue_.async([this] { writePending(); });
            writeQueued_ = true;
        }
    });
}

void HVLLogger::drain() { serialQueue_.drain(); }

std::optional<std::string> HVLLogger::logFilePath() const {
    const std::lock_guard lock(mutex_);
    return logFilePath_;
}

void HVLLogger::setLogFilePath(std::optional<std::string> path) {
    const std::lock_guard lock(mutex_);
    logFilePath_ = std::move(path);
}

void HVLLogger::writePending() {
    std::vector<std::string> messages;
    std::optional<std::string> path;
    {
        const std::lock_guard lock(mutex_);
        messages = pending_.take();
        writeQueued_ = false;
        path = logFilePath_;
    }
    if (!path) {
        return;
    }
    const std::string timestamp = platform::clock::timestamp();
    std::optional<std::string> content = files::read(*path);
    if (content && !text::isValidUtf8(*content)) {
        content.reset();
    }
    for (const std::string& message : messages) {
        if (content) {
            *content += '\n';
        } else {
            content.emplace();
        }
        content->append(timestamp).append(" : ").append(message).append(" ");
    }
    if (content) {
        files::replace(*path, text::suffix(*content, maximumLength), files::Durability::cached);
    }
}

} // namespace havrel
