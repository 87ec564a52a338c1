#include "Reference.h"

#include "Support/Async.h"
#include "Support/CommandLine.h"

#include <QFileInfo>

#include <algorithm>

namespace quillo::test {

using namespace std::chrono_literals;

void Reference::begin() {
    const auto start = position();
    auto& piece = m_pieces.emplace_back();
    piece.begin = start;
    piece.file = m_session.path(u"reference-%1.pcm"_qs.arg(m_pieces.size()));
    const auto options = u"-d microphone --raw --format=s16le --rate=%1 --channels=1 --latency-msec=10"_qs;
    piece.recorder =
        &m_session.launch(u"reference"_qs, u"parec"_qs, words(options.arg(samplesPerSecond)) << piece.file);
    if (!waitUntil([&] { return position() > start; }, 20s))
        throw DesktopSessionError(u"the microphone delivers nothing"_qs);
}

int64_t Reference::end() {
    auto& recorder = *m_pieces.back().recorder;
    if (!waitUntil([&] { return recorder.state() == QProcess::NotRunning; }, 5s))
        throw DesktopSessionError(u"the recorder outlived the sound server"_qs);
    return position();
}

int64_t Reference::position() const {
    if (m_pieces.empty())
        return 0;
    const auto& last = m_pieces.back();
    return last.begin + QFileInfo(last.file).size() / 2;
}

Samples Reference::read(int64_t from, int64_t to) const {
    Samples samples;
    for (size_t i = 0; i < m_pieces.size(); ++i) {
        const auto& piece = m_pieces[i];
        const auto end = i + 1 < m_pieces.size() ? m_pieces[i + 1].begin : position();
        const auto first = std::max(from, piece.begin);
        const auto count = std::min(to, end) - first;
        if (count <= 0)
            continue;
        const auto part = readSamples(piece.file, first - piece.begin, count);
        samples.insert(samples.end(), part.begin(), part.end());
    }
    return samples;
}

} // namespace quillo::test
