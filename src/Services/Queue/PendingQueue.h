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

/// What the queue works with; everything outlives the coroutines that hold the queue.
struct PendingQueueServices {
    TranscriptionFileClientProtocol& client;
    NetworkMonitorServiceProtocol& network;
    AuthServiceProtocol& auth;
    Preferences& preferences;
    Clock& clock;
};

/// The recordings that wait for their text, and the passes over them. Main thread. Held by the manager and by each
/// running coroutine; after `close` they end at their next step.
class PendingQueue {
public:
    using Self = std::shared_ptr<PendingQueue>;

    explicit PendingQueue(PendingQueueServices services) : services(services) {}

    /// One pass over what waits, and over what arrives meanwhile. Returns at once when one is running.
    static Task<> processPendingIfNeeded(Self self);

    /// Moves a stored recording back into the queue; false, with the reason in the log, when that cannot be done.
    bool requestAgain(const QString& audioId, const QString& language);
    /// The server works again: what failed for its sake is due at once. True when something is.
    bool resetBackoff();
    /// What is known of an absent server holds no longer: it is asked with the next pass.
    void expectServer() { m_server = {}; }
    /// Whether something waits that a later check could bring on.
    [[nodiscard]] bool isWaiting();
    /// Whether the records of this user are the current user's to transcribe.
    [[nodiscard]] bool isOwn(const QString& userId) const;
    /// Remembers an anonymous user, whose recordings belong to whoever signs in on this machine later.
    void rememberCurrentUser();
    void close() { isClosed = true; }

    PendingQueueServices services;
    std::optional<PendingRecords> records; ///< none without a history
    bool isClosed = false;
    bool isProcessing = false;

private:
    enum class Step {
        done,  ///< one way or the other; go on with the next
        pause, ///< nothing can be sent now
        away,  ///< no server was reached, or no file could be made to send: the others would fare no better
        again, ///< it was asked for anew meanwhile
    };
    enum class MeetingRecovery { none, running, done };
    struct Item;
    /// The records that wait with one audio, as they were when the queue was looked through.
    struct Group {
        QString audioId;
        QList<RecordPointer> records;
    };

    std::vector<Group> collect();
    /// Nothing when it is not to be sent now.
    std::optional<Item> prepare(const Group& group);
    /// Gives up what is too old or was tried too often; sends nothing.
    void giveUpOverdue(const Group& group);
    static Task<Step> process(Self self, Group group);
    static Task<Step> transcribe(Self self, Item item);
    static Task<MeetingRecovery> recoverMeeting(Self self, Item item);
    /// Those that were not tried while the server was away come first, so that one that the way does not bear holds no
    /// other up.
    void putUntriedFirst(std::vector<Group>& groups) const;
    Step settleFailure(const Item& item, const std::exception_ptr& error);
    /// Notes that nobody was reached; the recording has had no attempt.
    Step settleAbsence(const Item& item, const QString& reason);
    void settleExhausted(const QString& audioId, const QList<RecordPointer>& waiting, int64_t attempts);
    Step settleEmpty(const Item& item);
    Step settleSuccess(const QString& audioId, const RecordPointer& record);
    void publish(const QString& audioId, const RecordPointer& record);
    /// Ends the wait of these with `status`, in the history and beside the audio; false when only there.
    bool giveUp(const QString& audioId, const QList<RecordPointer>& waiting, const QString& status);
    void markUnrecognized(const QString& audioId, const QList<RecordPointer>& waiting);
    void publishUnsaved();

    QHash<QString, int> m_requests;             ///< audio id to how often it was asked for anew
    QHash<QString, int64_t> m_toldTooSoon;      ///< audio id to the attempts made when that was logged
    QSet<QString> m_rejected;                   ///< audio that the server itself refused, rather than failed on
    std::map<QString, RecordPointer> m_unsaved; ///< by audio: whose text is not in the file yet
    std::map<QString, RecordingsInUse::Lease> m_leases;
    /// What is known of an absent server. In memory alone: the next start asks at once.
    struct Server {
        int failures = 0; ///< since it last answered
        QDateTime dueAt;  ///< when it is asked again
        QSet<QString> tried;
    };
    Server m_server;
    bool m_hasAnswered = false; ///< the server, in this pass
    bool m_hasWaiting = false;  ///< as of the latest look
    bool m_hasChanged = true;   ///< since then
    bool m_isSignedOut = false; ///< the last pass found that the session is over
};

} // namespace quillo
