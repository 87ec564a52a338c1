#pragma once

#include <QDir>
#include <QFile>
#include <QFileInfo>

#include <stdexcept>

namespace quillo::test {

/// All of a file; empty when it cannot be read.
inline QByteArray contentOf(const QString& path) {
    QFile file(path);
    return file.open(QIODevice::ReadOnly) ? file.readAll() : QByteArray();
}

/// Writes a file of exactly this content, and makes its folder. Throws std::runtime_error when it cannot.
inline void writeFile(const QString& path, const QByteArray& content, QFile::Permissions more = {}) {
    QDir().mkpath(QFileInfo(path).absolutePath());
    QFile file(path);
    if (!file.open(QIODevice::WriteOnly) || file.write(content) != content.size())
        throw std::runtime_error(path.toStdString() + " could not be written: " + file.errorString().toStdString());
    file.setPermissions(file.permissions() | more);
}

} // namespace quillo::test
