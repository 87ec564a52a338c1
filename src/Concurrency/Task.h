#pragma once

#include <QCoroTask>

namespace quillo {

/// A coroutine that starts eagerly and runs to its first suspension inside the call. Dropping one does not stop it, so
/// every task is awaited or handed to a `TaskRunner`.
template <class T = void>
using Task = QCoro::Task<T>;

} // namespace quillo
