#pragma once

#include "CampaignSession.h"
#include "Situation.h"
#include "Support/PhysicalKeyboard.h"

#include <QStringList>

namespace quillo::test {

/// The desktop around the application: the field that has had the focus since before the application started, the
/// clipboard, the keyboards, and the other programs. It checks what a dictation leaves there.
class Surroundings {
public:
    /// Opens the text field.
    explicit Surroundings(CampaignSession& session);

    /// Makes the situation of the next run.
    void begin(const Situation& situation);
    void pressHoldKey();
    /// The headset delivers from now on.
    void wakeHeadset();
    void releaseHoldKey();
    /// Ends what `begin` began.
    void end();

    /// What is wrong with the text in the field, the clipboard and the keyboard after a dictation whose report is
    /// `lastRun`; with `interrupted` the application did not live to its end.
    [[nodiscard]] QStringList check(const QJsonObject& lastRun, bool interrupted);
    /// What is wrong with an error that is shown: whether it is a text of the catalogue in the desktop's language.
    [[nodiscard]] QStringList checkMessage(const QJsonObject& status) const;

private:
    QString arrived();
    QString clipboard();
    [[nodiscard]] QString fieldText() const { return m_session.desktop.fieldReport().text; }

    CampaignSession& m_session;
    PhysicalKeyboard m_keyboard;
    Situation m_situation;
    QString m_before;  ///< the field's text before the run
    QString m_copied;  ///< the clipboard's
    QString m_headset; ///< the number of its module
    int m_run = 0;
    QProcess* m_manager = nullptr;
    std::vector<QProcess*> m_load;
};

} // namespace quillo::test
