// Four hours of audio through the writer, the conversion of two channels, and the upload to an HTTPS server: how long
// each takes, and what it adds to the resident memory.

#include "Core/AudioChunk.h"
#include "Core/LoggingService.h"
#include "Services/Auth/InMemoryTokenStorage.h"
#include "Services/Mock/MockAuthService.h"
#include "Services/Network/TrustedNetwork.h"
#include "Services/Recordings/AudioFileWriter.h"
#include "Services/Recordings/PCMFiles.h"
#include "Services/Upload/TranscriptionFileClient.h"
#include "Support/ScriptedServer.h"
#include "Support/TestCertificate.h"

#include <QCoreApplication>
#include <QElapsedTimer>
#include <QFile>
#include <QTemporaryDir>

#include <cstdio>

using namespace quillo;

namespace {

constexpr int chunks = 4 * 3600 * 10;

/// Resident memory now, or its maximum so far, in kilobytes.
long memory(const QByteArray& key) {
    QFile status(QStringLiteral("/proc/self/status"));
    if (!status.open(QIODevice::ReadOnly))
        return -1;
    for (const auto& line : status.readAll().split('\n'))
        if (line.startsWith(key))
            return line.simplified().split(' ').value(1).toLong();
    return -1;
}

class Figure {
public:
    explicit Figure(const char* name) : m_name(name), m_before(memory("VmRSS")) {
        QFile peak(QStringLiteral("/proc/self/clear_refs"));
        if (peak.open(QIODevice::WriteOnly))
            peak.write("5"); // resets the peak
        m_time.start();
    }
    ~Figure() {
        std::printf("%-28s %7.1f s   resident %6ld -> %6ld kB, at most %6ld kB\n", m_name,
                    static_cast<double>(m_time.elapsed()) / 1000, m_before, memory("VmRSS"), memory("VmHWM"));
    }
    Figure(const Figure&) = delete;
    Figure& operator=(const Figure&) = delete;

private:
    const char* m_name;
    long m_before;
    QElapsedTimer m_time;
};

void record(const QString& audioId) {
    AudioFileWriter writer(audioId);
    writer.startWriting();
    QByteArray chunk(AudioFormat::chunkByteSize, '\x21');
    for (int number = 0; number < chunks; ++number)
        if (!writer.writeChunk(chunk))
            qFatal("the disk refused");
    writer.finalize();
}

Task<> upload(TranscriptionFileClient& client, QString audioId, bool& isDone) {
    const auto response = co_await client.diarizeRecord(audioId, {});
    isDone = response.plainText == QStringLiteral("heard");
}

} // namespace

int main(int argc, char** argv) {
    const QCoreApplication application(argc, argv);
    LoggingService::shared().setConsoleLevel(std::nullopt);
    const QTemporaryDir home(QDir::homePath() +
                             QStringLiteral("/.quillo-benchmark-XXXXXX")); // on the disk, not in memory
    qputenv("XDG_DATA_HOME", QFile::encodeName(home.path()));
    const auto mic = QStringLiteral("mic");
    const auto system = QStringLiteral("system");
    {
        const Figure figure("recording 460 MB");
        record(mic);
    }
    record(system);
    PendingAudioMetadata metadata;
    metadata.id = mic;
    metadata.createdAt = QDateTime::currentDateTimeUtc();
    metadata.systemAudioId = system;
    pendingAudioFiles::writeMetadata(metadata);

    const test::TestCertificate certificate;
    QFile authority(home.filePath(QStringLiteral("authority.pem")));
    if (!authority.open(QIODevice::WriteOnly) || authority.write(certificate.authorityPem()) <= 0)
        qFatal("the authority could not be written");
    authority.close();
    const TrustedNetwork trust(authority.fileName());
    qint64 received = 0;
    test::ScriptedServer server(certificate.serverConfiguration(), [&](const auto& request, QSslSocket& connection) {
        received = request.bodyBytes;
        test::ScriptedServer::answer(connection, "200 OK", R"({"plain_text":"heard"})");
    });
    server.keepsBodies = false;
    const auto tokens = std::make_shared<InMemoryTokenStorage>();
    tokens->setAccessToken(QStringLiteral("token"));
    MockAuthService auth;
    SystemClock clock(EventExecutor::main());
    TranscriptionFileClient client({.apiBaseURL = server.url(QStringLiteral("https")),
                                    .tokenStorage = tokens,
                                    .prepareRequest = [&](QNetworkRequest& request) { trust.prepare(request); }},
                                   auth, clock);
    bool isDone = false;
    {
        const Figure figure("mixing and sending 460 MB");
        const auto task = upload(client, mic, isDone);
        while (!task.isReady())
            QCoreApplication::processEvents(QEventLoop::WaitForMoreEvents);
    }
    std::printf("received %lld bytes, %s\n", static_cast<long long>(received), isDone ? "answered" : "FAILED");
    return isDone && received > static_cast<qint64>(chunks) * AudioFormat::chunkByteSize ? 0 : 1;
}
