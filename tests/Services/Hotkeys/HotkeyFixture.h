#pragma once

#include "Services/Hotkeys/HotkeyService.h"
#include "Support/MockKeyEventSource.h"

#include <QStringList>
#include <QTemporaryDir>

#include <gtest/gtest.h>

namespace quillo::test {

/// A hotkey service over a keyboard and a clock that the test moves, and what it called back.
struct HotkeyFixture {
    QTemporaryDir folder;
    Preferences preferences{folder.filePath(u"quillo.ini"_qs)};
    UserSettings settings{preferences, u"en_US"_qs};
    EventExecutor executor;
    ManualClock clock{executor};
    MockKeyEventSource keys;
    HotkeyService service{keys, clock, settings};
    QStringList calls;
    int begun = 0;
    int ended = 0;
    Clock::Duration lateBy{}; ///< the last press, when it was called back

    HotkeyFixture() {
        service.onHotkeyDown = [this](Clock::Instant pressedAt) {
            calls << u"down"_qs;
            lateBy = clock.now() - pressedAt;
            ++begun;
        };
        service.onHotkeyUp = [this] {
            calls << u"up"_qs;
            ++ended;
        };
        service.onCancel = [this] {
            calls << u"cancel"_qs;
            ++ended;
        };
        service.onHandsOffModeChanged = [this](bool on) { calls << (on ? u"handsOff"_qs : u"handsOn"_qs); };
    }

    /// Lets `milliseconds` pass and everything that is due happen.
    void pass(int milliseconds) { clock.advance(std::chrono::milliseconds(milliseconds)); }
    void set(const char* key, const QVariant& value) { settings.setValue(QString::fromLatin1(key), value); }

    /// Plays a script of words: "+key" presses, "-key" releases, "~key" repeats, "!key" loses the release, a number
    /// lets that many milliseconds pass, and "<300" has what follows delivered 300 milliseconds late.
    void play(const QString& script);
    [[nodiscard]] QString called() {
        executor.drain();
        return calls.join(u' ');
    }
};

} // namespace quillo::test
