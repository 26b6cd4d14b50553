#pragma once
// Collect mode's floating panel: made on first use, shown while collect mode
// is on, with the count of staged copies, the hint, a finish button and
// "Cancel collecting". A frameless tool window that stays on top and never
// takes the focus, so that copying in the window behind it goes on.

#include <QLabel>
#include <QPushButton>
#include <QWidget>

#include <memory>

#include "capture/CollectModeService.h"

namespace tamarind {

class CollectModeHUD {
public:
    explicit CollectModeHUD(CollectModeService& collectMode);
    ~CollectModeHUD();

    // The panel, once collect mode has been on (for a look at it).
    QWidget* panel() const { return panel_.get(); }
    // "3 copies staged", "1 copy staged", "Nothing staged yet".
    static std::string countText(std::size_t count);
    // "Store 3 as one clip"; "Stop collecting" while nothing is staged.
    static std::string finishText(std::size_t count);

private:
    void show();
    void refresh(std::size_t count);

    CollectModeService& collectMode_;
    std::unique_ptr<QWidget> panel_;
    QLabel* count_ = nullptr;
    QPushButton* finish_ = nullptr;
    std::vector<Subscription> subscriptions_;
};

}  // namespace tamarind
