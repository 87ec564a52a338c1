#include "Platform/Linux/AtSpi/AtSpiSearch.h"

#include "Platform/Linux/AtSpi/AtSpiRoles.h"

#include <QFile>

#include <algorithm>

namespace quillo::atspi {

namespace {

using std::chrono::steady_clock;

constexpr size_t mostElements = 4000;
// The number of concurrent queries; a program answers one after the other.
constexpr size_t atOnce = 16;

struct Element {
    AtSpiObject object;
    uint64_t states = 0;
    [[nodiscard]] bool has(unsigned state) const { return (states >> state & 1) != 0; }
};

/// `objects` with their states, without those that do not answer.
Task<std::vector<Element>> withStates(QDBusConnection bus, std::vector<AtSpiObject> objects, Instant until) {
    std::vector<Element> elements;
    for (size_t first = 0; first < objects.size() && steady_clock::now() < until; first += atOnce) {
        const size_t end = std::min(first + atOnce, objects.size());
        std::vector<Task<std::optional<uint64_t>>> questions;
        for (size_t at = first; at < end; ++at)
            questions.push_back(states(bus, objects[at], until));
        for (size_t at = first; at < end; ++at) {
            if (const auto bits = co_await questions[at - first])
                elements.push_back({objects[at], *bits});
        }
    }
    co_return elements;
}

Task<std::vector<AtSpiObject>> childrenOf(QDBusConnection bus, std::vector<AtSpiObject> parents, Instant until) {
    std::vector<AtSpiObject> all;
    for (const auto& parent : parents) {
        if (steady_clock::now() >= until)
            break;
        if (const auto some = co_await children(bus, parent, until))
            all.insert(all.end(), some->begin(), some->end());
    }
    co_return all;
}

/// A sandboxed program uses the bus through a proxy, whose process is not that of the window.
bool isProxy(int64_t process) {
    QFile file(QStringLiteral("/proc/%1/comm").arg(process));
    return file.open(QIODevice::ReadOnly) && file.readAll().trimmed() == "xdg-dbus-proxy";
}

/// The roots of the programs that may be `process`.
Task<std::vector<AtSpiObject>> rootsOf(QDBusConnection bus, int64_t process, Instant until) {
    const AtSpiObject desktop{QStringLiteral("org.a11y.atspi.Registry"),
                              QStringLiteral("/org/a11y/atspi/accessible/root")};
    const auto programs = co_await children(bus, desktop, until);
    std::vector<AtSpiObject> own;
    std::vector<AtSpiObject> proxies;
    for (const auto& program : programs.value_or(std::vector<AtSpiObject>())) {
        const auto owner = process == 0 ? 0 : co_await processOf(bus, program.service, until);
        if (owner == process)
            own.push_back(program);
        else if (isProxy(owner))
            proxies.push_back(program);
    }
    co_return own.empty() ? proxies : own;
}

/// The windows of `roots` to search: the active ones or, if there is none, all windows of the program, because not
/// every toolkit reports the active one.
std::vector<AtSpiObject> windowsToSearch(const std::vector<Element>& windows, bool isOneProgram) {
    std::vector<AtSpiObject> active;
    std::vector<AtSpiObject> all;
    for (const auto& window : windows) {
        all.push_back(window.object);
        if (window.has(stateActive))
            active.push_back(window.object);
    }
    return active.empty() && isOneProgram ? all : active;
}

} // namespace

Task<FoundFocus> findFocus(QDBusConnection bus, int64_t process, Instant until) {
    FoundFocus found;
    const auto roots = co_await rootsOf(bus, process, until);
    const auto windows = co_await withStates(bus, co_await childrenOf(bus, roots, until), until);
    found.isOnBus = !roots.empty();
    auto level = co_await childrenOf(bus, windowsToSearch(windows, process != 0), until);
    // A window or a page may have the focus, and an element in it the caret: use the innermost one.
    for (const auto& window : windows) {
        if (window.has(stateActive) && window.has(stateFocused))
            found.object = window.object;
    }
    for (size_t seen = 0; !level.empty() && seen < mostElements;) {
        seen += level.size();
        const auto elements = co_await withStates(bus, std::move(level), until);
        std::vector<AtSpiObject> parents;
        const auto focused = std::find_if(elements.begin(), elements.end(),
                                          [](const Element& element) { return element.has(stateFocused); });
        if (focused != elements.end()) {
            found.object = focused->object;
            // Parts of an editor share its focus and know nothing of its text.
            if (!focused->has(stateEditable))
                parents.push_back(focused->object);
        } else {
            for (const auto& element : elements) {
                if (element.has(stateShowing) && !element.has(stateManagesDescendants))
                    parents.push_back(element.object);
            }
        }
        level = co_await childrenOf(bus, std::move(parents), until);
    }
    found.isLate = found.object.isEmpty() && found.isOnBus && steady_clock::now() >= until;
    co_return found;
}

} // namespace quillo::atspi
