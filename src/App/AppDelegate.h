#pragma once

#include "Core/UserMessage.h"

#include <memory>

namespace quillo {

struct Application;

/// The application's life: launch, end, and the parts between them. Main thread.
class AppDelegate {
public:
    AppDelegate();
    ~AppDelegate();
    AppDelegate(const AppDelegate&) = delete;
    AppDelegate& operator=(const AppDelegate&) = delete;

    /// Starts everything that can be started; see `startUp`. False when another instance runs already.
    bool launch();
    /// Shows `notice` to the user as soon as there is an interface to show it in.
    void tellUser(const UserMessage& notice);
    /// Ends the program when what is being said is on the disk.
    void quit();

private:
    std::unique_ptr<Application> m_application;
    bool m_isQuitting = false;
};

} // namespace quillo
