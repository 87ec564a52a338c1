#include "FileFixture.h"

#include <QDataStream>

#include <cmath>

namespace quillo::test {

using namespace quillo::server;

class GatedRecogniser::Session final : public RecognitionSession {
public:
    Session(GatedRecogniser& owner, std::shared_ptr<RecognitionListener> listener)
        : m_owner(owner), m_held(std::make_shared<Held>()) {
        m_held->listener = std::move(listener);
    }
    ~Session() override {
        const std::scoped_lock lock(m_owner.m_mutex);
        m_held->over = true;
    }
    Session(const Session&) = delete;
    Session& operator=(const Session&) = delete;

    void push(std::span<const int16_t> samples) override {
        const std::scoped_lock lock(m_owner.m_mutex);
        m_held->samples += samples.size();
    }
    void finish() override {
        const std::scoped_lock lock(m_owner.m_mutex);
        if (m_owner.m_holding)
            m_owner.m_finished.push_back(m_held);
        else
            answer(*m_held);
    }
    [[nodiscard]] double backlogSeconds() const override { return 0; }

private:
    GatedRecogniser& m_owner;
    std::shared_ptr<Held> m_held;
};

void GatedRecogniser::answer(Held& held) {
    if (std::exchange(held.over, true))
        return;
    Transcript transcript;
    transcript.text = "heard " + std::to_string(held.samples);
    transcript.language = "en";
    transcript.end = static_cast<double>(held.samples) / 16000;
    held.listener->onFinal(transcript);
    held.listener->onFinished();
}

std::unique_ptr<RecognitionSession> GatedRecogniser::open(const RecognitionOptions& options,
                                                          std::shared_ptr<RecognitionListener> listener) {
    const std::scoped_lock lock(m_mutex);
    if (m_refusing)
        throw RecogniserUnavailable("The test wants no recogniser");
    ++m_opened;
    m_last = options;
    return std::make_unique<Session>(*this, std::move(listener));
}

std::string GatedRecogniser::name() const {
    std::unique_lock lock(m_mutex);
    ++m_blocked;
    m_unblocked.wait(lock, [this] { return !m_blocking; });
    --m_blocked;
    return "gated";
}

void GatedRecogniser::blockNames(bool block) {
    const std::scoped_lock lock(m_mutex);
    m_blocking = block;
    m_unblocked.notify_all();
}

int GatedRecogniser::blocked() const {
    const std::scoped_lock lock(m_mutex);
    return m_blocked;
}

void GatedRecogniser::hold() {
    const std::scoped_lock lock(m_mutex);
    m_holding = true;
}

void GatedRecogniser::release() {
    const std::scoped_lock lock(m_mutex);
    m_holding = false;
    for (const auto& held : m_finished)
        answer(*held);
    m_finished.clear();
}

void GatedRecogniser::refuse(bool refuse) {
    const std::scoped_lock lock(m_mutex);
    m_refusing = refuse;
}

int GatedRecogniser::opened() const {
    const std::scoped_lock lock(m_mutex);
    return m_opened;
}

RecognitionOptions GatedRecogniser::lastOptions() const {
    const std::scoped_lock lock(m_mutex);
    return m_last;
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
    return "POST " + path + " HTTP/1.1\r\nHost: localhost\r\nConnection: close\r\nAuthorization: Bearer " +
           token.toLatin1() + "\r\nContent-Type: " + contentType +
           "\r\nContent-Length: " + QByteArray::number(body.size()) + "\r\n" + headers + "\r\n" + body;
}

HttpAnswer upload(const TestServer& server, const QString& token, const Form& form, const QByteArray& path) {
    return parseAnswer(server.exchangeEncrypted(uploadRequest("/api/v1" + path, token, form.body())));
}

HttpAnswer getAs(const TestServer& server, const QString& token, const QByteArray& path) {
    return parseAnswer(server.exchangeEncrypted("GET /api/v1" + path +
                                                " HTTP/1.1\r\nHost: localhost\r\nConnection: close\r\n"
                                                "Authorization: Bearer " +
                                                token.toLatin1() + "\r\n\r\n"));
}

size_t spooledFiles(const TestServer& server) {
    const std::filesystem::directory_iterator files(server.dataFolder() / "uploads");
    return static_cast<size_t>(std::distance(begin(files), end(files)));
}

OpenRequest::OpenRequest(const TestServer& server, const QByteArray& bytes) {
    socket.connectToHost(QStringLiteral("127.0.0.1"), const_cast<TestServer&>(server)->port());
    socket.write(bytes);
    EXPECT_TRUE(
        waitUntil([this] { return socket.state() == QAbstractSocket::ConnectedState && socket.bytesToWrite() == 0; }));
}

HttpAnswer OpenRequest::answer() {
    EXPECT_TRUE(waitUntil([this] { return socket.state() == QAbstractSocket::UnconnectedState; }));
    return parseAnswer(socket.readAll());
}

} // namespace quillo::test
