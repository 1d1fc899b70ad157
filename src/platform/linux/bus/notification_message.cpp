#include "platform/linux/bus/notification_message.h"

#include "foundation/text.h"
#include "foundation/unicode.h"
#include "platform/linux/loop/event_loop.h"

#include <cerrno>
#include <cstring>

namespace platform {

namespace {

[[noreturn]] void tooLarge() { throw MalformedMessage("too large"); }

void checkDepth(int depth) {
    if (depth > NotificationMessage::maxDepth) {
        throw MalformedMessage("nested too deeply");
    }
}

void checkName(const std::string& name) {
    if (name.empty() || name.size() > NotificationMessage::maxNameLength) {
        throw MalformedMessage("name of " + std::to_string(name.size()) + " bytes");
    }
}

std::size_t costOf(const Value& value, int depth);

std::size_t costOf(const Dictionary& dictionary, int depth) {
    checkDepth(depth);
    std::size_t cost = sizeof(Dictionary);
    for (const auto& [key, member] : dictionary) {
        cost += key.size() + costOf(member, depth + 1);
    }
    return cost;
}

std::size_t costOf(const Array& array, int depth) {
    std::size_t cost = 0;
    for (const Value& element : array) {
        cost += costOf(element, depth + 1); // each element is in a variant of its own
    }
    return cost;
}

std::size_t costOf(const Value& value, int depth) {
    checkDepth(depth);
    return sizeof(Value) + value.visit([](const std::string& text) { return text.size(); },
                                       [](const Data& data) { return data.bytes.size(); },
                                       [depth](const Dictionary& members) { return costOf(members, depth + 1); },
                                       [depth](const Array& elements) { return costOf(elements, depth + 1); },
                                       [](const auto& /*scalar*/) { return std::size_t{0}; });
}

class Writer {
  public:
    explicit Writer(sd_bus_message& message) : message_(message) {}

    void appendText(std::string_view text) {
        using namespace std::string_view_literals;
        std::string valid = text::replaceAll(text::makeValidUtf8(text), "\0"sv, "\uFFFD");
        if (appendBasic('s', valid.c_str()) != -EINVAL) {
            return;
        }
        // The library refuses Unicode's noncharacters although they are valid UTF-8.
        for (char& byte : valid) {
            byte = static_cast<unsigned char>(byte) < 0x80 ? byte : '?';
        }
        check(appendBasic('s', valid.c_str()), "sd_bus_message_append_basic");
    }

    void appendMembers(const Dictionary& dictionary) {
        open('a', "{sv}");
        for (const auto& [key, member] : dictionary) {
            if (!member.isNull()) {
                open('e', "sv");
                appendText(key);
                appendVariant(member);
                close();
            }
        }
        close();
    }

    void appendNumber(std::uint32_t number) { check(appendBasic('u', &number), "sd_bus_message_append_basic"); }

  private:
    void appendVariant(const Value& value) {
        value.visit([](std::nullptr_t) {},
                    [this](bool flag) {
                        const int number = flag ? 1 : 0;
                        appendVariant("b", &number);
                    },
                    [this](std::int64_t number) { appendVariant("x", &number); },
                    [this](std::uint64_t number) { appendVariant("t", &number); },
                    [this](double number) { appendVariant("d", &number); },
                    [this](const Date& date) { appendVariant("d", &date.seconds); },
                    [this](const std::string& text) {
                        open('v', "s");
                        appendText(text);
                        close();
                    },
                    [this](const Data& data) {
                        open('v', "ay");
                        check(sd_bus_message_append_array(&message_, 'y', data.bytes.data(), data.bytes.size()),
                              "sd_bus_message_append_array");
                        close();
                    },
                    [this](const Dictionary& members) {
                        open('v', "a{sv}");
                        appendMembers(members);
                        close();
                    },
                    [this](const Array& elements) {
                        open('v', "av");
                        appendElements(elements);
                        close();
                    });
    }

    void appendElements(const Array& array) {
        open('a', "v");
        for (const Value& element : array) {
            if (!element.isNull()) {
                appendVariant(element);
            }
        }
        close();
    }

    void appendVariant(const char* type, const void* basic) {
        open('v', type);
        check(appendBasic(*type, basic), "sd_bus_message_append_basic");
        close();
    }

    int appendBasic(char type, const void* value) { return sd_bus_message_append_basic(&message_, type, value); }

    void open(char type, const char* contents) {
        check(sd_bus_message_open_container(&message_, type, contents), "sd_bus_message_open_container");
    }

    void close() { check(sd_bus_message_close_container(&message_), "sd_bus_message_close_container"); }

    sd_bus_message& message_;
};

class Reader {
  public:
    explicit Reader(sd_bus_message& message) : message_(message) {}

    template <typename Number>
    Number number(char type) {
        Number number{};
        read(sd_bus_message_read_basic(&message_, type, &number));
        return number;
    }

    std::string text(char type = 's') {
        const char* text = nullptr;
        read(sd_bus_message_read_basic(&message_, type, static_cast<void*>(&text)));
        const std::size_t length = std::strlen(text);
        pay(length);
        return {text, length};
    }

    Dictionary dictionary(const char* contents, int depth) {
        const std::string entry(contents + 1, std::strlen(contents) - 2);
        if (entry.front() != 's') {
            throw MalformedMessage("dictionary with keys of type " + entry.substr(0, 1));
        }
        Dictionary members;
        enter('a', contents, depth);
        while (!atEnd()) {
            read(sd_bus_message_enter_container(&message_, 'e', entry.c_str()));
            std::string key = text();
            members.insert_or_assign(std::move(key), value(depth + 1));
            leave();
        }
        leave();
        return members;
    }

  private:
    Value value(int depth) {
        pay(sizeof(Value));
        char type = 0;
        const char* contents = nullptr;
        read(sd_bus_message_peek_type(&message_, &type, &contents));
        switch (type) {
        case 'b':
            return number<int>(type) != 0;
        case 'y':
            return number<std::uint8_t>(type);
        case 'n':
            return number<std::int16_t>(type);
        case 'q':
            return number<std::uint16_t>(type);
        case 'i':
            return number<std::int32_t>(type);
        case 'u':
            return number<std::uint32_t>(type);
        case 'x':
            return number<std::int64_t>(type);
        case 't':
            return number<std::uint64_t>(type);
        case 'd':
            return number<double>(type);
        case 's':
        case 'o':
        case 'g':
            return text(type);
        case 'v': {
            enter('v', contents, depth);
            Value inner = value(depth + 1);
            leave();
            return inner;
        }
        case 'a':
            return array(contents, depth);
        default:
            throw MalformedMessage(std::string("value of type ") + type);
        }
    }

    Value array(const char* contents, int depth) {
        if (*contents == '{') {
            return dictionary(contents, depth);
        }
        if (std::strcmp(contents, "y") == 0) {
            return data();
        }
        Array elements;
        enter('a', contents, depth);
        while (!atEnd()) {
            elements.push_back(value(depth + 1));
        }
        leave();
        return elements;
    }

    Data data() {
        const void* bytes = nullptr;
        std::size_t size = 0;
        read(sd_bus_message_read_array(&message_, 'y', &bytes, &size));
        pay(size);
        return {std::string(static_cast<const char*>(bytes), size)};
    }

    void pay(std::size_t bytes) {
        if (bytes > left_) {
            tooLarge();
        }
        left_ -= bytes;
    }

    void enter(char type, const char* contents, int depth) {
        checkDepth(depth);
        // `contents` points into the container that is the current one until this call.
        const std::string kept(contents);
        read(sd_bus_message_enter_container(&message_, type, kept.c_str()));
    }

    void leave() { read(sd_bus_message_exit_container(&message_)); }

    bool atEnd() { return read(sd_bus_message_at_end(&message_, 0)) > 0; }

    static int read(int result) {
        if (result < 0) {
            throw MalformedMessage(std::strerror(-result));
        }
        return result;
    }

    sd_bus_message& message_;
    std::size_t left_ = NotificationMessage::maxCost;
};

} // namespace

std::size_t NotificationMessage::cost() const {
    return sizeof(NotificationMessage) + notification.name.size() + notification.object.size() +
           (notification.userInfo ? costOf(*notification.userInfo, 0) : 0);
}

void validate(const NotificationMessage& message) {
    checkName(message.notification.name);
    if (message.cost() > NotificationMessage::maxCost) {
        tooLarge();
    }
}

BusMessage encode(sd_bus& bus, const NotificationMessage& message) {
    sd_bus_message* made = nullptr;
    check(sd_bus_message_new_signal(&bus, &made, NotificationMessage::path, NotificationMessage::interface,
                                    NotificationMessage::member),
          "sd_bus_message_new_signal");
    BusMessage result(made);
    Writer writer(*made);
    writer.appendText(message.notification.name);
    writer.appendText(message.notification.object);
    writer.appendMembers(message.notification.userInfo.value_or(Dictionary{}));
    writer.appendNumber(message.options);
    return result;
}

NotificationMessage decode(sd_bus_message& signal) {
    if (sd_bus_message_has_signature(&signal, NotificationMessage::signature) <= 0) {
        const char* signature = sd_bus_message_get_signature(&signal, 1);
        throw MalformedMessage(std::string("signature ") + (signature != nullptr ? signature : "unknown"));
    }
    Reader reader(signal);
    NotificationMessage message;
    message.notification.name = reader.text();
    checkName(message.notification.name);
    message.notification.object = reader.text();
    if (Dictionary userInfo = reader.dictionary("{sv}", 0); !userInfo.empty()) {
        message.notification.userInfo = std::move(userInfo);
    }
    message.options = reader.number<std::uint32_t>('u');
    return message;
}

} // namespace platform
