#pragma once

#include <QByteArray>
#include <QSocketNotifier>
#include <QString>
#include <QTimer>

#include <functional>
#include <list>
#include <map>

struct ext_data_control_manager_v1;
struct ext_data_control_source_v1;

namespace quillo {

/// Our content of one selection: sends it to every reader, without waiting for slow ones. Lives on a thread with an
/// event loop and with SIGPIPE blocked, because a reader may hang up at any time.
class DataSource {
public:
    using Formats = std::map<QString, QByteArray>; ///< by media type

    struct Handlers {
        std::function<void()> wasRead;   ///< a reader has received all of a format
        std::function<void()> cancelled; ///< the selection has another owner; the handler may destroy the source
    };

    DataSource(ext_data_control_manager_v1& manager, Formats formats, Handlers handlers);
    ~DataSource();
    DataSource(const DataSource&) = delete;
    DataSource& operator=(const DataSource&) = delete;

    [[nodiscard]] ext_data_control_source_v1* get() const { return m_source; }
    [[nodiscard]] const Formats& formats() const { return m_formats; }

private:
    /// One transfer to a reader.
    struct Transfer {
        int descriptor = -1;
        QByteArray data;
        qsizetype written = 0;
        std::unique_ptr<QSocketNotifier> writable;
        QTimer patience;

        ~Transfer();
    };
    enum class Progress { waiting, complete, failed };

    void send(const char* mediaType, int descriptor);
    void proceed(std::list<Transfer>::iterator transfer);
    static Progress write(Transfer& transfer);

    ext_data_control_source_v1* m_source;
    Formats m_formats;
    Handlers m_handlers;
    std::list<Transfer> m_transfers;
};

} // namespace quillo
