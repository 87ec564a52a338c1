#pragma once

#include "DesktopSession.h"
#include "Signal.h"

#include <vector>

namespace quillo::test {

/// What the microphone delivers, recorded continuously by a separate program. After the sound server ends, a new piece
/// begins; positions are counted across all pieces.
class Reference {
public:
    explicit Reference(DesktopSession& session) : m_session(session) {}

    /// Begins a new piece and returns once data arrives. Throws DesktopSessionError.
    void begin();
    /// Closes the current piece, because the sound server has ended. Returns its end.
    int64_t end();

    /// Samples delivered until now.
    [[nodiscard]] int64_t position() const;
    /// Samples [from, to), as many of them as there are.
    [[nodiscard]] Samples read(int64_t from, int64_t to) const;

private:
    struct Piece {
        QString file;
        int64_t begin = 0;
        QProcess* recorder = nullptr;
    };
    DesktopSession& m_session;
    std::vector<Piece> m_pieces;
};

} // namespace quillo::test
