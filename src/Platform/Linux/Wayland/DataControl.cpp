#include "Platform/Linux/Wayland/DataControl.h"

#include "Core/Log.h"

#include <data-control-client.h>
#include <wayland-client-protocol.h>

#include <algorithm>
#include <array>

#include <fcntl.h>
#include <unistd.h>

namespace quillo {

namespace {

using std::chrono::steady_clock;

constexpr auto openLimit = std::chrono::seconds(1);

/// The predecessor's manager: the same messages under another name. Its first version had no primary selection.
const wl_interface& forerunnerManager() {
    static const wl_interface interface = [] {
        auto renamed = ext_data_control_manager_v1_interface;
        renamed.name = "zwlr_data_control_manager_v1";
        renamed.version = 2;
        return renamed;
    }();
    return interface;
}

bool isText(const QString& mediaType) {
    return mediaType.startsWith(u"text/") || mediaType == u"UTF8_STRING" || mediaType == u"STRING" ||
           mediaType == u"TEXT";
}

class Descriptor {
public:
    explicit Descriptor(int value) : m_value(value) {}
    ~Descriptor() { close(); }
    Descriptor(const Descriptor&) = delete;
    Descriptor& operator=(const Descriptor&) = delete;
    [[nodiscard]] int get() const { return m_value; }
    void close() {
        if (m_value >= 0)
            ::close(std::exchange(m_value, -1));
    }

private:
    int m_value;
};

} // namespace

DataControl::Offer::Offer(ext_data_control_offer_v1* offer) : proxy(offer) {
    static constexpr ext_data_control_offer_v1_listener listener{
        .offer = [](void* data, ext_data_control_offer_v1*, const char* mediaType) {
            static_cast<Offer*>(data)->mediaTypes.append(QString::fromUtf8(mediaType));
        }};
    ext_data_control_offer_v1_add_listener(proxy, &listener, this);
}

DataControl::Offer::~Offer() { ext_data_control_offer_v1_destroy(proxy); }

std::unique_ptr<DataControl> DataControl::open() {
    auto connection = WaylandConnection::open(QStringLiteral("the clipboard"));
    if (!connection)
        return nullptr;
    std::unique_ptr<DataControl> control(new DataControl(std::move(connection)));
    return control->bind() ? std::move(control) : nullptr;
}

DataControl::DataControl(std::unique_ptr<WaylandConnection> connection) : m_connection(std::move(connection)) {}

DataControl::~DataControl() {
    m_announced.clear();
    m_offers = {};
    m_sources = {};
    if (m_device)
        ext_data_control_device_v1_destroy(m_device);
    if (m_manager)
        ext_data_control_manager_v1_destroy(m_manager);
}

bool DataControl::bind() {
    const auto complain = [](const QString& cause) {
        appLog(QStringLiteral("⚠️ The clipboard cannot be set without a focused window here: ") + cause, LogLevel::warn,
               QStringLiteral("Wayland"));
        return false;
    };
    const wl_interface* manager = &ext_data_control_manager_v1_interface;
    if (m_connection->version(manager->name) == 0) {
        manager = &forerunnerManager();
        m_hasPrimary = m_connection->version(manager->name) >= 2;
    }
    m_manager = static_cast<ext_data_control_manager_v1*>(
        m_connection->bind(*manager, static_cast<uint32_t>(manager->version)));
    if (!m_manager)
        return complain(QStringLiteral("the compositor offers neither ext-data-control nor wlr-data-control"));
    auto* seat = static_cast<wl_seat*>(m_connection->bind(wl_seat_interface, 1));
    if (!seat)
        return complain(QStringLiteral("the compositor has no seat"));
    m_device = ext_data_control_manager_v1_get_data_device(m_manager, seat);
    wl_seat_destroy(seat); // this version has no destructor request
    static constexpr ext_data_control_device_v1_listener listener{
        .data_offer =
            [](void* data, ext_data_control_device_v1*, ext_data_control_offer_v1* offer) {
                static_cast<DataControl*>(data)->m_announced.push_back(std::make_unique<Offer>(offer));
            },
        .selection =
            [](void* data, ext_data_control_device_v1*, ext_data_control_offer_v1* offer) {
                auto* self = static_cast<DataControl*>(data);
                ++self->m_changes;
                self->select(Selection::clipboard, offer);
            },
        .finished = [](void* data, ext_data_control_device_v1*) { static_cast<DataControl*>(data)->m_finished = true; },
        .primary_selection =
            [](void* data, ext_data_control_device_v1*, ext_data_control_offer_v1* offer) {
                static_cast<DataControl*>(data)->select(Selection::primary, offer);
            },
    };
    ext_data_control_device_v1_add_listener(m_device, &listener, this);
    if (!m_connection->roundTrip(steady_clock::now() + openLimit))
        return complain(isBroken() ? fault() : QStringLiteral("the compositor does not answer"));
    return true;
}

QString DataControl::fault() const {
    return m_finished ? QStringLiteral("the compositor has withdrawn the clipboard") : m_connection->fault();
}

void DataControl::select(Selection selection, ext_data_control_offer_v1* offer) {
    const auto announced =
        std::ranges::find_if(m_announced, [offer](const auto& candidate) { return candidate->proxy == offer; });
    auto& current = m_offers[static_cast<size_t>(selection)];
    current.reset();
    if (announced != m_announced.end()) {
        current = std::move(*announced);
        m_announced.erase(announced);
    }
}

void DataControl::setSelection(Selection selection, ext_data_control_source_v1* source) {
    if (selection == Selection::clipboard)
        ext_data_control_device_v1_set_selection(m_device, source);
    else
        ext_data_control_device_v1_set_primary_selection(m_device, source);
}

bool DataControl::own(Selection selection, DataSource::Formats formats, DataSource::Handlers handlers,
                      Deadline deadline) {
    if (isBroken() || (selection == Selection::primary && !m_hasPrimary))
        return false;
    const auto cancelled = [this, selection, tell = std::move(handlers.cancelled)] {
        source(selection).reset();
        if (tell)
            tell();
    };
    auto next = std::make_unique<DataSource>(*m_manager, std::move(formats),
                                             DataSource::Handlers{std::move(handlers.wasRead), cancelled});
    setSelection(selection, next->get());
    // Drop our previous offer silently; only foreign owners are reported.
    source(selection) = std::move(next);
    if (!m_connection->roundTrip(deadline))
        source(selection).reset();
    return source(selection) != nullptr;
}

void DataControl::disown(Selection selection) {
    if (!source(selection))
        return;
    setSelection(selection, nullptr);
    source(selection).reset();
}

const DataSource::Formats* DataControl::held(Selection selection) const {
    const auto& ours = m_sources[static_cast<size_t>(selection)];
    return ours && !isBroken() ? &ours->formats() : nullptr;
}

DataControl::ReadResult DataControl::readClipboard(qsizetype mostBytes, Deadline deadline) {
    ReadResult result;
    m_connection->dispatch();
    if (isBroken())
        return {{}, false};
    if (const auto* ours = held(Selection::clipboard))
        return {*ours, true};
    const auto& offer = m_offers[static_cast<size_t>(Selection::clipboard)];
    if (!offer)
        return result;
    auto wanted = offer->mediaTypes;
    wanted.removeDuplicates();
    std::ranges::stable_partition(wanted, isText);
    qsizetype left = mostBytes;
    const auto changes = m_changes;
    for (const auto& mediaType : wanted) {
        // The owner has changed: the rest would not belong to what has been read.
        if (m_changes != changes)
            return {{}, false};
        QByteArray data;
        const auto outcome = receive(mediaType, left, deadline, data);
        if (outcome == Outcome::got) {
            left -= data.size();
            result.formats.emplace(mediaType, std::move(data));
        } else {
            result.complete = false;
        }
        if (outcome == Outcome::timedOut)
            break;
    }
    return result;
}

DataControl::Outcome DataControl::receive(const QString& mediaType, qsizetype mostBytes, Deadline deadline,
                                          QByteArray& data) {
    std::array<int, 2> ends{};
    if (::pipe2(ends.data(), O_CLOEXEC | O_NONBLOCK) != 0)
        return Outcome::failed;
    const Descriptor readable(ends[0]);
    Descriptor writable(ends[1]);
    // Give the owner a blocking descriptor, as programs expect.
    ::fcntl(writable.get(), F_SETFL, 0);
    ext_data_control_offer_v1_receive(m_offers[static_cast<size_t>(Selection::clipboard)]->proxy,
                                      mediaType.toUtf8().constData(), writable.get());
    m_connection->dispatch();
    // Close our copy, otherwise we never see the end of the data.
    writable.close();
    auto outcome = Outcome::timedOut;
    std::array<char, 65536> block{};
    const auto readSome = [&] {
        for (;;) {
            const auto count = ::read(readable.get(), block.data(), block.size());
            if (count < 0 && errno == EINTR)
                continue;
            if (count < 0 && errno == EAGAIN)
                return false;
            if (count <= 0) {
                outcome = count == 0 ? Outcome::got : Outcome::failed;
                return true;
            }
            if (data.size() + count > mostBytes) {
                outcome = Outcome::tooLarge;
                return true;
            }
            data.append(block.data(), count);
        }
    };
    m_connection->dispatchUntil(readSome, deadline, readable.get());
    return outcome;
}

} // namespace quillo
