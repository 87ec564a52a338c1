#include "Diarization/SpeakerClusters.h"

#include <algorithm>
#include <cmath>
#include <limits>

namespace quillo::server {
namespace {

constexpr double never = std::numeric_limits<double>::infinity();
/// Weight of the penalty for a second voice; 1 in theory. It is higher because neighbouring frames are not independent
/// and a few seconds contain only some sounds: both make one voice look like several. With 0.9 to 1.2, four synthetic
/// voices are distinguished and each is recognised as one voice in two minutes of speech; from 1.3 on, voices with a
/// single sentence are confused.
constexpr double penaltyWeight = 1.2;
/// Minimum number of voiced frames of a speaker: less is a cough or a laugh of another person.
constexpr double smallestSpeaker = 60;
/// Added to every variance, so that a few nearly equal frames do not count as evidence.
constexpr double smallestVariance = 0.05;

constexpr double freeParameters = voiceDimensions + voiceDimensions * (voiceDimensions + 1) / 2.0;

} // namespace

void VoiceStatistics::add(const VoiceVector& values) {
    count += 1;
    for (size_t i = 0; i < voiceDimensions; ++i) {
        sum[i] += values[i];
        for (size_t j = 0; j <= i; ++j)
            squares[i][j] += values[i] * values[j];
    }
}

void VoiceStatistics::add(const VoiceStatistics& other) {
    count += other.count;
    for (size_t i = 0; i < voiceDimensions; ++i) {
        sum[i] += other.sum[i];
        for (size_t j = 0; j <= i; ++j)
            squares[i][j] += other.squares[i][j];
    }
}

double VoiceStatistics::logDeterminant() const {
    // Cholesky factorisation; the determinant is the square of the product of the diagonal.
    std::array<VoiceVector, voiceDimensions> factor{};
    double result = 0;
    for (size_t i = 0; i < voiceDimensions; ++i) {
        for (size_t j = 0; j <= i; ++j) {
            double value = squares[i][j] / count - sum[i] / count * (sum[j] / count);
            if (i == j)
                value += smallestVariance;
            for (size_t k = 0; k < j; ++k)
                value -= factor[i][k] * factor[j][k];
            if (i == j) {
                const double diagonal = std::sqrt(std::max(value, 1e-6));
                factor[i][i] = diagonal;
                result += 2 * std::log(diagonal);
            } else {
                factor[i][j] = value / factor[j][j];
            }
        }
    }
    return result;
}

double SpeakerClusters::cost(const Group& left, const Group& right) {
    if (left.side != right.side)
        return never;
    VoiceStatistics both = left.statistics;
    both.add(right.statistics);
    const double gain = 0.5 * (both.count * both.logDeterminant() - left.statistics.count * left.logDeterminant -
                               right.statistics.count * right.logDeterminant);
    return gain - penaltyWeight * 0.5 * freeParameters * std::log(both.count);
}

void SpeakerClusters::refresh(size_t group) {
    m_groups[group].logDeterminant = m_groups[group].statistics.logDeterminant();
    for (size_t other = 0; other < m_groups.size(); ++other) {
        if (other != group)
            m_costs[std::max(group, other)][std::min(group, other)] = cost(m_groups[group], m_groups[other]);
    }
}

void SpeakerClusters::add(const VoiceStatistics& piece, int side) {
    m_groups.push_back({piece, 0, side, {m_pieceCount++}});
    m_costs.emplace_back(m_groups.size() - 1, never);
    refresh(m_groups.size() - 1);
    if (m_groups.size() > maxGroups) {
        const Pair pair = closest();
        if (pair.cost < never)
            join(pair);
    }
}

SpeakerClusters::Pair SpeakerClusters::closest() const {
    Pair best{0, 0, never};
    for (size_t right = 1; right < m_groups.size(); ++right) {
        for (size_t left = 0; left < right; ++left) {
            if (m_costs[right][left] < best.cost)
                best = {left, right, m_costs[right][left]};
        }
    }
    return best;
}

void SpeakerClusters::join(const Pair& pair) {
    Group& into = m_groups[pair.left];
    Group& from = m_groups[pair.right];
    into.statistics.add(from.statistics);
    into.pieces.insert(into.pieces.end(), from.pieces.begin(), from.pieces.end());
    m_groups.erase(m_groups.begin() + static_cast<ptrdiff_t>(pair.right));
    m_costs.erase(m_costs.begin() + static_cast<ptrdiff_t>(pair.right));
    for (size_t row = pair.right; row < m_costs.size(); ++row)
        m_costs[row].erase(m_costs[row].begin() + static_cast<ptrdiff_t>(pair.right));
    refresh(pair.left);
}

/// Assigns groups that are too short for a speaker to the most similar voice.
void SpeakerClusters::dissolveSmall() {
    for (;;) {
        const auto smallest =
            std::ranges::min_element(m_groups, {}, [](const Group& group) { return group.statistics.count; });
        if (smallest == m_groups.end() || smallest->statistics.count >= smallestSpeaker)
            return;
        const auto index = static_cast<size_t>(smallest - m_groups.begin());
        Pair best{0, 0, never};
        for (size_t other = 0; other < m_groups.size(); ++other) {
            if (other == index)
                continue;
            const double value = m_costs[std::max(index, other)][std::min(index, other)];
            if (value < best.cost)
                best = {std::min(index, other), std::max(index, other), value};
        }
        if (best.cost == never)
            return; // there is no other speaker on this side
        join(best);
    }
}

std::vector<int> SpeakerClusters::finish() {
    for (Pair pair = closest(); pair.cost < 0; pair = closest())
        join(pair);
    dissolveSmall();
    std::ranges::sort(m_groups, {}, [](const Group& group) { return *std::ranges::min_element(group.pieces); });
    std::vector<int> result(m_pieceCount);
    for (size_t group = 0; group < m_groups.size(); ++group) {
        for (const size_t piece : m_groups[group].pieces)
            result[piece] = static_cast<int>(group);
    }
    return result;
}

} // namespace quillo::server
