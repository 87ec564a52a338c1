#pragma once

#include "DesktopSession.h"
#include "Signal.h"

#include <vector>

namespace quillo::test {

/// What the microphone delivers, recorded all the time by a program of its own. After the end of the sound server it
/// goes on in another piece; positions count on through all pieces.
class Reference {
public:
    explicit Reference(DesktopSession& session) : m_session(session) {}

    /// Begins a new piece and returns when it grows. Throws DesktopSessionError.
    void begin();
    /// The sound server has ended: what there is of the piece is all. Returns its end.
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
