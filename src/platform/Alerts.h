#pragma once
// A modal alert: a warning with a title, a text and buttons, over whatever is on screen, the
// application brought to the front. Asynchronous, so that the main loop runs on while it is up:
// the answer comes later, on the main loop, as the index of the button pressed (the first is the
// default; closing the alert answers the last).

#include <functional>
#include <string>
#include <vector>

namespace tamarind {

struct AlertContent {
    std::string title;
    std::string text;
    std::vector<std::string> buttons;
    friend bool operator==(const AlertContent&, const AlertContent&) = default;
};

class Alerts {
public:
    virtual ~Alerts() = default;
    virtual void runModal(AlertContent content, std::function<void(std::size_t button)> done) = 0;
};

}  // namespace tamarind
