#pragma once

#include "Services/Desktop/PermissionServiceProtocol.h"

#include <functional>

namespace quillo {

/// What the desktop lets us do, asked of the parts that do it: a Linux desktop has no dialog to grant it. Main thread.
class PermissionService final : public PermissionServiceProtocol {
public:
    /// Answers at once: whether the thing can be used now.
    using Probe = std::function<bool()>;

    /// `microphone`: a sound server is reachable. `accessibility`: keys can be seen and sent.
    PermissionService(Probe microphone, Probe accessibility);

    [[nodiscard]] bool isMicrophoneGranted() const override { return m_microphone(); }
    [[nodiscard]] bool isAccessibilityGranted() const override { return m_accessibility(); }
    Task<bool> requestMicrophone() override;
    Task<bool> requestAccessibility() override;

private:
    Probe m_microphone;
    Probe m_accessibility;
};

} // namespace quillo
