#include "Situation.h"

#include <random>

namespace quillo::test {

namespace {

struct Entry {
    bool Situation::*member;
    const char* name;
    unsigned oneIn; ///< how rare it is
};

constexpr Entry entries[] = {
    {&Situation::clipboardManager, "clipboard-manager", 2},
    {&Situation::ownKeyboard, "own-keyboard", 2},
    {&Situation::heldControl, "held-control", 3},
    {&Situation::isBusy, "busy", 3},
    {&Situation::slowServer, "slow-server", 3},
    {&Situation::german, "german", 3},
    {&Situation::slowKeyring, "slow-keyring", 8},
    {&Situation::typing, "typing", 4},
    {&Situation::slowHeadset, "slow-headset", 6},
};

} // namespace

QStringList Situation::names() const {
    QStringList all;
    for (const auto& entry : entries)
        if (this->*entry.member)
            all.append(QString::fromLatin1(entry.name));
    return all;
}

Situation makeSituation(uint64_t seed, int run) {
    std::mt19937_64 generator(seed * 0x9e3779b97f4a7c15U + 2'000'000 + static_cast<uint64_t>(run));
    Situation situation;
    for (const auto& entry : entries)
        situation.*entry.member = generator() % entry.oneIn == 0;
    return situation;
}

} // namespace quillo::test
