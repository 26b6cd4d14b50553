#include "platform/qt/QtMainLoop.h"

#include <QCoreApplication>
#include <QPointer>
#include <QSocketNotifier>
#include <QThread>

#include <algorithm>

namespace tamarind {

QtMainLoop::QtMainLoop() {
    timer_.setSingleShot(true);
    timer_.setTimerType(Qt::PreciseTimer);
    QObject::connect(&timer_, &QTimer::timeout, &context_, [this] { runDue(); });
    // A push re-arms the timer on the main thread: at once from there (after the tasks being run,
    // which re-arm it anyway), through a queued call from any other.
    queue_.setOnPush([this] {
        if (QThread::currentThread() != context_.thread()) {
            QMetaObject::invokeMethod(&context_, [this] { arm(); }, Qt::QueuedConnection);
        } else if (!isRunningDue_) {
            arm();
        }
    });
}

QtMainLoop::~QtMainLoop() {
    queue_.setOnPush(nullptr);
    timer_.stop();
}

void QtMainLoop::post(Task task) { queue_.push(clock_.now(), std::move(task)); }

TaskHandle QtMainLoop::postDelayed(Duration delay, Task task) {
    return TaskHandle(queue_.push(clock_.now() + std::max(delay, Duration::zero()), std::move(task)));
}

void QtMainLoop::runDue() {
    isRunningDue_ = true;
    queue_.runDue(clock_.now());
    isRunningDue_ = false;
    arm();
}

void QtMainLoop::arm() {
    auto next = queue_.nextDeadline();
    if (!next) {
        timer_.stop();
        return;
    }
    auto wait = std::chrono::ceil<std::chrono::milliseconds>(*next - clock_.now());
    timer_.start(static_cast<int>(std::clamp<long long>(wait.count(), 0, 24LL * 3600 * 1000)));
}

FdWatch QtMainLoop::watchFd(int fd, std::function<void()> onReadable) {
    auto state = std::make_shared<detail::FdWatchState>();
    state->fd = fd;
    state->onReadable = std::move(onReadable);
    // Parented to the loop; a stopped watch disables its notifier at once (its descriptor may be
    // closed next) and deletes it once Qt is done with it, since stop() may run inside its signal.
    auto* notifier = new QSocketNotifier(fd, QSocketNotifier::Read, &context_);
    std::weak_ptr<detail::FdWatchState> weak = state;
    QObject::connect(notifier, &QSocketNotifier::activated, &context_, [weak] {
        if (auto watch = weak.lock(); watch && watch->isActive && watch->onReadable) watch->onReadable();
    });
    state->onStop = [notifier = QPointer<QSocketNotifier>(notifier)] {
        if (!notifier) return;  // the loop went first
        notifier->setEnabled(false);
        notifier->deleteLater();
    };
    return FdWatch(state);
}

}  // namespace tamarind
