#pragma once

#include <QString>
#include <QVariantList>

namespace quillo {

/// Calls the running instance over the session bus. Each call blocks until the answer, at most 5 s, and prints errors
/// for the user. Needs a QCoreApplication.
namespace controlClient {

/// The exit code when no instance is running.
inline constexpr int notRunning = 3;
/// Calls a method of `control::interfaceName`. Returns the exit code: 0 done, with the answer's text in `answer`, 1
/// refused, `notRunning`.
int call(const QString& method, const QVariantList& arguments, QString* answer);
/// Passes a URL of the application's scheme to the running instance. Returns the exit code of `call`.
int openURL(const QString& url);
/// Asks the running instance to show itself; prints nothing when there is none.
void activate();

} // namespace controlClient

} // namespace quillo
