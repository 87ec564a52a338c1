#include "Core/Log.h"
#include "Data/ModelContext.h"

namespace quillo {

void TranscriptionRecord::cleanupStaleRecordings(ModelContext& context) {
    try {
        RecordQuery query;
        query.statuses = {RecordStatus::recording, RecordStatus::processing, RecordStatus::diarizing};
        for (const auto& record : context.fetch(query)) {
            if (record->text.isEmpty() && record->status != RecordStatus::diarizing)
                context.remove(record);
            else
                record->status = RecordStatus::completed;
        }
        context.save();
    } catch (const StoreError& error) {
        appLog(QStringLiteral("⚠️ Interrupted recordings stay as they are: %1").arg(error.message()), LogLevel::warn,
               QStringLiteral("DataContainer"));
    }
}

} // namespace quillo
