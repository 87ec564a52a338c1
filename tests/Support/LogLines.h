#pragma once

#include "Concurrency/Executor.h"
#include "Core/LoggingService.h"
#include "Support/Files.h"

#include <QTemporaryDir>

#include <string>

namespace quillo::test {

/// The lines that were logged since this object was made, from the real log file.
class LogLines {
public:
    LogLines() {
        // What an earlier test has left in the queue is not this one's.
        EventExecutor::main().drain();
        LoggingService::shared().setConsoleLevel(std::nullopt);
        LoggingService::shared().open(m_folder.filePath(u"log"_qs));
    }

    /// What is still to be written from the main thread's queue included.
    [[nodiscard]] std::string text() const {
        EventExecutor::main().drain();
        return contentOf(m_folder.filePath(u"log"_qs)).toStdString();
    }

    /// How often `line` was written.
    [[nodiscard]] int count(const std::string& line) const {
        return static_cast<int>(QByteArray::fromStdString(text()).count(line.c_str()));
    }

private:
    QTemporaryDir m_folder;
};

} // namespace quillo::test
