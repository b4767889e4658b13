#pragma once
// Starting Corvane when the owner signs in to the desktop: an XDG autostart entry of the owner's
// own ($XDG_CONFIG_HOME/autostart/corvane.desktop). An entry of the same name in the system's
// autostart folders (a package installs one) is overridden by the owner's: turning it off there
// writes an entry that hides it.

#include <filesystem>
#include <string>
#include <vector>

namespace corvane {

class LoginItemManager {
  public:
    static constexpr const char* entryName = "corvane.desktop";

    struct Paths {
        std::filesystem::path userAutostartDir;                  // ~/.config/autostart
        std::vector<std::filesystem::path> systemAutostartDirs;  // $XDG_CONFIG_DIRS/autostart
        std::filesystem::path program;                           // what the entry starts
    };

    explicit LoginItemManager(Paths paths);
    // The owner's folders as XDG names them; `program` is the installed `corvane`.
    static Paths systemPaths(std::filesystem::path program);

    // Whether Corvane starts at sign-in: the owner's entry decides, else a system one.
    bool isEnabled() const;
    // Writes or removes the owner's entry (making the folder when missing). Throws
    // std::system_error when the folder or file cannot be written.
    void setEnabled(bool enabled);

    std::filesystem::path userEntry() const { return paths_.userAutostartDir / entryName; }
    // The entry's text for `program`.
    static std::string entryText(const std::filesystem::path& program, bool hidden);

  private:
    bool systemEntryEnabled() const;

    Paths paths_;
};

}  // namespace corvane
