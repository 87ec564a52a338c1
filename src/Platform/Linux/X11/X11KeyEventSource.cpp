#include "Platform/Linux/X11/X11KeyEventSource.h"

#include "Concurrency/Executor.h"
#include "Core/Log.h"
#include "Platform/Linux/X11/KeyGrabs.h"
#include "Platform/Linux/X11/ModifierMap.h"
#include "Platform/Linux/X11/ServerTime.h"
#include "Platform/Linux/X11/VirtualKeyCodes.h"
#include "Platform/Linux/X11/XcbConnection.h"
#include "Platform/Linux/X11/XcbXkb.h"

#include <QSocketNotifier>

#include <array>
#include <bitset>
#include <set>

#include <xcb/xinput.h>
#include <xcb/xtest.h>

namespace quillo {

namespace {

const QString category = QStringLiteral("KeyEvents");

using Keymap = std::bitset<256>;

class X11KeyEventSource final : public KeyEventSource {
public:
    X11KeyEventSource(std::unique_ptr<XcbConnection> query, uint8_t inputOpcode, std::shared_ptr<InjectionGuard> guard)
        : m_query(std::move(query)), m_inputOpcode(inputOpcode), m_guard(std::move(guard)) {}
    ~X11KeyEventSource() override { stop(); }
    X11KeyEventSource(const X11KeyEventSource&) = delete;
    X11KeyEventSource& operator=(const X11KeyEventSource&) = delete;

    [[nodiscard]] bool isTrusted() const override { return !m_query->isBroken(); }

    bool start(std::vector<KeyCombination> consumed, Handler onEvent, StateHandler onState) override {
        stop();
        // The owner of an active grab does not receive the raw release of its key, so grabs need a second connection.
        m_raw = XcbConnection::open(QStringLiteral("key events"));
        m_grab = XcbConnection::open(QStringLiteral("consumed keys"));
        if (!m_raw || !m_grab || !selectRawEvents()) {
            stop();
            return false;
        }
        m_handler = std::move(onEvent);
        m_stateHandler = std::move(onState);
        readTestDevices();
        m_modifiers = ModifierMap::read(*m_query);
        m_down = readKeymap();
        m_pressedOn = {};
        for (size_t keycode = 0; keycode < m_down.size(); ++keycode)
            m_guard->setPhysicallyDown(static_cast<uint8_t>(keycode), m_down[keycode]);
        m_guard->setSourceRunning(true);

        useKeyboardExtension();
        m_grabs = std::make_unique<KeyGrabs>(*m_grab);
        m_grabs->grab(std::move(consumed));
        for (const KeyCombination& combination : m_grabs->unavailable())
            appLog(QStringLiteral(
                       "⚠️ Another program holds key %1 with modifiers 0x%2; the focused application will get it too")
                       .arg(combination.keyCode)
                       .arg(combination.modifiers, 0, 16),
                   LogLevel::warn, category);

        watch(*m_raw, m_rawNotifier, &X11KeyEventSource::readRawEvents);
        watch(*m_grab, m_grabNotifier, &X11KeyEventSource::readGrabEvents);
        return true;
    }

    void stop() override {
        retire(m_rawNotifier);
        retire(m_grabNotifier);
        if (m_grabs)
            m_grabs->release();
        m_grabs.reset();
        if (m_grab)
            m_grab->roundTrip();
        m_grab.reset();
        m_raw.reset();
        m_handler = nullptr;
        m_stateHandler = nullptr;
        m_down.reset();
        m_guard->setSourceRunning(false);
        m_guard->setOwnGrabActive(false);
    }

    void setConsumed(std::vector<KeyCombination> consumed) override {
        if (m_grabs)
            m_grabs->grab(std::move(consumed));
    }

    [[nodiscard]] std::vector<KeyCombination> unavailableCombinations() const override {
        return m_grabs ? m_grabs->unavailable() : std::vector<KeyCombination>{};
    }

    [[nodiscard]] std::vector<KeyCombination> freeAmong(std::vector<KeyCombination> candidates) const override {
        std::erase_if(candidates, [this](const auto& candidate) { return !m_grabs || !m_grabs->isFree(candidate); });
        return candidates;
    }

    void hideLoneTap() override {
        const xcb_keycode_t key = m_raw ? neutralKey(*m_query) : 0;
        if (key == 0)
            return;
        for (const bool press : {true, false}) {
            m_guard->expect(key, press);
            xcb_test_fake_input(m_query->get(), press ? XCB_KEY_PRESS : XCB_KEY_RELEASE, key, XCB_CURRENT_TIME,
                                XCB_WINDOW_NONE, 0, 0, 0);
        }
        m_query->flush();
    }

    [[nodiscard]] bool isPhysicallyDown(uint16_t keyCode) const override {
        const Keymap keymap = readKeymap();
        for (const uint16_t evdev : evdevCodesForVirtualKeyCode(keyCode)) {
            const auto keycode = static_cast<size_t>(evdev) + x11KeycodeOffset;
            if (keycode >= keymap.size())
                continue;
            // The server considers a key up that our injector has released; our table is right.
            if (keymap[keycode] || (m_guard->isLifted(static_cast<uint8_t>(keycode)) && m_down[keycode]))
                return true;
        }
        return false;
    }

private:
    void watch(const XcbConnection& connection, std::unique_ptr<QSocketNotifier>& notifier,
               void (X11KeyEventSource::*read)()) {
        notifier = std::make_unique<QSocketNotifier>(connection.descriptor(), QSocketNotifier::Read);
        QObject::connect(notifier.get(), &QSocketNotifier::activated, notifier.get(),
                         [this, read] { (this->*read)(); });
        // Events that arrived with the replies to start-up requests do not wake the descriptor any more.
        EventExecutor::main().post([this, read, alive = std::weak_ptr(m_alive)] {
            if (!alive.expired() && m_raw)
                (this->*read)();
        });
    }

    /// Delete later: the notifier may be the one that is calling us.
    static void retire(std::unique_ptr<QSocketNotifier>& notifier) {
        if (!notifier)
            return;
        notifier->setEnabled(false);
        notifier->disconnect();
        notifier.release()->deleteLater();
    }

    bool selectRawEvents() {
        auto* const connection = m_raw->get();
        // The version is negotiated per client, and raw events name their source device from 2.1 on.
        adopt(xcb_input_xi_query_version_reply(connection, xcb_input_xi_query_version(connection, 2, 2), nullptr));
        struct Selection {
            xcb_input_event_mask_t head;
            uint32_t mask;
        };
        const Selection raw{{XCB_INPUT_DEVICE_ALL_MASTER, 1},
                            XCB_INPUT_XI_EVENT_MASK_RAW_KEY_PRESS | XCB_INPUT_XI_EVENT_MASK_RAW_KEY_RELEASE};
        const Selection hierarchy{{XCB_INPUT_DEVICE_ALL, 1}, XCB_INPUT_XI_EVENT_MASK_HIERARCHY};
        const auto rawCookie = xcb_input_xi_select_events_checked(connection, m_raw->root(), 1, &raw.head);
        const auto hierarchyCookie = xcb_input_xi_select_events_checked(connection, m_raw->root(), 1, &hierarchy.head);
        const auto rawError = adopt(xcb_request_check(connection, rawCookie));
        const auto hierarchyError = adopt(xcb_request_check(connection, hierarchyCookie));
        if (rawError || hierarchyError) {
            appLog(QStringLiteral("❌ The X server refused raw key events (error %1)")
                       .arg(rawError ? rawError->error_code : hierarchyError->error_code),
                   LogLevel::error, category);
            return false;
        }
        return !m_raw->isBroken();
    }

    /// Repetitions without releases, and word of another keyboard mapping.
    void useKeyboardExtension() {
        auto* const connection = m_grab->get();
        adopt(xcb_xkb_use_extension_reply(connection, xcb_xkb_use_extension(connection, 1, 0), nullptr));
        const uint32_t flag = XCB_XKB_PER_CLIENT_FLAG_DETECTABLE_AUTO_REPEAT;
        adopt(xcb_xkb_per_client_flags_reply(
            connection, xcb_xkb_per_client_flags(connection, XCB_XKB_ID_USE_CORE_KBD, flag, flag, 0, 0, 0), nullptr));
        // A client that uses the extension gets no core notification of a mapping that setxkbmap or a desktop loads.
        constexpr uint16_t events = XCB_XKB_EVENT_TYPE_NEW_KEYBOARD_NOTIFY | XCB_XKB_EVENT_TYPE_MAP_NOTIFY;
        constexpr uint16_t modifiers = XCB_XKB_MAP_PART_MODIFIER_MAP;
        xcb_xkb_select_events(connection, XCB_XKB_ID_USE_CORE_KBD, events, 0, XCB_XKB_EVENT_TYPE_NEW_KEYBOARD_NOTIFY,
                              modifiers, modifiers, nullptr);
        m_keyboardEvent = xcb_get_extension_data(connection, &xcb_xkb_id)->first_event;
    }

    void readTestDevices() {
        m_testDevices.clear();
        auto* const connection = m_raw->get();
        const auto reply = adopt(xcb_input_xi_query_device_reply(
            connection, xcb_input_xi_query_device(connection, XCB_INPUT_DEVICE_ALL), nullptr));
        if (!reply)
            return;
        for (auto infos = xcb_input_xi_query_device_infos_iterator(reply.get()); infos.rem > 0;
             xcb_input_xi_device_info_next(&infos)) {
            const auto name =
                QByteArray(xcb_input_xi_device_info_name(infos.data), xcb_input_xi_device_info_name_length(infos.data));
            if (infos.data->type == XCB_INPUT_DEVICE_TYPE_SLAVE_KEYBOARD && name.endsWith("XTEST keyboard"))
                m_testDevices.insert(infos.data->deviceid);
        }
    }

    [[nodiscard]] Keymap readKeymap() const {
        Keymap keymap;
        auto* const connection = m_query->get();
        const auto reply = adopt(xcb_query_keymap_reply(connection, xcb_query_keymap(connection), nullptr));
        if (reply) {
            for (size_t keycode = 0; keycode < keymap.size(); ++keycode)
                keymap[keycode] = (reply->keys[keycode / 8] >> (keycode % 8) & 1) != 0;
        }
        return keymap;
    }

    void readRawEvents() {
        const std::weak_ptr alive(m_alive);
        while (!alive.expired() && m_raw) {
            const auto event = m_raw->poll();
            if (!event)
                break;
            const auto* generic = reinterpret_cast<const xcb_ge_generic_event_t*>(event.get());
            if (eventType(*event) != XCB_GE_GENERIC || generic->extension != m_inputOpcode)
                continue;
            if (generic->event_type == XCB_INPUT_RAW_KEY_PRESS || generic->event_type == XCB_INPUT_RAW_KEY_RELEASE)
                rawKey(*reinterpret_cast<const xcb_input_raw_key_press_event_t*>(event.get()),
                       generic->event_type == XCB_INPUT_RAW_KEY_PRESS);
            else if (generic->event_type == XCB_INPUT_HIERARCHY)
                hierarchyChanged(*reinterpret_cast<const xcb_input_hierarchy_event_t*>(event.get()));
        }
        if (!alive.expired() && m_raw && m_raw->isBroken())
            connectionLost();
    }

    void rawKey(const xcb_input_raw_key_press_event_t& event, bool press) {
        if (event.detail > 255)
            return;
        const auto keycode = static_cast<uint8_t>(event.detail);
        if (m_testDevices.contains(event.sourceid) && m_guard->consume(keycode, press))
            return;
        auto& keyboards = m_pressedOn[keycode];
        if (press) {
            m_pressTime[keycode] = event.time;
            keyboards.insert(event.sourceid);
        } else {
            const bool stillDownElsewhere = keyboards.erase(event.sourceid) > 0 && !keyboards.empty();
            if (!m_down[keycode] || stillDownElsewhere)
                return; // Ignore the release of a key that was never pressed, or is still down on another keyboard.
        }
        keyChanged(keycode, press, m_serverTime.ageOf(event.time, std::chrono::steady_clock::now()));
    }

    void keyChanged(uint8_t keycode, bool press, std::chrono::milliseconds age = {}) {
        const bool repeat = press && m_down[keycode];
        m_down[keycode] = press;
        if (!press)
            m_pressedOn[keycode].clear();
        m_guard->setPhysicallyDown(keycode, press);
        if (!press && keycode == m_grabbedKeycode)
            grabEnded();
        if (!press && m_guard->takePressedAgain(keycode))
            releaseInjectedCopy(keycode);
        deliver(keycode, press, repeat, age);
    }

    /// The injector pressed the key again for the user, who has let go of it: the device of the injector has not.
    void releaseInjectedCopy(uint8_t keycode) {
        m_guard->expect(keycode, false);
        xcb_test_fake_input(m_query->get(), XCB_KEY_RELEASE, keycode, XCB_CURRENT_TIME, XCB_WINDOW_NONE, 0, 0, 0);
        m_query->flush();
    }

    void deliver(uint8_t keycode, bool press, bool repeat, std::chrono::milliseconds age = {}) {
        const auto virtualKey = virtualKeyCodeForEvdev(static_cast<uint16_t>(keycode - x11KeycodeOffset));
        if (!virtualKey || !m_handler)
            return;
        const bool isModifier = (m_modifiers.kinds[keycode] | sideBitOfModifierKey(*virtualKey)) != 0;
        if (isModifier && repeat)
            return;
        KeyEvent event;
        event.type = isModifier ? KeyEventType::flagsChanged : press ? KeyEventType::keyDown : KeyEventType::keyUp;
        event.keyCode = *virtualKey;
        event.flags = flags();
        event.isAutoRepeat = repeat;
        event.age = age;
        // The handler may stop or replace us.
        const Handler handler = m_handler;
        handler(event);
    }

    [[nodiscard]] uint64_t flags() const {
        uint64_t bits = 0;
        for (size_t keycode = m_down._Find_first(); keycode < m_down.size(); keycode = m_down._Find_next(keycode)) {
            bits |= m_modifiers.kinds[keycode];
            if (const auto key = virtualKeyCodeForEvdev(static_cast<uint16_t>(keycode - x11KeycodeOffset)))
                bits |= sideBitOfModifierKey(*key);
        }
        return bits;
    }

    void hierarchyChanged(const xcb_input_hierarchy_event_t& event) {
        const uint32_t relevant = XCB_INPUT_HIERARCHY_MASK_MASTER_ADDED | XCB_INPUT_HIERARCHY_MASK_MASTER_REMOVED |
                                  XCB_INPUT_HIERARCHY_MASK_SLAVE_ADDED | XCB_INPUT_HIERARCHY_MASK_SLAVE_REMOVED |
                                  XCB_INPUT_HIERARCHY_MASK_SLAVE_ATTACHED | XCB_INPUT_HIERARCHY_MASK_SLAVE_DETACHED |
                                  XCB_INPUT_HIERARCHY_MASK_DEVICE_ENABLED | XCB_INPUT_HIERARCHY_MASK_DEVICE_DISABLED;
        bool keyboard = false;
        for (auto infos = xcb_input_hierarchy_infos_iterator(&event); infos.rem > 0;
             xcb_input_hierarchy_info_next(&infos)) {
            // A removed device can no longer be queried for its kind.
            const bool pointer = infos.data->type == XCB_INPUT_DEVICE_TYPE_MASTER_POINTER ||
                                 infos.data->type == XCB_INPUT_DEVICE_TYPE_SLAVE_POINTER;
            keyboard = keyboard || ((infos.data->flags & relevant) != 0 && !pointer);
        }
        if (!keyboard)
            return;
        readTestDevices();
        appLog(QStringLiteral("⌨️ The set of keyboards changed"), LogLevel::debug, category);
        const std::weak_ptr alive(m_alive);
        releaseWhatIsUp();
        if (!alive.expired() && m_stateHandler) {
            const StateHandler handler = m_stateHandler;
            handler(KeyEventSourceState::keyboardChanged);
        }
    }

    /// A keyboard that was unplugged with keys down never sends their release.
    void releaseWhatIsUp() {
        const std::weak_ptr alive(m_alive);
        const Keymap keymap = readKeymap();
        const Keymap before = m_down;
        for (size_t keycode = 0; keycode < before.size() && !alive.expired() && m_raw; ++keycode) {
            if (before[keycode] && m_down[keycode] && !keymap[keycode] &&
                !m_guard->isLifted(static_cast<uint8_t>(keycode)))
                keyChanged(static_cast<uint8_t>(keycode), false);
        }
    }

    void readGrabEvents() {
        const std::weak_ptr alive(m_alive);
        bool isMappingNew = false;
        while (!alive.expired() && m_grab) {
            const auto event = m_grab->poll();
            if (!event)
                break;
            switch (eventType(*event)) {
            case XCB_KEY_PRESS:
                grabbedKey(*reinterpret_cast<const xcb_key_press_event_t*>(event.get()));
                break;
            case XCB_KEY_RELEASE:
                grabEnded();
                break;
            default:
                isMappingNew =
                    isMappingNew || eventType(*event) == XCB_MAPPING_NOTIFY || eventType(*event) == m_keyboardEvent;
                break;
            }
        }
        if (alive.expired() || !m_grab)
            return;
        if (isMappingNew) {
            m_modifiers = ModifierMap::read(*m_query);
            m_grabs->modifierMappingChanged(m_modifiers);
        }
        if (m_grab->isBroken())
            connectionLost();
    }

    /// The raw event with the same time reports the first press; further presses while the key is down are repeats.
    void grabbedKey(const xcb_key_press_event_t& event) {
        m_grabbedKeycode = event.detail;
        m_guard->setOwnGrabActive(true);
        if (m_down[event.detail] && static_cast<int32_t>(event.time - m_pressTime[event.detail]) > 0)
            deliver(event.detail, true, true);
    }

    void grabEnded() {
        m_grabbedKeycode = 0;
        m_guard->setOwnGrabActive(false);
    }

    void connectionLost() {
        appLog(QStringLiteral("❌ The connection to the X server broke; hotkeys have stopped"), LogLevel::error,
               category);
        m_query->roundTrip(); // also detects that this connection is broken
        const StateHandler handler = m_stateHandler;
        stop();
        if (handler)
            handler(KeyEventSourceState::lost);
    }

    std::unique_ptr<XcbConnection> m_query; ///< for queries, so that their replies delay no event
    uint8_t m_inputOpcode;
    std::shared_ptr<InjectionGuard> m_guard;
    std::shared_ptr<bool> m_alive = std::make_shared<bool>(true);

    std::unique_ptr<XcbConnection> m_raw;
    std::unique_ptr<XcbConnection> m_grab;
    std::unique_ptr<KeyGrabs> m_grabs;
    std::unique_ptr<QSocketNotifier> m_rawNotifier;
    std::unique_ptr<QSocketNotifier> m_grabNotifier;
    Handler m_handler;
    StateHandler m_stateHandler;
    std::set<uint16_t> m_testDevices;
    Keymap m_down;
    std::array<std::set<uint16_t>, 256> m_pressedOn; ///< for each key that is down, the keyboards it was pressed on
    ModifierMap m_modifiers;
    std::array<xcb_timestamp_t, 256> m_pressTime{};
    ServerTime m_serverTime;
    uint8_t m_grabbedKeycode = 0;
    uint8_t m_keyboardEvent = 0; ///< the number of all events of the keyboard extension
};

} // namespace

std::unique_ptr<KeyEventSource> createX11KeyEventSource(std::shared_ptr<InjectionGuard> guard) {
    auto connection = XcbConnection::open(QStringLiteral("key state"));
    if (!connection)
        return nullptr;
    const auto* extension = xcb_get_extension_data(connection->get(), &xcb_input_id);
    if (extension == nullptr || extension->present == 0) {
        appLog(QStringLiteral("❌ The X server has no X Input Extension; hotkeys are not available"), LogLevel::error,
               category);
        return nullptr;
    }
    const auto version = adopt(xcb_input_xi_query_version_reply(
        connection->get(), xcb_input_xi_query_version(connection->get(), 2, 2), nullptr));
    if (!version || version->major_version < 2 || (version->major_version == 2 && version->minor_version < 1)) {
        appLog(QStringLiteral("❌ The X Input Extension is older than 2.1; hotkeys are not available"), LogLevel::error,
               category);
        return nullptr;
    }
    const uint8_t opcode = extension->major_opcode;
    return std::make_unique<X11KeyEventSource>(std::move(connection), opcode, std::move(guard));
}

} // namespace quillo
