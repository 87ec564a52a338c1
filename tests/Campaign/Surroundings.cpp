#include "Surroundings.h"

#include "Support/Async.h"

#include <QFile>
#include <QJsonDocument>
#include <QJsonObject>

namespace quillo::test {

using namespace std::chrono_literals;

namespace {

constexpr int controlKey = 37;
/// How long the traffic of a slow server waits at each turn.
constexpr auto slowness = 40ms;
constexpr auto arrivalLimit = 10s;

QString clipboardCommand(const char* arguments) {
    return u"timeout 5 xclip -selection clipboard %1"_qs.arg(QString::fromLatin1(arguments));
}

/// Whether the words are the scripted server's, from its first one on.
bool isBeginning(const QStringList& words) {
    for (qsizetype i = 0; i < words.size(); ++i)
        if (words[i] != CampaignSession::word(static_cast<int>(i)))
            return false;
    return true;
}

} // namespace

Surroundings::Surroundings(CampaignSession& session)
    : m_session(session), m_keyboard(session.desktop.environment().value(u"DISPLAY"_qs)) {
    m_session.desktop.openTextField();
}

void Surroundings::begin(const Situation& situation) {
    m_situation = situation;
    auto& desktop = m_session.desktop;
    if (situation.clipboardManager)
        m_manager = &desktop.launch(u"clipboard-manager"_qs,
                                    QStringLiteral(QUILLO_PROGRAM_FOLDER "/quillo-clipboard-manager"), {});
    m_copied = u"mine %1"_qs.arg(++m_run);
    desktop.run(u"sh"_qs, {u"-c"_qs, u"printf '%1' | "_qs.arg(m_copied) + clipboardCommand("-i >/dev/null 2>&1")});
    desktop.quillo({u"settings"_qs, u"set"_qs, u"insertionMode"_qs, situation.typing ? u"type"_qs : u"paste"_qs});
    m_before = fieldText();
    m_session.proxy().delay(situation.slowServer ? slowness : 0ms);
    if (situation.slowHeadset)
        m_headset = desktop.shell(u"pactl load-module module-remap-source master=mouth.monitor source_name=headset "
                                  "source_properties=device.bus=bluetooth; pactl set-default-source headset; pactl "
                                  "suspend-source headset 1"_qs);
    for (int core = 0; situation.isBusy && core < 2; ++core)
        m_load.push_back(&desktop.launch(u"load"_qs, u"sh"_qs, {u"-c"_qs, u"while :; do :; done"_qs}));
}

void Surroundings::pressHoldKey() {
    if (m_situation.ownKeyboard)
        m_keyboard.key(DesktopSession::rightSuper, true);
    else
        m_session.desktop.pressKey(DesktopSession::rightSuper);
}

void Surroundings::releaseHoldKey() {
    // Later than a chord with the hold key would be: the person is at the next shortcut already.
    if (m_situation.heldControl)
        m_keyboard.key(controlKey, true);
    if (m_situation.ownKeyboard)
        m_keyboard.key(DesktopSession::rightSuper, false);
    else
        m_session.desktop.releaseKey(DesktopSession::rightSuper);
}

void Surroundings::wakeHeadset() { m_session.desktop.shell(u"pactl suspend-source headset 0"_qs); }

void Surroundings::end() {
    auto& desktop = m_session.desktop;
    if (m_situation.slowHeadset)
        desktop.shell(u"pactl set-default-source microphone; pactl unload-module %1"_qs.arg(m_headset.trimmed()));
    if (m_situation.heldControl)
        m_keyboard.key(controlKey, false);
    for (auto* const process : std::exchange(m_load, {}))
        desktop.end(*process);
    m_session.proxy().delay(0ms);
}

QString Surroundings::arrived() {
    const auto text = fieldText();
    return text.startsWith(m_before) ? text.mid(m_before.size()) : u"(the field was changed) "_qs + text;
}

QString Surroundings::clipboard() {
    return m_session.desktop.run(u"sh"_qs, {u"-c"_qs, clipboardCommand("-o 2>/dev/null")});
}

QStringList Surroundings::check(const QJsonObject& lastRun, bool interrupted) {
    QStringList faults;
    const auto text = lastRun.value(u"text"_qs).toString();
    const auto delivery = lastRun.value(u"delivery"_qs).toString();
    const bool isInserted = delivery == u"read" || delivery == u"typed";
    const bool isLeft = delivery == u"unconfirmed" || delivery == u"clipboardOnly";
    if (interrupted) {
        if (!isBeginning(arrived().split(u' ', Qt::SkipEmptyParts)))
            faults.append(u"the field got \"%1\""_qs.arg(arrived()));
    } else {
        // A blank may part it from the text before it. Text on the clipboard may be fetched later.
        const auto isRight = [&] {
            const auto got = arrived();
            return got.isEmpty() ? !isInserted
                                 : (isInserted || isLeft) && got.mid(got.startsWith(u' ') ? 1 : 0) == text;
        };
        if (!waitUntil(isRight, arrivalLimit))
            faults.append(u"the field got \"%1\" and not \"%2\" (%3)"_qs.arg(arrived(), text, delivery));
        // A program that ends takes its clipboard with it, so only the living one is asked.
        const auto expected = isLeft ? text : m_copied;
        if (!waitUntil([&] { return clipboard() == expected; }, arrivalLimit))
            faults.append(u"the clipboard is \"%1\" and not \"%2\""_qs.arg(clipboard(), expected));
    }
    if (!waitUntil([&] { return m_keyboard.keysDown().empty(); }, arrivalLimit))
        faults.append(u"key %1 is down"_qs.arg(m_keyboard.keysDown().front()));
    if (m_manager)
        m_session.desktop.end(*std::exchange(m_manager, nullptr));
    return faults;
}

QStringList Surroundings::checkMessage(const QJsonObject& status) const {
    if (status.value(u"status"_qs).toString() != u"error")
        return {};
    QFile catalogue(QStringLiteral(QUILLO_CATALOGUES "/%1.json").arg(m_session.isGerman() ? u"de"_qs : u"en"_qs));
    if (!catalogue.open(QIODevice::ReadOnly))
        return {u"no catalogue"_qs};
    const auto message = status.value(u"message"_qs).toString();
    const auto texts = QJsonDocument::fromJson(catalogue.readAll()).object();
    for (auto text = texts.begin(); text != texts.end(); ++text)
        if (text.key().startsWith(u"error.") && text.value().toString().section(u'%', 0, 0) ==
                                                    message.left(text.value().toString().section(u'%', 0, 0).size()))
            return {};
    return {u"the error is \"%1\", which no catalogue has"_qs.arg(message)};
}

} // namespace quillo::test
