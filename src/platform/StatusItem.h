#pragma once
// The program's permanent handle on the desktop: an icon in the panel's
// status area with one menu. On Linux, a StatusNotifierItem (or the older
// XEmbed tray) through Qt.

#include <functional>
#include <string>
#include <vector>

namespace tamarind {

struct StatusMenuItem {
    std::string title;              // empty for a separator
    std::function<void()> trigger;  // none: the item is disabled
    std::string shortcut;           // e.g. "Ctrl+Q"; empty for none

    bool isSeparator() const { return title.empty(); }
};

enum class StatusIconLook { monochrome, colored };

class StatusItem {
public:
    virtual ~StatusItem() = default;
    // Builds the menu once; later changes go by the item's index in this list.
    virtual void setMenu(std::vector<StatusMenuItem> items) = 0;
    virtual void setItemTitle(std::size_t index, const std::string& title) = 0;
    virtual void setVisible(bool isVisible) = 0;
    virtual void setLook(StatusIconLook look) = 0;
    // The text shown when the pointer rests on the icon.
    virtual void setToolTip(const std::string& text) = 0;
};

}  // namespace tamarind
