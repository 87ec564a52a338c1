#include "Foundation/Log.h"

#include <atomic>
#include <cstdlib>
#include <string>
#include <unistd.h>

namespace quillo::server {
namespace {

std::atomic<LogLevel> threshold{LogLevel::info};

struct LevelText {
    std::string_view name;
    std::string_view journalPriority;
};

LevelText textOf(LogLevel level) {
    switch (level) {
    case LogLevel::debug:
        return {"DEBUG", "<7>"};
    case LogLevel::info:
        return {"INFO", "<6>"};
    case LogLevel::warning:
        return {"WARN", "<4>"};
    case LogLevel::error:
        return {"ERROR", "<3>"};
    }
    return {"ERROR", "<3>"};
}

} // namespace

void setLogThreshold(LogLevel level) { threshold = level; }

void log(LogLevel level, std::string_view component, std::string_view message) {
    if (level < threshold.load(std::memory_order_relaxed))
        return;
    static const bool journal = std::getenv("JOURNAL_STREAM") != nullptr;
    const auto [name, priority] = textOf(level);
    std::string line;
    line.reserve(message.size() + 40);
    if (journal)
        line += priority;
    line += name;
    line += ' ';
    line += component;
    line += ": ";
    for (const char c : message)
        line += static_cast<unsigned char>(c) < 0x20 || c == 0x7f ? '?' : c;
    line += '\n';
    // A single write keeps lines of several threads apart. If the log cannot be written, the failure cannot be reported
    // either.
    [[maybe_unused]] const auto written = ::write(STDERR_FILENO, line.data(), line.size());
}

} // namespace quillo::server
