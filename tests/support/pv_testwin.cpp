// A window for tests: one known fill colour inside a 20 px border of a
// second colour, so that a picture of it can be checked pixel by pixel.
//   pv-testwin [--title T] [--app-id ID] [--color #rrggbb] [--border #rrggbb] [--size WxH]
// Runs on whatever platform Qt is given (QT_QPA_PLATFORM=wayland or xcb).
#include <QCommandLineParser>
#include <QGuiApplication>
#include <QPainter>
#include <QRasterWindow>

class ColourWindow : public QRasterWindow {
public:
    ColourWindow(QColor fill, QColor border) : fill_(fill), border_(border) {}

protected:
    void paintEvent(QPaintEvent*) override {
        QPainter p(this);
        const QRect r(QPoint(0, 0), size());
        p.fillRect(r, border_);
        p.fillRect(r.adjusted(20, 20, -20, -20), fill_);
    }

private:
    QColor fill_, border_;
};

int main(int argc, char** argv) {
    QGuiApplication app(argc, argv);
    QCommandLineParser parser;
    QCommandLineOption title("title", "window title", "T", "pv test window");
    QCommandLineOption appId("app-id", "desktop file name, the Wayland app id", "ID", "pv-testwin");
    QCommandLineOption color("color", "fill colour", "#rrggbb", "#ff0000");
    QCommandLineOption border("border", "border colour", "#rrggbb", "#0000ff");
    QCommandLineOption size("size", "client size", "WxH", "300x200");
    parser.addOptions({title, appId, color, border, size});
    parser.process(app);
    QGuiApplication::setDesktopFileName(parser.value(appId));

    const QStringList wh = parser.value(size).split('x');
    ColourWindow w(QColor(parser.value(color)), QColor(parser.value(border)));
    w.setTitle(parser.value(title));
    w.resize(wh.value(0).toInt(), wh.value(1).toInt());
    w.show();
    return app.exec();
}
