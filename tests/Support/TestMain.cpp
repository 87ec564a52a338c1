#include "Core/LoggingService.h"

#include <QCoreApplication>

#include <gmock/gmock.h>

int main(int argc, char** argv) {
    testing::InitGoogleMock(&argc, argv);
    const QCoreApplication application(argc, argv);
    // The log would hide the results; set this variable to see it.
    if (!qEnvironmentVariableIsSet("QUILLO_TEST_LOG"))
        quillo::LoggingService::shared().setConsoleLevel(std::nullopt);
    return RUN_ALL_TESTS();
}
