#include "Tasks/PieceWords.h"

#include <algorithm>
#include <cctype>
#include <map>
#include <sstream>
#include <string>

namespace quillo::server {
namespace {

/// Seconds by which the times of a word and of its echo may differ.
constexpr double echoTolerance = 1;
/// Seconds between a word and a turn of its own side that still count as its speaker's.
constexpr double turnTolerance = 0.3;

int sideOf(AudioSource source) { return source == AudioSource::system ? 1 : 0; }

double middleOf(const Word& word) { return (word.start + word.end) / 2; }

/// Letters and digits alone, in lower case where they are ASCII.
std::string essence(const std::string& word) {
    std::string result;
    for (const char c : word) {
        const auto byte = static_cast<unsigned char>(c);
        if (byte >= 0x80 || std::isalnum(byte) != 0)
            result += static_cast<char>(byte < 0x80 ? std::tolower(byte) : byte);
    }
    return result;
}

/// When each word is spoken, by side and word.
class Spoken {
public:
    explicit Spoken(const std::vector<Transcript>& pieces) {
        for (const Transcript& piece : pieces) {
            for (const Word& word : wordsOf(piece))
                m_times[{sideOf(piece.source), essence(word.text)}].push_back(middleOf(word));
        }
        for (auto& [key, times] : m_times)
            std::ranges::sort(times);
    }

    [[nodiscard]] bool contains(int side, const Word& word) const {
        const auto found = m_times.find({side, essence(word.text)});
        if (found == m_times.end())
            return false;
        const auto next = std::ranges::lower_bound(found->second, middleOf(word) - echoTolerance);
        return next != found->second.end() && *next <= middleOf(word) + echoTolerance;
    }

private:
    std::map<std::pair<int, std::string>, std::vector<double>> m_times;
};

bool hasTurn(const std::vector<SpeakerTurn>& turns, int side, double time) {
    return std::ranges::any_of(turns, [&](const SpeakerTurn& turn) {
        return turn.side == side && turn.start - turnTolerance <= time && time <= turn.end + turnTolerance;
    });
}

} // namespace

std::vector<Word> wordsOf(const Transcript& piece) {
    if (!piece.words.empty())
        return piece.words;
    std::vector<Word> words;
    std::istringstream text(piece.text);
    for (std::string word; text >> word;)
        words.push_back({word, 0, 0, piece.confidence});
    const double length = (piece.end - piece.start) / static_cast<double>(std::max<size_t>(1, words.size()));
    for (size_t i = 0; i < words.size(); ++i) {
        words[i].start = piece.start + static_cast<double>(i) * length;
        words[i].end = words[i].start + length;
    }
    return words;
}

void removeEchoes(std::vector<Transcript>& pieces, const std::vector<SpeakerTurn>& turns) {
    const Spoken spoken(pieces);
    for (Transcript& piece : pieces) {
        const int side = sideOf(piece.source);
        auto words = wordsOf(piece);
        const auto isEcho = [&](const Word& word) {
            return !hasTurn(turns, side, middleOf(word)) && hasTurn(turns, 1 - side, middleOf(word)) &&
                   spoken.contains(1 - side, word);
        };
        if (std::erase_if(words, isEcho) == 0)
            continue;
        piece.text.clear();
        for (const Word& word : words)
            piece.text += (piece.text.empty() ? "" : " ") + word.text;
        if (!words.empty()) {
            piece.start = words.front().start;
            piece.end = words.back().end;
        }
        piece.words = std::move(words);
    }
    std::erase_if(pieces, [](const Transcript& piece) { return piece.text.empty(); });
}

} // namespace quillo::server
