#include "Transport/Server.h"

#include "Foundation/Files.h"
#include "Foundation/Log.h"
#include "Foundation/Network.h"
#include "Storage/DataFolderLock.h"
#include "Transport/AccountEndpoints.h"
#include "Transport/CertificateAuthority.h"
#include "Transport/Connection.h"
#include "Transport/FileEndpoints.h"
#include "Transport/HealthEndpoint.h"
#include "Transport/ListeningSocket.h"
#include "Transport/PageResponse.h"
#include "Transport/PeerUser.h"
#include "Transport/SignInEndpoints.h"

#include <boost/asio/co_spawn.hpp>
#include <boost/asio/detached.hpp>
#include <boost/asio/io_context.hpp>
#include <boost/asio/strand.hpp>

#include <algorithm>
#include <condition_variable>
#include <functional>
#include <netinet/tcp.h>
#include <thread>
#include <unordered_map>

namespace quillo::server {
namespace {

/// Connections beyond the limit that still get an answer with the reason; further ones are closed at once.
constexpr size_t refusedConnections = 64;
constexpr auto renewalInterval = std::chrono::hours(12);
constexpr auto drainStep = std::chrono::milliseconds(50);

std::shared_ptr<asio::ssl::context> makeTls(const std::filesystem::path& chain, const std::filesystem::path& key) {
    auto tls = std::make_shared<asio::ssl::context>(asio::ssl::context::tls_server);
    const auto require = [](const boost::system::error_code& error, const std::string& what) {
        if (error)
            throw std::runtime_error(what + ": " + error.message());
    };
    boost::system::error_code error;
    tls->use_certificate_chain_file(chain.string(), error);
    require(error, "cannot use the certificate in " + chain.string());
    // This also refuses a key that does not match the certificate.
    tls->use_private_key_file(key.string(), asio::ssl::context::pem, error);
    require(error, "cannot use " + key.string() + " as the key of the certificate in " + chain.string());
    SSL_CTX* native = tls->native_handle();
    SSL_CTX_set_min_proto_version(native, TLS1_2_VERSION);
    SSL_CTX_set_options(native, SSL_OP_NO_RENEGOTIATION | SSL_OP_NO_COMPRESSION);
    // Release the record buffers between records, for thousands of idle connections.
    SSL_CTX_set_mode(native, SSL_MODE_RELEASE_BUFFERS);
    return tls;
}

TaskSettings taskSettings(const ServerOptions& options) {
    TaskSettings settings;
    settings.dataFolder = options.dataFolder;
    settings.maxSpoolBytes = static_cast<int64_t>(options.maxSpoolBytes);
    settings.maxFileBytes = static_cast<int64_t>(options.maxUploadBytes);
    settings.workers =
        options.fileWorkers > 0 ? options.fileWorkers : std::max(1U, std::thread::hardware_concurrency() / 2);
    settings.maxTasksPerUser = options.maxTasksPerUser;
    settings.resultLifetime = options.resultLifetime;
    settings.audioLifetime = options.audioLifetime;
    settings.stallTimeout = options.stallTimeout;
    return settings;
}

void setKeepAlive(int descriptor) {
    const auto set = [descriptor](int level, int option, int value) {
        ::setsockopt(descriptor, level, option, &value, sizeof value);
    };
    // Detect a vanished peer within about two minutes, also while nothing is sent.
    set(SOL_SOCKET, SO_KEEPALIVE, 1);
    set(IPPROTO_TCP, TCP_KEEPIDLE, 60);
    set(IPPROTO_TCP, TCP_KEEPINTVL, 15);
    set(IPPROTO_TCP, TCP_KEEPCNT, 4);
    set(IPPROTO_TCP, TCP_NODELAY, 1);
}

} // namespace

class Server::Implementation {
public:
    Implementation(ServerOptions options, MakeRecogniser makeRecogniser)
        : m_context(std::make_shared<ConnectionContext>(std::move(options))), m_strand(asio::make_strand(m_io)),
          m_acceptor(m_strand), m_pause(m_strand), m_renewal(m_strand), m_signInCheck(m_strand),
          m_makeRecogniser(std::move(makeRecogniser)) {
        const ServerOptions& set = m_context->options;
        m_context->connections = std::make_shared<Limits>(set.maxConnections, set.maxConnectionsPerAddress);
        m_context->sessions = std::make_shared<Limits>(set.maxSessions, set.maxSessionsPerUser);
        m_context->uploads = std::make_shared<Limits>(set.maxUploads, set.maxUploadsPerUser);
    }

    void start();
    void stop();

    std::shared_ptr<ConnectionContext> m_context;
    std::string m_address;
    uint16_t m_port = 0;
    std::atomic<bool> m_hurry = false;

private:
    void loadCertificate(bool isFirst);
    void drain();
    void checkSignIns();
    void removeAbandonedUsers();
    void addAccounts();
    void accept();
    void admit(Tcp::socket socket);
    void renewLater();
    /// On the acceptor's strand.
    bool isOtherUser(const Tcp::endpoint& remote, const Tcp::endpoint& local);
    void forEachConnection(const std::function<void(ConnectionControl&)>& call);
    bool waitForConnections(std::chrono::milliseconds time);

    asio::io_context m_io;
    asio::any_io_executor m_strand; ///< of the acceptor and the timers
    Tcp::acceptor m_acceptor;
    asio::steady_timer m_pause;
    asio::steady_timer m_renewal;
    asio::steady_timer m_signInCheck;
    std::unique_ptr<DataFolderLock> m_folderLock;
    std::vector<std::thread> m_threads;
    std::shared_ptr<PasswordWorkers> m_passwords;
    std::mutex m_mutex;
    std::condition_variable m_ended;
    std::unordered_map<uint64_t, std::shared_ptr<ConnectionControl>> m_open;
    uint64_t m_lastId = 0;
    bool m_warnedOfPeers = false;
    MakeRecogniser m_makeRecogniser;
};

void Server::Implementation::start() {
    const ServerOptions& options = m_context->options;
    // Open the socket first: a second server on the same port must not modify the files of the first.
    const ListeningSocket socket = openListeningSocket(options.listen);
    m_acceptor.assign(socket.isIPv6 ? Tcp::v6() : Tcp::v4(), socket.descriptor);
    const auto endpoint = m_acceptor.local_endpoint();
    m_port = endpoint.port();
    m_address = socket.isIPv6 ? "[" + endpoint.address().to_string() + "]" : endpoint.address().to_string();
    m_address += ":" + std::to_string(m_port);

    makePrivateFolder(options.dataFolder);
    // Applications look here for a server that they can use instead of their own.
    const std::string note = options.onlyUser ? " own-user" : options.certificateFile.empty() ? "" : " own-certificate";
    m_folderLock = std::make_unique<DataFolderLock>(options.dataFolder, m_address + note);
    // Only now: a recogniser can take long to load, and a second server must end before that.
    m_context->recogniser = m_makeRecogniser();
    loadCertificate(true);
    m_context->accounts = std::make_shared<AccountStore>(options.dataFolder / "accounts.sqlite", options.wallClock);
    if (!options.servesAnonymous)
        m_context->accounts->refuseAnonymousUsers();
    m_context->tasks = std::make_shared<TaskService>(taskSettings(options), m_context->recogniser, options.wallClock);
    addAccounts();
    addFileEndpoints(m_context->router,
                     {options.maxUploadBytes, m_context->accounts, m_context->tasks, m_context->uploads});
    addHealthEndpoint(*m_context);
    m_context->tasks->start();
    removeAbandonedUsers();
    accept();
    renewLater();
    checkSignIns();
    for (unsigned i = 0; i < std::max(1U, options.threads); ++i)
        m_threads.emplace_back([this] { m_io.run(); });
    log(LogLevel::info, "server", "listening on " + m_address);
}

void Server::Implementation::loadCertificate(bool isFirst) {
    const ServerOptions& options = m_context->options;
    if (!options.certificateFile.empty()) {
        // Read it again each time, because renewals are not reported to us.
        m_context->setTls(makeTls(options.certificateFile, options.keyFile));
        return;
    }
    const auto files = ensureCertificates(options.dataFolder, options.hosts, std::chrono::system_clock::now());
    if (isFirst || files.changed)
        m_context->setTls(makeTls(files.chain, files.key));
}

void Server::Implementation::addAccounts() {
    const ServerOptions& options = m_context->options;
    const auto& accounts = m_context->accounts;
    const auto perHour = [&options](int count) {
        return std::make_shared<RateLimiter>(count, std::chrono::hours(1), options.steadyClock);
    };
    UserData data;
    data.remove = [tasks = m_context->tasks, streams = m_context->streams](const std::string& userId) {
        streams->endUser(userId);
        tasks->removeUser(userId);
    };
    data.move = [tasks = m_context->tasks, streams = m_context->streams](const Merge& merge) {
        streams->spareUser(merge.from);
        tasks->moveUser(merge.from, merge.to);
    };
    for (const Merge& merge : accounts->unfinishedMerges()) {
        data.move(merge);
        accounts->finishMerge(merge.from);
        log(LogLevel::info, "accounts", "anonymous user " + merge.from + " became part of user " + merge.to);
    }
    addAccountEndpoints(m_context->router, accounts,
                        options.servesAnonymous ? perHour(options.maxAnonymousPerHour) : nullptr, data);

    m_passwords = std::make_shared<PasswordWorkers>(options.passwordThreads, options.maxWaitingSignIns);
    addSignInEndpoints(m_context->router,
                       {accounts, m_passwords, std::make_shared<SignInThrottle>(options.steadyClock),
                        options.openRegistration ? perHour(options.maxRegistrationsPerHour) : nullptr,
                        std::make_shared<FormGuard>(options.wallClock)});
    m_context->router.setErrorPage(errorPage);
}

void Server::Implementation::accept() {
    // Each connection gets a strand, on which all of it runs.
    m_acceptor.async_accept(asio::any_io_executor(asio::make_strand(m_io)),
                            [this](const boost::system::error_code& error, Tcp::socket socket) {
                                if (m_context->stopping || error == asio::error::operation_aborted)
                                    return;
                                if (!error) {
                                    admit(std::move(socket));
                                    accept();
                                    return;
                                }
                                log(LogLevel::error, "server", "cannot accept: " + error.message());
                                // Out of descriptors or memory: wait until a connection ends.
                                m_pause.expires_after(std::chrono::milliseconds(100));
                                m_pause.async_wait([this](const boost::system::error_code& cancelled) {
                                    if (!cancelled && !m_context->stopping)
                                        accept();
                                });
                            });
}

void Server::Implementation::admit(Tcp::socket socket) {
    boost::system::error_code error;
    const auto remote = socket.remote_endpoint(error);
    if (error)
        return;
    auto address = remote.address();
    if (address.is_v6() && address.to_v6().is_v4_mapped())
        address = asio::ip::make_address_v4(asio::ip::v4_mapped, address.to_v6());
    auto state = std::make_shared<ConnectionState>();
    state->context = m_context;
    state->peer.address = address.to_string();
    state->peer.isLoopback = address.is_loopback();
    const ServerOptions& options = m_context->options;
    const bool isProxy = std::ranges::find(options.trustedProxies, state->peer.address) != options.trustedProxies.end();
    state->admission = isProxy ? m_context->connections->admitWithoutKey()
                               : m_context->connections->admit(networkOf(state->peer.address));
    if (options.onlyUser)
        state->isOtherUser = isOtherUser(remote, socket.local_endpoint(error));
    if (state->admission.verdict != Limits::Verdict::admitted &&
        m_context->connections->count() > m_context->options.maxConnections + refusedConnections)
        return;
    socket.non_blocking(true, error);
    setKeepAlive(socket.native_handle());
    const asio::any_io_executor strand = socket.get_executor();
    state->control = std::make_shared<ConnectionControl>(strand, socket.native_handle());
    uint64_t id = 0;
    {
        const std::scoped_lock lock(m_mutex);
        id = ++m_lastId;
        m_open.emplace(id, state->control);
    }
    // Start it on its own strand; see RunBlocking.h for the reason.
    auto begin = [this, id, strand, held = std::move(socket), state = std::move(state)]() mutable {
        asio::co_spawn(strand, serveConnection(std::move(held), std::move(state)),
                       [this, id](const std::exception_ptr&) {
                           const std::scoped_lock lock(m_mutex);
                           m_open.erase(id);
                           m_ended.notify_all();
                       });
    };
    asio::post(strand, std::move(begin));
}

bool Server::Implementation::isOtherUser(const Tcp::endpoint& remote, const Tcp::endpoint& local) {
    const auto owner = ownerOfPeer(remote, local, *m_context->options.onlyUser);
    // Refusing everyone would make the server useless in a sandbox that shows no tables, and accounts still protect
    // what belongs to a user.
    if (owner == PeerOwner::unknown && !std::exchange(m_warnedOfPeers, true))
        log(LogLevel::warning, "server",
            "cannot read /proc/net/tcp to see whose program connects: serving every user of this machine");
    return owner == PeerOwner::other;
}

void Server::Implementation::renewLater() {
    m_renewal.expires_after(renewalInterval);
    m_renewal.async_wait([this](const boost::system::error_code& error) {
        if (error)
            return;
        try {
            loadCertificate(false);
        } catch (const std::exception& failure) {
            log(LogLevel::error, "server", std::string("cannot renew the certificate: ") + failure.what());
        }
        asio::post(m_context->requestWork, [this] { removeAbandonedUsers(); });
        renewLater();
    });
}

void Server::Implementation::removeAbandonedUsers() {
    try {
        for (const auto& user : m_context->accounts->abandonedUsers()) {
            if (!m_context->tasks->knowsUser(user))
                m_context->accounts->removeAbandoned(user);
        }
    } catch (const std::exception& error) {
        log(LogLevel::error, "accounts", std::string("cannot remove abandoned users: ") + error.what());
    }
}

/// The administrator's command ends accounts from another process.
void Server::Implementation::checkSignIns() {
    m_signInCheck.expires_after(m_context->options.signInCheck);
    m_signInCheck.async_wait([this](const boost::system::error_code& error) {
        if (error)
            return;
        asio::post(m_context->requestWork, [context = m_context] {
            try {
                for (const auto& signIn : context->streams->signIns()) {
                    if (!context->accounts->isSignedIn(signIn))
                        context->streams->signInMissed(signIn);
                }
            } catch (const std::exception& failure) {
                log(LogLevel::error, "accounts", std::string("cannot check the sign-ins: ") + failure.what());
            }
        });
        checkSignIns();
    });
}

void Server::Implementation::forEachConnection(const std::function<void(ConnectionControl&)>& call) {
    const std::scoped_lock lock(m_mutex);
    for (const auto& [id, control] : m_open)
        call(*control);
}

/// Lets running dictations finish.
void Server::Implementation::drain() {
    const auto time = m_context->options.drainTime;
    if (time == time.zero())
        return;
    forEachConnection([](ConnectionControl& control) { control.request(ConnectionControl::Request::drain); });
    const auto end = ConnectionControl::Clock::now() + time;
    std::unique_lock lock(m_mutex);
    while (m_context->sessions->count() > 0 && !m_hurry && ConnectionControl::Clock::now() < end)
        m_ended.wait_for(lock, drainStep);
}

bool Server::Implementation::waitForConnections(std::chrono::milliseconds time) {
    std::unique_lock lock(m_mutex);
    return m_ended.wait_for(lock, time, [this] { return m_open.empty(); });
}

void Server::Implementation::stop() {
    if (m_threads.empty())
        return;
    m_context->stopping = true;
    asio::post(m_strand, [this] {
        boost::system::error_code ignored;
        m_acceptor.close(ignored);
        m_pause.cancel();
        m_renewal.cancel();
        m_signInCheck.cancel();
    });
    drain();
    // Abandon background recognitions first, because they would only delay the others.
    m_context->tasks->stop();
    m_passwords->stop();
    forEachConnection([](ConnectionControl& control) { control.request(ConnectionControl::Request::stop); });
    if (!waitForConnections(m_context->options.stopTimeout)) {
        forEachConnection([](ConnectionControl& control) { control.requestCut(); });
        waitForConnections(std::chrono::seconds(1));
    }
    // End the recognitions that connections left behind, while their strands still exist.
    m_context->streamWork.join();
    m_context->requestWork.join();
    m_context->uploadWork.join();
    m_io.stop();
    for (auto& thread : m_threads)
        thread.join();
    m_threads.clear();
    m_folderLock.reset();
    log(LogLevel::info, "server", "stopped");
}

Server::Server(ServerOptions options, std::shared_ptr<Recogniser> recogniser)
    : Server(std::move(options), [recogniser = std::move(recogniser)] { return recogniser; }) {}

Server::Server(ServerOptions options, MakeRecogniser makeRecogniser)
    : m_implementation(std::make_unique<Implementation>(std::move(options), std::move(makeRecogniser))) {}

Server::~Server() { stop(); }

void Server::start() { m_implementation->start(); }
void Server::stop() { m_implementation->stop(); }
void Server::hurry() { m_implementation->m_hurry = true; }
uint16_t Server::port() const { return m_implementation->m_port; }
std::string Server::address() const { return m_implementation->m_address; }

std::filesystem::path Server::authorityFile() const {
    return m_implementation->m_context->options.dataFolder / "authority.pem";
}

size_t Server::connectionCount() const { return m_implementation->m_context->connections->count(); }
size_t Server::sessionCount() const { return m_implementation->m_context->sessions->count(); }

} // namespace quillo::server
