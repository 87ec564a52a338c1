#pragma once

#include <QStringList>

#include <chrono>
#include <cstdint>

namespace quillo::test {

/// The circumstances of a run, besides its fault: any of them may come together.
struct Situation {
    bool clipboardManager = false; ///< reads every content at once, late, and again
    bool ownKeyboard = false;      ///< the hold key is on another device than the keys that programs send
    bool heldControl = false;      ///< Control is down on the user's keyboard when the text comes
    bool isBusy = false;           ///< both cores are kept busy by other programs
    bool slowServer = false;       ///< every exchange with the server takes longer
    bool german = false;           ///< the language of the desktop
    bool slowKeyring = false;      ///< does not answer until the dictation is over
    bool typing = false;           ///< the text is typed, not pasted
    bool slowHeadset = false;      ///< the microphone delivers nothing in the first three seconds

    static constexpr std::chrono::milliseconds headsetDelay{3000};

    [[nodiscard]] QStringList names() const;
};

/// The situation of run `run` of the campaign `seed`; depends only on the arguments.
Situation makeSituation(uint64_t seed, int run);

} // namespace quillo::test
