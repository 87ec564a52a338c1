#pragma once

#include "Services/Recordings/AudioFileWriter.h"
#include "Support/Files.h"

#include <QTemporaryDir>
#include <QtEndian>

#include <gtest/gtest.h>

#include <vector>

namespace quillo::test {

/// A data folder of its own for the time of a test, and hands to put recordings into it.
class RecordingsFolder {
public:
    RecordingsFolder() : m_previous(qgetenv("XDG_DATA_HOME")) {
        qputenv("XDG_DATA_HOME", QFile::encodeName(m_home.path()));
    }
    ~RecordingsFolder() { qputenv("XDG_DATA_HOME", m_previous); }
    RecordingsFolder(const RecordingsFolder&) = delete;
    RecordingsFolder& operator=(const RecordingsFolder&) = delete;

    [[nodiscard]] QString path(const QString& name = {}) const {
        return m_home.filePath(u"QuilloSpeech/pending-audio/"_qs + name);
    }
    /// What lies outside, beside the folder.
    [[nodiscard]] QString outside(const QString& name) const { return m_home.filePath(name); }

    void write(const QString& name, const QByteArray& content) const { writeFile(path(name), content); }
    [[nodiscard]] QByteArray read(const QString& name) const { return contentOf(path(name)); }
    [[nodiscard]] QStringList names() const { return QDir(path()).entryList(QDir::Files | QDir::Hidden, QDir::Name); }

    static PendingAudioMetadata metadata(const QString& recordingId, const QDateTime& createdAt) {
        PendingAudioMetadata metadata;
        metadata.id = recordingId;
        metadata.createdAt = createdAt;
        metadata.primaryLanguage = u"en"_qs;
        metadata.targetApp = u"Text Editor"_qs;
        metadata.userId = u"user-1"_qs;
        metadata.reason = u"test"_qs;
        return metadata;
    }
    /// A whole recording of `audio`.
    void add(const PendingAudioMetadata& metadata, const QByteArray& audio) const {
        write(metadata.id + u".pcm"_qs, audio);
        pendingAudioFiles::writeMetadata(metadata);
    }

private:
    QTemporaryDir m_home;
    QByteArray m_previous;
};

inline QByteArray pcmOf(const std::vector<int16_t>& samples) {
    QByteArray bytes;
    for (const auto sample : samples) {
        const auto written = qToLittleEndian(sample);
        bytes.append(reinterpret_cast<const char*>(&written), sizeof written);
    }
    return bytes;
}

} // namespace quillo::test
