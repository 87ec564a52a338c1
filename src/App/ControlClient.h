#pragma once

#include <QStringList>

namespace quillo {

/// The remote control: sends `arguments` ("start", "settings get KEY", ...) to the running instance and prints what it
/// answers.
namespace controlClient {

/// Whether the first argument is one of its commands.
bool understands(const QStringList& arguments);
/// Returns the exit code: 0 done, 1 refused, 2 wrong usage, 3 no instance is running.
int run(const QStringList& arguments);
/// Lines for "--help", one command each.
QString help();

} // namespace controlClient

} // namespace quillo
