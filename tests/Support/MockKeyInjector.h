#pragma once

#include "Platform/KeyInjector.h"

#include <functional>
#include <vector>

namespace quillo::test {

/// Records what would have been pressed and typed.
class MockKeyInjector final : public KeyInjector {
public:
    bool available = true;
    InjectionStatus status = InjectionStatus::delivered;
    bool canType = true; ///< false: every text is untypable
    std::vector<PasteChord> chords;
    std::vector<QString> typed;
    std::function<void()> onChord; ///< what the target does when it gets the chord

    [[nodiscard]] bool isAvailable() const override { return available; }
    Task<InjectionStatus> pressChord(PasteChord chord, std::function<void()> beforeKeys) override {
        chords.push_back(chord);
        if (beforeKeys && status == InjectionStatus::delivered)
            beforeKeys();
        if (onChord && status == InjectionStatus::delivered)
            onChord();
        co_return status;
    }
    Task<InjectionStatus> typeText(QString text, std::stop_token) override {
        if (!canType)
            co_return InjectionStatus::untypable;
        typed.push_back(std::move(text));
        co_return status;
    }
};

} // namespace quillo::test
