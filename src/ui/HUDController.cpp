#include "ui/HUDController.h"

#include <QCursor>
#include <QFontMetrics>
#include <QGuiApplication>
#include <QIcon>
#include <QLabel>
#include <QPainter>
#include <QPainterPath>
#include <QPixmap>
#include <QRegion>
#include <QScreen>

#include <algorithm>
#include <cmath>

namespace tamarind {

namespace {

constexpr int kWidth = 220;
constexpr int kHeight = 90;
constexpr int kMaxWidth = 380;  // a longer title widens the card this far, then is elided
constexpr int kMargin = 16;
constexpr int kIconSize = 30;
constexpr int kIconGap = 12;
constexpr int kTextLeft = kMargin + kIconSize + kIconGap;
constexpr int kLineGap = 3;
constexpr qreal kRadius = 14;

const QColor kCard(30, 31, 36, 242);
const QColor kCardEdge(255, 255, 255, 26);
const QColor kForeground(244, 245, 248);
const QColor kSecondary(170, 174, 186);
const QColor kErrorAccent(255, 128, 84);
const QColor kErrorEdge(255, 128, 84, 150);

// Freedesktop names for each symbol, best first. Only a theme's "-symbolic"
// (monochrome) variant is used, tinted to the card's colour: a full-colour icon
// clashes with the dark card and cannot take the error colour, so without a
// symbolic one the symbol is drawn.
QStringList themeNames(const std::string& symbol) {
    if (symbol == "doc.on.clipboard") return {"edit-paste"};
    if (symbol == "textformat") return {"insert-text", "text-x-generic"};
    if (symbol == "tray") return {"mail-folder-inbox"};
    if (symbol == "lock.shield") return {"security-high", "changes-prevent"};
    if (symbol == "questionmark") return {"dialog-question", "help-about"};
    if (symbol == "trash") return {"user-trash", "edit-delete"};
    if (symbol == "square.stack.3d.up.fill") return {"view-paged", "edit-copy"};
    return {};
}

QPixmap tinted(const QIcon& icon, const QColor& color, qreal ratio) {
    QImage image = icon.pixmap(QSize(kIconSize, kIconSize), ratio).toImage().convertToFormat(
        QImage::Format_ARGB32_Premultiplied);
    QPainter painter(&image);
    painter.setCompositionMode(QPainter::CompositionMode_SourceIn);
    painter.fillRect(image.rect(), color);
    painter.end();
    return QPixmap::fromImage(image);
}

void drawText(QPainter& painter, const QRectF& box, const QString& text, int pixelSize) {
    QFont font = painter.font();
    font.setPixelSize(pixelSize);
    font.setBold(true);
    painter.setFont(font);
    painter.drawText(box, Qt::AlignCenter, text);
}

// Line drawings on a 30 × 30 grid, for a desktop without an icon theme (or
// without these names in it).
void drawSymbol(QPainter& painter, const std::string& symbol, const QColor& color) {
    QPen pen(color, 2.2, Qt::SolidLine, Qt::RoundCap, Qt::RoundJoin);
    painter.setPen(pen);
    painter.setBrush(Qt::NoBrush);
    if (symbol == "doc.on.clipboard") {
        painter.drawRoundedRect(QRectF(6, 5, 18, 22), 3, 3);
        painter.setBrush(color);
        painter.drawRoundedRect(QRectF(11, 2.5, 8, 5), 1.5, 1.5);
        painter.drawLine(QPointF(10.5, 14), QPointF(19.5, 14));
        painter.drawLine(QPointF(10.5, 19.5), QPointF(16.5, 19.5));
    } else if (symbol == "textformat") {
        drawText(painter, QRectF(0, 0, 30, 30), "Aa", 18);
    } else if (symbol == "tray") {
        QPainterPath box;
        box.moveTo(4, 16);
        box.lineTo(8, 7);
        box.lineTo(22, 7);
        box.lineTo(26, 16);
        box.lineTo(26, 23);
        box.quadTo(26, 25, 24, 25);
        box.lineTo(6, 25);
        box.quadTo(4, 25, 4, 23);
        box.closeSubpath();
        painter.drawPath(box);
        QPainterPath dip;
        dip.moveTo(4, 16);
        dip.lineTo(10.5, 16);
        dip.quadTo(11.5, 19.5, 15, 19.5);
        dip.quadTo(18.5, 19.5, 19.5, 16);
        dip.lineTo(26, 16);
        painter.drawPath(dip);
    } else if (symbol == "lock.shield") {
        QPainterPath shield;
        shield.moveTo(15, 3);
        shield.lineTo(25, 6.5);
        shield.lineTo(25, 14);
        shield.cubicTo(25, 20.5, 20.5, 25, 15, 27.5);
        shield.cubicTo(9.5, 25, 5, 20.5, 5, 14);
        shield.lineTo(5, 6.5);
        shield.closeSubpath();
        painter.drawPath(shield);
        painter.setPen(QPen(color, 1.8, Qt::SolidLine, Qt::RoundCap, Qt::RoundJoin));
        painter.drawArc(QRectF(12.2, 9.5, 5.6, 7), 0, 180 * 16);
        painter.drawLine(QPointF(12.2, 13), QPointF(12.2, 14.5));
        painter.drawLine(QPointF(17.8, 13), QPointF(17.8, 14.5));
        painter.setPen(Qt::NoPen);
        painter.setBrush(color);
        painter.drawRoundedRect(QRectF(10.5, 14, 9, 7), 1.5, 1.5);
    } else if (symbol == "questionmark") {
        painter.drawEllipse(QRectF(3, 3, 24, 24));
        drawText(painter, QRectF(3, 3, 24, 24), "?", 16);
    } else if (symbol == "trash") {
        painter.drawLine(QPointF(5, 8), QPointF(25, 8));
        painter.drawLine(QPointF(12, 4.5), QPointF(18, 4.5));
        QPainterPath body;
        body.moveTo(8, 8);
        body.lineTo(9.5, 24.5);
        body.quadTo(9.7, 26.5, 11.5, 26.5);
        body.lineTo(18.5, 26.5);
        body.quadTo(20.3, 26.5, 20.5, 24.5);
        body.lineTo(22, 8);
        painter.drawPath(body);
        painter.drawLine(QPointF(13, 12.5), QPointF(13, 22));
        painter.drawLine(QPointF(17, 12.5), QPointF(17, 22));
    } else if (symbol == "square.stack.3d.up.fill") {
        // Three layers, the top one filled: several copies stored as one.
        for (int layer = 2; layer >= 0; --layer) {
            QPainterPath rhombus;
            double y = 8 + layer * 5.5;
            rhombus.moveTo(15, y - 5);
            rhombus.lineTo(26, y);
            rhombus.lineTo(15, y + 5);
            rhombus.lineTo(4, y);
            rhombus.closeSubpath();
            painter.setBrush(layer == 0 ? QBrush(color) : QBrush(Qt::NoBrush));
            painter.drawPath(rhombus);
        }
    } else {
        // A name we have no drawing for still gets a mark, not a gap.
        painter.drawEllipse(QRectF(5, 5, 20, 20));
        painter.setBrush(color);
        painter.drawEllipse(QRectF(12, 12, 6, 6));
    }
}

QPixmap symbolPixmap(const std::string& symbol, const QColor& color, qreal ratio) {
    for (const QString& name : themeNames(symbol)) {
        QString symbolic = name + "-symbolic";
        if (QIcon::hasThemeIcon(symbolic)) return tinted(QIcon::fromTheme(symbolic), color, ratio);
    }
    QPixmap pixmap(QSize(kIconSize, kIconSize) * ratio);
    pixmap.setDevicePixelRatio(ratio);
    pixmap.fill(Qt::transparent);
    QPainter painter(&pixmap);
    painter.setRenderHint(QPainter::Antialiasing);
    drawSymbol(painter, symbol, color);
    return pixmap;
}

QPainterPath cardPath(const QRectF& rect) {
    QPainterPath path;
    path.addRoundedRect(rect, kRadius, kRadius);
    return path;
}

}  // namespace

// The card itself: a dark rounded rectangle with the symbol and the two lines.
// Translucent around the card where a compositor blends it; cut to the card by
// a mask as well, so that without one the corners show the desktop, not black.
class HUDPanel final : public QWidget {
public:
    HUDPanel()
        : QWidget(nullptr, Qt::Tool | Qt::FramelessWindowHint | Qt::WindowStaysOnTopHint |
                               Qt::WindowDoesNotAcceptFocus | Qt::X11BypassWindowManagerHint |
                               Qt::WindowTransparentForInput | Qt::NoDropShadowWindowHint) {
        setObjectName("pasteHUD");
        setAttribute(Qt::WA_ShowWithoutActivating);
        setAttribute(Qt::WA_TransparentForMouseEvents);
        setAttribute(Qt::WA_TranslucentBackground);
        setFocusPolicy(Qt::NoFocus);

        icon_ = new QLabel(this);
        icon_->setObjectName("symbol");
        title_ = new QLabel(this);
        title_->setObjectName("title");
        subtitle_ = new QLabel(this);
        subtitle_->setObjectName("subtitle");
        QFont titleFont = font();
        titleFont.setPixelSize(15);
        titleFont.setBold(true);
        title_->setFont(titleFont);
        QFont subtitleFont = font();
        subtitleFont.setPixelSize(12);
        subtitle_->setFont(subtitleFont);
        for (QLabel* label : {icon_, title_, subtitle_}) {
            label->setAttribute(Qt::WA_TransparentForMouseEvents);
            label->setTextFormat(Qt::PlainText);
        }
        QPalette titlePalette = title_->palette();
        titlePalette.setColor(QPalette::WindowText, kForeground);
        title_->setPalette(titlePalette);
        QPalette subtitlePalette = subtitle_->palette();
        subtitlePalette.setColor(QPalette::WindowText, kSecondary);
        subtitle_->setPalette(subtitlePalette);
    }

    void setContent(const HUDContent& content) {
        isError_ = content.isError;
        QString title = QString::fromStdString(content.title).simplified();
        QFontMetricsF titleMetrics(title_->font());
        // Rounded up and a pixel over, or elidedText() may still cut the title it was measured for.
        int titleWidth = static_cast<int>(std::ceil(titleMetrics.horizontalAdvance(title))) + 1;
        int width = std::clamp(kTextLeft + titleWidth + kMargin, kWidth, kMaxWidth);
        int textWidth = width - kTextLeft - kMargin;
        title_->setText(titleMetrics.elidedText(title, Qt::ElideRight, textWidth));

        bool hasSubtitle = content.subtitle && !content.subtitle->empty();
        subtitle_->setText(hasSubtitle ? QFontMetrics(subtitle_->font())
                                             .elidedText(QString::fromStdString(*content.subtitle).simplified(),
                                                         Qt::ElideRight, textWidth)
                                       : QString());
        subtitle_->setVisible(hasSubtitle);

        icon_->setPixmap(symbolPixmap(content.systemImage, isError_ ? kErrorAccent : kForeground, devicePixelRatioF()));
        icon_->setGeometry(kMargin, (kHeight - kIconSize) / 2, kIconSize, kIconSize);

        int titleHeight = QFontMetrics(title_->font()).height();
        int subtitleHeight = QFontMetrics(subtitle_->font()).height();
        int block = titleHeight + (hasSubtitle ? kLineGap + subtitleHeight : 0);
        int top = (kHeight - block) / 2;
        title_->setGeometry(kTextLeft, top, textWidth, titleHeight);
        subtitle_->setGeometry(kTextLeft, top + titleHeight + kLineGap, textWidth, subtitleHeight);

        setFixedSize(width, kHeight);
        setMask(QRegion(cardPath(QRectF(0, 0, width, kHeight)).toFillPolygon().toPolygon()));
        update();
    }

    QString title() const { return title_->text(); }
    QString subtitle() const { return subtitle_->isVisibleTo(this) ? subtitle_->text() : QString(); }

protected:
    void paintEvent(QPaintEvent*) override {
        QPainter painter(this);
        painter.setRenderHint(QPainter::Antialiasing);
        QRectF edge = QRectF(rect()).adjusted(0.5, 0.5, -0.5, -0.5);
        painter.setPen(QPen(isError_ ? kErrorEdge : kCardEdge, 1));
        painter.setBrush(kCard);
        painter.drawPath(cardPath(edge));
    }

private:
    QLabel* icon_ = nullptr;
    QLabel* title_ = nullptr;
    QLabel* subtitle_ = nullptr;
    bool isError_ = false;
};

HUDController::HUDController(MainLoop& loop) : loop_(loop) {}

HUDController::~HUDController() = default;

void HUDController::show(HUDContent content, Duration duration) {
    pending_.cancel();
    if (!panel_) panel_ = std::make_unique<HUDPanel>();
    panel_->setContent(content);

    QScreen* screen = QGuiApplication::screenAt(QCursor::pos());
    if (!screen) screen = QGuiApplication::primaryScreen();
    if (screen) {
        QRect area = screen->geometry();
        panel_->move(area.x() + (area.width() - panel_->width()) / 2, area.y() + (area.height() - panel_->height()) / 2);
    }

    panel_->setWindowOpacity(1.0);
    if (panel_->isVisible()) {
        panel_->raise();  // above what was mapped since; a window being mapped goes on top anyway
    } else {
        panel_->show();
    }
    pending_ = loop_.postDelayed(duration, [this] { stepFade(loop_.clock().now()); });
}

void HUDController::dismiss() {
    pending_.cancel();
    if (panel_) panel_->hide();
}

void HUDController::stepFade(MonotonicTime fadeStart) {
    Duration elapsed = loop_.clock().now() - fadeStart;
    if (elapsed >= kFadeDuration) {
        panel_->setWindowOpacity(0.0);
        panel_->hide();
        return;
    }
    using Seconds = std::chrono::duration<double>;
    panel_->setWindowOpacity(1.0 - Seconds(elapsed) / Seconds(kFadeDuration));
    pending_ = loop_.postDelayed(std::min(kFadeStep, kFadeDuration - elapsed), [this, fadeStart] { stepFade(fadeStart); });
}

QWidget* HUDController::panel() const { return panel_.get(); }

QString HUDController::titleText() const { return panel_ ? panel_->title() : QString(); }

QString HUDController::subtitleText() const { return panel_ ? panel_->subtitle() : QString(); }

}  // namespace tamarind
