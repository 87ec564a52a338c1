#pragma once

#include "Diarization/VoiceFeatures.h"

#include <cstddef>
#include <vector>

namespace quillo::server {

/// The distribution of the voice vectors of some speech, as a Gaussian.
struct VoiceStatistics {
    double count = 0;
    VoiceVector sum{};
    std::array<VoiceVector, voiceDimensions> squares{}; ///< sums of products

    void add(const VoiceVector& values);
    void add(const VoiceStatistics& other);
    /// Logarithm of the determinant of the regularised covariance.
    [[nodiscard]] double logDeterminant() const;
};

/// Groups pieces of speech by voice, bottom-up: joins the two most similar groups as long as the Bayesian information
/// criterion finds that they are one voice (S. Chen, P. Gopalakrishnan: "Speaker, environment and channel change
/// detection and clustering via the Bayesian information criterion", 1998). Keeps a bounded number of groups: beyond
/// it, the two most similar ones are joined early. Not thread-safe.
class SpeakerClusters {
public:
    static constexpr size_t maxGroups = 160;

    /// Takes the next piece. Pieces of different `side` are never joined.
    void add(const VoiceStatistics& piece, int side);
    /// The group of each piece, in the order they were added; groups count from 0 by their first piece.
    std::vector<int> finish();

private:
    struct Group {
        VoiceStatistics statistics;
        double logDeterminant = 0;
        int side = 0;
        std::vector<size_t> pieces;
    };
    struct Pair {
        size_t left = 0;
        size_t right = 0;
        double cost = 0;
    };

    static double cost(const Group& left, const Group& right);
    [[nodiscard]] Pair closest() const;
    void refresh(size_t group);
    void join(const Pair& pair);
    void dissolveSmall();

    std::vector<Group> m_groups;
    std::vector<std::vector<double>> m_costs; ///< [i][j] with j < i
    size_t m_pieceCount = 0;
};

} // namespace quillo::server
