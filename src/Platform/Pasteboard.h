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

/// A copy of the clipboard: every format that its owner offered, or as many as arrived within the deadline.
struct PasteboardContents {
    std::map<QString, QByteArray> formats; ///< by target name, as on the selection
    bool complete = true;                  ///< false when the owner did not answer in time or something was too large
    [[nodiscard]] bool isEmpty() const { return formats.empty(); }
};

/// Our text on the clipboard. Destroying the offer leaves the text there.
class PasteboardOffer {
public:
    virtual ~PasteboardOffer() = default;
    /// How often an application fetched the text (asking for the formats alone does not count).
    [[nodiscard]] virtual int reads() const = 0;
    /// True until another client takes over the clipboard.
    [[nodiscard]] virtual bool isOwner() const = 0;
    /// Suspends until the text has been read in full for the first time, the offer was lost, or `deadline` has passed;
    /// returns whether it was read.
    virtual Task<bool> waitUntilRead(std::chrono::milliseconds deadline) = 0;
    /// When the latest read ended; the clipboard may be restored only after that.
    [[nodiscard]] virtual std::optional<std::chrono::steady_clock::time_point> lastRead() const = 0;
    /// From now on only what `process` reads counts as a read, and nothing that was read before: a clipboard manager
    /// reads every text. 0 counts every reader. A reader that the desktop does not reveal always counts. Any thread.
    virtual void countReadsOf(int64_t process) = 0;
    /// Whether the counted reads are known to be those of the process asked for.
    [[nodiscard]] virtual bool knowsReader() const = 0;
};

/// How long a text is meant to stay on the clipboard.
enum class ClipboardUse {
    passing, ///< for one paste: clipboard managers are asked to keep nothing of it
    lasting, ///< the user will paste it: managers may keep it
};

/// The desktop's clipboard. Called on the main thread; an owner that never answers costs a deadline, not a hang.
class Pasteboard {
public:
    virtual ~Pasteboard() = default;

    [[nodiscard]] virtual bool isAvailable() const = 0;
    /// The current content. A text that is offered meanwhile ends the reading, which then returns what it has.
    virtual Task<PasteboardContents> read(std::chrono::milliseconds deadline) = 0;
    /// Increases whenever the clipboard gets a new owner; nothing when the desktop does not report that.
    [[nodiscard]] virtual std::optional<uint64_t> changeCount() const { return std::nullopt; }
    /// Offers `text` on the clipboard, with `alsoPrimary` on the primary selection too.
    virtual Task<std::shared_ptr<PasteboardOffer>> offerText(QString text, bool alsoPrimary, ClipboardUse use) = 0;
    /// Restores what `read` returned, unless another application has taken the clipboard since `offer` was made.
    virtual Task<bool> restore(PasteboardContents contents, std::shared_ptr<PasteboardOffer> offer) = 0;
};

} // namespace quillo
