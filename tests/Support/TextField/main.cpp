/// A small editor that reports every change of its text, for tests and demonstrations.

#include <QAccessibleWidget>
#include <QApplication>
#include <QCommandLineParser>
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
            {u"monotonic_ms"_qs, std::chrono::duration<double, std::milli>(now).count()},
            {u"text"_qs, text},
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
    QApplication::setApplicationName(u"quillo-text-field"_qs);
    QCommandLineParser parser;
    parser.setApplicationDescription(u"A text field that reports what it receives."_qs);
    parser.addHelpOption();
    const QCommandLineOption report(u"report"_qs, u"Append each change to <file>."_qs, u"file"_qs);
    const QCommandLineOption password(u"password"_qs, u"Show a password field."_qs);
    const QCommandLineOption line(u"line"_qs, u"Show a field of one line."_qs);
    const QCommandLineOption noField(u"no-field"_qs, u"Show only a button."_qs);
    const QCommandLineOption terminal(u"terminal"_qs, u"Show an editor that says it is a terminal."_qs);
    const QCommandLineOption title(u"title"_qs, u"Title of the window."_qs, u"text"_qs, u"Notes"_qs);
    parser.addOptions({report, password, line, noField, terminal, title});
    parser.process(application);

    if (parser.isSet(terminal))
        QAccessible::installFactory([](const QString& kind, QObject* object) -> QAccessibleInterface* {
            auto* const editor = qobject_cast<QPlainTextEdit*>(object);
            return editor && kind == u"QPlainTextEdit"_qs ? new QAccessibleWidget(editor, QAccessible::Terminal)
                                                          : nullptr;
        });
    Report changes(parser.value(report));
    // The first line reports that the window has the focus: text typed from then on arrives.
    QObject::connect(&application, &QGuiApplication::focusWindowChanged, &application,
                     [&, said = false](QWindow* focused) mutable {
                         if (focused != nullptr && !std::exchange(said, true))
                             changes.write(QString());
                     });
    QWidget window;
    window.setWindowTitle(parser.value(title));
    window.setStyleSheet(
        u"QWidget { background: #ffffff; color: #1f2328; font-family: 'Inter', 'Noto Sans', 'DejaVu Sans'; }"
        "QLabel#heading { font-size: 26px; font-weight: 600; }"
        "QLabel#date { font-size: 14px; color: #8b949e; }"
        "QFrame#rule { background: #e6e8eb; }"
        "QPlainTextEdit { border: none; font-size: 22px; selection-background-color: #cfe3ff; selection-color: "
        "#1f2328; }"
        "QLineEdit { border: 1px solid #d0d7de; border-radius: 8px; padding: 10px 12px; font-size: 22px; }"
        "QLineEdit:focus { border-color: #3b82f6; }"
        "QPushButton { border: 1px solid #d0d7de; border-radius: 8px; padding: 10px 20px; font-size: 18px; }"
        "QPushButton:focus { border-color: #3b82f6; }"_qs);
    auto* const layout = new QVBoxLayout(&window);
    layout->setContentsMargins(36, 28, 36, 28);
    layout->setSpacing(6);
    auto* const heading = new QLabel(parser.value(title));
    heading->setObjectName(u"heading"_qs);
    auto* const date = new QLabel(QLocale(QLocale::English).toString(QDate::currentDate(), u"dddd, d MMMM yyyy"_qs));
    date->setObjectName(u"date"_qs);
    auto* const rule = new QFrame;
    rule->setObjectName(u"rule"_qs);
    rule->setFixedHeight(1);
    layout->addWidget(heading);
    layout->addWidget(date);
    layout->addSpacing(10);
    layout->addWidget(rule);
    layout->addSpacing(10);

    if (parser.isSet(noField)) {
        auto* const button = new QPushButton(u"Continue"_qs);
        layout->addWidget(button, 0, Qt::AlignLeft);
        layout->addStretch();
        button->setFocus();
    } else if (parser.isSet(password) || parser.isSet(line)) {
        auto* const field = new QLineEdit;
        field->setPlaceholderText(parser.isSet(password) ? u"Password"_qs : u"Search"_qs);
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
