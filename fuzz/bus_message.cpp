// The input is a signal's signature (a length byte, then its text) and its body, as they come from the bus.
#include "fuzz/require.h"
#include "platform/linux/bus/notification_message.h"

#include <cstdint>
#include <cstring>
#include <string>
#include <sys/socket.h>
#include <unistd.h>

namespace {

using namespace platform;

/// The wire format's little-endian header fields and their alignment.
class WireMessage {
  public:
    WireMessage(const std::string& signature, const std::string& body) {
        addBytes({'l', 4, 0, 1}); // little endian, signal, no flags, protocol version 1
        addNumber(static_cast<std::uint32_t>(body.size()));
        addNumber(1); // serial
        const std::size_t length = bytes_.size();
        addNumber(0);
        const std::size_t start = bytes_.size();
        addField(1, "o", NotificationMessage::path);
        addField(2, "s", NotificationMessage::interface);
        addField(3, "s", NotificationMessage::member);
        align(8);
        addBytes({8, 1, 'g', 0, static_cast<char>(signature.size())});
        bytes_ += signature;
        bytes_ += '\0';
        const auto fields = static_cast<std::uint32_t>(bytes_.size() - start);
        std::memcpy(bytes_.data() + length, &fields, sizeof fields);
        align(8);
        bytes_ += body;
    }

    const std::string& bytes() const { return bytes_; }

  private:
    void align(std::size_t boundary) { bytes_.append((boundary - bytes_.size() % boundary) % boundary, '\0'); }

    void addBytes(std::initializer_list<char> bytes) { bytes_.append(bytes); }

    void addNumber(std::uint32_t number) { bytes_.append(reinterpret_cast<const char*>(&number), sizeof number); }

    void addField(char code, const char* type, const std::string& text) {
        align(8);
        addBytes({code, 1, *type, 0});
        addNumber(static_cast<std::uint32_t>(text.size()));
        bytes_ += text;
        bytes_ += '\0';
    }

    std::string bytes_;
};

/// A connection whose other end is held by this program.
class Peer {
  public:
    Peer() {
        int ends[2];
        require(::socketpair(AF_UNIX, SOCK_STREAM, 0, ends) == 0);
        remote_ = ends[1];
        require(sd_bus_new(&bus_) >= 0);
        require(sd_bus_set_fd(bus_, ends[0], ends[0]) >= 0);
        require(sd_bus_set_anonymous(bus_, 1) >= 0);
        require(sd_bus_start(bus_) >= 0);
        send("OK 0123456789abcdef0123456789abcdef\r\nAGREE_UNIX_FD\r\n");
        while (sd_bus_is_ready(bus_) == 0) {
            require(sd_bus_process(bus_, nullptr) >= 0);
        }
    }

    ~Peer() {
        sd_bus_close_unref(bus_);
        ::close(remote_);
    }

    Peer(const Peer&) = delete;
    Peer& operator=(const Peer&) = delete;

    sd_bus& bus() { return *bus_; }

    void send(const std::string& bytes) const {
        require(::send(remote_, bytes.data(), bytes.size(), MSG_NOSIGNAL) == static_cast<ssize_t>(bytes.size()));
    }

    /// nullptr when the library has taken the bytes for no message and gives the connection up.
    BusMessage receive() {
        sd_bus_message* message = nullptr;
        int result = 1;
        while (result > 0 && message == nullptr) {
            result = sd_bus_process(bus_, &message);
        }
        return BusMessage(message);
    }

  private:
    sd_bus* bus_ = nullptr;
    int remote_ = -1;
};

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    constexpr std::size_t longestBody = 100'000; // the socket takes it at once
    const std::string input(reinterpret_cast<const char*>(data), size);
    if (input.empty() || size > longestBody) {
        return 0;
    }
    const auto length = static_cast<unsigned char>(input.front());
    const std::string signature = input.substr(1, length);
    const std::string body = size > 1U + length ? input.substr(1U + length) : std::string();

    Peer peer;
    peer.send(WireMessage(signature, body).bytes());
    const BusMessage received = peer.receive();
    if (!received || sd_bus_message_is_signal(received.get(), NotificationMessage::interface, nullptr) <= 0) {
        return 0;
    }
    try {
        const NotificationMessage message = decode(*received);
        // What was read can be told to others in the same way.
        const BusMessage again = encode(peer.bus(), message);
        require(sd_bus_message_seal(again.get(), 1, 0) >= 0);
        require(sd_bus_message_rewind(again.get(), 1) >= 0);
        const NotificationMessage reread = decode(*again);
        require(reread.notification.name == message.notification.name);
        require(reread.notification.object == message.notification.object);
        require(reread.options == message.options);
    } catch (const MalformedMessage&) { // NOLINT(bugprone-empty-catch): most inputs are
    }
    return 0;
}
