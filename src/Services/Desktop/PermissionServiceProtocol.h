#pragma once

#include "Concurrency/Task.h"

namespace quillo {

/// What the desktop must grant. Main thread. The names stay: see docs/compatibility.md.
class PermissionServiceProtocol {
public:
    virtual ~PermissionServiceProtocol() = default;

    // Both answer at once, from what is known.
    [[nodiscard]] virtual bool isMicrophoneGranted() const = 0;
    [[nodiscard]] virtual bool isAccessibilityGranted() const = 0;
    // Both ask the user or probe afresh, where the desktop has such a question.
    virtual Task<bool> requestMicrophone() = 0;
    virtual Task<bool> requestAccessibility() = 0;
};

} // namespace quillo
