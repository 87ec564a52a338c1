#pragma once

#include <QString>
#include <QStringList>

#include <cstdint>
#include <stdexcept>

namespace quillo {

/// The parsed arguments of `quillo history`.
struct HistoryArguments {
    enum class Verb { list, show, copy, play, retranscribe, remove };

    Verb verb = Verb::list;
    QString id;         ///< of the record, or the beginning of it; empty for a list
    QString search;     ///< as typed in the history window
    QStringList tags;   ///< all of them
    int64_t limit = 20; ///< negative: all
    QString language;   ///< to transcribe in; empty: the one it was recorded with
    bool json = false;
    bool textOnly = false; ///< show the text and nothing else
};

/// A wrong argument; the text is for the user and gives the correct form.
class HistoryUsageError : public std::runtime_error {
public:
    explicit HistoryUsageError(const QString& message) : std::runtime_error(message.toStdString()) {}
};

/// Parses the arguments after "quillo history". Throws HistoryUsageError.
HistoryArguments parseHistoryArguments(const QStringList& words);
QString historyUsage();

} // namespace quillo
