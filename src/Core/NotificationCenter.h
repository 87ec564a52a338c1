#pragma once

#include <QObject>
#include <QString>
#include <QVariantMap>

namespace quillo {

/// The names posted through `NotificationCenter`. They stay: see docs/compatibility.md.
namespace notification {
inline const QString showAuthWindow = QStringLiteral("quillo.showAuthWindow");
inline const QString authRequired = QStringLiteral("quillo.authRequired");
inline const QString authUserDidChange = QStringLiteral("quillo.authUserDidChange");
inline const QString authCallback = QStringLiteral("quillo.authCallback");
inline const QString firstRecordingLanguageGateRequested = QStringLiteral("quillo.firstRecordingLanguageGateRequested");
/// An unsolicited message to the user; see UserNotice.h.
inline const QString userNotice = QStringLiteral("quillo.userNotice");
/// A recording's audio is on disk and waits for transcription.
inline const QString pendingRecordingSaved = QStringLiteral("PendingRecordingSaved");
/// Transcribe stored audio again; "pendingAudioId" and optionally "language".
inline const QString retranscribeRequest = QStringLiteral("RetranscribeRequest");
/// A live dictation received its text: the server works.
inline const QString transcriptionSucceeded = QStringLiteral("TranscriptionSucceeded");
inline const QString realTimeRecordingStarted = QStringLiteral("RealTimeRecordingStarted");
inline const QString realTimeRecordingStopped = QStringLiteral("RealTimeRecordingStopped");
/// A waiting recording received its text; "recordId".
inline const QString pendingRecordRecovered = QStringLiteral("PendingRecordRecovered");
} // namespace notification

/// Named notifications between services that do not know each other. Main thread only.
class NotificationCenter final : public QObject {
    Q_OBJECT
public:
    static NotificationCenter& shared();

    void post(const QString& name, const QVariantMap& userInfo = {}) { Q_EMIT posted(name, userInfo); }

Q_SIGNALS:
    void posted(const QString& name, const QVariantMap& userInfo);
};

} // namespace quillo
