#pragma once

#include "ServerFixture.h"

#include <QTcpSocket>

#include <condition_variable>
#include <mutex>

namespace quillo::test {

/// A recogniser that says how many samples it heard, and answers when the test lets it.
class GatedRecogniser final : public server::Recogniser {
public:
    /// Waits while names are blocked.
    [[nodiscard]] std::string name() const override;
    std::unique_ptr<server::RecognitionSession> open(const server::RecognitionOptions& options,
                                                     std::shared_ptr<server::RecognitionListener> listener) override;

    /// Sessions answer only after `release`.
    void hold();
    void release();
    /// Blocks every thread that wants the name, as one does that judges an upload on a slow disk.
    void blockNames(bool block);
    /// Threads that wait for the name.
    [[nodiscard]] int blocked() const;
    /// The next sessions fail to open.
    void refuse(bool refuse);
    [[nodiscard]] int opened() const;
    /// What the last session was opened with.
    [[nodiscard]] server::RecognitionOptions lastOptions() const;

private:
    class Session;
    struct Held {
        std::shared_ptr<server::RecognitionListener> listener;
        size_t samples = 0;
        bool over = false;
    };
    static void answer(Held& held);

    mutable std::mutex m_mutex;
    mutable std::condition_variable m_unblocked;
    mutable int m_blocked = 0;
    bool m_blocking = false;
    bool m_holding = false;
    bool m_refusing = false;
    int m_opened = 0;
    server::RecognitionOptions m_last;
    std::vector<std::shared_ptr<Held>> m_finished;
};

/// A WAV file with a quiet tone.
QByteArray wav(int frames, int rate = 16000, int channels = 1);
/// The samples of `wav` in 16 kHz mono.
QByteArray tone(int frames, int channels = 1);

/// A form as the client writes it.
struct Form {
    QByteArray file = wav(16000);
    QByteArray language = "en";
    QByteArray purpose = "pending";
    QByteArray recordingId;

    [[nodiscard]] QByteArray body() const;
};

constexpr const char* formType = "multipart/form-data; boundary=Boundary-1";

/// A whole request that carries `body`.
QByteArray uploadRequest(const QByteArray& path, const QString& token, const QByteArray& body,
                         const QByteArray& contentType = formType, const QByteArray& headers = {});
/// Uploads within TLS to /api/v1.
HttpAnswer upload(const TestServer& server, const QString& token, const Form& form,
                  const QByteArray& path = "/transcription/file");
HttpAnswer getAs(const TestServer& server, const QString& token, const QByteArray& path);
/// Files that the server holds of uploads.
size_t spooledFiles(const TestServer& server);

/// A request whose answer is taken later, in the clear.
class OpenRequest {
public:
    OpenRequest(const TestServer& server, const QByteArray& bytes);
    HttpAnswer answer();
    QTcpSocket socket;
};

} // namespace quillo::test
