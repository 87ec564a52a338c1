#include "Plan.h"

#include <QStringList>

#include <array>
#include <random>

namespace quillo::test {

namespace {

using std::chrono::milliseconds;
using namespace std::chrono_literals;

/// Bytes that a dictation sends a second: base64 of 32,000 and the frames around it.
constexpr int64_t streamBytesPerSecond = 44'000;

/// Random numbers that are the same with every standard library.
class Dice {
public:
    explicit Dice(uint64_t seed, uint64_t stream) : m_generator(seed * 0x9e3779b97f4a7c15U + stream) {}
    int64_t between(int64_t least, int64_t most) {
        return least + static_cast<int64_t>(m_generator() % static_cast<uint64_t>(most - least + 1));
    }
    milliseconds between(milliseconds least, milliseconds most) {
        return milliseconds(between(least.count(), most.count()));
    }

private:
    std::mt19937_64 m_generator;
};

Fault faultOf(uint64_t seed, int run) {
    std::array<Fault, faultCount> order{};
    for (size_t i = 0; i < faultCount; ++i)
        order[i] = static_cast<Fault>((i + 1) % faultCount);
    Dice dice(seed, 1'000'000 + static_cast<uint64_t>(run) / faultCount);
    for (size_t i = faultCount - 2; i > 0; --i)
        std::swap(order[i], order[static_cast<size_t>(dice.between(0, static_cast<int64_t>(i)))]);
    return order[static_cast<size_t>(run) % faultCount];
}

void schedule(Plan& plan, Dice& dice) {
    const auto hold = plan.hold;
    switch (plan.fault) {
    case Fault::none:
        break;
    case Fault::killConnecting:
        plan.at = dice.between(0ms, hold);
        plan.healed = plan.at + 200ms;
        break;
    case Fault::killRecording:
        plan.at = dice.between(300ms, hold);
        plan.healed = plan.at + 200ms;
        break;
    case Fault::killProcessing:
        plan.at = hold + dice.between(0ms, 1500ms);
        plan.healed = plan.at + 200ms;
        break;
    case Fault::killUploading:
    case Fault::cutUpload:
        plan.at = dice.between(200ms, hold);
        plan.healed = plan.at + 200ms;
        // A handshake takes about a thousand bytes; the recording follows.
        plan.bytes = dice.between(2'000, 2'000 + 30 * hold.count());
        break;
    case Fault::killServer:
        plan.at = dice.between(-500ms, hold + 800ms);
        plan.healed = plan.at + dice.between(100ms, 2500ms);
        break;
    case Fault::cutConnection:
        plan.at = -100ms;
        plan.healed = hold + 500ms;
        plan.bytes = dice.between(1, streamBytesPerSecond * hold.count() / 1000);
        break;
    case Fault::stallConnection:
        plan.at = dice.between(-200ms, hold + 300ms);
        plan.healed = plan.at + dice.between(500ms, 4000ms);
        break;
    case Fault::refuseConnection:
        plan.at = dice.between(-1000ms, -50ms);
        plan.healed = plan.at + dice.between(1000ms, 5000ms);
        break;
    case Fault::killSound:
        plan.at = dice.between(100ms, hold + 300ms);
        plan.healed = plan.at + dice.between(50ms, 1500ms);
        break;
    case Fault::fillDisk:
        plan.at = dice.between(-200ms, hold + 300ms);
        plan.healed = hold + dice.between(500ms, 2500ms);
        plan.bytes = dice.between(0, 32 * hold.count());
        break;
    case Fault::moveClock: {
        constexpr int64_t jumps[] = {90, 3600, 26L * 3600, 3L * 86400};
        plan.at = dice.between(-300ms, hold + 300ms);
        plan.healed = hold + dice.between(500ms, 2000ms);
        plan.clockShift = std::chrono::seconds(jumps[dice.between(0, 3)] * (dice.between(0, 1) ? 1 : -1));
        break;
    }
    case Fault::killBus:
        plan.at = dice.between(0ms, hold);
        plan.healed = hold + 1500ms;
        break;
    case Fault::dayAway:
        plan.at = dice.between(-1000ms, -50ms);
        plan.healed = 26h;
        break;
    }
}

} // namespace

QString nameOf(Fault fault) {
    static const QStringList names =
        u"none kill-connecting kill-recording kill-processing kill-uploading kill-server cut-connection "
        "stall-connection refuse-connection cut-upload kill-sound fill-disk move-clock kill-bus "
        "day-away"_qs.split(u' ');
    return names.at(static_cast<int>(fault));
}

Plan makePlan(uint64_t seed, int run, std::optional<Fault> only) {
    Dice dice(seed, static_cast<uint64_t>(run));
    Plan plan;
    plan.run = run;
    plan.fault = only ? *only : faultOf(seed, run);
    // Prefer short times, where most of the steps happen.
    plan.hold = 500ms + dice.between(0ms, milliseconds(dice.between(300, 3500)));
    plan.ending = dice.between(0, 1) ? FaultProxy::Ending::finish : FaultProxy::Ending::reset;
    plan.situation = makeSituation(seed, run);
    // A new sound server would have no headset.
    plan.situation.slowHeadset = plan.situation.slowHeadset && plan.fault != Fault::killSound;
    if (plan.situation.slowHeadset)
        plan.hold += Situation::headsetDelay;
    schedule(plan, dice);
    return plan;
}

QString Plan::summary() const {
    auto text = u"%1, held %2 ms"_qs.arg(nameOf(fault)).arg(hold.count());
    if (fault != Fault::none)
        text += u", broken at %1 ms, mended at %2 ms"_qs.arg(at.count()).arg(healed.count());
    if (bytes > 0)
        text += u", after %1 bytes"_qs.arg(bytes);
    if (clockShift.count() != 0)
        text += u", clock by %1 s"_qs.arg(clockShift.count());
    if (const auto names = situation.names(); !names.isEmpty())
        text += u", with "_qs + names.join(u' ');
    return text;
}

} // namespace quillo::test
