#include "Transport/Server.h"

#include "Foundation/Files.h"
#include "Foundation/Log.h"
#include "Transport/AccountEndpoints.h"
#include "Transport/CertificateAuthority.h"
#include "Transport/Connection.h"
#include "Transport/FileEndpoints.h"
#include "Transport/ListeningSocket.h"
#include "Transport/PageResponse.h"
#include "Transport/SignInEndpoints.h"

#include <boost/asio/co_spawn.hpp>
#include <boost/asio/detached.hpp>
#include <boost/asio/io_context.hpp>
#include <boost/asio/strand.hpp>

#include <condition_variable>
#include <netinet/tcp.h>
#include <thread>
#include <unordered_map>

namespace quillo::server {
namespace {

/// Connections beyond the bound that are still told why they are refused; further ones are closed at once.
constexpr size_t refusedConnections = 64;
constexpr auto renewalInterval = std::chrono::hours(12);

std::shared_ptr<asio::ssl::context> makeTls(const CertificateFiles& files) {
    auto tls = std::make_shared<asio::ssl::context>(asio::ssl::context::tls_server);
    tls->use_certificate_chain_file(files.chain.string());
    tls->use_private_key_file(files.key.string(), asio::ssl::context::pem);
    SSL_CTX* native = tls->native_handle();
    SSL_CTX_set_min_proto_version(native, TLS1_2_VERSION);
    SSL_CTX_set_options(native, SSL_OP_NO_RENEGOTIATION | SSL_OP_NO_COMPRESSION);
    // Thousands of idle connections: their record buffers are given back between records.
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
    // A peer that vanished is noticed in about two minutes, also while nothing is sent.
    set(SOL_SOCKET, SO_KEEPALIVE, 1);
    set(IPPROTO_TCP, TCP_KEEPIDLE, 60);
    set(IPPROTO_TCP, TCP_KEEPINTVL, 15);
    set(IPPROTO_TCP, TCP_KEEPCNT, 4);
    set(IPPROTO_TCP, TCP_NODELAY, 1);
}

} // namespace

class Server::Implementation {
public:
    Implementation(ServerOptions options, std::shared_ptr<Recogniser> recogniser)
        : context_(std::make_shared<ConnectionContext>()), strand_(asio::make_strand(io_)), acceptor_(strand_),
          pause_(strand_), renewal_(strand_) {
        context_->options = std::move(options);
        context_->recogniser = std::move(recogniser);
        const ServerOptions& set = context_->options;
        context_->connections = std::make_shared<Limits>(set.maxConnections, set.maxConnectionsPerAddress);
        context_->sessions = std::make_shared<Limits>(set.maxSessions, set.maxSessionsPerUser);
        context_->uploads = std::make_shared<Limits>(set.maxUploads, set.maxUploadsPerUser);
    }

    void start();
    void stop();

    std::shared_ptr<ConnectionContext> context_;
    std::string address_;
    uint16_t port_ = 0;

private:
    void addAccounts();
    void accept();
    void admit(Tcp::socket socket);
    void renewLater();
    void forEachConnection(void (ConnectionControl::*call)());
    bool waitForConnections(std::chrono::milliseconds time);

    asio::io_context io_;
    asio::any_io_executor strand_; ///< of the acceptor and the timers
    Tcp::acceptor acceptor_;
    asio::steady_timer pause_;
    asio::steady_timer renewal_;
    std::vector<std::thread> threads_;
    std::shared_ptr<PasswordWorkers> passwords_;
    std::mutex mutex_;
    std::condition_variable ended_;
    std::unordered_map<uint64_t, std::shared_ptr<ConnectionControl>> open_;
    uint64_t lastId_ = 0;
};

void Server::Implementation::start() {
    const ServerOptions& options = context_->options;
    // The socket first: a second server on the same port must not touch the files of the first.
    const ListeningSocket socket = openListeningSocket(options.listen);
    acceptor_.assign(socket.isIPv6 ? Tcp::v6() : Tcp::v4(), socket.descriptor);
    const auto endpoint = acceptor_.local_endpoint();
    port_ = endpoint.port();
    address_ = socket.isIPv6 ? "[" + endpoint.address().to_string() + "]" : endpoint.address().to_string();
    address_ += ":" + std::to_string(port_);

    makePrivateFolder(options.dataFolder);
    context_->setTls(makeTls(ensureCertificates(options.dataFolder, options.hosts, std::chrono::system_clock::now())));
    context_->accounts = std::make_shared<AccountStore>(options.dataFolder / "accounts.sqlite", options.wallClock);
    context_->tasks = std::make_shared<TaskService>(taskSettings(options), context_->recogniser, options.wallClock);
    addAccounts();
    addFileEndpoints(context_->router,
                     {options.maxUploadBytes, context_->accounts, context_->tasks, context_->uploads});
    context_->tasks->start();
    accept();
    renewLater();
    for (unsigned i = 0; i < std::max(1U, options.threads); ++i)
        threads_.emplace_back([this] { io_.run(); });
    log(LogLevel::info, "server", "listening on " + address_);
}

void Server::Implementation::addAccounts() {
    const ServerOptions& options = context_->options;
    const auto& accounts = context_->accounts;
    const auto perHour = [&options](int count) {
        return std::make_shared<RateLimiter>(count, std::chrono::hours(1), options.steadyClock);
    };
    UserData data;
    data.remove = [tasks = context_->tasks](const std::string& userId) { tasks->removeUser(userId); };
    data.move = [tasks = context_->tasks](const Merge& merge) { tasks->moveUser(merge.from, merge.to); };
    for (const Merge& merge : accounts->unfinishedMerges()) {
        data.move(merge);
        accounts->finishMerge(merge.from);
        log(LogLevel::info, "accounts", "anonymous user " + merge.from + " became part of user " + merge.to);
    }
    addAccountEndpoints(context_->router, accounts, perHour(options.maxAnonymousPerHour), data);

    passwords_ = std::make_shared<PasswordWorkers>(options.passwordThreads, options.maxWaitingSignIns);
    addSignInEndpoints(context_->router, {accounts, passwords_, std::make_shared<SignInThrottle>(options.steadyClock),
                                          perHour(options.maxRegistrationsPerHour),
                                          std::make_shared<FormGuard>(options.wallClock), options.hosts});
    context_->router.setErrorPage(errorPage);
}

void Server::Implementation::accept() {
    // Each connection gets a strand, on which all of it runs.
    acceptor_.async_accept(asio::any_io_executor(asio::make_strand(io_)),
                           [this](const boost::system::error_code& error, Tcp::socket socket) {
                               if (context_->stopping || error == asio::error::operation_aborted)
                                   return;
                               if (!error) {
                                   admit(std::move(socket));
                                   accept();
                                   return;
                               }
                               log(LogLevel::error, "server", "cannot accept: " + error.message());
                               // Out of descriptors or memory: some connection has to end first.
                               pause_.expires_after(std::chrono::milliseconds(100));
                               pause_.async_wait([this](const boost::system::error_code& cancelled) {
                                   if (!cancelled && !context_->stopping)
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
    state->context = context_;
    state->peer.address = address.to_string();
    state->peer.isLoopback = address.is_loopback();
    state->admission = context_->connections->admit(state->peer.address);
    if (state->admission.verdict != Limits::Verdict::admitted &&
        context_->connections->count() > context_->options.maxConnections + refusedConnections)
        return;
    socket.non_blocking(true, error);
    setKeepAlive(socket.native_handle());
    const asio::any_io_executor strand = socket.get_executor();
    state->control = std::make_shared<ConnectionControl>(strand, socket.native_handle());
    uint64_t id = 0;
    {
        const std::scoped_lock lock(mutex_);
        id = ++lastId_;
        open_.emplace(id, state->control);
    }
    // Started on its own strand, for the reason that RunBlocking.h gives.
    auto begin = [this, id, strand, held = std::move(socket), state = std::move(state)]() mutable {
        asio::co_spawn(strand, serveConnection(std::move(held), std::move(state)),
                       [this, id](const std::exception_ptr&) {
                           const std::scoped_lock lock(mutex_);
                           open_.erase(id);
                           ended_.notify_all();
                       });
    };
    asio::post(strand, std::move(begin));
}

void Server::Implementation::renewLater() {
    renewal_.expires_after(renewalInterval);
    renewal_.async_wait([this](const boost::system::error_code& error) {
        if (error)
            return;
        try {
            const auto files = ensureCertificates(context_->options.dataFolder, context_->options.hosts,
                                                  std::chrono::system_clock::now());
            if (files.changed)
                context_->setTls(makeTls(files));
        } catch (const std::exception& failure) {
            log(LogLevel::error, "server", std::string("cannot renew the certificate: ") + failure.what());
        }
        renewLater();
    });
}

void Server::Implementation::forEachConnection(void (ConnectionControl::*call)()) {
    const std::scoped_lock lock(mutex_);
    for (const auto& [id, control] : open_)
        (*control.*call)();
}

bool Server::Implementation::waitForConnections(std::chrono::milliseconds time) {
    std::unique_lock lock(mutex_);
    return ended_.wait_for(lock, time, [this] { return open_.empty(); });
}

void Server::Implementation::stop() {
    if (threads_.empty())
        return;
    context_->stopping = true;
    asio::post(strand_, [this] {
        boost::system::error_code ignored;
        acceptor_.close(ignored);
        pause_.cancel();
        renewal_.cancel();
    });
    // What is being recognised in the background is abandoned first: it would only delay the others.
    context_->tasks->stop();
    passwords_->stop();
    forEachConnection(&ConnectionControl::requestStop);
    if (!waitForConnections(context_->options.stopTimeout)) {
        forEachConnection(&ConnectionControl::requestCut);
        waitForConnections(std::chrono::seconds(1));
    }
    // Recognitions that connections left behind end here, while the strands they report to still exist.
    context_->blocking.join();
    io_.stop();
    for (auto& thread : threads_)
        thread.join();
    threads_.clear();
    log(LogLevel::info, "server", "stopped");
}

Server::Server(ServerOptions options, std::shared_ptr<Recogniser> recogniser)
    : implementation_(std::make_unique<Implementation>(std::move(options), std::move(recogniser))) {}

Server::~Server() { stop(); }

void Server::start() { implementation_->start(); }
void Server::stop() { implementation_->stop(); }
uint16_t Server::port() const { return implementation_->port_; }
std::string Server::address() const { return implementation_->address_; }

std::filesystem::path Server::authorityFile() const {
    return implementation_->context_->options.dataFolder / "authority.pem";
}

size_t Server::connectionCount() const { return implementation_->context_->connections->count(); }
size_t Server::sessionCount() const { return implementation_->context_->sessions->count(); }

} // namespace quillo::server
