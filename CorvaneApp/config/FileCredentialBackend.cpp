#include "CorvaneApp/config/FileCredentialBackend.h"

#include <sys/stat.h>
#include <cstdint>
#include <string>
#include <system_error>

#include <nlohmann/json.hpp>

#include "CorvaneApp/platform/AtomicFile.h"
#include "CorvaneApp/platform/Log.h"
#include "CorvaneApp/platform/Paths.h"

namespace corvane {
namespace {

using nlohmann::json;

// The file's items; absent with `status` set when it exists but can't be used. Error texts name
// the file only: its contents are secrets.
struct Items {
    json list = json::array();
    int status = 0;
};

Items load(const std::filesystem::path& path) {
    struct stat info {};
    if (::stat(path.c_str(), &info) != 0) return {};
    if ((info.st_mode & 077) != 0) {
        // Someone widened the mode; narrow it again before reading secrets out of it.
        log::get("KeychainStore")
            ->error("credential file {} was readable by others; restricting it to its owner",
                    path.string());
        ::chmod(path.c_str(), 0600);
    }
    auto text = readFile(path);
    if (!text) return {json::array(), EIO};
    auto parsed = json::parse(*text, nullptr, false);
    if (!parsed.is_object() || !parsed.contains("items") || !parsed["items"].is_array()) {
        log::get("KeychainStore")
            ->error("credential file {} is damaged and can't be read", path.string());
        return {json::array(), EBADMSG};
    }
    return {parsed["items"], 0};
}

int save(const std::filesystem::path& path, const json& items) {
    try {
        if (!std::filesystem::exists(path.parent_path())) {
            std::filesystem::create_directories(path.parent_path());
            std::filesystem::permissions(path.parent_path(), std::filesystem::perms::owner_all);
        }
        json document{{"version", 1}, {"items", items}};
        writeFileAtomically(path, document.dump(2) + "\n", 0600);
        return 0;
    } catch (const std::system_error& error) {
        log::get("KeychainStore")
            ->error("credential file {} could not be written: {}", path.string(),
                    error.code().message());
        return error.code().value() ? error.code().value() : EIO;
    } catch (const std::exception&) {
        log::get("KeychainStore")->error("credential file {} could not be written", path.string());
        return EIO;
    }
}

constexpr char kBase64[] = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";

// Secrets are bytes: kept as base64 so that any value fits a JSON string.
std::string toBase64(const std::string& bytes) {
    std::string out;
    size_t i = 0;
    for (; i + 2 < bytes.size(); i += 3) {
        uint32_t n = (static_cast<unsigned char>(bytes[i]) << 16) |
                     (static_cast<unsigned char>(bytes[i + 1]) << 8) |
                     static_cast<unsigned char>(bytes[i + 2]);
        for (int shift : {18, 12, 6, 0}) out += kBase64[(n >> shift) & 63];
    }
    if (size_t rest = bytes.size() - i; rest > 0) {
        uint32_t n = static_cast<unsigned char>(bytes[i]) << 16;
        if (rest == 2) n |= static_cast<unsigned char>(bytes[i + 1]) << 8;
        out += kBase64[(n >> 18) & 63];
        out += kBase64[(n >> 12) & 63];
        out += rest == 2 ? kBase64[(n >> 6) & 63] : '=';
        out += '=';
    }
    return out;
}

std::optional<std::string> fromBase64(const std::string& text) {
    if (text.size() % 4 != 0) return std::nullopt;
    std::string out;
    uint32_t n = 0;
    int bits = 0;
    size_t padding = 0;
    for (size_t i = 0; i < text.size(); ++i) {
        char c = text[i];
        if (c == '=') {
            if (i + 2 < text.size()) return std::nullopt;
            ++padding;
            continue;
        }
        if (padding > 0) return std::nullopt;
        const char* at = std::char_traits<char>::find(kBase64, 64, c);
        if (!at) return std::nullopt;
        n = (n << 6) | static_cast<uint32_t>(at - kBase64);
        bits += 6;
        if (bits >= 8) {
            bits -= 8;
            out += static_cast<char>((n >> bits) & 0xFF);
        }
    }
    return out;
}

bool matches(const json& item, const std::string& service, const std::string* account) {
    return item.is_object() && item.value("service", json()) == service &&
           (!account || item.value("account", json()) == *account);
}

}  // namespace

std::filesystem::path FileCredentialBackend::defaultPath() {
    return paths::varnixDir() / "credentials";
}

FileCredentialBackend::FileCredentialBackend(std::filesystem::path path) : path_(std::move(path)) {}

std::string FileCredentialBackend::description() const {
    return "file " + path_.string() + " (mode 0600)";
}

CredentialRead FileCredentialBackend::read(const std::string& service, const std::string& account) {
    std::lock_guard lock(mutex_);
    auto items = load(path_);
    if (items.status != 0) return {items.status, std::nullopt};
    for (const auto& item : items.list) {
        if (!matches(item, service, &account)) continue;
        const auto& encoded = item.value("secret", json());
        auto secret = encoded.is_string() ? fromBase64(encoded.get<std::string>()) : std::nullopt;
        if (!secret) return {EBADMSG, std::nullopt};
        return {0, std::move(*secret)};
    }
    return {ENOENT, std::nullopt};
}

int FileCredentialBackend::write(const std::string& service, const std::string& account,
                                 const std::string& secret) {
    std::lock_guard lock(mutex_);
    auto items = load(path_);
    if (items.status == EBADMSG) {
        // Keep the damaged file for the owner instead of writing over what it may still hold.
        auto aside = path_.string() + ".damaged";
        std::error_code error;
        std::filesystem::rename(path_, aside, error);
        if (error) return error.value();
        log::get("KeychainStore")->error("moved the damaged credential file to {}", aside);
        items = {};
    } else if (items.status != 0) {
        return items.status;
    }
    json updated = json::array();
    bool replaced = false;
    for (auto& item : items.list) {
        if (matches(item, service, &account)) {
            if (replaced) continue;  // heal duplicates left by an older writer
            item["secret"] = toBase64(secret);
            replaced = true;
        }
        updated.push_back(item);
    }
    if (!replaced)
        updated.push_back(
            {{"service", service}, {"account", account}, {"secret", toBase64(secret)}});
    return save(path_, updated);
}

void FileCredentialBackend::remove(const std::string& service, const std::string& account) {
    std::lock_guard lock(mutex_);
    auto items = load(path_);
    if (items.status != 0) return;
    json kept = json::array();
    for (const auto& item : items.list) {
        if (!matches(item, service, &account)) kept.push_back(item);
    }
    if (kept.size() != items.list.size()) save(path_, kept);
}

void FileCredentialBackend::removeAllOfService(const std::string& service) {
    std::lock_guard lock(mutex_);
    auto items = load(path_);
    if (items.status != 0) return;
    json kept = json::array();
    for (const auto& item : items.list) {
        if (!matches(item, service, nullptr)) kept.push_back(item);
    }
    if (kept.size() != items.list.size()) save(path_, kept);
}

int FileCredentialBackend::itemCount(const std::string& service, const std::string& account) {
    std::lock_guard lock(mutex_);
    int count = 0;
    for (const auto& item : load(path_).list) count += matches(item, service, &account) ? 1 : 0;
    return count;
}

}  // namespace corvane
