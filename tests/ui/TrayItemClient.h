#pragma once
// Talks to a tray item over D-Bus the way a panel does: reads the item's properties and its
// dbusmenu layout, clicks menu entries, and waits for the item to announce changes.

#include <QDBusConnection>
#include <QString>
#include <QVariant>

#include <chrono>
#include <functional>
#include <string>
#include <vector>

namespace corvane::testing {

struct MenuEntry {
    int id = 0;
    std::string label;
    std::string type = "standard";  // or "separator"
    bool enabled = true;
    bool visible = true;
};

class TrayItemClient {
  public:
    // `service` and `itemPath` as the watcher got them. Throws std::runtime_error when the bus is
    // unreachable or the item doesn't say where its menu is.
    TrayItemClient(const std::string& busAddress, const std::string& service,
                   const std::string& itemPath);
    ~TrayItemClient();

    // A StatusNotifierItem property; an invalid QVariant when the call fails.
    QVariant itemProperty(const QString& name);
    std::string toolTipTitle();
    // The sizes of the pixmaps the item offers, as "WxH".
    std::vector<std::string> iconPixmapSizes();

    // The top-level entries of the menu. Throws std::runtime_error when the call fails.
    std::vector<MenuEntry> menu();
    // Sends a "clicked" event for the entry with this label; throws when there is none.
    void click(const std::string& label);

    // Re-checks `done` each time the item signals a change; false when `limit` passes first.
    bool waitUntil(const std::function<bool()>& done, std::chrono::milliseconds limit);

  private:
    QDBusConnection bus_;
    QString connectionName_;
    QString service_;
    QString itemPath_;
    QString menuPath_;
};

}  // namespace corvane::testing
