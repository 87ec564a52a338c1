#pragma once

#include "Services/Injection/TextInjectionServiceProtocol.h"

#include <functional>
#include <optional>
#include <vector>

namespace quillo {

/// Takes texts and records them; answers or fails as a test says.
class MockTextInjectionService : public TextInjectionServiceProtocol {
public:
    struct Call {
        QString text;
        InjectionMode mode = InjectionMode::paste;
        bool restoreClipboard = true;
        bool operator==(const Call&) const = default;
    };
    std::vector<Call> calls;
    Delivery delivery = Delivery::read;
    std::optional<TextInjectionError::Code> failure;
    std::optional<std::runtime_error> fault; ///< one that no code expects
    bool textFieldFocused = true;
    std::function<void()> onInject; ///< called when the text has been inserted

    Task<Delivery> inject(QString text, InjectionMode mode, bool restoreClipboard) override {
        if (fault)
            throw std::runtime_error(*fault);
        if (failure)
            throw TextInjectionError(*failure);
        calls.push_back({std::move(text), mode, restoreClipboard});
        if (onInject)
            onInject();
        co_return delivery;
    }
    Task<bool> hasFocusedTextField() override { co_return textFieldFocused; }
};

} // namespace quillo
