#pragma once

#include <QStringList>

namespace quillo::historyCommand {

/// Runs `quillo history` with the words behind it and prints what it has to say. Returns the exit code: 0 done,
/// 1 refused or not found, 2 wrong usage, 3 no instance is running.
int run(const QStringList& words);

} // namespace quillo::historyCommand
