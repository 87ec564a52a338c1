#pragma once

#include <QString>
#include <QStringList>

#include <optional>
#include <vector>

namespace quillo {

/// A spoken phrase that triggers an instruction to the server's language model.
struct VoiceCommandEntry {
    QString trigger;
    QString prompt;
    QString type;
    bool operator==(const VoiceCommandEntry&) const = default;
};

/// The content of `startSession`; absent options are left out of the message.
struct SessionRequest {
    QStringList languages;
    std::optional<QString> appContext;
    std::optional<QStringList> audioSources;
    std::optional<QString> mode;
    std::optional<std::vector<VoiceCommandEntry>> commands;
    bool enhancedTranscription = false;
    std::optional<QString> enhancedConsentAt;
    std::optional<QString> clientRecordingId;
};

} // namespace quillo
