#pragma once

#include <QStringList>

namespace quillo {

/// The commands of `quillo`: each controls the running instance or reads its files, and prints the result.
namespace commandLine {

/// Whether the first argument is one of the commands.
[[nodiscard]] bool understands(const QStringList& arguments);
/// Runs the command. Needs a QCoreApplication. Returns the exit code: 0 done, 1 refused, 2 wrong usage, 3 no instance
/// is running.
int run(const QStringList& arguments);
/// Lines for "--help", one command each.
[[nodiscard]] QString help();

} // namespace commandLine

} // namespace quillo
