#include "UI/Welcome/HotkeyTrial.h"

#include "UI/Foundation/Texts.h"

#include <QPointer>

namespace quillo {

HotkeyTrial::HotkeyTrial(const UserInterfaceHooks& hooks, Clock& clock) : m_hooks(hooks), m_clock(clock) {
    takeNames();
    Texts::follow(this, [this] {
        takeNames();
        Q_EMIT namesChanged();
    });
}

void HotkeyTrial::takeNames() {
    if (m_hooks.hotkeyName && m_hooks.observeHotkey)
        m_name = m_hooks.hotkeyName();
    if (m_name.isEmpty() && m_hooks.hotkeySteps)
        m_steps = m_hooks.hotkeySteps().trimmed();
    if (m_hooks.toggleHotkeyName)
        m_toggleName = m_hooks.toggleHotkeyName();
    const auto conflict = m_hooks.hotkeyConflict ? m_hooks.hotkeyConflict() : std::nullopt;
    m_conflict = conflict ? conflict->message : QString();
    m_offer = conflict && m_hooks.takeFreeHotkey ? conflict->offer : QString();
}

HotkeyTrial::~HotkeyTrial() { end(); }

void HotkeyTrial::begin() {
    if (m_isRunning || m_name.isEmpty())
        return;
    m_isRunning = true;
    takeNames();
    Q_EMIT namesChanged();
    m_hooks.observeHotkey([trial = QPointer(this)](bool isDown) {
        if (trial && trial->m_isRunning)
            trial->keyMoved(isDown);
    });
    if (!m_hasReleased)
        m_overdue = m_clock.callLater(patience, [this] {
            m_isOverdue = true;
            Q_EMIT changed();
        });
}

void HotkeyTrial::end() {
    if (!m_isRunning)
        return;
    m_isRunning = false;
    m_overdue.reset();
    if (std::exchange(m_isChoosing, false))
        m_hooks.stopChoosingHotkey();
    m_hooks.observeHotkey({});
    // The release of a held key will no longer arrive.
    m_isDown = false;
    Q_EMIT changed();
}

void HotkeyTrial::choose(bool isToggle) {
    if (!m_isRunning || !isChoosable())
        return;
    m_isChoosing = true;
    m_problem.clear();
    m_hooks.chooseHotkey(isToggle, [trial = QPointer(this)](const QString& problem) {
        if (!trial || !trial->m_isChoosing)
            return;
        trial->m_isChoosing = false;
        trial->m_problem = problem;
        trial->startAfresh();
    });
    Q_EMIT changed();
}

void HotkeyTrial::takeOffer() {
    m_hooks.takeFreeHotkey();
    // The service restarts with the new key first.
    m_clock.executor().post([trial = QPointer(this)] {
        if (trial)
            trial->startAfresh();
    });
}

void HotkeyTrial::startAfresh() {
    const QString before = m_name;
    takeNames();
    if (m_name != before)
        m_isDown = m_hasPressed = m_hasReleased = m_isOverdue = false;
    Q_EMIT namesChanged();
    Q_EMIT changed();
}

void HotkeyTrial::keyMoved(bool isDown) {
    m_isDown = isDown;
    if (isDown)
        m_hasPressed = true;
    else
        m_hasReleased = m_hasPressed; // a key that was already held before the trial does not count
    if (m_hasReleased) {
        m_overdue.reset();
        m_isOverdue = false;
    }
    Q_EMIT changed();
}

} // namespace quillo
