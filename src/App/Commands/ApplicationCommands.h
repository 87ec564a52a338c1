#pragma once

#include "Concurrency/TaskRunner.h"
#include "Data/ModelContext.h"
#include "Features/Application/Commands.h"
#include "Features/Recording/RecordingSideEffects.h"
#include "Features/Recording/RecordingStore.h"

#include <functional>

namespace quillo {

class AccountController;
class PendingTranscriptionManager;
struct ServiceContainer;

/// Implements the commands over the application's services, store, account and history. Main thread.
class ApplicationCommands final : public Commands {
public:
    struct Parts {
        ServiceContainer& services;
        RecordingStore& store;
        RecordingSideEffects& effects;
        AccountController& account;
        TaskRunner& tasks;
        ModelContext* history; ///< null when it could not be opened
        /// Null while the program is starting.
        std::function<PendingTranscriptionManager*()> queue;
        std::function<QString()> serverHost;
        std::function<void()> show;
        std::function<void()> quit;
    };
    /// The objects in `parts` must outlive the commands.
    explicit ApplicationCommands(Parts parts) : m_parts(std::move(parts)) {}

    void start() override;
    void stop() override;
    void toggle() override;
    void cancel() override;
    void insertAgain() override;
    [[nodiscard]] QString lastText() const override;
    [[nodiscard]] QString status() const override;
    void show() override { m_parts.show(); }
    void quit() override { m_parts.quit(); }
    [[nodiscard]] AccountState account() const override;
    void signIn() override;
    void registerAccount() override;
    void cancelSignIn() override;
    void signOut() override;
    void deleteAccount() override;
    void openURL(const QString& url) override;
    void deleteRecord(const QString& id) override;
    void retranscribeRecord(const QString& id, const QString& language) override;
    void copyRecord(const QString& id) override;

private:
    [[nodiscard]] bool isRecording() const { return m_parts.store.state().status.isActive(); }
    /// Throws HistoryError.
    [[nodiscard]] ModelContext& history() const;

    Parts m_parts;
};

} // namespace quillo
