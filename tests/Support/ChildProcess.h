#pragma once

#include <QString>
#include <QStringList>

#include <sys/types.h>

namespace quillo::test {

/// A program that runs beside the test and is killed with the object, or with the test when that crashes. Made without
/// forking this process, which the thread sanitizer would not survive.
class ChildProcess {
public:
    /// Standard output goes to the file `output`, if one is given. Throws std::runtime_error when it cannot be started.
    ChildProcess(const QString& program, const QStringList& arguments, const QString& output = {});
    ~ChildProcess();
    ChildProcess(const ChildProcess&) = delete;
    ChildProcess& operator=(const ChildProcess&) = delete;

    [[nodiscard]] bool isRunning();
    /// Of a program that has ended; -1 when it was killed.
    [[nodiscard]] int exitCode() const { return m_exitCode; }
    void signal(int number) const;

private:
    pid_t m_pid = 0;
    bool m_isRunning = true;
    int m_exitCode = -1;
};

} // namespace quillo::test
