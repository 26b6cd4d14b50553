#pragma once
// Whether the app starts with the user's session. On Linux: an XDG autostart
// entry for this program in ~/.config/autostart.

#include <optional>
#include <string>

namespace tamarind {

enum class LoginItemStatus { notRegistered, enabled, requiresApproval, notFound };

// "Not registered", "Enabled", "Requires approval in System Settings", "Not found".
const char* loginItemStatusText(LoginItemStatus status);

class LoginItem {
public:
    virtual ~LoginItem() = default;
    virtual LoginItemStatus status() const = 0;
    // The error's text on failure.
    virtual std::optional<std::string> registerItem() = 0;
    virtual std::optional<std::string> unregisterItem() = 0;
};

}  // namespace tamarind
