#include "Concurrency/TaskRunner.h"

#include <unordered_set>

namespace quillo {

struct TaskRunner::Shared {
    Report report;
    std::unordered_set<std::shared_ptr<TaskHandle::Control>> controls;
};

void TaskHandle::cancel() const {
    if (m_control)
        m_control->stop.request_stop();
}

bool TaskHandle::isRunning() const { return m_control && m_control->running; }

TaskRunner::TaskRunner(Report report) : m_shared(std::make_shared<Shared>()) { m_shared->report = std::move(report); }

TaskRunner::~TaskRunner() { cancelAll(); }

TaskHandle TaskRunner::run(const QString& name, Body body) {
    auto control = std::make_shared<TaskHandle::Control>();
    m_shared->controls.insert(control);
    drive(m_shared, name, std::move(body), control);
    return TaskHandle(control);
}

TaskHandle TaskRunner::schedule(Executor& executor, const QString& name, Body body) {
    auto control = std::make_shared<TaskHandle::Control>();
    m_shared->controls.insert(control);
    executor.post([shared = m_shared, name, body = std::move(body), control]() mutable {
        drive(std::move(shared), name, std::move(body), std::move(control));
    });
    return TaskHandle(control);
}

Task<> TaskRunner::drive(std::shared_ptr<Shared> shared, QString name, Body body,
                         std::shared_ptr<TaskHandle::Control> control) {
    try {
        co_await body(control->stop.get_token());
    } catch (const std::exception& error) {
        shared->report(name, QString::fromUtf8(error.what()));
    } catch (...) {
        shared->report(name, QStringLiteral("unknown exception"));
    }
    control->running = false;
    shared->controls.erase(control);
}

void TaskRunner::cancelAll() {
    const auto controls = m_shared->controls;
    for (const auto& control : controls)
        control->stop.request_stop();
}

size_t TaskRunner::running() const { return m_shared->controls.size(); }

} // namespace quillo
