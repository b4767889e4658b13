#pragma once
// The few D-Bus reads the idle sources need, behind an interface so that the sources are tested
// against fakes and the real client against a private bus.

#include <cstdint>
#include <optional>
#include <string>

namespace corvane {

struct DBusObject {
    std::string destination;
    std::string path;
    std::string interface;
};

class DBusClient {
  public:
    virtual ~DBusClient() = default;
    // Calls a method without arguments whose reply is one unsigned integer ("u" or "t").
    virtual std::optional<std::uint64_t> callUnsigned(const DBusObject& object,
                                                      const std::string& method) = 0;
    // Reads a property of type "u" or "t", respectively "b".
    virtual std::optional<std::uint64_t> unsignedProperty(const DBusObject& object,
                                                          const std::string& property) = 0;
    virtual std::optional<bool> boolProperty(const DBusObject& object,
                                             const std::string& property) = 0;
};

}  // namespace corvane
