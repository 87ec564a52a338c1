#pragma once

#include "Features/Application/Commands.h"

#include <functional>

namespace quillo {

/// The commands of an application whose services could not be built: it only reports the reason and can be ended.
class UnavailableCommands final : public Commands {
public:
    /// All commands except `status`, `account` and `quit` throw `reason`.
    UnavailableCommands(UserMessage reason, std::function<void()> quit)
        : m_reason(std::move(reason)), m_quit(std::move(quit)) {}

    void start() override { refuse(); }
    void stop() override { refuse(); }
    void toggle() override { refuse(); }
    void cancel() override { refuse(); }
    void insertAgain() override { refuse(); }
    [[nodiscard]] QString lastText() const override { return {}; }
    [[nodiscard]] QString status() const override;
    void show() override { refuse(); }
    void quit() override { m_quit(); }
    [[nodiscard]] AccountState account() const override { return {.message = m_reason}; }
    void signIn() override { refuse(); }
    void registerAccount() override { refuse(); }
    void cancelSignIn() override { refuse(); }
    void signOut() override { refuse(); }
    void deleteAccount() override { refuse(); }
    void openURL(const QString&) override { refuse(); }
    void deleteRecord(const QString&) override { refuse(); }
    void retranscribeRecord(const QString&, const QString&) override { refuse(); }
    void copyRecord(const QString&) override { refuse(); }

private:
    [[noreturn]] void refuse() const;

    UserMessage m_reason;
    std::function<void()> m_quit;
};

} // namespace quillo
