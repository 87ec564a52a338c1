#pragma once

#include <QStringList>

namespace quillo::historyCommand {

/// Runs `quillo history` with its arguments and prints the result. Returns the exit code: 0 done, 1 refused or not
/// found, 2 wrong usage, 3 no instance is running.
int run(const QStringList& words);

} // namespace quillo::historyCommand
