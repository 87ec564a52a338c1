#pragma once

#include "Platform/Applications.h"

#include <vector>

namespace quillo::test {

/// A desktop with one window in front.
class MockApplications final : public Applications {
public:
    std::optional<RunningApplication> front =
        RunningApplication{.pid = 4711, .name = u"Editor"_qs, .bundleIdentifier = u"editor"_qs};
    bool canActivate = true;
    std::vector<RunningApplication> activated;

    [[nodiscard]] bool isAvailable() const override { return true; }
    std::optional<RunningApplication> frontmost() override { return front; }
    bool activate(const RunningApplication& application) override {
        activated.push_back(application);
        if (canActivate)
            front = application;
        return canActivate;
    }
};

} // namespace quillo::test
