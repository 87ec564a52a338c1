#pragma once

#include <QStringList>

namespace quillo::exportCommand {

/// `quillo export`: prints a record of the history, or writes it to a file. Takes the arguments after "export". Returns
/// the exit code: 0 done, 1 refused, 2 wrong usage. Needs no running instance.
int run(const QStringList& words);

} // namespace quillo::exportCommand
