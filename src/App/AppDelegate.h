#pragma once

#include "Core/UserMessage.h"

#include <memory>

namespace quillo {

struct Application;

/// Launches and ends the application and owns its parts. Main thread. The name stays: see docs/compatibility.md.
class AppDelegate {
public:
    AppDelegate();
    ~AppDelegate();
    AppDelegate(const AppDelegate&) = delete;
    AppDelegate& operator=(const AppDelegate&) = delete;

    /// Starts everything that can be started; see `startUp`. False when another instance runs already.
    bool launch();
    /// Shows `notice` to the user as soon as the interface exists.
    void tellUser(const UserMessage& notice);
    /// Ends the program once a running dictation is on the disk.
    void quit();

private:
    std::unique_ptr<Application> m_application;
    bool m_isQuitting = false;
};

} // namespace quillo
