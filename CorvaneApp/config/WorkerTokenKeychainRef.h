#pragma once
// The address of one stored credential: the keyring item of `service` and `account`.

#include <string>

namespace corvane {

struct WorkerTokenKeychainRef {
    std::string service;
    std::string account;

    friend bool operator==(const WorkerTokenKeychainRef&, const WorkerTokenKeychainRef&) = default;
};

}  // namespace corvane
