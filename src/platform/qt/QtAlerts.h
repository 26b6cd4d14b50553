#pragma once
// Alerts as Qt message boxes: application-modal, brought to the front, answered asynchronously so
// that the main loop never waits on the user.

#include "platform/Alerts.h"

namespace tamarind {

class QtAlerts final : public Alerts {
public:
    void runModal(AlertContent content, std::function<void(std::size_t button)> done) override;
};

}  // namespace tamarind
