#include "Platform/Linux/AtSpi/AtSpiCalls.h"

#include "Concurrency/AsyncStream.h"
#include "Platform/Linux/AtSpi/AtSpiRoles.h"

#include <QDBusArgument>
#include <QDBusError>
#include <QDBusPendingCallWatcher>
#include <QDBusVariant>
#include <QTimer>

namespace quillo::atspi {

namespace {

using std::chrono::milliseconds;

const QString accessible = QStringLiteral("org.a11y.atspi.Accessible");
const QString text = QStringLiteral("org.a11y.atspi.Text");

QDBusMessage question(const AtSpiObject& object, const QString& interface, const char* method) {
    return QDBusMessage::createMethodCall(object.service, object.path, interface, QLatin1String(method));
}

bool isAnswer(const QDBusMessage& reply) {
    return reply.type() == QDBusMessage::ReplyMessage && !reply.arguments().isEmpty();
}

std::optional<uint64_t> statesIn(const QDBusMessage& reply) {
    if (!isAnswer(reply))
        return std::nullopt;
    const auto words = qdbus_cast<QList<uint>>(reply.arguments().constFirst());
    if (words.size() != 2)
        return std::nullopt;
    return static_cast<uint64_t>(words[1]) << 32U | words[0];
}

} // namespace

Task<QDBusMessage> call(QDBusConnection bus, QDBusMessage message, Instant until) {
    using std::chrono::steady_clock;
    const auto left = std::max(std::chrono::ceil<milliseconds>(until - steady_clock::now()), milliseconds(1));
    // Our own timer decides, never early and equally for all calls. The bus drops the call a little later.
    const auto forgotten = static_cast<int>(left.count()) + 1000;
    auto [stream, sink] = AsyncStream<QDBusMessage>::make(EventExecutor::main());
    auto* const watcher = new QDBusPendingCallWatcher(bus.asyncCall(message, forgotten));
    QObject::connect(watcher, &QDBusPendingCallWatcher::finished, watcher, [watcher, sink = sink] {
        sink.yield(watcher->reply());
        watcher->deleteLater();
    });
    QTimer::singleShot(left, Qt::PreciseTimer, watcher,
                       [watcher, sink = sink, late = message.createErrorReply(QDBusError::NoReply, {})] {
                           sink.yield(late);
                           watcher->deleteLater();
                       });
    auto reply = co_await stream.next();
    co_return reply.value_or(QDBusMessage());
}

bool isLate(const QDBusMessage& reply) {
    const auto type = QDBusError(reply).type();
    return type == QDBusError::NoReply || type == QDBusError::Timeout || type == QDBusError::TimedOut;
}

Task<ElementAnswer> focusedElement(QDBusConnection bus, AtSpiObject object, Instant until) {
    // Send all three queries before waiting for the first answer.
    auto asksRole = call(bus, question(object, accessible, "GetRole"), until);
    auto asksStates = call(bus, question(object, accessible, "GetState"), until);
    auto asksInterfaces = call(bus, question(object, accessible, "GetInterfaces"), until);
    const auto role = co_await asksRole;
    const auto state = co_await asksStates;
    const auto interfaces = co_await asksInterfaces;
    const auto bits = statesIn(state);
    if (!isAnswer(role) || !bits || !isAnswer(interfaces))
        co_return ElementAnswer{std::nullopt, isLate(role) || isLate(state) || isLate(interfaces)};
    // The element may have lost the focus without an event, when its window went to the background.
    if ((*bits >> stateFocused & 1) == 0)
        co_return ElementAnswer{};
    const auto number = role.arguments().constFirst().toUInt();
    co_return ElementAnswer{FocusedElement{
        .role = axRoleForAtSpi(number, *bits),
        .isPassword = number == rolePasswordText,
        .isTerminal = number == roleTerminal,
        .isValueSettable = (*bits >> stateEditable & 1) != 0,
        .hasNumberOfCharacters = qdbus_cast<QStringList>(interfaces.arguments().constFirst()).contains(text)}};
}

Task<std::optional<QString>> characterBeforeCaret(QDBusConnection bus, AtSpiObject object, Instant until) {
    auto property = question(object, QStringLiteral("org.freedesktop.DBus.Properties"), "Get");
    property << text << QStringLiteral("CaretOffset");
    const auto caret = co_await call(bus, property, until);
    const int offset =
        isAnswer(caret) ? qvariant_cast<QDBusVariant>(caret.arguments().constFirst()).variant().toInt() : -1;
    if (offset <= 0)
        co_return offset == 0 ? std::optional(QString()) : std::nullopt;
    auto content = question(object, text, "GetText");
    content << offset - 1 << offset;
    const auto answer = co_await call(bus, content, until);
    co_return isAnswer(answer) ? std::optional(answer.arguments().constFirst().toString()) : std::nullopt;
}

Task<std::optional<uint64_t>> states(QDBusConnection bus, AtSpiObject object, Instant until) {
    co_return statesIn(co_await call(bus, question(object, accessible, "GetState"), until));
}

Task<std::optional<std::vector<AtSpiObject>>> children(QDBusConnection bus, AtSpiObject object, Instant until) {
    const auto reply = co_await call(bus, question(object, accessible, "GetChildren"), until);
    if (!isAnswer(reply))
        co_return std::nullopt;
    std::vector<AtSpiObject> objects;
    const auto list = qvariant_cast<QDBusArgument>(reply.arguments().constFirst());
    list.beginArray();
    while (!list.atEnd()) {
        AtSpiObject child;
        QDBusObjectPath path;
        list.beginStructure();
        list >> child.service >> path;
        list.endStructure();
        child.path = path.path();
        objects.push_back(child);
    }
    list.endArray();
    co_return objects;
}

Task<int64_t> processOf(QDBusConnection bus, QString service, Instant until) {
    const QString daemon = QStringLiteral("org.freedesktop.DBus");
    auto message = question({daemon, QStringLiteral("/org/freedesktop/DBus")}, daemon, "GetConnectionUnixProcessID");
    message << service;
    const auto reply = co_await call(bus, message, until);
    co_return isAnswer(reply) ? int64_t(reply.arguments().constFirst().toUInt()) : int64_t(0);
}

} // namespace quillo::atspi
