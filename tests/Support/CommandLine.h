#pragma once

#include <QStringList>

namespace quillo::test {

/// The words of a command line, none of which holds a blank.
inline QStringList words(const QString& line) { return line.split(u' ', Qt::SkipEmptyParts); }

} // namespace quillo::test
