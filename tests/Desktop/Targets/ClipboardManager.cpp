/// A clipboard manager as rude as real ones: it reads every new content at once, late, and again, and ignores the hint
/// not to. Each text that it got is a line of its output.

#include <QClipboard>
#include <QGuiApplication>
#include <QTextStream>
#include <QTimer>

int main(int argc, char** argv) {
    QGuiApplication application(argc, argv);
    const auto read = [] {
        auto text = QGuiApplication::clipboard()->text();
        QTextStream(stdout) << text.replace(QLatin1Char('\n'), QLatin1Char(' ')) << '\n' << Qt::flush;
    };
    QObject::connect(QGuiApplication::clipboard(), &QClipboard::dataChanged, &application, [&application, read] {
        read();
        for (const int late : {60, 150, 400, 1200})
            QTimer::singleShot(late, &application, read);
    });
    QTimer::singleShot(0, &application, [] { QTextStream(stdout) << "ready\n" << Qt::flush; });
    return QGuiApplication::exec();
}
