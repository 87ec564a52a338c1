#pragma once

#include "Platform/Linux/Wayland/DataSource.h"
#include "Platform/Linux/Wayland/WaylandConnection.h"

#include <QStringList>

#include <memory>

struct ext_data_control_device_v1;
struct ext_data_control_offer_v1;

namespace quillo {

/// The seat's selections by ext-data-control-v1 or its predecessor wlr-data-control-unstable-v1, which work without a
/// window and without the focus. One thread, with an event loop.
class DataControl {
public:
    using Deadline = WaylandConnection::Deadline;
    enum class Selection { clipboard, primary };

    struct ReadResult {
        DataSource::Formats formats;
        bool complete = true;
    };

    /// Null, with a log line, when the compositor offers neither protocol.
    static std::unique_ptr<DataControl> open();
    ~DataControl();
    DataControl(const DataControl&) = delete;
    DataControl& operator=(const DataControl&) = delete;

    [[nodiscard]] int descriptor() const { return m_connection->descriptor(); }
    void dispatch() { m_connection->dispatch(); }
    /// Whether the compositor is gone or has withdrawn the selections.
    [[nodiscard]] bool isBroken() const { return m_finished || m_connection->isBroken(); }
    [[nodiscard]] QString fault() const;
    /// How often the clipboard's owner has changed since the connection was made.
    [[nodiscard]] uint64_t changeCount() const { return m_changes; }

    /// Takes over the selection; true once the compositor has confirmed it. The handlers' `cancelled` is called when
    /// another client takes it.
    bool own(Selection selection, DataSource::Formats formats, DataSource::Handlers handlers, Deadline deadline);
    /// Empties the selection if it is ours.
    void disown(Selection selection);
    /// Our content; null when we do not own the selection.
    [[nodiscard]] const DataSource::Formats* held(Selection selection) const;

    /// Every format on the clipboard, text first, of at most `mostBytes` together. Formats that were too slow or too
    /// large are left out; the result is then incomplete.
    ReadResult readClipboard(qsizetype mostBytes, Deadline deadline);

private:
    /// Another program's content of a selection.
    struct Offer {
        ext_data_control_offer_v1* proxy = nullptr;
        QStringList mediaTypes;
        explicit Offer(ext_data_control_offer_v1* offer);
        ~Offer();
        Offer(const Offer&) = delete;
        Offer& operator=(const Offer&) = delete;
    };

    explicit DataControl(std::unique_ptr<WaylandConnection> connection);
    bool bind();
    void select(Selection selection, ext_data_control_offer_v1* offer);
    std::unique_ptr<DataSource>& source(Selection selection) { return m_sources[static_cast<size_t>(selection)]; }
    void setSelection(Selection selection, ext_data_control_source_v1* source);
    enum class Outcome { got, tooLarge, failed, timedOut };
    Outcome receive(const QString& mediaType, qsizetype mostBytes, Deadline deadline, QByteArray& data);

    std::unique_ptr<WaylandConnection> m_connection;
    ext_data_control_manager_v1* m_manager = nullptr;
    ext_data_control_device_v1* m_device = nullptr;
    bool m_hasPrimary = true;
    bool m_finished = false;
    uint64_t m_changes = 0;
    std::vector<std::unique_ptr<Offer>> m_announced; ///< not yet on a selection
    std::array<std::unique_ptr<Offer>, 2> m_offers;
    std::array<std::unique_ptr<DataSource>, 2> m_sources;
};

} // namespace quillo
