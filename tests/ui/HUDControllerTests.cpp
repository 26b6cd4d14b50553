// The paste feedback panel on Qt's offscreen platform, on the manual loop's virtual time: its
// content and place, the wait and the fade, a show that lands while one is up, dismissing, and
// text too long for the card.

#include <gtest/gtest.h>

#include <QApplication>
#include <QFontMetrics>
#include <QIcon>
#include <QImage>
#include <QLabel>
#include <QScreen>

#include <fstream>
#include <vector>

#include "support/ManualMainLoop.h"
#include "support/TemporaryFolder.h"
#include "ui/HUDController.h"

namespace tamarind {
namespace {

using namespace std::chrono_literals;

const HUDContent kPasted{"doc.on.clipboard", "Pasted slot 3", "Report draft", false};
const HUDContent kEmptySlot{"tray", "No clip in slot 4", std::nullopt, true};

class HUDControllerTest : public ::testing::Test {
protected:
    ManualMainLoop loop;
    HUDController hud{loop};

    bool isShown() const { return hud.panel() && hud.panel()->isVisible(); }
    double opacity() const { return hud.panel()->windowOpacity(); }
    QLabel* label(const char* name) const { return hud.panel()->findChild<QLabel*>(name); }
    QImage symbolShown() const { return label("symbol")->pixmap().toImage(); }
};

TEST_F(HUDControllerTest, ShowsTheContentCentredThenWaitsTheDurationAndFadesOut) {
    hud.dismiss();
    EXPECT_EQ(hud.panel(), nullptr) << "dismissing before any show makes no panel";

    hud.show(kPasted, 1500ms);
    ASSERT_NE(hud.panel(), nullptr);
    QWidget* panel = hud.panel();
    EXPECT_TRUE(panel->isVisible());
    EXPECT_EQ(hud.titleText(), "Pasted slot 3");
    EXPECT_EQ(hud.subtitleText(), "Report draft");
    EXPECT_EQ(panel->size(), QSize(220, 90));
    QPoint offCentre = panel->geometry().center() - QGuiApplication::primaryScreen()->geometry().center();
    EXPECT_LE(offCentre.manhattanLength(), 1) << "centred on the screen under the pointer";
    // What the window system reads to leave the focus with the paste's target and the clicks
    // with the window behind (the offscreen platform activates every window it shows, so the
    // outcome itself can only be seen on X11).
    EXPECT_TRUE(panel->testAttribute(Qt::WA_ShowWithoutActivating));
    EXPECT_TRUE(panel->windowFlags().testFlags(Qt::WindowDoesNotAcceptFocus | Qt::WindowTransparentForInput));

    loop.advanceBy(1499ms);
    EXPECT_EQ(opacity(), 1.0) << "no fade before the duration is over";
    // The fade: the opacity falls at each step, and the panel goes at 0.18 s.
    std::vector<double> fade;
    for (loop.advanceBy(1ms); isShown(); loop.advanceBy(1ms)) fade.push_back(opacity());
    ASSERT_EQ(fade.size(), 180u) << "the panel goes 0.18 s into the fade";
    for (std::size_t step = 15; step < fade.size(); step += 15) EXPECT_LT(fade[step], fade[step - 15]) << step;
    EXPECT_GT(fade[90], 0.3) << "half-way through the fade";
    EXPECT_LT(fade[90], 0.7) << "half-way through the fade";
    EXPECT_FALSE(loop.hasPendingTasks());

    hud.show(kPasted, 1500ms);
    EXPECT_EQ(hud.panel(), panel) << "the panel is kept for the next show";
    EXPECT_EQ(opacity(), 1.0) << "a show after a fade starts opaque again";
}

TEST_F(HUDControllerTest, AShowWhileUpReplacesTheTextAndRestartsTheWaitAndDismissHidesAtOnce) {
    hud.show(kPasted, 1s);
    QWidget* panel = hud.panel();
    loop.advanceBy(800ms);
    hud.show(kEmptySlot, 1s);
    EXPECT_EQ(hud.panel(), panel);
    EXPECT_EQ(hud.titleText(), "No clip in slot 4");
    EXPECT_FALSE(label("subtitle")->isVisible()) << "no second line without a subtitle";
    loop.advanceBy(999ms);  // well past the first show's end and its fade
    EXPECT_TRUE(isShown());
    EXPECT_EQ(opacity(), 1.0);

    // A show in the middle of the fade stops it: no step of the old fade lowers or hides the new one.
    loop.advanceBy(1ms + 90ms);
    ASSERT_LT(opacity(), 1.0);
    hud.show(kPasted, 1s);
    EXPECT_EQ(opacity(), 1.0);
    EXPECT_TRUE(label("subtitle")->isVisible());
    loop.advanceBy(999ms);
    EXPECT_EQ(opacity(), 1.0);

    // Dismissed while fading, and while waiting: hidden at once, nothing left to run.
    loop.advanceBy(30ms);
    ASSERT_LT(opacity(), 1.0);
    hud.dismiss();
    EXPECT_FALSE(isShown());
    EXPECT_FALSE(loop.hasPendingTasks());
    hud.show(kEmptySlot, 1s);
    EXPECT_EQ(opacity(), 1.0);
    hud.dismiss();
    EXPECT_FALSE(isShown());
    EXPECT_FALSE(loop.hasPendingTasks()) << "the dismissal that was waiting is cancelled";
}

TEST_F(HUDControllerTest, LongTextWidensTheCardUpToALimitThenIsElidedToOneLine) {
    const QString ellipsis(QChar(0x2026));
    auto fitsItsLabel = [&](const char* name) {
        QLabel* shown = label(name);
        return QFontMetrics(shown->font()).horizontalAdvance(shown->text()) <= shown->width() &&
               shown->geometry().right() < hud.panel()->width();
    };

    hud.show({"textformat", "Pasted slot 12 as plain text", std::nullopt, false}, 1s);
    int widened = hud.panel()->width();
    EXPECT_GT(widened, 220) << "a somewhat longer title widens the card";
    EXPECT_EQ(hud.panel()->height(), 90);
    EXPECT_EQ(hud.titleText(), "Pasted slot 12 as plain text") << "and is shown whole";
    EXPECT_TRUE(fitsItsLabel("title"));

    std::string longTitle = "Pasted " + std::string(200, 'w');
    std::string longSubtitle = "first line\nsecond line\t" + std::string(300, 'x');
    hud.show({"doc.on.clipboard", longTitle, longSubtitle, false}, 1s);
    EXPECT_GT(hud.panel()->width(), widened);
    EXPECT_LE(hud.panel()->width(), 2 * 220) << "the card stops growing";
    EXPECT_EQ(hud.panel()->height(), 90);
    EXPECT_TRUE(hud.titleText().startsWith("Pasted w"));
    EXPECT_TRUE(hud.titleText().endsWith(ellipsis));
    EXPECT_TRUE(fitsItsLabel("title"));
    EXPECT_TRUE(hud.subtitleText().startsWith("first line second line xx")) << hud.subtitleText().toStdString();
    EXPECT_TRUE(hud.subtitleText().endsWith(ellipsis));
    EXPECT_TRUE(fitsItsLabel("subtitle"));

    hud.show(kPasted, 1s);
    EXPECT_EQ(hud.panel()->size(), QSize(220, 90)) << "the card shrinks back for a short title";
}

TEST_F(HUDControllerTest, AnUnknownSymbolStillHasAnIconAndAnErrorIsColouredDifferently) {
    hud.show({"no.such.symbol", "Title", std::nullopt, false}, 1s);
    QImage unknown = symbolShown();
    EXPECT_FALSE(unknown.isNull());
    hud.show({"trash", "Title", std::nullopt, false}, 1s);
    EXPECT_NE(symbolShown(), unknown);

    HUDContent content = kEmptySlot;
    content.isError = false;
    hud.show(content, 1s);
    QImage plain = hud.panel()->grab().toImage();
    content.isError = true;
    hud.show(content, 1s);
    EXPECT_NE(hud.panel()->grab().toImage(), plain);
}

// The theme is global to the process: set for one test and put back after it.
class HUDControllerThemeTest : public HUDControllerTest {
protected:
    void SetUp() override {
        savedPaths = QIcon::themeSearchPaths();
        savedName = QIcon::themeName();
        std::filesystem::create_directories(folder.path() / "Plain/actions");
        std::ofstream(folder.path() / "Plain/index.theme") << "[Icon Theme]\nName=Plain\nDirectories=actions\n\n"
                                                              "[actions]\nSize=32\nType=Scalable\nMinSize=8\nMaxSize=512\n";
        // A black square where the drawn clipboard has a gap between its lines.
        QImage square(32, 32, QImage::Format_ARGB32);
        square.fill(Qt::transparent);
        for (int y = 8; y < 24; ++y)
            for (int x = 8; x < 24; ++x) square.setPixelColor(x, y, Qt::black);
        ASSERT_TRUE(square.save(QString::fromStdString((folder.path() / "Plain/actions/edit-paste-symbolic.png").string())));
        QIcon::setThemeSearchPaths({QString::fromStdString(folder.path().string())});
        QIcon::setThemeName("Plain");
    }
    void TearDown() override {
        QIcon::setThemeSearchPaths(savedPaths);
        QIcon::setThemeName(savedName);
    }

    TemporaryFolder folder;
    QStringList savedPaths;
    QString savedName;
};

TEST_F(HUDControllerThemeTest, ASymbolicThemeIconIsUsedTintedToTheCardAndTheError) {
    auto centre = [&] {
        QImage icon = symbolShown();
        return icon.pixelColor(icon.width() / 2, icon.height() / 2);
    };
    hud.show(kPasted, 1s);
    QColor plain = centre();
    EXPECT_EQ(plain.alpha(), 255) << "the theme's icon, not the drawing";
    EXPECT_GT(qGray(plain.rgb()), 200) << "tinted light on the dark card";

    hud.show({"doc.on.clipboard", "Nothing pasted", std::nullopt, true}, 1s);
    QColor error = centre();
    EXPECT_EQ(error.alpha(), 255);
    EXPECT_GT(error.red(), error.blue() + 80) << "an error takes a warm colour";
}

}  // namespace
}  // namespace tamarind
