#include "ui/CollectModeHUD.h"

#include <QGuiApplication>
#include <QHBoxLayout>
#include <QScreen>
#include <QVBoxLayout>

namespace tamarind {

namespace {

constexpr int kPanelWidth = 320;
constexpr int kTopMargin = 48;  // below a top panel

}  // namespace

CollectModeHUD::CollectModeHUD(CollectModeService& collectMode) : collectMode_(collectMode) {
    subscriptions_.push_back(collectMode_.isActive().subscribe([this](const bool& isActive) {
        if (isActive) {
            show();
        } else if (panel_) {
            panel_->hide();
        }
    }, true));
    subscriptions_.push_back(collectMode_.payload().subscribe(
        [this](const MultiClipPayload& payload) { refresh(payload.items.size()); }, true));
}

CollectModeHUD::~CollectModeHUD() = default;

std::string CollectModeHUD::countText(std::size_t count) {
    if (count == 0) return "Nothing staged yet";
    return std::to_string(count) + (count == 1 ? " copy staged" : " copies staged");
}

std::string CollectModeHUD::finishText(std::size_t count) {
    if (count == 0) return "Stop collecting";
    return "Store " + std::to_string(count) + " as one clip";
}

void CollectModeHUD::show() {
    if (!panel_) {
        panel_ = std::make_unique<QWidget>(nullptr, Qt::Tool | Qt::FramelessWindowHint | Qt::WindowStaysOnTopHint |
                                                        Qt::WindowDoesNotAcceptFocus);
        panel_->setAttribute(Qt::WA_ShowWithoutActivating);
        panel_->setObjectName("collectModeHUD");
        panel_->setStyleSheet("#collectModeHUD { background: #1F2233; border-radius: 12px; }"
                              "QLabel { color: #F2F3F8; }"
                              "QLabel#hint { color: #B8BCD0; }"
                              "QPushButton { padding: 6px 12px; border-radius: 6px; }"
                              "QPushButton#finish { background: #3B5BFD; color: white; border: none; }"
                              "QPushButton#cancel { background: transparent; color: #F2F3F8; border: 1px solid #4A4F6A; }");
        auto* layout = new QVBoxLayout(panel_.get());
        layout->setContentsMargins(16, 14, 16, 14);
        count_ = new QLabel(panel_.get());
        QFont big = count_->font();
        big.setPointSizeF(big.pointSizeF() * 1.3);
        big.setBold(true);
        count_->setFont(big);
        auto* hint = new QLabel(QString::fromUtf8(kCollectModeHint), panel_.get());
        hint->setObjectName("hint");
        hint->setWordWrap(true);
        auto* buttons = new QHBoxLayout();
        auto* cancel = new QPushButton(kCollectModeCancelButton, panel_.get());
        cancel->setObjectName("cancel");
        finish_ = new QPushButton(panel_.get());
        finish_->setObjectName("finish");
        for (QPushButton* button : {cancel, finish_}) button->setFocusPolicy(Qt::NoFocus);
        QObject::connect(cancel, &QPushButton::clicked, [this] { collectMode_.cancel(); });
        QObject::connect(finish_, &QPushButton::clicked, [this] { collectMode_.finish(); });
        buttons->addWidget(cancel);
        buttons->addStretch();
        buttons->addWidget(finish_);
        layout->addWidget(count_);
        layout->addWidget(hint);
        layout->addLayout(buttons);
        panel_->setFixedWidth(kPanelWidth);
    }
    refresh(collectMode_.payload().value().items.size());
    panel_->adjustSize();
    // Top right of the screen the pointer is on, clear of a top panel.
    QScreen* screen = QGuiApplication::screenAt(QCursor::pos());
    if (!screen) screen = QGuiApplication::primaryScreen();
    QRect area = screen->availableGeometry();
    panel_->move(area.right() - panel_->width() - 24, area.top() + kTopMargin);
    panel_->show();
}

void CollectModeHUD::refresh(std::size_t count) {
    if (!panel_) return;
    count_->setText(QString::fromStdString(countText(count)));
    finish_->setText(QString::fromStdString(finishText(count)));
}

}  // namespace tamarind
