#pragma once

#include "Data/ModelContext.h"

#include <random>

namespace quillo::figures {

/// A made-up history: dictations of ten to eighty words in several scripts whose words are as unevenly frequent as in
/// real texts, with some meetings of a few thousand words among them. The same for the same seed.
class SampleHistory {
public:
    explicit SampleHistory(uint32_t seed = 1) : m_random(seed) {}

    RecordPointer next();

private:
    QString word(int script);
    QString text(int script, int words);
    int rank(int words);

    std::mt19937 m_random;
    qint64 m_made = 0;
};

} // namespace quillo::figures
