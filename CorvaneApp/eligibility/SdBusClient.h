#pragma once
// DBusClient over libsystemd's sd-bus. Connects on first use and again after a lost connection,
// so a bus that appears later (a desktop session starting) is found; every call has a short
// timeout, since it runs on the main sequence.

#include <memory>
#include <string>

#include "CorvaneApp/eligibility/DBusClient.h"

struct sd_bus;
struct sd_bus_message;

namespace corvane {

class SdBusClient final : public DBusClient {
  public:
    enum class Bus { session, system };

    // The user's session bus or the system bus.
    explicit SdBusClient(Bus bus, double callTimeoutSeconds = 0.25);
    // A bus at an explicit address ("unix:path=..."), for private buses.
    explicit SdBusClient(std::string address, double callTimeoutSeconds = 0.25);
    ~SdBusClient() override;
    SdBusClient(const SdBusClient&) = delete;
    SdBusClient& operator=(const SdBusClient&) = delete;

    std::optional<std::uint64_t> callUnsigned(const DBusObject& object,
                                              const std::string& method) override;
    std::optional<std::uint64_t> unsignedProperty(const DBusObject& object,
                                                  const std::string& property) override;
    std::optional<bool> boolProperty(const DBusObject& object,
                                     const std::string& property) override;

  private:
    struct BusDeleter {
        void operator()(sd_bus* bus) const;
    };
    struct MessageDeleter {
        void operator()(sd_bus_message* message) const;
    };
    using Reply = std::unique_ptr<sd_bus_message, MessageDeleter>;

    // A method without arguments, or with `property` the Get of that property of the object's
    // interface. Null on any error; a connection found closed is dropped for the next call.
    Reply call(const DBusObject& object, const std::string& member, const std::string* property);
    sd_bus* connection();
    void dropIfClosed();

    std::optional<Bus> bus_;
    std::string address_;
    std::uint64_t timeoutMicros_;
    std::unique_ptr<sd_bus, BusDeleter> connection_;
};

}  // namespace corvane
