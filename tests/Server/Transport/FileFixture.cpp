#include "FileFixture.h"

#include <QDataStream>

#include <cmath>

namespace quillo::test {

using namespace quillo::server;

class GatedRecogniser::Session final : public RecognitionSession {
public:
    Session(GatedRecogniser& owner, std::shared_ptr<RecognitionListener> listener)
        : m_owner(owner), m_listener(std::move(listener)) {}
    ~Session() override {
        const std::scoped_lock lock(m_owner.m_mutex);
        std::erase(m_owner.m_finished, this);
    }
    Session(const Session&) = delete;
    Session& operator=(const Session&) = delete;

    void push(std::span<const int16_t> samples) override { m_samples += samples.size(); }
    void finish() override {
        const std::scoped_lock lock(m_owner.m_mutex);
        if (m_owner.m_isHolding)
            m_owner.m_finished.push_back(this);
        else
            answer();
    }
    [[nodiscard]] double backlogSeconds() const override { return 0; }

    void answer() {
        Transcript transcript;
        transcript.text = "heard " + std::to_string(m_samples);
        transcript.language = "en";
        transcript.end = static_cast<double>(m_samples) / 16000;
        m_listener->onFinal(transcript);
        m_listener->onFinished();
    }

private:
    GatedRecogniser& m_owner;
    std::shared_ptr<RecognitionListener> m_listener;
    size_t m_samples = 0;
};

std::unique_ptr<RecognitionSession> GatedRecogniser::open(const RecognitionOptions& options,
                                                          std::shared_ptr<RecognitionListener> listener) {
    if (isRefusing)
        throw RecogniserUnavailable("The test wants no recogniser");
    const std::scoped_lock lock(m_mutex);
    lastOptions = options;
    ++opened;
    return std::make_unique<Session>(*this, std::move(listener));
}

std::string GatedRecogniser::name() const {
    ++blocked;
    m_isBlocking.wait(true);
    --blocked;
    return "gated";
}

void GatedRecogniser::blockNames(bool block) {
    m_isBlocking = block;
    m_isBlocking.notify_all();
}

void GatedRecogniser::hold() {
    const std::scoped_lock lock(m_mutex);
    m_isHolding = true;
}

void GatedRecogniser::release() {
    const std::scoped_lock lock(m_mutex);
    m_isHolding = false;
    for (auto* session : std::exchange(m_finished, {}))
        session->answer();
}

GatedServer gatedServer(const ServerOptions& options) {
    const auto recogniser = std::make_shared<GatedRecogniser>();
    return {.recogniser = recogniser, .server = TestServer(recogniser, options)};
}

QByteArray tone(int frames, int channels) {
    QByteArray samples;
    QDataStream stream(&samples, QIODevice::WriteOnly);
    stream.setByteOrder(QDataStream::LittleEndian);
    for (int i = 0; i < frames; ++i) {
        for (int channel = 0; channel < channels; ++channel)
            stream << static_cast<qint16>(1000 * std::sin(i * 0.1));
    }
    return samples;
}

QByteArray wav(int frames, int rate, int channels) {
    const QByteArray samples = tone(frames, channels);
    QByteArray file;
    QDataStream stream(&file, QIODevice::WriteOnly);
    stream.setByteOrder(QDataStream::LittleEndian);
    stream.writeRawData("RIFF", 4);
    stream << static_cast<quint32>(36 + samples.size());
    stream.writeRawData("WAVEfmt ", 8);
    stream << quint32{16} << quint16{1} << static_cast<quint16>(channels) << static_cast<quint32>(rate)
           << static_cast<quint32>(rate * channels * 2) << static_cast<quint16>(channels * 2) << quint16{16};
    stream.writeRawData("data", 4);
    stream << static_cast<quint32>(samples.size());
    return file + samples;
}

QByteArray Form::body() const {
    const auto field = [](const QByteArray& name, const QByteArray& value) {
        return "--Boundary-1\r\nContent-Disposition: form-data; name=\"" + name + "\"\r\n\r\n" + value + "\r\n";
    };
    QByteArray body = "--Boundary-1\r\nContent-Disposition: form-data; name=\"file\"; filename=\"audio.wav\"\r\n"
                      "Content-Type: audio/wav\r\n\r\n" +
                      file + "\r\n" + field("language", language);
    if (!purpose.isEmpty())
        body += field("purpose", purpose);
    if (!recordingId.isEmpty())
        body += field("client_recording_id", recordingId);
    return body + "--Boundary-1--\r\n";
}

QByteArray uploadRequest(const QByteArray& path, const QString& token, const QByteArray& body,
                         const QByteArray& contentType, const QByteArray& headers) {
    return requestBytes("POST", path, bearer(token) + "Content-Type: " + contentType + "\r\n" + headers, body);
}

HttpAnswer upload(const TestServer& server, const QString& token, const Form& form, const QByteArray& path) {
    return parseAnswer(server.exchangeEncrypted(uploadRequest("/api/v1" + path, token, form.body())));
}

HttpAnswer getAs(const TestServer& server, const QString& token, const QByteArray& path) {
    return parseAnswer(server.exchangeEncrypted(requestBytes("GET", "/api/v1" + path, bearer(token))));
}

HttpAnswer removeAccount(const TestServer& server, const QString& token) {
    return parseAnswer(server.exchangeEncrypted(requestBytes("DELETE", "/api/v1/users/me", bearer(token))));
}

size_t spooledFiles(const TestServer& server) {
    const std::filesystem::directory_iterator files(server.dataFolder() / "uploads");
    return static_cast<size_t>(std::distance(begin(files), end(files)));
}

OpenRequest::OpenRequest(const TestServer& server, const QByteArray& bytes) {
    socket.connectToHost(u"127.0.0.1"_qs, server.port());
    socket.write(bytes);
    EXPECT_TRUE(
        waitUntil([this] { return socket.state() == QAbstractSocket::ConnectedState && socket.bytesToWrite() == 0; }));
}

HttpAnswer OpenRequest::answer() {
    EXPECT_TRUE(waitUntil([this] { return socket.state() == QAbstractSocket::UnconnectedState; }));
    return parseAnswer(socket.readAll());
}

} // namespace quillo::test
