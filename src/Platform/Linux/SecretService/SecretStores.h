#pragma once

#include "Platform/SecretStore.h"

#include <QString>

#include <chrono>
#include <memory>

namespace quillo {

/// How long a secret service may take. A keyring that the login has just started needs seconds for its first answers;
/// nothing but the session waits for them.
struct SecretServiceDeadlines {
    std::chrono::milliseconds state{2000}; ///< to say that it is there, and whether it is open
    std::chrono::milliseconds call{10000}; ///< for each secret
};

/// The desktop's secret service, over D-Bus. Each call waits for it `deadline` at most, on the calling thread, which
/// must not be the one that the secret service itself is served by. Callable from one thread at a time.
std::unique_ptr<SecretStore>
createSecretServiceStore(std::chrono::milliseconds deadline = SecretServiceDeadlines().call);

/// A JSON file that its owner alone can read, in a folder that its owner alone can enter; written atomically. A file
/// that cannot be understood is moved aside, never overwritten.
std::unique_ptr<SecretStore> createFileSecretStore(const QString& path);

/// The secret service where there is one, else the file at `fallbackPath` with a warning in the log. Which, is found
/// out at the first call. Secrets that an earlier run had to leave in the file move to the service. While the service's
/// keyring is locked, or does not answer, the store is not available. Nobody is asked for a password. To be made on the
/// main thread.
std::unique_ptr<SecretStore> createSecretStore(const QString& fallbackPath, SecretServiceDeadlines deadlines = {});

} // namespace quillo
