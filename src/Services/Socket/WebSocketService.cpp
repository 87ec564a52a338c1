#include "Services/Socket/WebSocketService.h"

#include "Services/Protocol/ServerMessageEncoding.h"
#include "Services/Socket/WebSocketServiceActor.h"

#include <QStringBuilder>

namespace quillo {

namespace {

using Code = WebSocketError::Code;
using namespace std::chrono_literals;

constexpr int concurrentConnectChecks = 30;
constexpr auto concurrentConnectInterval = 100ms;
constexpr auto lifeCheckInterval = 60s;

} // namespace

/// The main thread's side. Coroutines hold it, so that the executor exists even if they outlive the service; it is
/// destroyed on the main thread.
struct WebSocketService::Core : std::enable_shared_from_this<WebSocketService::Core> {
    Clock& clock;
    std::function<QUrl()> serverURL;
    Timeouts timeouts;
    QString clientVersion;
    std::shared_ptr<WebSocketServiceState> state = std::make_shared<WebSocketServiceState>();
    std::optional<AsyncStream<ServerMessage>> events;
    uint64_t lastConnection = 0; ///< the latest attempt
    uint64_t liveConnection = 0; ///< the latest that succeeded
    uint64_t disconnects = 0;
    bool isShutDown = false;
    Clock::TimerHandle lifeTimer;
    // Keep this order: the thread ends before the actor is destroyed, because its last work refers to the actor.
    WebSocketServiceActor actor;
    SerialExecutor executor{QStringLiteral("com.quillo.websocket")};

    Core(Config config, Clock& mainClock)
        : clock(mainClock), serverURL(config.serverURL), timeouts(config.timeouts), clientVersion(config.clientVersion),
          actor(std::move(config), state) {}

    using Operation = std::function<void(WebSocketServiceActor&, const WebSocketServiceActor::ReplySink&)>;

    /// Runs `operation` on the actor's thread and resumes with its reply.
    static Task<WebSocketReply> ask(std::shared_ptr<Core> core, Operation operation) {
        if (core->isShutDown)
            co_return WebSocketReply::failure(Code::connectionCancelled);
        auto [replies, sink] = AsyncStream<WebSocketReply>::make(EventExecutor::main());
        core->post([sink = sink, operation = std::move(operation)](WebSocketServiceActor& target) {
            operation(target, sink);
        });
        auto reply = co_await replies.next();
        co_return reply ? *std::move(reply) : WebSocketReply::failure(Code::connectionCancelled);
    }

    /// The actor lives until the executor has run its queue, so a reference is enough. Holding the core there could
    /// destroy it on the executor's own thread.
    void post(std::function<void(WebSocketServiceActor&)> work) {
        if (!isShutDown)
            executor.post([target = &actor, work = std::move(work)] { work(*target); });
    }

    static void throwIfFailed(const WebSocketReply& reply) {
        if (reply.kind == WebSocketReply::Kind::failed)
            throw WebSocketError(reply.code, reply.reason, reply.httpStatus);
    }

    static Task<> perform(std::shared_ptr<Core> core, Operation operation) {
        throwIfFailed(co_await ask(std::move(core), std::move(operation)));
    }

    static Task<> send(std::shared_ptr<Core> core, QString frame, QString logLine) {
        return perform(std::move(core),
                       [frame, logLine](auto& target, const auto& reply) { target.send(frame, logLine, reply); });
    }

    static Task<> connect(std::shared_ptr<Core> core) {
        const auto disconnectsBefore = core->disconnects;
        int checks = 0;
        while (co_await attempt(core) == WebSocketReply::Kind::busy) {
            logFromMain(QStringLiteral("⏳ Connection in progress, waiting..."));
            while (core->state->isConnecting && checks < concurrentConnectChecks) {
                co_await core->clock.sleep(concurrentConnectInterval);
                ++checks;
            }
            if (core->disconnects != disconnectsBefore || core->isShutDown)
                throw WebSocketError(Code::connectionCancelled);
            if (core->state->isConnected) {
                logFromMain(QStringLiteral("✅ Connection completed while waiting"));
                co_return;
            }
            if (checks >= concurrentConnectChecks)
                throw WebSocketError(Code::connectionFailed, QStringLiteral("another connect is still under way"));
        }
    }

    /// One attempt; throws on failure.
    static Task<WebSocketReply::Kind> attempt(std::shared_ptr<Core> core) {
        const auto connection = ++core->lastConnection;
        auto [stream, events] = AsyncStream<ServerMessage>::make(EventExecutor::main());
        const std::weak_ptr weak(core);
        events.onTermination([weak, connection](StreamTermination reason) {
            if (reason != StreamTermination::cancelled)
                return;
            if (const auto strong = weak.lock())
                strong->post([connection](auto& target) { target.consumerLeft(connection); });
        });
        const auto deadline = core->clock.callLater(core->timeouts.handshake, [weak, connection] {
            if (const auto strong = weak.lock())
                strong->post(
                    [connection](auto& target) { target.fail(connection, QStringLiteral("The request timed out.")); });
        });
        const auto url = core->serverURL();
        auto asked = ask(core, [connection, url, events = events](auto& target, const auto& reply) {
            target.connect(connection, url, events, reply);
        });
        const auto reply = co_await asked;
        throwIfFailed(reply);
        if (reply.kind == WebSocketReply::Kind::done) {
            core->events.emplace(std::move(stream));
            core->liveConnection = connection;
            core->watchLife(connection, core->clock.now(), core->clock.now(), core->state->framesReceived);
        }
        co_return reply.kind;
    }

    /// Checks once a minute whether the connection is too old or was silent for too long.
    void watchLife(uint64_t connection, Clock::Instant start, Clock::Instant lastFrame, uint64_t framesBefore) {
        lifeTimer =
            clock.callLater(lifeCheckInterval, [weak = weak_from_this(), connection, start, lastFrame, framesBefore] {
                // Post it: setting the next timer would destroy this one while it runs.
                EventExecutor::main().post([=] {
                    const auto core = weak.lock();
                    if (!core || core->liveConnection != connection || !core->state->isConnected)
                        return;
                    const uint64_t frames = core->state->framesReceived;
                    const auto now = core->clock.now();
                    const auto latest = frames == framesBefore ? lastFrame : now;
                    if (now - latest >= core->timeouts.idle || now - start >= core->timeouts.total)
                        core->post([connection](auto& target) {
                            target.fail(connection, QStringLiteral("The request timed out."));
                        });
                    else
                        core->watchLife(connection, start, latest, frames);
                });
            });
    }

    void shutdown() {
        lifeTimer.reset();
        events.reset();
        executor.runBlocking([this] { actor.shutdown(); });
        isShutDown = true;
    }
};

WebSocketService::WebSocketService(Config config, Clock& clock)
    : m_core(std::make_shared<Core>(std::move(config), clock)) {
    // The main executor belongs to the thread that asks for it first.
    EventExecutor::main();
}

WebSocketService::~WebSocketService() { m_core->shutdown(); }

Task<> WebSocketService::connect() { return Core::connect(m_core); }

Task<> WebSocketService::disconnect() {
    ++m_core->disconnects;
    return Core::perform(m_core, [](auto& target, const auto& reply) { target.disconnect(reply); });
}

Task<> WebSocketService::startSession(SessionRequest request) {
    const auto line = QStringLiteral("[WebSocket] Sending start_session: languages=%1, mode=%2, audioSources=%3, "
                                     "commands=%4, enhanced=%5")
                          .arg(request.languages.join(u','), encoding::sessionMode(request),
                               request.audioSources ? request.audioSources->join(u',') : QStringLiteral("nil"))
                          .arg(request.commands ? request.commands->size() : 0)
                          .arg(request.enhancedTranscription ? QStringLiteral("true") : QStringLiteral("false"));
    return Core::send(m_core, encoding::startSession(request, m_core->clientVersion), line);
}

Task<> WebSocketService::sendAudio(AudioChunk chunk, bool /*hasSpeech*/) {
    // Encode on the socket's thread, to keep the main thread free for the interface. The protocol has no field for the
    // chunk's source.
    return Core::perform(m_core, [data = chunk.data](auto& target, const auto& reply) {
        target.send(encoding::audioChunk(data), {}, reply);
    });
}

Task<> WebSocketService::endSession() {
    return Core::perform(m_core, [](auto& target, const auto& reply) {
        target.sendLast(encoding::endSession(),
                        QStringLiteral("[WebSocket] 🛑 Session ended (graceful disconnect started)"), reply);
    });
}

Task<> WebSocketService::sendSwitchToMeeting(double switchTimestamp, QStringList audioSources) {
    return Core::send(m_core, encoding::switchToMeeting(switchTimestamp, audioSources),
                      QStringLiteral("[WebSocket] 🏢 Sent switch_to_meeting at %1").arg(switchTimestamp, 0, 'f', 3));
}

Task<> WebSocketService::sendSystemAudioStatus(QString status) {
    return Core::send(m_core, encoding::systemAudioStatus(status),
                      QStringLiteral("[WebSocket] 📡 Sent system_audio_status: ") % status);
}

AsyncStream<ServerMessage> WebSocketService::receiveMessages() {
    if (auto events = std::exchange(m_core->events, std::nullopt)) {
        logFromMain(QStringLiteral("[WebSocket] 🔄 Starting message receive loop"));
        return *std::move(events);
    }
    logFromMain(QStringLiteral("[WebSocket] ❌ startReceiving: no webSocket"), LogLevel::error);
    return AsyncStream<ServerMessage>::of(EventExecutor::main(), {});
}

bool WebSocketService::isConnected() const { return m_core->state->isConnected; }

SessionTexts WebSocketService::texts() const { return m_core->state->texts(); }

void WebSocketService::clearAllText() {
    const auto cleared = m_core->state->changeTexts([](SessionTexts& texts) { return std::exchange(texts, {}); });
    if (cleared.hasRecoveredText)
        logFromMain(QStringLiteral("🧹 Cleared recovered text that was: %1 characters")
                        .arg(cleared.savedTextFromDisconnect.size()));
    logFromMain(QStringLiteral("🧹 All text cleared"));
}

void WebSocketService::markRecoveredTextAsUsed() {
    m_core->state->changeTexts([](SessionTexts& texts) { texts.hasRecoveredText = false; });
    logFromMain(QStringLiteral("[WebSocket] ✅ Recovered text marked as used"));
}

} // namespace quillo
