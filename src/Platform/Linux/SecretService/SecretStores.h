#pragma once

#include "Platform/SecretStore.h"

#include <QString>

#include <chrono>
#include <memory>

namespace quillo {

/// How long a secret service may take. A keyring that the login has just started needs seconds for its first answers;
/// only restoring the session waits for them.
struct SecretServiceDeadlines {
    std::chrono::milliseconds state{2000}; ///< to report its presence and whether it is unlocked
    std::chrono::milliseconds call{10000}; ///< for each secret
    /// How long a missing service is waited for as if it were locked, because it is known to hold secrets. A password
    /// manager starts after the login.
    std::chrono::milliseconds appearance{0};
};

/// The desktop's secret service, over D-Bus. Each call blocks the calling thread for at most `deadline`; it must not be
/// the thread that serves the secret service itself. Callable from one thread at a time.
std::unique_ptr<SecretStore>
createSecretServiceStore(std::chrono::milliseconds deadline = SecretServiceDeadlines().call);

/// A JSON file that only its owner can read, in a folder that only its owner can enter; written atomically. An invalid
/// file is moved aside, never overwritten.
std::unique_ptr<SecretStore> createFileSecretStore(const QString& path);

/// The secret service if there is one, otherwise the file at `fallbackPath` with a warning in the log; the first call
/// decides, and the service when it appears later. Secrets in the file are moved to the service. While the service's
/// keyring is locked or does not answer, the store is not available. Never asks for a password. Create it on the main
/// thread.
std::unique_ptr<SecretStore> createSecretStore(const QString& fallbackPath, SecretServiceDeadlines deadlines = {});

} // namespace quillo
