#pragma once

#include <QStringList>
#include <QVariantList>

namespace quillo {

/// The remote control: sends `arguments` ("start", "settings get KEY", ...) to the running instance and prints what it
/// answers.
namespace controlClient {

/// Whether the first argument is one of its commands.
bool understands(const QStringList& arguments);
/// Returns the exit code: 0 done, 1 refused, 2 wrong usage, 3 no instance is running.
int run(const QStringList& arguments);
/// Calls a method of the running instance, and prints the error when it fails. Returns the exit code of `run`, with the
/// answer's text in `answer`.
int call(const QString& method, const QVariantList& arguments, QString* answer);
inline constexpr int notRunning = 3;
/// Hands a URL of the application's scheme to the running instance. Returns the exit code of `run`.
int openURL(const QString& url);
/// Asks the running instance to show itself; says nothing when there is none.
void activate();
/// Lines for "--help", one command each.
QString help();

} // namespace controlClient

} // namespace quillo
