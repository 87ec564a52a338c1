#include "Platform/Unavailable.h"

namespace quillo {

namespace {

class NoKeyEventSource final : public KeyEventSource {
public:
    [[nodiscard]] bool isTrusted() const override { return false; }
    bool start(std::vector<KeyCombination>, Handler, StateHandler) override { return false; }
    void stop() override {}
    [[nodiscard]] std::vector<KeyCombination> unavailableCombinations() const override { return {}; }
    [[nodiscard]] bool isPhysicallyDown(uint16_t) const override { return false; }
};

class NoKeyInjector final : public KeyInjector {
public:
    [[nodiscard]] bool isAvailable() const override { return false; }
    Task<InjectionStatus> pressChord(PasteChord, std::function<void()>) override {
        co_return InjectionStatus::noEventSource;
    }
    Task<InjectionStatus> typeText(QString, std::stop_token) override { co_return InjectionStatus::noEventSource; }
};

class NoOffer final : public PasteboardOffer {
public:
    [[nodiscard]] int reads() const override { return 0; }
    [[nodiscard]] bool isOwner() const override { return false; }
    void countReadsOf(int64_t) override {}
    [[nodiscard]] bool knowsReader() const override { return false; }
    Task<bool> waitUntilRead(std::chrono::milliseconds) override { co_return false; }
    [[nodiscard]] std::optional<std::chrono::steady_clock::time_point> lastRead() const override {
        return std::nullopt;
    }
};

class NoPasteboard final : public Pasteboard {
public:
    [[nodiscard]] bool isAvailable() const override { return false; }
    Task<PasteboardContents> read(std::chrono::milliseconds) override { co_return PasteboardContents{}; }
    Task<std::shared_ptr<PasteboardOffer>> offerText(QString, bool, ClipboardUse) override { co_return std::make_shared<NoOffer>(); }
    Task<bool> restore(PasteboardContents, std::shared_ptr<PasteboardOffer>) override { co_return false; }
};

class NoApplications final : public Applications {
public:
    [[nodiscard]] bool isAvailable() const override { return false; }
    [[nodiscard]] std::optional<RunningApplication> frontmost() override { return std::nullopt; }
    bool activate(const RunningApplication&) override { return false; }
};

class NoAccessibility final : public Accessibility {
public:
    Task<std::optional<FocusedElement>> focusedElement(std::chrono::milliseconds) override { co_return std::nullopt; }
    Task<SecureInput> secureInput(int64_t, std::chrono::milliseconds) override { co_return SecureInput::unknown; }
};

class NoNotifications final : public Notifications {
public:
    void show(const QString&, Shown shown) override {
        if (shown)
            shown(QStringLiteral("there is no notification service"));
    }
};

class NoWindowHints final : public WindowHints {
public:
    [[nodiscard]] bool isComposited() const override { return true; }
    [[nodiscard]] bool hasSystemTray() const override { return false; }
    void skipTaskbar(quintptr) override {}
    void setInputRegion(quintptr, const QRect&) override {}
};

} // namespace

std::unique_ptr<KeyEventSource> makeUnavailableKeyEventSource() { return std::make_unique<NoKeyEventSource>(); }
std::unique_ptr<KeyInjector> makeUnavailableKeyInjector() { return std::make_unique<NoKeyInjector>(); }
std::unique_ptr<Pasteboard> makeUnavailablePasteboard() { return std::make_unique<NoPasteboard>(); }
std::unique_ptr<Applications> makeUnavailableApplications() { return std::make_unique<NoApplications>(); }
std::unique_ptr<Accessibility> makeUnavailableAccessibility() { return std::make_unique<NoAccessibility>(); }
std::unique_ptr<Notifications> makeUnavailableNotifications() { return std::make_unique<NoNotifications>(); }
std::unique_ptr<WindowHints> makeUnavailableWindowHints() { return std::make_unique<NoWindowHints>(); }

} // namespace quillo
