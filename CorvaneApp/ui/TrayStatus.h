#pragma once
// What the tray shows at one moment: the first menu line, the tooltip and the glyph's status name.

#include <string>

namespace corvane {

struct TrayStatus {
    std::string statusLine;  // the disabled first line of the menu
    std::string tooltip;
    std::string iconName;  // a status name ("earning", "idle", "paused", ...); unknown names get a
                           // neutral glyph
};

}  // namespace corvane
