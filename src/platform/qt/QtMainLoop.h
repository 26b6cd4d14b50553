#pragma once
// The main loop of the desktop application: the services' tasks and watched
// descriptors run inside Qt's event loop, beside the tray, the panels and
// D-Bus. The same deadline queue as the other loops, woken by one QTimer that
// is set to the earliest deadline. post() may come from any thread.

#include <QObject>
#include <QTimer>


#include "foundation/MainLoop.h"
#include "foundation/TaskQueue.h"

namespace tamarind {

class QtMainLoop final : public MainLoop {
public:
    // Needs a QCoreApplication (or QApplication) made before it.
    QtMainLoop();
    ~QtMainLoop() override;

    void post(Task task) override;
    [[nodiscard]] TaskHandle postDelayed(Duration delay, Task task) override;
    [[nodiscard]] FdWatch watchFd(int fd, std::function<void()> onReadable) override;
    const Clock& clock() const override { return clock_; }

private:
    void runDue();
    void arm();

    SystemClock clock_;
    TaskQueue queue_;
    QObject context_;  // lives on the main thread: queued calls to it run there
    QTimer timer_;
    bool isRunningDue_ = false;
};

}  // namespace tamarind
