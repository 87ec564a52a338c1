#pragma once

#include "ServerFixture.h"

#include <QTcpSocket>

#include <atomic>
#include <mutex>

namespace quillo::test {

/// A recogniser that says how many samples it heard, and answers when the test lets it. Thread-safe.
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

    std::atomic<bool> isRefusing = false; ///< the next sessions fail to open
    std::atomic<int> opened = 0;
    mutable std::atomic<int> blocked = 0; ///< threads that wait for the name
    /// What the last session was opened with; read it when no session is being opened.
    server::RecognitionOptions lastOptions;

private:
    class Session;

    std::mutex m_mutex; ///< guards what follows and the sessions
    bool m_isHolding = false;
    std::vector<Session*> m_finished;
    std::atomic<bool> m_isBlocking = false;
};

/// A server whose recogniser the test holds back, and a user of it.
struct GatedServer {
    std::shared_ptr<GatedRecogniser> recogniser;
    TestServer server;
    QString token = server.token();
};
GatedServer gatedServer(const server::ServerOptions& options = {});

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
HttpAnswer removeAccount(const TestServer& server, const QString& token);
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
