#pragma once

#include "Concurrency/Executor.h"
#include "Concurrency/Task.h"

#include <QString>

#include <functional>
#include <memory>
#include <stop_token>

namespace quillo {

/// A handle of a task: requests its stop and says whether it still runs. Copies refer to the same task.
class TaskHandle {
public:
    TaskHandle() = default;

    /// Requests a stop through the task's token; the task ends at its next check.
    void cancel() const;
    [[nodiscard]] bool isRunning() const;

private:
    friend class TaskRunner;
    struct Control {
        std::stop_source stop;
        bool running = true;
    };
    explicit TaskHandle(std::shared_ptr<Control> control) : m_control(std::move(control)) {}
    std::shared_ptr<Control> m_control;
};

/// Owns tasks that are not awaited: keeps each task's function object alive until the task ends, and reports exceptions
/// that escape it. One thread only.
class TaskRunner {
public:
    using Body = std::function<Task<>(std::stop_token)>;
    /// Called with the task's name and the text of the exception that escaped it.
    using Report = std::function<void(const QString& name, const QString& error)>;

    explicit TaskRunner(Report report);
    /// Requests all running tasks to stop; does not wait for them to end.
    ~TaskRunner();
    TaskRunner(const TaskRunner&) = delete;
    TaskRunner& operator=(const TaskRunner&) = delete;

    /// Starts `body` at once, up to its first suspension.
    TaskHandle run(const QString& name, Body body);
    /// Starts `body` by work posted to `executor`, which must be the one of this runner's thread.
    TaskHandle schedule(Executor& executor, const QString& name, Body body);
    void cancelAll();
    [[nodiscard]] size_t running() const;

private:
    struct Shared;
    static Task<> drive(std::shared_ptr<Shared> shared, QString name, Body body,
                        std::shared_ptr<TaskHandle::Control> control);
    std::shared_ptr<Shared> m_shared;
};

} // namespace quillo
