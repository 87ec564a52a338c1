#include "Verdict.h"

#include <algorithm>

namespace quillo::test {

namespace {

QString milliseconds(int64_t samples) {
    return u"%1 ms"_qs.arg(static_cast<double>(samples) * 1000 / samplesPerSecond, 0, 'f', 1);
}

int64_t sign(size_t position) { return static_cast<int64_t>(position); }

bool isSilent(SampleView samples) {
    return std::ranges::all_of(samples, [](int16_t sample) { return sample == 0; });
}

/// The samples between two stretches, before the first one or after the last one.
struct Judge {
    Verdict& verdict;
    SampleView held;
    const Moments& moments;
    const Bounds& bounds;

    void blame(const QString& sentence) const { verdict.faults.append(sentence); }

    void between(const Stretch& before, const Stretch& after) const {
        const auto extra = sign(after.held) - sign(before.heldEnd());
        const auto skipped = sign(after.reference) - sign(before.referenceEnd());
        const bool crossesSeam =
            moments.seam && sign(before.referenceEnd()) <= *moments.seam && sign(after.reference) >= *moments.seam;
        if (crossesSeam) {
            // The new sound server is silent until the signal plays again, and the application may connect before that.
            const auto late = unrecorded(before, extra);
            if (!isSilent(
                    held.subspan(before.heldEnd() + static_cast<size_t>(late), static_cast<size_t>(extra - late))))
                strange(extra, before);
            const auto missing = *moments.seam - sign(before.referenceEnd());
            if (missing > bounds.end)
                lose(missing - bounds.end, u"before the sound server ended"_qs);
            return;
        }
        if (extra > 0)
            strange(extra, before);
        if (skipped > extra)
            lose(skipped - extra, u"at %1"_qs.arg(milliseconds(sign(before.heldEnd()))));
        if (skipped < 0) {
            verdict.repeated -= skipped;
            blame(u"%1 samples are held twice at %2"_qs.arg(-skipped).arg(milliseconds(sign(after.held))));
        }
    }

    /// How many of `extra` samples after a stretch the reference recorder may have lost.
    [[nodiscard]] int64_t unrecorded(const Stretch& before, int64_t extra) const {
        return moments.seam && sign(before.referenceEnd()) == *moments.seam ? std::min(extra, bounds.unrecorded) : 0;
    }

    void strange(int64_t count, const Stretch& before) const {
        verdict.strange += count;
        blame(u"%1 samples at %2 are not what the microphone delivered"_qs.arg(count).arg(
            milliseconds(sign(before.heldEnd()))));
    }

    void lose(int64_t count, const QString& where) const {
        verdict.lost += count;
        blame(u"%1 samples (%2) are lost %3"_qs.arg(count).arg(milliseconds(count), where));
    }
};

} // namespace

Verdict judge(const Alignment& alignment, SampleView held, const Moments& moments, const Bounds& bounds) {
    Verdict verdict;
    verdict.held = sign(held.size());
    const Judge judge{verdict, held, moments, bounds};
    if (alignment.stretches.empty()) {
        verdict.delivered = std::max<int64_t>(0, moments.ended - moments.pressed - bounds.start);
        if (!held.empty()) {
            verdict.strange = verdict.held;
            judge.blame(u"nothing of what is held was delivered by the microphone"_qs);
        }
        if (verdict.delivered > bounds.end)
            judge.lose(verdict.delivered - bounds.end, u"altogether"_qs);
        return verdict;
    }
    const auto& first = alignment.stretches.front();
    const auto& last = alignment.stretches.back();
    verdict.delivered = std::max<int64_t>(0, moments.ended - sign(first.reference));
    verdict.startDelay = sign(first.reference) - moments.pressed;
    verdict.endMargin = sign(last.referenceEnd()) - moments.ended;
    if (first.held > 0)
        judge.strange(sign(first.held), Stretch{});
    const auto rest = verdict.held - sign(last.heldEnd());
    if (rest > judge.unrecorded(last, rest))
        judge.strange(rest, last);
    for (size_t i = 1; i < alignment.stretches.size(); ++i)
        judge.between(alignment.stretches[i - 1], alignment.stretches[i]);
    if (verdict.startDelay > bounds.start)
        judge.lose(verdict.startDelay - bounds.start, u"at the beginning"_qs);
    if (-verdict.endMargin > bounds.end)
        judge.lose(-verdict.endMargin - bounds.end, u"at the end"_qs);
    return verdict;
}

} // namespace quillo::test
