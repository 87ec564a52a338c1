/// A small editor that reports every change of its text, for tests and demonstrations.

#include <QApplication>
#include <QCommandLineParser>
#include <QDateTime>
#include <QFile>
#include <QJsonDocument>
#include <QJsonObject>
#include <QLabel>
#include <QLineEdit>
#include <QLocale>
#include <QPlainTextEdit>
#include <QPushButton>
#include <QVBoxLayout>
#include <QWindow>

#include <chrono>
#include <utility>

namespace {

/// Appends a line of JSON for each change; `monotonic_ms` is of the clock that std::chrono::steady_clock reads.
class Report {
public:
    explicit Report(const QString& path) : m_file(path) {
        if (!path.isEmpty() && !m_file.open(QIODevice::WriteOnly | QIODevice::Append))
            qFatal("cannot write the report to %s", qPrintable(path));
    }

    void write(const QString& text) {
        if (!m_file.isOpen())
            return;
        const auto now = std::chrono::steady_clock::now().time_since_epoch();
        const QJsonObject line{
            {QStringLiteral("monotonic_ms"), std::chrono::duration<double, std::milli>(now).count()},
            {QStringLiteral("wall_time"), QDateTime::currentDateTimeUtc().toString(Qt::ISODateWithMs)},
            {QStringLiteral("text"), text},
        };
        m_file.write(QJsonDocument(line).toJson(QJsonDocument::Compact) + '\n');
        m_file.flush();
    }

private:
    QFile m_file;
};

} // namespace

int main(int argc, char** argv) {
    QApplication application(argc, argv);
    QApplication::setApplicationName(QStringLiteral("quillo-text-field"));
    QCommandLineParser parser;
    parser.setApplicationDescription(QStringLiteral("A text field that reports what it receives."));
    parser.addHelpOption();
    const QCommandLineOption report(QStringLiteral("report"), QStringLiteral("Append each change to <file>."),
                                    QStringLiteral("file"));
    const QCommandLineOption password(QStringLiteral("password"), QStringLiteral("Show a password field."));
    const QCommandLineOption line(QStringLiteral("line"), QStringLiteral("Show a field of one line."));
    const QCommandLineOption noField(QStringLiteral("no-field"), QStringLiteral("Show only a button."));
    const QCommandLineOption title(QStringLiteral("title"), QStringLiteral("Title of the window."),
                                   QStringLiteral("text"), QStringLiteral("Notes"));
    parser.addOptions({report, password, line, noField, title});
    parser.process(application);

    Report changes(parser.value(report));
    // The first line reports that the window has the focus: text typed from then on arrives.
    QObject::connect(&application, &QGuiApplication::focusWindowChanged, &application,
                     [&, said = false](QWindow* focused) mutable {
                         if (focused != nullptr && !std::exchange(said, true))
                             changes.write(QString());
                     });
    QWidget window;
    window.setWindowTitle(parser.value(title));
    window.setStyleSheet(QStringLiteral(
        "QWidget { background: #ffffff; color: #1f2328; font-family: 'Inter', 'Noto Sans', 'DejaVu Sans'; }"
        "QLabel#heading { font-size: 26px; font-weight: 600; }"
        "QLabel#date { font-size: 14px; color: #8b949e; }"
        "QFrame#rule { background: #e6e8eb; }"
        "QPlainTextEdit { border: none; font-size: 22px; selection-background-color: #cfe3ff; selection-color: "
        "#1f2328; }"
        "QLineEdit { border: 1px solid #d0d7de; border-radius: 8px; padding: 10px 12px; font-size: 22px; }"
        "QLineEdit:focus { border-color: #3b82f6; }"
        "QPushButton { border: 1px solid #d0d7de; border-radius: 8px; padding: 10px 20px; font-size: 18px; }"
        "QPushButton:focus { border-color: #3b82f6; }"));
    auto* const layout = new QVBoxLayout(&window);
    layout->setContentsMargins(36, 28, 36, 28);
    layout->setSpacing(6);
    auto* const heading = new QLabel(parser.value(title));
    heading->setObjectName(QStringLiteral("heading"));
    auto* const date =
        new QLabel(QLocale(QLocale::English).toString(QDate::currentDate(), QStringLiteral("dddd, d MMMM yyyy")));
    date->setObjectName(QStringLiteral("date"));
    auto* const rule = new QFrame;
    rule->setObjectName(QStringLiteral("rule"));
    rule->setFixedHeight(1);
    layout->addWidget(heading);
    layout->addWidget(date);
    layout->addSpacing(10);
    layout->addWidget(rule);
    layout->addSpacing(10);

    if (parser.isSet(noField)) {
        auto* const button = new QPushButton(QStringLiteral("Continue"));
        layout->addWidget(button, 0, Qt::AlignLeft);
        layout->addStretch();
        button->setFocus();
    } else if (parser.isSet(password) || parser.isSet(line)) {
        auto* const field = new QLineEdit;
        field->setPlaceholderText(parser.isSet(password) ? QStringLiteral("Password") : QStringLiteral("Search"));
        if (parser.isSet(password))
            field->setEchoMode(QLineEdit::Password);
        QObject::connect(field, &QLineEdit::textChanged, field, [&](const QString& text) { changes.write(text); });
        layout->addWidget(field);
        layout->addStretch();
        field->setFocus();
    } else {
        auto* const editor = new QPlainTextEdit;
        editor->setCursorWidth(2);
        editor->document()->setDocumentMargin(0);
        editor->setHorizontalScrollBarPolicy(Qt::ScrollBarAlwaysOff);
        QObject::connect(editor, &QPlainTextEdit::textChanged, editor,
                         [&, editor] { changes.write(editor->toPlainText()); });
        layout->addWidget(editor);
        editor->setFocus();
    }
    window.resize(760, 460);
    window.show();
    return QApplication::exec();
}
