// Writes to the store of this data folder until it is killed, and says after each save that it is done.

#include "Core/LoggingService.h"
#include "Data/DataContainer.h"

#include <QCoreApplication>

#include <unistd.h>

using namespace quillo;

int main(int argc, char** argv) {
    const QCoreApplication application(argc, argv);
    LoggingService::shared().setConsoleLevel(std::nullopt);
    const auto container = DataContainer::create();
    auto& context = container->mainContext();
    for (auto batch = context.count() / 20;; ++batch) {
        for (int i = 0; i < 20; ++i) {
            auto record = std::make_shared<TranscriptionRecord>();
            record->text = u"batch number %1 with words to index"_qs.arg(batch);
            record->sessionId = QString::number(batch);
            context.insert(record);
        }
        context.save();
        if (::write(STDOUT_FILENO, "s", 1) != 1)
            return 1;
    }
}
