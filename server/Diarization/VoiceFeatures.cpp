#include "Diarization/VoiceFeatures.h"

#include "Diarization/PitchTracker.h"
#include "SphinxLibrary/LoadMutex.h"

// The guards against C++ in these headers are incomplete.
extern "C" {
#include <sphinxbase/cmd_ln.h>
#include <sphinxbase/err.h>
#include <sphinxbase/fe.h>
}

#include <algorithm>
#include <cmath>
#include <stdexcept>

namespace quillo::server {
namespace {

/// Cepstra vary by some units, the logarithm of the pitch by a tenth. Scale it, so that both have similar weight.
constexpr double pitchScale = 4;

} // namespace

struct VoiceFeatures::FrontEnd {
    fe_t* fe = nullptr;

    FrontEnd() {
        const std::scoped_lock lock(loadMutex());
        err_set_logfp(nullptr); // otherwise it prints its settings every time
        cmd_ln_t* config =
            cmd_ln_init(nullptr, fe_get_args(), TRUE, "-remove_silence", "no", "-remove_noise", "no", nullptr);
        if (config) {
            fe = fe_init_auto_r(config);
            cmd_ln_free_r(config);
        }
        if (!fe || fe_get_output_size(fe) < static_cast<int>(voiceDimensions))
            throw std::runtime_error("the front end of the recogniser could not be set up");
    }
    ~FrontEnd() {
        const std::scoped_lock lock(loadMutex());
        fe_free(fe);
    }
    FrontEnd(const FrontEnd&) = delete;
    FrontEnd& operator=(const FrontEnd&) = delete;

    /// The cepstra of each frame, the energy first.
    std::vector<std::vector<mfcc_t>> cepstra(std::span<const int16_t> samples) const {
        std::vector<std::vector<mfcc_t>> all;
        std::vector<mfcc_t> row(static_cast<size_t>(fe_get_output_size(fe)));
        mfcc_t* rows[] = {row.data()};
        fe_start_stream(fe);
        fe_start_utt(fe);
        const int16_t* next = samples.data();
        size_t left = samples.size();
        while (left > 0) {
            int32 count = 1;
            if (fe_process_frames(fe, &next, &left, rows, &count, nullptr) < 0 || count == 0)
                break;
            all.push_back(row);
        }
        int32 last = 0;
        fe_end_utt(fe, rows[0], &last);
        return all;
    }
};

VoiceFeatures::VoiceFeatures() : m_frontEnd(std::make_unique<FrontEnd>()) {}
VoiceFeatures::~VoiceFeatures() = default;

std::vector<VoiceFrame> VoiceFeatures::analyse(std::span<const int16_t> samples) {
    const auto cepstra = m_frontEnd->cepstra(samples);
    std::vector<VoiceFrame> frames(cepstra.size());
    for (size_t i = 0; i < frames.size(); ++i) {
        const size_t first = i * frameSamples;
        if (first + pitchWindowSamples > samples.size())
            break;
        const auto pitch = pitchOf(samples.subspan(first).first<pitchWindowSamples>());
        if (!pitch)
            continue;
        frames[i].voiced = true;
        std::copy_n(cepstra[i].begin() + 1, voiceDimensions - 1, frames[i].values.begin());
        frames[i].values.back() = pitchScale * std::log2(*pitch);
    }
    return frames;
}

} // namespace quillo::server
