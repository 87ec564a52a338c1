#pragma once

#include "Concurrency/Clock.h"
#include "Core/Preferences.h"
#include "Services/Auth/AuthServiceProtocol.h"
#include "Services/Network/NetworkMonitorServiceProtocol.h"
#include "Services/Queue/PendingRecords.h"
#include "Services/Recordings/RecordingsInUse.h"
#include "Services/Upload/TranscriptionFileClientProtocol.h"

#include <QHash>
#include <QSet>

#include <map>
#include <memory>
#include <optional>
#include <vector>

namespace quillo {

/// The dependencies of the queue; they outlive the coroutines that hold the queue.
struct PendingQueueServices {
    TranscriptionFileClientProtocol& client;
    NetworkMonitorServiceProtocol& network;
    AuthServiceProtocol& auth;
    Preferences& preferences;
    Clock& clock;
    QString server = {}; ///< ServerEnvironment::identity(): which server anonymous users belong to
};

/// The recordings that wait for their text, and the passes over them. Main thread. Held by the manager and by each
/// running coroutine; after `close` the coroutines end at their next step.
class PendingQueue {
public:
    using Self = std::shared_ptr<PendingQueue>;

    explicit PendingQueue(PendingQueueServices services) : services(services) {}

    /// One pass over the waiting recordings, including those that arrive during the pass. Returns at once if one is
    /// running.
    static Task<> processPendingIfNeeded(Self self);

    /// Moves a stored recording back into the queue; false, with a log line, when that is not possible.
    bool requestAgain(const QString& audioId, const QString& language);
    /// The server works again: recordings that failed because of it are due at once. True when there are any.
    bool resetBackoff();
    /// Forgets that the server was unreachable, so that the next pass tries it.
    void expectServer() { m_server = {}; }
    /// Whether a waiting recording could make progress at a later check.
    [[nodiscard]] bool isWaiting();
    /// Remembers an anonymous user and its server: its recordings belong to the next user who signs in there.
    void rememberCurrentUser();
    /// Records have appeared outside of the queue.
    void recordsDidChange() { m_hasChanged = true; }
    void close() { isClosed = true; }

    PendingQueueServices services;
    std::optional<PendingRecords> records; ///< empty without a history
    bool isClosed = false;
    bool isProcessing = false;

private:
    enum class Step {
        done,  ///< with any result; continue with the next
        pause, ///< nothing can be sent now
        away,  ///< no server was reached, or the upload could not be created: the others would fail too
        again, ///< it was requested again in the meantime
    };
    enum class MeetingRecovery { none, running, done };
    struct Item;
    /// The waiting records of one audio at the start of the pass.
    struct Group {
        QString audioId;
        QList<RecordPointer> records;
    };

    /// Whether the current user may transcribe this record: its own, one without a user, and those of the anonymous
    /// users of this machine, unless they belong to another server and nobody has asked for it.
    [[nodiscard]] bool isOwn(const TranscriptionRecord& record) const;
    std::vector<Group> collect();
    /// Nothing when it must not be sent now.
    std::optional<Item> prepare(const Group& group);
    /// Gives up what is too old or was tried too often; sends nothing.
    void giveUpOverdue(const Group& group);
    static Task<Step> process(Self self, Group group);
    static Task<Step> transcribe(Self self, Item item);
    static Task<MeetingRecovery> recoverMeeting(Self self, Item item);
    /// Recordings not yet tried while the server was unreachable come first, so that one that cannot be uploaded does
    /// not block the others.
    void putUntriedFirst(std::vector<Group>& groups) const;
    Step settleFailure(const Item& item, const std::exception_ptr& error);
    /// Records that no server was reached; this does not count as an attempt of the recording.
    Step settleAbsence(const Item& item, const QString& reason, std::chrono::seconds requestedWait = {});
    Step settleServerError(const Item& item, const TranscriptionFileClientError& failure);
    /// Counts a failed attempt.
    Step settleAttempt(const Item& item, const QString& reason, bool isRejected);
    /// The server does not understand the language: further attempts are pointless.
    Step settleLanguage(const Item& item);
    void settleExhausted(const QString& audioId, const QList<RecordPointer>& waiting, int64_t attempts);
    Step settleEmpty(const Item& item);
    Step settleSuccess(const QString& audioId, const RecordPointer& record);
    void publish(const QString& audioId, const RecordPointer& record);
    /// Ends the wait with `status`, in the history, and with `reason` in the audio's metadata; false when only the
    /// metadata could be written.
    bool giveUp(const QString& audioId, const QList<RecordPointer>& waiting, const QString& status,
                const QString& reason);
    void markUnrecognized(const QString& audioId, const QList<RecordPointer>& waiting);
    void publishUnsaved();

    QHash<QString, int> m_requests;             ///< audio id to the number of repeated requests
    QHash<QString, int64_t> m_toldTooSoon;      ///< audio id to the attempts made when that was logged
    QSet<QString> m_rejected;                   ///< audio that the server rejected, rather than failed on
    std::map<QString, RecordPointer> m_unsaved; ///< records by audio whose text is not saved yet
    std::map<QString, RecordingsInUse::Lease> m_leases;
    /// The state of an unreachable server. Only in memory, so that the next start tries it at once.
    struct Server {
        int failures = 0; ///< since it last answered
        QDateTime dueAt;  ///< when it is tried again
        QSet<QString> tried;
    };
    Server m_server;
    bool m_hasAnswered = false;     ///< the server has answered in this pass
    bool m_hasWaiting = false;      ///< at the latest check
    bool m_hasChanged = true;       ///< since then
    bool m_isSignedOut = false;     ///< the last pass found that the session has ended
    bool m_hasToldLanguage = false; ///< one notice is enough for all recordings in such a language
};

} // namespace quillo
