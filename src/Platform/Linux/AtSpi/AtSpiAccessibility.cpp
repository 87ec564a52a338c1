#include "Platform/Linux/AtSpi/AtSpiAccessibility.h"

#include "Concurrency/AsyncStream.h"
#include "Platform/Linux/AtSpi/AtSpiFocus.h"
#include "Platform/Linux/AtSpi/AtSpiRoles.h"

#include <QDBusArgument>
#include <QDBusMessage>
#include <QDBusPendingCallWatcher>
#include <QDBusPendingReply>
#include <QDBusVariant>
#include <QTimer>

namespace quillo {

namespace {

using Element = std::optional<FocusedElement>;

/// The answers to the three questions about an element, as they come in.
struct Inquiry {
    uint32_t role = 0;
    uint64_t states = 0;
    QStringList interfaces;
    int outstanding = 3;
    bool failed = false;
    AsyncStream<Element>::Sink sink;

    void answered(bool valid) {
        failed = failed || !valid;
        if (--outstanding > 0)
            return;
        // Focus that has left since, without an event, is no focus: the window went to the background.
        if (failed || (states >> atspi::stateFocused & 1) == 0) {
            sink.yield(std::nullopt);
            return;
        }
        FocusedElement element;
        element.role = axRoleForAtSpi(role, states);
        element.isPassword = role == atspi::rolePasswordText;
        element.isValueSettable = (states >> atspi::stateEditable & 1) != 0;
        element.hasNumberOfCharacters = interfaces.contains(QStringLiteral("org.a11y.atspi.Text"));
        sink.yield(element);
    }
};

template <class Reply>
void ask(const QDBusConnection& bus, const AtSpiObject& object, const char* method, int milliseconds,
         const std::shared_ptr<Inquiry>& inquiry, std::function<void(const Reply&)> take) {
    const auto call = QDBusMessage::createMethodCall(
        object.service, object.path, QStringLiteral("org.a11y.atspi.Accessible"), QLatin1String(method));
    auto* const watcher = new QDBusPendingCallWatcher(bus.asyncCall(call, milliseconds));
    QObject::connect(watcher, &QDBusPendingCallWatcher::finished, watcher, [watcher, inquiry, take = std::move(take)] {
        const QDBusPendingReply<Reply> reply = *watcher;
        watcher->deleteLater();
        if (!reply.isError())
            take(reply.value());
        inquiry->answered(!reply.isError());
    });
}

Task<Element> inquire(QDBusConnection bus, AtSpiObject object, std::chrono::milliseconds deadline) {
    if (object.isEmpty() || !bus.isConnected())
        co_return std::nullopt;
    auto [stream, sink] = AsyncStream<Element>::make(EventExecutor::main());
    const auto inquiry = std::make_shared<Inquiry>();
    inquiry->sink = sink;
    const auto milliseconds = static_cast<int>(deadline.count());
    ask<uint>(bus, object, "GetRole", milliseconds, inquiry, [inquiry](const uint& role) { inquiry->role = role; });
    ask<QList<uint>>(bus, object, "GetState", milliseconds, inquiry, [inquiry](const QList<uint>& words) {
        if (words.size() == 2)
            inquiry->states = static_cast<uint64_t>(words[1]) << 32U | words[0];
    });
    ask<QStringList>(bus, object, "GetInterfaces", milliseconds, inquiry,
                     [inquiry](const QStringList& names) { inquiry->interfaces = names; });
    // D-Bus keeps its own time for each call; this one is for all, and holds should its timers be late.
    QTimer::singleShot(deadline, [sink = sink] { sink.yield(std::nullopt); });
    const auto element = co_await stream.next();
    co_return element.value_or(std::nullopt);
}

Task<bool> inquireSecure(QDBusConnection bus, AtSpiObject object, std::chrono::milliseconds deadline) {
    const auto element = co_await inquire(std::move(bus), std::move(object), deadline);
    co_return element.has_value() && element->isPassword;
}

/// Asks for the caret, then for what stands before it; both within `deadline`.
Task<std::optional<QString>> inquireCaret(QDBusConnection bus, AtSpiObject object, std::chrono::milliseconds deadline) {
    if (object.isEmpty() || !bus.isConnected())
        co_return std::nullopt;
    auto [stream, sink] = AsyncStream<std::optional<QString>>::make(EventExecutor::main());
    const auto milliseconds = static_cast<int>(deadline.count());
    const auto text = QStringLiteral("org.a11y.atspi.Text");
    auto question = QDBusMessage::createMethodCall(
        object.service, object.path, QStringLiteral("org.freedesktop.DBus.Properties"), QStringLiteral("Get"));
    question << text << QStringLiteral("CaretOffset");
    auto* const caret = new QDBusPendingCallWatcher(bus.asyncCall(question, milliseconds));
    QObject::connect(
        caret, &QDBusPendingCallWatcher::finished, caret, [caret, bus, object, text, milliseconds, sink = sink] {
            const QDBusPendingReply<QDBusVariant> reply = *caret;
            caret->deleteLater();
            const int offset = reply.isError() ? -1 : reply.value().variant().toInt();
            if (offset <= 0) {
                sink.yield(offset == 0 ? std::optional(QString()) : std::nullopt);
                return;
            }
            auto next = QDBusMessage::createMethodCall(object.service, object.path, text, QStringLiteral("GetText"));
            next << offset - 1 << offset;
            auto* const content = new QDBusPendingCallWatcher(bus.asyncCall(next, milliseconds));
            QObject::connect(content, &QDBusPendingCallWatcher::finished, content, [content, sink] {
                const QDBusPendingReply<QString> answer = *content;
                content->deleteLater();
                sink.yield(answer.isError() ? std::nullopt : std::optional(answer.value()));
            });
        });
    QTimer::singleShot(deadline, [sink = sink] { sink.yield(std::nullopt); });
    const auto character = co_await stream.next();
    co_return character.value_or(std::nullopt);
}

Task<bool> answer(bool value) { co_return value; }

class AtSpiAccessibility final : public Accessibility {
public:
    explicit AtSpiAccessibility(std::function<bool()> keyboardIsGrabbed)
        : m_keyboardIsGrabbed(std::move(keyboardIsGrabbed)) {
        m_focus.start();
    }

    Task<Element> focusedElement(std::chrono::milliseconds deadline) override {
        return inquire(m_focus.bus(), m_focus.focused(), deadline);
    }

    Task<std::optional<QString>> characterBeforeCaret(std::chrono::milliseconds deadline) override {
        return inquireCaret(m_focus.bus(), m_focus.focused(), deadline);
    }

    Task<bool> isSecureInputEnabled(std::chrono::milliseconds deadline) override {
        if (m_keyboardIsGrabbed && m_keyboardIsGrabbed())
            return answer(true);
        return inquireSecure(m_focus.bus(), m_focus.focused(), deadline);
    }

private:
    std::function<bool()> m_keyboardIsGrabbed;
    AtSpiFocus m_focus;
};

} // namespace

std::unique_ptr<Accessibility> createAtSpiAccessibility(std::function<bool()> keyboardIsGrabbed) {
    return std::make_unique<AtSpiAccessibility>(std::move(keyboardIsGrabbed));
}

} // namespace quillo
