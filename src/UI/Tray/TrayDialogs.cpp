#include "UI/Tray/TrayDialogs.h"

#include "Core/LoggingService.h"
#include "Core/Preferences.h"
#include "UI/Foundation/Texts.h"

#include <QDesktopServices>
#include <QDialog>
#include <QDialogButtonBox>
#include <QFontDatabase>
#include <QGuiApplication>
#include <QIcon>
#include <QMessageBox>
#include <QPlainTextEdit>
#include <QPushButton>
#include <QUrl>
#include <QVBoxLayout>

namespace quillo::trayDialogs {

void showSteps(const QString& title, const QString& steps) {
    auto* dialog = new QDialog;
    dialog->setAttribute(Qt::WA_DeleteOnClose);
    dialog->setWindowTitle(title);
    auto* text = new QPlainTextEdit(steps);
    text->setReadOnly(true);
    text->setLineWrapMode(QPlainTextEdit::NoWrap);
    text->setFont(QFontDatabase::systemFont(QFontDatabase::FixedFont));
    auto* buttons = new QDialogButtonBox(QDialogButtonBox::Close);
    buttons->button(QDialogButtonBox::Close)->setText(Texts::lookUp(QStringLiteral("account.close")));
    QObject::connect(buttons, &QDialogButtonBox::rejected, dialog, &QDialog::close);
    auto* layout = new QVBoxLayout(dialog);
    layout->addWidget(text);
    layout->addWidget(buttons);
    dialog->resize(840, 520);
    dialog->show();
}

void showAbout() {
    auto* box = new QMessageBox(QMessageBox::NoIcon, QStringLiteral("Quillo"),
                                QStringLiteral("Quillo %1").arg(QStringLiteral(QUILLO_VERSION)), QMessageBox::Close);
    box->setAttribute(Qt::WA_DeleteOnClose);
    box->button(QMessageBox::Close)->setText(Texts::lookUp(QStringLiteral("account.close")));
    box->setIconPixmap(QGuiApplication::windowIcon().pixmap(64));
    box->show();
}

void openLog() { QDesktopServices::openUrl(QUrl::fromLocalFile(LoggingService::shared().path())); }

void openSettings() { QDesktopServices::openUrl(QUrl::fromLocalFile(Preferences::shared().path())); }

} // namespace quillo::trayDialogs
