// All waiting lines share one read and one rewrite of the file. The result is the same as with one rewrite per line,
// because a cut only ever removes the oldest characters.
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

/// A fixed part of the log files' names.
constexpr auto generation = "7";

using SharedLoggers = std::vector<HVLLogger*>;

/// Never destroyed, since threads may log until the process ends.
platform::Guarded<SharedLoggers>& sharedLoggers() {
    static auto& loggers = *new platform::Guarded<SharedLoggers>;
    return loggers;
}

} // namespace

HVLLogger& HVLLogger::shared(const std::string& path) {
    auto logger = initWithLogFile(path);
    logger->setLogFilePath(path);
    sharedLoggers().with([&logger](SharedLoggers& loggers) { loggers.push_back(logger.get()); });
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
    for (HVLLogger* logger : sharedLoggers().get()) {
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

void HVLLogger::writePending() {
    std::vector<std::string> messages;
    {
        const std::lock_guard lock(mutex_);
        messages = pending_.take();
        writeQueued_ = false;
    }
    const std::optional<std::string> path = logFilePath_.get();
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
