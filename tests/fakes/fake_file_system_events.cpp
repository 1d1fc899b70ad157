#include "fakes/fake_file_system_events.h"

#include "contract/file_system.h"

#include <algorithm>
#include <list>

namespace {

struct Stream {
    std::vector<std::string> paths;
    platform::FileSystemEventStream::Callback callback;
};

std::mutex mutex;
std::list<Stream> streams;

} // namespace

void fakes::file_system::rename(const std::string& source, const std::string& destination, bool isFolder) {
    const std::lock_guard lock(mutex);
    for (const Stream& stream : streams) {
        std::vector<platform::FileSystemEvent> batch;
        for (const std::string& path : {source, destination}) {
            if (std::ranges::count(stream.paths, path.substr(0, path.rfind('/'))) > 0) {
                const auto kind = isFolder ? platform::itemIsDir : platform::itemIsFile;
                batch.push_back({path, platform::itemRenamed | kind});
            }
        }
        if (!batch.empty()) {
            stream.callback(batch);
        }
    }
}

namespace platform {

struct FileSystemEventStream::State {
    std::list<Stream>::iterator stream;
};

FileSystemEventStream::FileSystemEventStream(RunLoop& /*loop*/, const std::vector<std::string>& paths,
                                             std::chrono::milliseconds latency, Callback callback) {
    const std::lock_guard lock(mutex);
    streams.push_back({paths, std::move(callback)});
    state_ = std::make_unique<State>(State{std::prev(streams.end())});
    fakes::file_system::watched.add(fakes::file_system::Watch{paths, latency});
}

FileSystemEventStream::~FileSystemEventStream() {
    const std::lock_guard lock(mutex);
    streams.erase(state_->stream);
}

} // namespace platform

namespace {

class SteeredFileSystem : public contract::FileSystem {
  public:
    void makeFolder(const std::string& path) override { folders_.push_back(path); }

    void makeFile(const std::string& /*path*/) override {}

    void watch(const std::vector<std::string>& paths) override {
        stream_ = std::make_unique<platform::FileSystemEventStream>(
            platform::RunLoop::main(), paths, std::chrono::seconds(1),
            [this](const auto& batch) { told_.push_back(contract::lineOf(batch)); });
    }

    void rename(const std::string& source, const std::string& destination) override {
        const auto folder = std::ranges::find(folders_, source);
        fakes::file_system::rename(source, destination, folder != folders_.end());
        if (folder != folders_.end()) {
            *folder = destination;
        }
    }

    std::vector<std::string> told() override { return told_; }

  private:
    std::vector<std::string> folders_;
    std::vector<std::string> told_;
    std::unique_ptr<platform::FileSystemEventStream> stream_;
};

} // namespace

std::unique_ptr<contract::FileSystem> contract::makeFileSystem() { return std::make_unique<SteeredFileSystem>(); }
