#pragma once

#include "Concurrency/Task.h"
#include "Platform/Accessibility.h"

#include <QDBusConnection>
#include <QDBusMessage>
#include <QString>

#include <chrono>
#include <cstdint>
#include <optional>
#include <vector>

namespace quillo {

/// An accessible object: the bus name of its program and its path there.
struct AtSpiObject {
    QString service;
    QString path;
    [[nodiscard]] bool isEmpty() const { return service.isEmpty(); }
    bool operator==(const AtSpiObject&) const = default;
};

/// Queries to the programs on the accessibility bus. All are asynchronous and end at `until` at the latest. Main
/// thread.
namespace atspi {

using Instant = std::chrono::steady_clock::time_point;

/// The reply, or an error message; `isLate` distinguishes a program that did not answer from one that refused.
Task<QDBusMessage> call(QDBusConnection bus, QDBusMessage message, Instant until);
[[nodiscard]] bool isLate(const QDBusMessage& reply);

struct ElementAnswer {
    std::optional<FocusedElement> element; ///< nothing when the object does not have the focus
    bool isLate = false;
};
Task<ElementAnswer> focusedElement(QDBusConnection bus, AtSpiObject object, Instant until);

/// The character before the caret, empty at the beginning of the text; nothing when it is unknown.
Task<std::optional<QString>> characterBeforeCaret(QDBusConnection bus, AtSpiObject object, Instant until);

/// The state set as bits; nothing when it is unknown.
Task<std::optional<uint64_t>> states(QDBusConnection bus, AtSpiObject object, Instant until);
/// Nothing when it is unknown.
Task<std::optional<std::vector<AtSpiObject>>> children(QDBusConnection bus, AtSpiObject object, Instant until);
/// The process that owns a bus name; 0 when the name no longer exists.
Task<int64_t> processOf(QDBusConnection bus, QString service, Instant until);

} // namespace atspi
} // namespace quillo
