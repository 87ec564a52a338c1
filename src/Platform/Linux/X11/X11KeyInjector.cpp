#include "Platform/Linux/X11/X11KeyInjector.h"

#include "Concurrency/AsyncStream.h"
#include "Core/Log.h"
#include "Platform/Linux/X11/BorrowedKey.h"
#include "Platform/Linux/X11/KeyboardLayout.h"
#include "Platform/Linux/X11/SpareKeys.h"
#include "Platform/Linux/X11/TargetSync.h"
#include "Platform/Linux/X11/TestKeyboard.h"
#include "Platform/Linux/X11/VirtualKeyCodes.h"
#include "Platform/Linux/X11/XcbXkb.h"

#include <QList>

#include <algorithm>
#include <thread>
#include <unordered_map>

#include <linux/input-event-codes.h>
#include <xcb/xtest.h>
#include <xkbcommon/xkbcommon-keysyms.h>

namespace quillo {

namespace {

using std::chrono::milliseconds;

const QString category = QStringLiteral("KeyInjector");

// The pause between two characters; a program that composes input asynchronously can keep up with it.
constexpr milliseconds gap(2);
// For programs that do not answer a ping: the time until a changed mapping is read, until keys are processed, and until
// the mapping can be restored. Measured with a terminal: with a third of these times it wrote garbage on a machine with
// a load of eight per core.
constexpr milliseconds settleTime(40);
constexpr milliseconds batchTime(200);
constexpr milliseconds restoreTime(400);
// How long to wait for a busy program that answers pings.
constexpr milliseconds patience(2000);

/// Lives on the worker thread.
class Worker {
public:
    Worker(std::unique_ptr<XcbConnection> connection, std::shared_ptr<InjectionGuard> guard)
        : m_connection(std::move(connection)), m_guard(std::move(guard)), m_keyboard(*m_connection, *m_guard),
          m_target(*m_connection), m_spare(*m_connection), m_borrowed(*m_connection) {}

    [[nodiscard]] bool isBroken() const { return m_connection->isBroken(); }

    InjectionStatus pressChord(PasteChord chord, const std::function<void()>& beforeKeys) {
        const auto layout = KeyboardLayout::read(*m_connection);
        if (!layout)
            return failed();
        const bool insert = chord == PasteChord::shiftInsert;
        std::optional<xcb_keycode_t> key;
        if (insert) {
            key = layout->keyOfKeysym(XKB_KEY_Insert);
        } else if (const auto v = layout->keyOf(U'v'); v && !v->shift) {
            key = v->keycode;
        } else {
            // Under a layout of another script programs look for the letter in the user's other layouts, as for real
            // keys.
            key = layout->keyInOtherGroup(XKB_KEY_v);
        }
        if (!key && insert) {
            if (layout->spareKeys().empty())
                return failed();
            const xkb_keysym_t keysym = XKB_KEY_Insert;
            m_spare.bind(layout->spareKeys(), std::span(&keysym, 1));
            m_target.wait(settleTime, patience);
            key = layout->spareKeys().front();
        } else if (!key) {
            constexpr auto place = static_cast<xcb_keycode_t>(KEY_V + x11KeycodeOffset);
            if (!m_borrowed.borrow(place, XKB_KEY_v))
                return failed();
            m_target.wait(settleTime, patience);
            key = place;
        }
        std::vector<xcb_keycode_t> modifiers;
        if (!insert)
            modifiers.push_back(layout->modifierKey(XCB_MAP_INDEX_CONTROL));
        if (chord != PasteChord::controlV)
            modifiers.push_back(layout->modifierKey(XCB_MAP_INDEX_SHIFT));
        if (std::find(modifiers.begin(), modifiers.end(), 0) != modifiers.end())
            return failed();

        if (beforeKeys)
            beforeKeys();
        auto held = m_keyboard.heldKeys();
        // Pressing and releasing only Alt or Super opens a menu; pressing Control in between makes it a chord.
        const bool hidesTap = !insert && std::any_of(held.begin(), held.end(), opensMenu) &&
                              std::find(held.begin(), held.end(), modifiers.front()) == held.end();
        if (hidesTap)
            m_keyboard.press(modifiers.front());
        m_keyboard.lift(held);
        for (size_t index = hidesTap ? 1 : 0; index < modifiers.size(); ++index)
            m_keyboard.press(modifiers[index]);
        m_keyboard.tap(*key);
        for (auto modifier = modifiers.rbegin(); modifier != modifiers.rend(); ++modifier)
            m_keyboard.release(*modifier);
        m_keyboard.pressLiftedModifiers(*layout);
        m_connection->roundTrip();
        return m_connection->isBroken() ? InjectionStatus::noEventSource : InjectionStatus::delivered;
    }

    InjectionStatus typeText(const QString& text, const std::stop_token& token) {
        const auto layout = KeyboardLayout::read(*m_connection);
        if (!layout)
            return failed();
        QList<uint> codePoints = text.toUcs4();
        codePoints.removeIf([](uint codePoint) { return codePoint == U'\r'; });
        const bool needsSpare = std::any_of(codePoints.begin(), codePoints.end(),
                                            [&](uint codePoint) { return !ownKey(*layout, codePoint).has_value(); });
        if (needsSpare && layout->spareKeys().empty()) {
            appLog(QStringLiteral("⚠️ The keyboard mapping has no spare key for characters the layout lacks"),
                   LogLevel::warn, category);
            return InjectionStatus::noKeyboardEvent;
        }
        if (needsSpare && !m_target.canTell())
            return InjectionStatus::untypable;
        const CapsLockOff capsLock(*m_connection, layout->capsLockIsOn());
        m_keyboard.lift(m_keyboard.heldKeys());
        bool complete = true;
        for (qsizetype position = 0; complete && position < codePoints.size();)
            complete = typeBatch(*layout, codePoints, position, token);
        // Restore Caps Lock and the mapping only when the program has processed what was typed with them.
        m_target.wait(batchTime, patience);
        m_keyboard.pressLiftedModifiers(*layout);
        m_connection->roundTrip();
        if (m_connection->isBroken())
            return InjectionStatus::noEventSource;
        return complete ? InjectionStatus::delivered : InjectionStatus::cancelled;
    }

    /// Runs after the result is delivered: the caller need not wait until the mapping is restored.
    void putMappingBack() {
        if (m_spare.isEmpty() && !m_borrowed.isBorrowed())
            return;
        m_target.wait(restoreTime, patience);
        m_spare.restore();
        m_borrowed.giveBack();
    }

private:
    /// Switches Caps Lock off temporarily: it would change the case of the text.
    class CapsLockOff {
    public:
        CapsLockOff(XcbConnection& connection, bool isOn) : m_connection(connection), m_wasOn(isOn) { set(false); }
        ~CapsLockOff() { set(true); }
        CapsLockOff(const CapsLockOff&) = delete;
        CapsLockOff& operator=(const CapsLockOff&) = delete;

    private:
        void set(bool locked) {
            if (!m_wasOn)
                return;
            xcb_xkb_latch_lock_state(m_connection.get(), XCB_XKB_ID_USE_CORE_KBD, XCB_MOD_MASK_LOCK,
                                     locked ? XCB_MOD_MASK_LOCK : 0, 0, 0, 0, 0, 0);
            m_connection.roundTrip();
        }
        XcbConnection& m_connection;
        bool m_wasOn;
    };

    static InjectionStatus failed() {
        appLog(QStringLiteral("❌ The keyboard mapping cannot be read or lacks the keys needed"), LogLevel::error,
               category);
        return InjectionStatus::noKeyboardEvent;
    }

    static bool opensMenu(xcb_keycode_t keycode) {
        const int evdev = keycode - x11KeycodeOffset;
        return evdev == KEY_LEFTALT || evdev == KEY_RIGHTALT || evdev == KEY_LEFTMETA || evdev == KEY_RIGHTMETA;
    }

    static std::optional<LayoutKey> ownKey(const KeyboardLayout& layout, char32_t codePoint) {
        if (codePoint != U'\n' && codePoint != U'\t')
            return layout.keyOf(codePoint);
        const auto key = layout.keyOfKeysym(codePoint == U'\n' ? XKB_KEY_Return : XKB_KEY_Tab);
        return key ? std::optional(LayoutKey{*key, false}) : std::nullopt;
    }

    static xkb_keysym_t keysymOf(char32_t codePoint) {
        if (codePoint == U'\n')
            return XKB_KEY_Return;
        if (codePoint == U'\t')
            return XKB_KEY_Tab;
        // The keysyms of Latin-1 equal its code points; all others have the form given in the X protocol, appendix A.
        return codePoint < 0x100 ? codePoint : 0x1000000U | codePoint;
    }

    /// Types from `position` on until the spare keys are used up. False when it was stopped.
    bool typeBatch(const KeyboardLayout& layout, const QList<uint>& text, qsizetype& position,
                   const std::stop_token& token) {
        std::unordered_map<char32_t, LayoutKey> lent;
        std::vector<xkb_keysym_t> keysyms;
        qsizetype end = position;
        for (; end < text.size(); ++end) {
            const char32_t codePoint = text[end];
            if (ownKey(layout, codePoint) || lent.contains(codePoint))
                continue;
            if (keysyms.size() == layout.spareKeys().size())
                break;
            lent.emplace(codePoint, LayoutKey{layout.spareKeys()[keysyms.size()], false});
            keysyms.push_back(keysymOf(codePoint));
        }
        if (!keysyms.empty()) {
            if (!m_spare.isEmpty())
                m_target.wait(batchTime, patience); // The keys of the previous batch are about to change their meaning.
            m_spare.bind(layout.spareKeys(), keysyms);
            m_target.wait(settleTime, patience);
        }
        const xcb_keycode_t shift = layout.modifierKey(XCB_MAP_INDEX_SHIFT);
        for (; position < end; ++position) {
            if (token.stop_requested() || m_connection->isBroken())
                return false;
            const char32_t codePoint = text[position];
            const auto own = ownKey(layout, codePoint);
            const LayoutKey key = own ? *own : lent.at(codePoint);
            m_keyboard.liftNewModifiers(layout);
            if (key.shift)
                m_keyboard.press(shift);
            m_keyboard.tap(key.keycode);
            if (key.shift)
                m_keyboard.release(shift);
            m_connection->flush();
            std::this_thread::sleep_for(gap);
        }
        return true;
    }

    std::unique_ptr<XcbConnection> m_connection;
    std::shared_ptr<InjectionGuard> m_guard;
    TestKeyboard m_keyboard;
    TargetSync m_target;
    SpareKeys m_spare;
    BorrowedKey m_borrowed;
};

using Job = std::function<InjectionStatus(Worker&)>;

Task<InjectionStatus> runOn(SerialExecutor& executor, std::shared_ptr<Worker> worker, Job job) {
    auto [stream, sink] = AsyncStream<InjectionStatus>::make(EventExecutor::main());
    executor.post([worker, job = std::move(job), sink = sink] {
        sink.yield(worker->isBroken() ? InjectionStatus::noEventSource : job(*worker));
        sink.finish();
        worker->putMappingBack();
    });
    const auto status = co_await stream.next();
    co_return status.value_or(InjectionStatus::noEventSource);
}

class X11KeyInjector final : public KeyInjector {
public:
    explicit X11KeyInjector(std::shared_ptr<Worker> worker) : m_worker(std::move(worker)) {}
    ~X11KeyInjector() override { m_stop.request_stop(); }
    X11KeyInjector(const X11KeyInjector&) = delete;
    X11KeyInjector& operator=(const X11KeyInjector&) = delete;

    [[nodiscard]] bool isAvailable() const override { return !m_worker->isBroken(); }

    Task<InjectionStatus> pressChord(PasteChord chord, std::function<void()> beforeKeys) override {
        return runOn(m_executor, m_worker, [chord, beforeKeys = std::move(beforeKeys)](Worker& worker) {
            return worker.pressChord(chord, beforeKeys);
        });
    }

    Task<InjectionStatus> typeText(QString text, std::stop_token token) override {
        return runOn(m_executor, m_worker,
                     [text = std::move(text), token = std::move(token), own = m_stop.get_token()](Worker& worker) {
                         // Typing ends at the caller's request or when this object is destroyed.
                         std::stop_source both;
                         const std::stop_callback onCaller(token, [&both] { both.request_stop(); });
                         const std::stop_callback onEnd(own, [&both] { both.request_stop(); });
                         return worker.typeText(text, both.get_token());
                     });
    }

private:
    std::shared_ptr<Worker> m_worker;
    std::stop_source m_stop;
    SerialExecutor m_executor{QStringLiteral("quillo-keys")}; ///< destroyed first: its last job uses the worker
};

} // namespace

std::unique_ptr<KeyInjector> createX11KeyInjector(std::shared_ptr<InjectionGuard> guard) {
    auto connection = XcbConnection::open(QStringLiteral("key injection"));
    if (!connection)
        return nullptr;
    const auto* extension = xcb_get_extension_data(connection->get(), &xcb_test_id);
    if (extension == nullptr || extension->present == 0) {
        appLog(QStringLiteral("❌ The X server has no XTEST extension; text cannot be inserted"), LogLevel::error,
               category);
        return nullptr;
    }
    return std::make_unique<X11KeyInjector>(std::make_shared<Worker>(std::move(connection), std::move(guard)));
}

} // namespace quillo
