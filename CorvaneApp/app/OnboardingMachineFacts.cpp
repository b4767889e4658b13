#include "CorvaneApp/app/OnboardingMachineFacts.h"

#include <openssl/evp.h>
#include <unistd.h>

#include <array>
#include <cctype>
#include <climits>
#include <random>

#include "CorvaneApp/models/FileDigest.h"
#include "CorvaneApp/models/MachineProbe.h"
#include "CorvaneApp/platform/AtomicFile.h"
#include "CorvaneApp/platform/Text.h"

namespace corvane {
namespace {

std::string hex(const unsigned char* bytes, std::size_t count) {
    static constexpr char digits[] = "0123456789abcdef";
    std::string out;
    for (std::size_t i = 0; i < count; ++i) {
        out += digits[bytes[i] >> 4];
        out += digits[bytes[i] & 0xF];
    }
    return out;
}

std::string sha256Hex(std::string_view text) {
    std::array<unsigned char, EVP_MAX_MD_SIZE> digest{};
    unsigned int length = 0;
    EVP_Digest(text.data(), text.size(), digest.data(), &length, EVP_sha256(), nullptr);
    return hex(digest.data(), length);
}

}  // namespace

std::string workerIDForMachine(std::optional<std::string_view> machineID) {
    if (machineID) {
        const std::string id = trimWhitespaceAndNewlines(*machineID);
        // The raw machine id is meant to stay on the machine: only a keyed hash leaves it.
        if (!id.empty())
            return "wk_" + sha256Hex("corvane-worker:" + std::string(id)).substr(0, 16);
    }
    std::random_device random;
    std::array<unsigned char, 8> bytes{};
    for (auto& byte : bytes) byte = static_cast<unsigned char>(random() & 0xFF);
    return "wk_" + hex(bytes.data(), bytes.size());
}

std::string computerNameFrom(std::optional<std::string_view> machineInfo,
                             std::string_view hostName) {
    if (machineInfo) {
        std::string_view text = *machineInfo;
        while (!text.empty()) {
            const auto end = std::min(text.find('\n'), text.size());
            const std::string line = trimWhitespaceAndNewlines(text.substr(0, end));
            text.remove_prefix(std::min(end + 1, text.size()));
            if (!line.starts_with("PRETTY_HOSTNAME=")) continue;
            std::string value = trimWhitespaceAndNewlines(std::string_view(line).substr(16));
            if (value.size() >= 2 && (value.front() == '"' || value.front() == '\'') &&
                value.back() == value.front()) {
                value =
                    trimWhitespaceAndNewlines(std::string_view(value).substr(1, value.size() - 2));
            }
            if (!value.empty()) return value;
        }
    }
    std::string host(trimWhitespaceAndNewlines(hostName));
    for (auto at = host.find(".local"); at != std::string::npos; at = host.find(".local"))
        host.erase(at, 6);
    return host.empty() ? "computer" : host;
}

std::optional<std::string> chipDescriptionFrom(std::string_view brandString) {
    if (brandString.starts_with("Apple ")) brandString.remove_prefix(6);
    std::string chip = trimWhitespaceAndNewlines(brandString);
    if (chip.empty()) return std::nullopt;
    return chip;
}

std::optional<std::string> buildIdentityFrom(std::string_view version,
                                             std::optional<std::string_view> executableSHA256) {
    const std::string coarse = trimWhitespaceAndNewlines(version);
    std::string hash =
        executableSHA256 ? std::string(executableSHA256->substr(0, 12)) : std::string();
    if (!coarse.empty()) return hash.empty() ? coarse : coarse + " sha256:" + hash;
    if (!hash.empty()) return "sha256:" + hash;
    return std::nullopt;
}

std::string OnboardingMachineFacts::readComputerName(const Sources& sources) {
    std::string host;
    if (sources.hostName) {
        host = *sources.hostName;
    } else {
        char buffer[HOST_NAME_MAX + 1] = {};
        if (::gethostname(buffer, sizeof buffer - 1) == 0) host = buffer;
    }
    const auto machineInfo = readFile(sources.machineInfoFile);
    return computerNameFrom(
        machineInfo ? std::optional<std::string_view>(*machineInfo) : std::nullopt, host);
}

OnboardingMachineFacts OnboardingMachineFacts::read(const MachineProbe& probe,
                                                    const Sources& sources) {
    OnboardingMachineFacts facts;
    const auto machineID = readFile(sources.machineIDFile);
    facts.workerID =
        workerIDForMachine(machineID ? std::optional<std::string_view>(*machineID) : std::nullopt);
    facts.computerName = readComputerName(sources);
    facts.chipDescription = chipDescriptionFrom(probe.cpuBrandString());
    facts.physicalMemoryBytes = probe.physicalMemoryBytes();
    std::optional<std::string> digest;
    try {
        digest = sha256HexOfFile(sources.executable);
    } catch (const std::exception&) {
        // No hash: the identity is the version alone.
    }
    facts.buildIdentity = buildIdentityFrom(sources.version, digest);
    return facts;
}

}  // namespace corvane
