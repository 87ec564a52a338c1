#pragma once

#include "Concurrency/Clock.h"
#include "UI/Foundation/UserInterfaceHooks.h"

#include <QObject>

namespace quillo {

/// Shows the user whether the hold hotkey reaches the application: its press and its release, each once it has arrived.
/// While the trial runs, the hotkey does not start a dictation. Destroying the object ends the trial. Main thread only.
class HotkeyTrial final : public QObject {
    Q_OBJECT
    Q_PROPERTY(QString name READ name NOTIFY namesChanged)
    Q_PROPERTY(QString steps READ steps NOTIFY namesChanged)
    Q_PROPERTY(QString toggleName READ toggleName NOTIFY namesChanged)
    Q_PROPERTY(QString conflict READ conflict NOTIFY namesChanged)
    Q_PROPERTY(QString offer READ offer NOTIFY namesChanged)
    Q_PROPERTY(bool choosable READ isChoosable CONSTANT)
    Q_PROPERTY(bool choosing READ isChoosing NOTIFY changed)
    Q_PROPERTY(QString problem READ problem NOTIFY changed)
    Q_PROPERTY(bool down READ isDown NOTIFY changed)
    Q_PROPERTY(bool pressed READ hasPressed NOTIFY changed)
    Q_PROPERTY(bool released READ hasReleased NOTIFY changed)
    Q_PROPERTY(bool overdue READ isOverdue NOTIFY changed)

public:
    /// How long to wait for the key before advising the user what to do.
    static constexpr std::chrono::seconds patience{8};

    /// Both references must outlive the trial.
    HotkeyTrial(const UserInterfaceHooks& hooks, Clock& clock);
    ~HotkeyTrial() override;

    /// The key's name; empty where the desktop offers no hotkeys. Then `steps` describes how to bind one.
    [[nodiscard]] const QString& name() const { return m_name; }
    [[nodiscard]] const QString& steps() const { return m_steps; }
    [[nodiscard]] const QString& toggleName() const { return m_toggleName; }
    /// Which hotkey another program holds, and the label of the button that takes a free one; empty when all is well.
    [[nodiscard]] const QString& conflict() const { return m_conflict; }
    [[nodiscard]] const QString& offer() const { return m_offer; }
    [[nodiscard]] bool isChoosable() const { return m_hooks.chooseHotkey && m_hooks.stopChoosingHotkey; }
    /// Whether the next key that the user presses becomes the hotkey.
    [[nodiscard]] bool isChoosing() const { return m_isChoosing; }
    /// Why the last key did not; empty when it did.
    [[nodiscard]] const QString& problem() const { return m_problem; }
    /// Waits for the key of the hold hotkey or of the toggle hotkey.
    Q_INVOKABLE void choose(bool isToggle);
    Q_INVOKABLE void takeOffer();
    [[nodiscard]] bool isDown() const { return m_isDown; }
    [[nodiscard]] bool hasPressed() const { return m_hasPressed; }
    [[nodiscard]] bool hasReleased() const { return m_hasReleased; }
    [[nodiscard]] bool isOverdue() const { return m_isOverdue; }

    void begin();
    /// Keeps showing what has arrived.
    void end();

Q_SIGNALS:
    void changed();
    void namesChanged();

private:
    void takeNames();
    void startAfresh();
    void keyMoved(bool isDown);

    const UserInterfaceHooks& m_hooks;
    Clock& m_clock;
    QString m_name;
    QString m_steps;
    QString m_toggleName;
    QString m_conflict;
    QString m_offer;
    QString m_problem;
    bool m_isChoosing = false;
    bool m_isRunning = false;
    bool m_isDown = false;
    bool m_hasPressed = false;
    bool m_hasReleased = false;
    bool m_isOverdue = false;
    Clock::TimerHandle m_overdue;
};

} // namespace quillo
