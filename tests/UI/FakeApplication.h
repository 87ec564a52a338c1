#pragma once

#include "UI/UserInterfaceHooks.h"

#include <QPointF>
#include <QString>

#include <optional>

namespace quillo::test {

/// Hooks that answer with made-up microphones and all languages, and remember what they are told.
class FakeApplication {
public:
    FakeApplication();

    UserInterfaceHooks hooks;
    bool pillWanted = true;
    std::optional<QPointF> pillPosition;
    QString chosenLanguage;
};

} // namespace quillo::test
