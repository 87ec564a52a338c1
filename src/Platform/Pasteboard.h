#pragma once

#include "Concurrency/Task.h"

#include <QByteArray>
#include <QString>

#include <chrono>
#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <optional>

namespace quillo {

/// The clipboard as it stood: every format its owner offered, or as much as could be had within the deadline.
struct PasteboardContents {
    std::map<QString, QByteArray> formats; ///< by target name, as on the selection
    bool complete = true;                  ///< false when the owner did not answer in time or something was too large
    [[nodiscard]] bool isEmpty() const { return formats.empty(); }
};

/// Our text on the clipboard. Dropping it does not take the text back.
class PasteboardOffer {
public:
    virtual ~PasteboardOffer() = default;
    /// How often an application fetched the text (asking for the formats alone does not count).
    [[nodiscard]] virtual int reads() const = 0;
    /// True while nobody else has taken the clipboard over.
    [[nodiscard]] virtual bool isOwner() const = 0;
    /// Suspends until the text has been read in full for the first time, the offer was lost, or `deadline` has passed;
    /// returns whether it was read.
    virtual Task<bool> waitUntilRead(std::chrono::milliseconds deadline) = 0;
    /// When the latest read ended; restoring must come after the reader has had it.
    [[nodiscard]] virtual std::optional<std::chrono::steady_clock::time_point> lastRead() const = 0;
    /// Whether the process of that id is among the readers; tells the target from a clipboard manager. False where the
    /// desktop does not tell who reads.
    [[nodiscard]] virtual bool readBy(int64_t pid) const {
        (void)pid;
        return false;
    }
};

/// The desktop's clipboard. Called on the main thread; an owner that never answers costs a deadline, not a hang.
class Pasteboard {
public:
    virtual ~Pasteboard() = default;

    [[nodiscard]] virtual bool isAvailable() const = 0;
    /// What is on it now.
    virtual Task<PasteboardContents> read(std::chrono::milliseconds deadline) = 0;
    /// Grows whenever somebody takes the clipboard over; nothing when the desktop does not tell.
    [[nodiscard]] virtual std::optional<uint64_t> changeCount() const { return std::nullopt; }
    /// Puts `text` on it; with `alsoPrimary` on the primary selection too.
    virtual Task<std::shared_ptr<PasteboardOffer>> offerText(QString text, bool alsoPrimary) = 0;
    /// Puts back what `read` returned, unless another application took the clipboard since `offer` was made.
    virtual Task<bool> restore(PasteboardContents contents, std::shared_ptr<PasteboardOffer> offer) = 0;
};

} // namespace quillo
