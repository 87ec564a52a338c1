/// A program that copies a text, a page and a picture at once, says so with a line, and holds them until it is ended.

#include <QClipboard>
#include <QGuiApplication>
#include <QImage>
#include <QMimeData>
#include <QTextStream>
#include <QTimer>

int main(int argc, char** argv) {
    QGuiApplication application(argc, argv);
    auto* const data = new QMimeData; // the clipboard's from now on
    data->setText(u"mine, not yours: Grüße 日本"_qs);
    data->setHtml(u"<p><b>mine</b>, not yours</p>"_qs);
    // Large enough to go over in pieces.
    QImage picture(600, 400, QImage::Format_RGB32);
    for (int y = 0; y < picture.height(); ++y) {
        for (int x = 0; x < picture.width(); ++x)
            picture.setPixel(x, y, qRgb(x * 7 % 256, y * 13 % 256, x * y % 256));
    }
    data->setImageData(picture);
    QGuiApplication::clipboard()->setMimeData(data);
    QTimer::singleShot(0, &application, [] { QTextStream(stdout) << "copied\n" << Qt::flush; });
    return QGuiApplication::exec();
}
