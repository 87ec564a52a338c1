#pragma once

#include <QString>
#include <QStringList>

#include <sys/types.h>

namespace quillo::test {

/// A program that runs beside the test. It is killed with this object, or when the test crashes. Started without
/// forking this process, which the thread sanitizer does not support.
class ChildProcess {
public:
    /// Standard output goes to the file `output`, if one is given. Throws std::runtime_error when it cannot be started.
    ChildProcess(const QString& program, const QStringList& arguments, const QString& output = {});
    ~ChildProcess();
    ChildProcess(const ChildProcess&) = delete;
    ChildProcess& operator=(const ChildProcess&) = delete;

    [[nodiscard]] bool isRunning();
    /// The exit code of an ended program; -1 when it was killed.
    [[nodiscard]] int exitCode() const { return m_exitCode; }
    void signal(int number) const;

private:
    pid_t m_pid = 0;
    bool m_isRunning = true;
    int m_exitCode = -1;
};

} // namespace quillo::test
