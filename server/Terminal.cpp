#include "Terminal.h"

#include <cstdio>
#include <termios.h>
#include <unistd.h>

namespace quillo::server {
namespace {

constexpr size_t maxLineBytes = 4096;

/// Switches off the terminal's echo, and its signals too: if the program ended here, it would leave the terminal
/// without echo.
class EchoOff {
public:
    EchoOff() {
        if (::tcgetattr(STDIN_FILENO, &m_before) != 0)
            return;
        termios silent = m_before;
        silent.c_lflag &= ~static_cast<tcflag_t>(ECHO | ISIG);
        m_changed = ::tcsetattr(STDIN_FILENO, TCSAFLUSH, &silent) == 0;
    }
    ~EchoOff() {
        if (m_changed)
            ::tcsetattr(STDIN_FILENO, TCSAFLUSH, &m_before);
    }
    EchoOff(const EchoOff&) = delete;
    EchoOff& operator=(const EchoOff&) = delete;

private:
    termios m_before{};
    bool m_changed = false;
};

} // namespace

bool isInteractive() { return ::isatty(STDIN_FILENO) == 1; }

std::optional<std::string> readLine() {
    std::string line;
    for (;;) {
        const int c = std::getchar();
        if (c == EOF && line.empty())
            return std::nullopt;
        if (c == EOF || c == '\n')
            break;
        if (line.size() == maxLineBytes)
            return std::nullopt;
        line += static_cast<char>(c);
    }
    if (!line.empty() && line.back() == '\r')
        line.pop_back();
    return line;
}

std::optional<std::string> readSecret(const std::string& prompt) {
    if (!isInteractive())
        return readLine();
    std::optional<std::string> line;
    {
        // Switch off the echo before the prompt, so that fast typing is not shown either.
        const EchoOff silent;
        std::fputs(prompt.c_str(), stderr);
        std::fflush(stderr);
        line = readLine();
    }
    std::fputc('\n', stderr);
    constexpr char interrupt = 3; // Control-C, which is a character while signals are off
    if (line && line->find(interrupt) != std::string::npos)
        return std::nullopt;
    return line;
}

} // namespace quillo::server
