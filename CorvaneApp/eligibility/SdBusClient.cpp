#include "CorvaneApp/eligibility/SdBusClient.h"

#include <systemd/sd-bus.h>

#include <cstring>

namespace corvane {
namespace {

// Frees the error's texts whatever path leaves the scope.
struct ScopedError {
    sd_bus_error error{};  // all-null, as SD_BUS_ERROR_NULL spells it in C
    ~ScopedError() { sd_bus_error_free(&error); }
};

// Positions the reader on the reply's one value, inside its variant for a property, and gives
// that value's type ('u', 't', 'b', ...); 0 when the reply holds no single basic value.
char enterValue(sd_bus_message* reply, bool isProperty) {
    char type = 0;
    const char* contents = nullptr;
    if (sd_bus_message_peek_type(reply, &type, &contents) <= 0) return 0;
    if (!isProperty) return type;
    if (type != 'v' || !contents || std::strlen(contents) != 1) return 0;
    char inner = contents[0];
    return sd_bus_message_enter_container(reply, 'v', contents) > 0 ? inner : 0;
}

std::optional<std::uint64_t> readUnsigned(sd_bus_message* reply, bool isProperty) {
    char type = enterValue(reply, isProperty);
    if (type == 'u') {
        std::uint32_t value = 0;
        if (sd_bus_message_read_basic(reply, 'u', &value) > 0) return value;
    } else if (type == 't') {
        std::uint64_t value = 0;
        if (sd_bus_message_read_basic(reply, 't', &value) > 0) return value;
    }
    return std::nullopt;
}

}  // namespace

void SdBusClient::BusDeleter::operator()(sd_bus* bus) const {
    sd_bus_flush_close_unref(bus);
}
void SdBusClient::MessageDeleter::operator()(sd_bus_message* message) const {
    sd_bus_message_unref(message);
}

SdBusClient::SdBusClient(Bus bus, double callTimeoutSeconds)
    : bus_(bus), timeoutMicros_(static_cast<std::uint64_t>(callTimeoutSeconds * 1e6)) {}

SdBusClient::SdBusClient(std::string address, double callTimeoutSeconds)
    : address_(std::move(address)),
      timeoutMicros_(static_cast<std::uint64_t>(callTimeoutSeconds * 1e6)) {}

SdBusClient::~SdBusClient() = default;

sd_bus* SdBusClient::connection() {
    dropIfClosed();
    if (connection_) return connection_.get();
    sd_bus* raw = nullptr;
    int result = -1;
    if (bus_ == Bus::session) {
        result = sd_bus_open_user(&raw);
    } else if (bus_ == Bus::system) {
        result = sd_bus_open_system(&raw);
    } else {
        result = sd_bus_new(&raw);
        if (result >= 0) {
            std::unique_ptr<sd_bus, BusDeleter> fresh(raw);
            raw = nullptr;
            if (sd_bus_set_address(fresh.get(), address_.c_str()) >= 0 &&
                sd_bus_set_bus_client(fresh.get(), 1) >= 0 && sd_bus_start(fresh.get()) >= 0) {
                raw = fresh.release();
            }
            result = raw ? 0 : -1;
        }
    }
    if (result < 0 || !raw) return nullptr;
    connection_.reset(raw);
    sd_bus_set_method_call_timeout(raw, timeoutMicros_);
    return raw;
}

void SdBusClient::dropIfClosed() {
    if (connection_ && sd_bus_is_open(connection_.get()) <= 0) connection_.reset();
}

SdBusClient::Reply SdBusClient::call(const DBusObject& object, const std::string& member,
                                     const std::string* property) {
    sd_bus* bus = connection();
    if (!bus) return nullptr;
    ScopedError error;
    sd_bus_message* raw = nullptr;
    // A property is read by Properties.Get by hand: its variant may hold either width of integer.
    int result =
        property
            ? sd_bus_call_method(bus, object.destination.c_str(), object.path.c_str(),
                                 "org.freedesktop.DBus.Properties", "Get", &error.error, &raw, "ss",
                                 object.interface.c_str(), property->c_str())
            : sd_bus_call_method(bus, object.destination.c_str(), object.path.c_str(),
                                 object.interface.c_str(), member.c_str(), &error.error, &raw, "");
    Reply reply(raw);
    if (result < 0) {
        dropIfClosed();
        return nullptr;
    }
    return reply;
}

std::optional<std::uint64_t> SdBusClient::callUnsigned(const DBusObject& object,
                                                       const std::string& method) {
    auto reply = call(object, method, nullptr);
    return reply ? readUnsigned(reply.get(), false) : std::nullopt;
}

std::optional<std::uint64_t> SdBusClient::unsignedProperty(const DBusObject& object,
                                                           const std::string& property) {
    auto reply = call(object, "Get", &property);
    return reply ? readUnsigned(reply.get(), true) : std::nullopt;
}

std::optional<bool> SdBusClient::boolProperty(const DBusObject& object,
                                              const std::string& property) {
    auto reply = call(object, "Get", &property);
    int value = 0;
    if (!reply || enterValue(reply.get(), true) != 'b' ||
        sd_bus_message_read_basic(reply.get(), 'b', &value) <= 0) {
        return std::nullopt;
    }
    return value != 0;
}

}  // namespace corvane
