#pragma once

#include "Concurrency/Wakeup.h"
#include "Services/Upload/TranscriptionFileClientProtocol.h"

#include <QList>

#include <functional>
#include <utility>
#include <vector>

namespace quillo {

/// A file transcription client with scripted answers. Must outlive the calls to it.
class MockTranscriptionFileClient final : public TranscriptionFileClientProtocol {
public:
    struct Call {
        QString operation; ///< "transcribe", "diarize", "poll", "recover"
        QString id;        ///< the id of the audio, task or recording; the path for a file
        QString language;
        QString purpose;
        std::optional<QString> clientRecordingId;
    };

    Task<TranscriptionFileResponse> transcribeFile(QString filePath, QString language, QString purpose,
                                                   std::optional<QString> clientRecordingId) override {
        return answer(onTranscribe, {QStringLiteral("transcribe"), filePath, language, purpose, clientRecordingId});
    }
    Task<TranscriptionFileResponse> retranscribeRecord(QString audioId, QString language, QString purpose,
                                                       std::optional<QString> clientRecordingId) override {
        return answer(onTranscribe, {QStringLiteral("transcribe"), audioId, language, purpose, clientRecordingId});
    }
    Task<DiarizeResponse> diarizeRecord(QString audioId, QString language) override {
        return answer(onDiarize, {QStringLiteral("diarize"), audioId, language, {}, {}});
    }
    Task<std::optional<DiarizationPollResponse>> pollDiarization(QString taskId) override {
        return answer(onPoll, {QStringLiteral("poll"), taskId, {}, {}, {}});
    }
    Task<std::optional<DiarizationPollResponse>> recoverDiarizationByRecordingId(QString recordingId) override {
        return answer(onPoll, {QStringLiteral("recover"), recordingId, {}, {}, {}});
    }

    /// Lets all waiting calls continue; their answers are made at that moment.
    void release() {
        for (const auto& waiting : std::exchange(m_waiting, {}))
            waiting->wake(true);
    }
    [[nodiscard]] QStringList operations() const {
        QStringList names;
        for (const auto& call : calls)
            names << call.operation + u' ' + call.id;
        return names;
    }

    // The answers; each may throw.
    std::function<TranscriptionFileResponse(const Call&)> onTranscribe = [](const Call&) {
        return TranscriptionFileResponse{.text = QStringLiteral("Hello there")};
    };
    std::function<DiarizeResponse(const Call&)> onDiarize = [](const Call&) {
        return DiarizeResponse{.plainText = QStringLiteral("Hello everybody")};
    };
    std::function<std::optional<DiarizationPollResponse>(const Call&)> onPoll = [](const Call&) {
        return std::optional<DiarizationPollResponse>();
    };
    QList<Call> calls;
    bool holds = false; ///< calls wait for `release`

private:
    template <class Result>
    Task<Result> answer(std::function<Result(const Call&)>& script, Call call) {
        calls.append(call);
        if (holds) {
            const auto wakeup = std::make_shared<Wakeup>(EventExecutor::main());
            m_waiting.push_back(wakeup);
            co_await *wakeup;
        }
        co_return script(call);
    }

    std::vector<std::shared_ptr<Wakeup>> m_waiting;
};

} // namespace quillo
