#include "CorvaneApp/app/LoginItemManager.h"

#include <cstdlib>
#include <sstream>
#include <system_error>

#include "CorvaneApp/platform/AtomicFile.h"
#include "CorvaneApp/platform/Paths.h"
#include "CorvaneApp/platform/Text.h"

namespace corvane {
namespace {

// An entry starts its program unless it says "Hidden=true" or turns GNOME's switch off.
bool entryStarts(const std::filesystem::path& file) {
    const auto text = readFile(file);
    if (!text) return false;
    std::istringstream lines(*text);
    std::string line;
    bool inMainGroup = false;
    while (std::getline(lines, line)) {
        const auto trimmed = trimAsciiWhitespace(line);
        if (trimmed.starts_with("[")) {
            inMainGroup = trimmed == "[Desktop Entry]";
            continue;
        }
        if (!inMainGroup) continue;
        const auto equals = trimmed.find('=');
        if (equals == std::string_view::npos) continue;
        const auto key = trimAsciiWhitespace(trimmed.substr(0, equals));
        const auto value = asciiLowercased(trimAsciiWhitespace(trimmed.substr(equals + 1)));
        if (key == "Hidden" && value == "true") return false;
        if (key == "X-GNOME-Autostart-enabled" && value == "false") return false;
    }
    return true;
}

// The Exec key's quoting: a path with characters the key reserves goes in double quotes, with
// the characters that stay special there escaped.
std::string execArgument(const std::string& path) {
    if (path.find_first_of(" \t\n\"'\\><~|&;$*?#()`") == std::string::npos) return path;
    std::string quoted = "\"";
    for (char c : path) {
        if (c == '"' || c == '`' || c == '$' || c == '\\') quoted += '\\';
        quoted += c;
    }
    return quoted + "\"";
}

}  // namespace

LoginItemManager::LoginItemManager(Paths paths) : paths_(std::move(paths)) {}

LoginItemManager::Paths LoginItemManager::systemPaths(std::filesystem::path program) {
    Paths paths;
    paths.userAutostartDir = paths::configHome() / "autostart";
    const char* dirs = std::getenv("XDG_CONFIG_DIRS");
    std::string list = dirs && *dirs ? dirs : "/etc/xdg";
    std::size_t start = 0;
    while (start <= list.size()) {
        const auto colon = std::min(list.find(':', start), list.size());
        const std::string dir = list.substr(start, colon - start);
        if (!dir.empty() && dir.front() == '/')
            paths.systemAutostartDirs.push_back(std::filesystem::path(dir) / "autostart");
        start = colon + 1;
    }
    paths.program = std::move(program);
    return paths;
}

std::string LoginItemManager::entryText(const std::filesystem::path& program, bool hidden) {
    std::string text =
        "[Desktop Entry]\n"
        "Type=Application\n"
        "Name=Corvane\n"
        "Comment=Put this computer's spare capacity to work transcribing audio\n"
        "Exec=" +
        execArgument(program.string()) +
        "\n"
        "Icon=corvane\n"
        "Terminal=false\n"
        "X-GNOME-Autostart-enabled=" +
        std::string(hidden ? "false" : "true") + "\n";
    if (hidden) text += "Hidden=true\n";
    return text;
}

bool LoginItemManager::systemEntryEnabled() const {
    // The first folder that has the entry is the one that counts.
    for (const auto& dir : paths_.systemAutostartDirs) {
        std::error_code error;
        if (std::filesystem::exists(dir / entryName, error)) return entryStarts(dir / entryName);
    }
    return false;
}

bool LoginItemManager::isEnabled() const {
    std::error_code error;
    if (std::filesystem::exists(userEntry(), error)) return entryStarts(userEntry());
    return systemEntryEnabled();
}

void LoginItemManager::setEnabled(bool enabled) {
    if (!enabled && !systemEntryEnabled()) {
        std::error_code error;
        std::filesystem::remove(userEntry(), error);
        if (error) throw std::system_error(error, "cannot remove " + userEntry().string());
        return;
    }
    std::filesystem::create_directories(paths_.userAutostartDir);
    writeFileAtomically(userEntry(), entryText(paths_.program, !enabled));
}

}  // namespace corvane
