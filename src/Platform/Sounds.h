#pragma once

#include <QString>

namespace quillo {

/// The short sounds of the interface. Main thread; returns at once.
class Sounds {
public:
    virtual ~Sounds() = default;
    /// Plays the sound of that name at `volume` (0 to 1); false when there is none.
    virtual bool play(const QString& name, double volume) = 0;
};

} // namespace quillo
