#include "Platform/Linux/Wayland/DataSource.h"

#include "Core/Log.h"

#include <data-control-client.h>

#include <cerrno>

#include <fcntl.h>
#include <unistd.h>

namespace quillo {

namespace {

/// A reader that takes nothing for this long will not take the rest.
constexpr auto readerPatience = std::chrono::seconds(30);

} // namespace

DataSource::Transfer::~Transfer() {
    writable.reset();
    ::close(descriptor);
}

DataSource::DataSource(ext_data_control_manager_v1& manager, Formats formats, Handlers handlers)
    : m_source(ext_data_control_manager_v1_create_data_source(&manager)), m_formats(std::move(formats)),
      m_handlers(std::move(handlers)) {
    static constexpr ext_data_control_source_v1_listener listener{
        .send = [](void* data, ext_data_control_source_v1*, const char* mediaType,
                   int32_t descriptor) { static_cast<DataSource*>(data)->send(mediaType, descriptor); },
        .cancelled =
            [](void* data, ext_data_control_source_v1*) {
                // Copy the handler: it may destroy the source that owns it.
                const auto handler = static_cast<DataSource*>(data)->m_handlers.cancelled;
                handler();
            },
    };
    ext_data_control_source_v1_add_listener(m_source, &listener, this);
    for (const auto& [mediaType, data] : m_formats)
        ext_data_control_source_v1_offer(m_source, mediaType.toUtf8().constData());
}

DataSource::~DataSource() { ext_data_control_source_v1_destroy(m_source); }

void DataSource::send(const char* mediaType, int descriptor) {
    const auto format = m_formats.find(QString::fromUtf8(mediaType));
    if (format == m_formats.end() || ::fcntl(descriptor, F_SETFL, O_NONBLOCK) != 0 ||
        ::fcntl(descriptor, F_SETFD, FD_CLOEXEC) != 0) {
        ::close(descriptor);
        return;
    }
    auto& transfer = m_transfers.emplace_back();
    transfer.descriptor = descriptor;
    transfer.data = format->second;
    proceed(std::prev(m_transfers.end()));
}

DataSource::Progress DataSource::write(Transfer& transfer) {
    while (transfer.written < transfer.data.size()) {
        const auto count = ::write(transfer.descriptor, transfer.data.constData() + transfer.written,
                                   static_cast<size_t>(transfer.data.size() - transfer.written));
        if (count >= 0)
            transfer.written += count;
        else if (errno == EAGAIN)
            return Progress::waiting;
        else if (errno != EINTR)
            return Progress::failed;
    }
    return Progress::complete;
}

void DataSource::proceed(std::list<Transfer>::iterator transfer) {
    const auto progress = write(*transfer);
    if (progress == Progress::waiting) {
        if (!transfer->writable) {
            transfer->writable = std::make_unique<QSocketNotifier>(transfer->descriptor, QSocketNotifier::Write);
            // Queued, so that neither object is destroyed while it emits its signal.
            QObject::connect(
                transfer->writable.get(), &QSocketNotifier::activated, &transfer->patience,
                [this, transfer] { proceed(transfer); }, Qt::QueuedConnection);
            transfer->patience.setSingleShot(true);
            QObject::connect(
                &transfer->patience, &QTimer::timeout, &transfer->patience,
                [this, transfer] {
                    appLog(QStringLiteral("⚠️ A program that asked for the clipboard does not take it"), LogLevel::warn,
                           QStringLiteral("Pasteboard"));
                    m_transfers.erase(transfer);
                },
                Qt::QueuedConnection);
        }
        transfer->patience.start(readerPatience);
        return;
    }
    // The end of the file marks the end of the data.
    m_transfers.erase(transfer);
    if (progress == Progress::complete)
        m_handlers.wasRead();
}

} // namespace quillo
