#include "App/System/TerminationSignals.h"

#include <QCoreApplication>
#include <QSocketNotifier>

#include <csignal>
#include <cstdint>
#include <sys/eventfd.h>
#include <unistd.h>

namespace quillo {

namespace {

int wakeDescriptor = -1;

/// A signal handler may only make plain system calls.
void handleSignal(int /*signal*/) {
    const uint64_t one = 1;
    [[maybe_unused]] const auto written = ::write(wakeDescriptor, &one, sizeof one);
}

} // namespace

void onTerminationSignal(std::function<void()> quit) {
    wakeDescriptor = ::eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK);
    auto* const notifier = new QSocketNotifier(wakeDescriptor, QSocketNotifier::Read, qApp);
    QObject::connect(notifier, &QSocketNotifier::activated, qApp, [notifier, quit = std::move(quit)] {
        notifier->setEnabled(false);
        quit();
    });
    for (const int signal : {SIGTERM, SIGINT, SIGHUP})
        std::signal(signal, handleSignal);
}

} // namespace quillo
