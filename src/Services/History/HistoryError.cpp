#include "Services/History/HistoryError.h"

namespace quillo {

namespace {

QString keyOf(HistoryError::Code code) {
    using Code = HistoryError::Code;
    switch (code) {
    case Code::noHistory:
        return QStringLiteral("history.noHistory");
    case Code::noRecord:
        return QStringLiteral("history.noRecord");
    case Code::ambiguousId:
        return QStringLiteral("history.ambiguousId");
    case Code::recordBusy:
        return QStringLiteral("history.recordBusy");
    case Code::queueNotReady:
        return QStringLiteral("history.queueNotReady");
    case Code::unknownLanguage:
        return QStringLiteral("history.unknownLanguage");
    case Code::audioGone:
        return QStringLiteral("history.audioGone");
    case Code::audioNotKept:
        return QStringLiteral("history.audioNotKept");
    case Code::noSegments:
        return QStringLiteral("history.noSegments");
    case Code::audioNotDeleted:
        return QStringLiteral("history.audioNotDeleted");
    }
    return {};
}

} // namespace

HistoryError::HistoryError(Code code, const QStringList& arguments)
    : UserError({keyOf(code), arguments}), m_code(code) {}

} // namespace quillo
