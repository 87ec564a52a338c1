#include "Support/ChildProcess.h"

#include <csignal>
#include <stdexcept>
#include <vector>

#include <fcntl.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

namespace quillo::test {

ChildProcess::ChildProcess(const QString& program, const QStringList& arguments, const QString& output) {
    // End the program even if the test crashes.
    const auto all = QStringList{u"setpriv"_qs, u"--pdeathsig"_qs, u"KILL"_qs, program} + arguments;
    std::vector<QByteArray> words;
    std::vector<char*> pointers;
    words.reserve(static_cast<size_t>(all.size()));
    for (const auto& word : all)
        words.push_back(word.toUtf8());
    for (auto& word : words)
        pointers.push_back(word.data());
    pointers.push_back(nullptr);

    const auto path = output.isEmpty() ? QByteArray("/dev/null") : output.toUtf8();
    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
    posix_spawn_file_actions_addopen(&actions, STDOUT_FILENO, path.constData(), O_WRONLY | O_CREAT | O_TRUNC, 0600);
    posix_spawn_file_actions_addopen(&actions, STDERR_FILENO, "/dev/null", O_WRONLY, 0);
    const int error = posix_spawnp(&m_pid, "setpriv", &actions, nullptr, pointers.data(), environ);
    posix_spawn_file_actions_destroy(&actions);
    if (error != 0)
        throw std::runtime_error("cannot start " + program.toStdString());
}

ChildProcess::~ChildProcess() {
    if (!isRunning())
        return;
    signal(SIGKILL);
    ::waitpid(m_pid, nullptr, 0);
}

bool ChildProcess::isRunning() {
    int status = 0;
    if (m_isRunning && ::waitpid(m_pid, &status, WNOHANG) == m_pid) {
        m_isRunning = false;
        m_exitCode = WIFEXITED(status) ? WEXITSTATUS(status) : -1;
    }
    return m_isRunning;
}

void ChildProcess::signal(int number) const { ::kill(m_pid, number); }

} // namespace quillo::test
