#include "Concurrency/Executor.h"
#include "Core/Log.h"
#include "Platform/Linux/SecretService/SecretStores.h"

#include <condition_variable>
#include <mutex>
#include <qt6keychain/keychain.h>

namespace quillo {

namespace {

const QString serviceName = QStringLiteral("com.quillospeech");

/// The thread of every job. QtKeychain queues its jobs in an object of the first calling thread and hangs when that
/// thread has ended, so this thread ends with the process.
SerialExecutor& worker() {
    static auto* const executor = new SerialExecutor(QStringLiteral("com.quillo.secret-service"));
    return *executor;
}

struct Outcome {
    QKeychain::Error error = QKeychain::OtherError;
    QString text;
    QByteArray value;
};

/// The result for which a caller waits; the job may end after the caller has given up.
struct Pending {
    std::mutex mutex;
    std::condition_variable ended;
    std::optional<Outcome> outcome;

    void end(Outcome result) {
        const std::lock_guard lock(mutex);
        outcome = std::move(result);
        ended.notify_all();
    }
};

class SecretServiceStore final : public SecretStore {
public:
    explicit SecretServiceStore(std::chrono::milliseconds deadline) : m_deadline(deadline) {}

    bool isAvailable() override {
        const auto outcome = run<QKeychain::ReadPasswordJob>(QStringLiteral("com.quillospeech.probe"));
        return outcome.error == QKeychain::NoError || outcome.error == QKeychain::EntryNotFound;
    }

    std::optional<QByteArray> read(const QString& key) override {
        const auto outcome = run<QKeychain::ReadPasswordJob>(key);
        if (outcome.error == QKeychain::NoError)
            return outcome.value;
        if (outcome.error == QKeychain::EntryNotFound)
            return std::nullopt;
        report(QStringLiteral("read"), key, outcome);
        throw SecretStoreSilent(key.toStdString());
    }

    bool write(const QString& key, const QByteArray& value) override {
        const auto outcome = run<QKeychain::WritePasswordJob>(key, value);
        if (outcome.error != QKeychain::NoError)
            report(QStringLiteral("write"), key, outcome);
        return outcome.error == QKeychain::NoError;
    }

    bool remove(const QString& key) override {
        const auto outcome = run<QKeychain::DeletePasswordJob>(key);
        const bool removed = outcome.error == QKeychain::NoError || outcome.error == QKeychain::EntryNotFound;
        if (!removed)
            report(QStringLiteral("remove"), key, outcome);
        return removed;
    }

private:
    template <class Job>
    Outcome run(const QString& key, const QByteArray& value = {}) {
        auto pending = std::make_shared<Pending>();
        worker().post([pending, key, value] {
            auto* const job = new Job(serviceName); // deletes itself when it has finished
            job->setKey(key);
            job->setInsecureFallback(false);
            if constexpr (std::is_same_v<Job, QKeychain::WritePasswordJob>)
                job->setBinaryData(value);
            QObject::connect(job, &QKeychain::Job::finished, job, [pending, job] {
                Outcome outcome{job->error(), job->errorString(), {}};
                if constexpr (std::is_same_v<Job, QKeychain::ReadPasswordJob>)
                    outcome.value = job->binaryData();
                pending->end(std::move(outcome));
            });
            job->start();
        });
        std::unique_lock lock(pending->mutex);
        if (!pending->ended.wait_for(lock, m_deadline, [&] { return pending->outcome.has_value(); }))
            return {QKeychain::OtherError, QStringLiteral("no answer within %1 ms").arg(m_deadline.count()), {}};
        return *pending->outcome;
    }

    static void report(const QString& operation, const QString& key, const Outcome& outcome) {
        appLog(QStringLiteral("[SecretService] ⚠️ Could not %1 %2: %3").arg(operation, key, outcome.text),
               LogLevel::warn, QStringLiteral("SecretService"));
    }

    std::chrono::milliseconds m_deadline;
};

} // namespace

std::unique_ptr<SecretStore> createSecretServiceStore(std::chrono::milliseconds deadline) {
    return std::make_unique<SecretServiceStore>(deadline);
}

} // namespace quillo
