#include "UI/Welcome/MicrophoneTest.h"

#include "UI/Foundation/Texts.h"

#include <QPointer>

namespace quillo {

MicrophoneTest::MicrophoneTest(const UserInterfaceHooks& hooks, Clock& clock) : m_hooks(hooks), m_clock(clock) {
    Texts::follow(this, [this] {
        Q_EMIT choicesChanged();
        Q_EMIT changed();
    });
}

MicrophoneTest::~MicrophoneTest() { end(); }

QStringList MicrophoneTest::choices() const {
    QStringList names{Texts::lookUp(QStringLiteral("tray.systemDefaultMicrophone"))};
    for (const auto& choice : m_choices)
        names << choice.name;
    return names;
}

int MicrophoneTest::current() const {
    const auto chosen = std::ranges::find_if(m_choices, &InterfaceChoice::isCurrent);
    return chosen == m_choices.end() ? 0 : static_cast<int>(chosen - m_choices.begin()) + 1;
}

QString MicrophoneTest::phase() const {
    switch (m_phase) {
    case Phase::off:
        break;
    case Phase::listening:
        return QStringLiteral("listening");
    case Phase::heard:
        return QStringLiteral("heard");
    case Phase::failed:
        return QStringLiteral("failed");
    }
    return QStringLiteral("off");
}

QString MicrophoneTest::reason() const { return Texts::of(m_reason); }

void MicrophoneTest::begin() {
    if (m_phase == Phase::listening || m_phase == Phase::heard)
        return;
    listMicrophones();
    start();
}

void MicrophoneTest::end() {
    stop();
    m_phase = Phase::off;
    m_reason = {};
    Q_EMIT changed();
}

void MicrophoneTest::select(int row) {
    if (row < 0 || row > static_cast<int>(m_choices.size()) || row == current())
        return;
    for (size_t index = 0; index < m_choices.size(); ++index)
        m_choices[index].isCurrent = static_cast<int>(index) == row - 1;
    if (m_hooks.selectMicrophone)
        m_hooks.selectMicrophone(row == 0 ? std::nullopt : std::optional(m_choices[static_cast<size_t>(row - 1)].id));
    Q_EMIT currentChanged();
    if (m_phase == Phase::off)
        return;
    stop();
    start();
}

void MicrophoneTest::listMicrophones() {
    if (!m_hooks.listMicrophones)
        return;
    m_hooks.listMicrophones([test = QPointer(this)](InterfaceChoices choices) {
        if (!test || test->m_choices == choices)
            return;
        test->m_choices = std::move(choices);
        Q_EMIT test->choicesChanged();
        Q_EMIT test->currentChanged();
    });
}

void MicrophoneTest::start() {
    m_detector = SpeechDetector();
    m_reason = {};
    if (!m_hooks.startMicrophoneTest)
        return;
    m_phase = Phase::listening;
    m_overdue = m_clock.callLater(patience, [this] {
        m_isOverdue = m_phase == Phase::listening;
        Q_EMIT changed();
    });
    Q_EMIT changed();
    // May run after this object is destroyed: an answer may already be on its way.
    const auto guarded = [test = QPointer(this), run = ++m_run](auto&& answer) {
        if (test && test->m_run == run)
            answer(*test);
    };
    m_hooks.startMicrophoneTest(
        [guarded](float level) { guarded([level](MicrophoneTest& test) { test.hear(level); }); },
        [guarded](const UserMessage& reason) { guarded([&reason](MicrophoneTest& test) { test.fail(reason); }); });
}

void MicrophoneTest::stop() {
    ++m_run;
    m_overdue.reset();
    m_isOverdue = false;
    m_level = 0;
    Q_EMIT levelChanged();
    if ((m_phase == Phase::listening || m_phase == Phase::heard) && m_hooks.stopMicrophoneTest)
        m_hooks.stopMicrophoneTest();
}

void MicrophoneTest::hear(float level) {
    m_level = level;
    Q_EMIT levelChanged();
    if (m_detector.hear(level, m_clock.now()) && m_phase == Phase::listening) {
        m_phase = Phase::heard;
        m_overdue.reset();
        m_isOverdue = false;
        Q_EMIT changed();
    }
}

void MicrophoneTest::fail(const UserMessage& reason) {
    m_phase = Phase::failed; // set first: the test has ended on its own and must not be stopped
    stop();
    m_reason = reason;
    Q_EMIT changed();
}

} // namespace quillo
