// All waiting lines share one read and one rewrite of the file. The result is the same as with one rewrite per line,
// because a cut only ever removes the oldest characters.
#include "logging/HVLLogger.h"

#include "foundation/diagnostics.h"
#include "foundation/limited_report.h"
#include "foundation/unicode.h"
#include "platform/clock.h"
#include "platform/files.h"
#include "platform/session.h"
#include "platform/system_info.h"
#include "util/ProductPaths.h"

#include <system_error>
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

/// The file's text; nullopt if it can't be read or isn't UTF-8. Throws as files::readEnd does. Of a file longer than
/// the read limit only the end, which is more than a log may keep.
std::optional<std::string> endOfLog(const std::string& path) {
    const auto bytes = files::readEnd(path, files::readLimit);
    const bool mayBeCut = bytes && bytes->size() == files::readLimit;
    return bytes ? text::decodeUtf8(mayBeCut ? text::withoutCutCharacter(*bytes) : *bytes) : std::nullopt;
}

/// For all loggers.
void reportNoThread(const std::system_error& error) {
    static platform::LimitedReport report(1);
    report(std::string("HVLLogger: no thread, tried again with the next line: ") + error.what());
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
        if (writeQueued_) {
            return;
        }
        try {
            serialQueue_.async([this] { writePending(); });
            writeQueued_ = true;
        } catch (const std::system_error& error) {
            reportNoThread(error);
        }
    });
}

void HVLLogger::drain() { serialQueue_.drain(); }

void HVLLogger::writePending() {
    {
        const std::lock_guard lock(mutex_);
        writeQueued_ = false; // from now on a line asks for a write of its own, which may find nothing left to do
    }
    const std::optional<std::string> path = logFilePath_.get();
    // When this throws, the lines wait for the next one.
    std::optional<std::string> content = path ? endOfLog(*path) : std::nullopt;
    const std::vector<std::string> messages = takePending();
    if (!path || messages.empty()) {
        return;
    }
    const std::string timestamp = platform::clock::timestamp();
    for (const std::string& message : messages) {
        if (content) {
            *content += '\n';
        } else {
            content.emplace();
        }
        content->append(timestamp).append(" : ").append(message).append(" ");
    }
    files::replace(*path, text::suffix(*content, maximumLength), files::Durability::cached);
}

std::vector<std::string> HVLLogger::takePending() {
    const std::lock_guard lock(mutex_);
    return pending_.take();
}

} // namespace havrel
