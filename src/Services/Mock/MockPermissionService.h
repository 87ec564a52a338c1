#pragma once

#include "Services/Desktop/PermissionServiceProtocol.h"

namespace quillo {

/// Grants what a test sets. A request is answered with `...OnRequest`, which then becomes the current answer.
class MockPermissionService final : public PermissionServiceProtocol {
public:
    bool microphone = true;
    bool accessibility = true;
    bool microphoneOnRequest = true;
    bool accessibilityOnRequest = true;
    int requests = 0;

    [[nodiscard]] bool isMicrophoneGranted() const override { return microphone; }
    [[nodiscard]] bool isAccessibilityGranted() const override { return accessibility; }
    Task<bool> requestMicrophone() override {
        ++requests;
        co_return microphone = microphoneOnRequest;
    }
    Task<bool> requestAccessibility() override {
        ++requests;
        co_return accessibility = accessibilityOnRequest;
    }
};

} // namespace quillo
