// The least that a program of this kind can be: a full-screen window with a label.
#include <QApplication>
#include <QLabel>
#include <QMainWindow>
#include <QScreen>

int main(int argc, char** argv)
{
    const QApplication application(argc, argv);
    QMainWindow window(nullptr, Qt::FramelessWindowHint);
    window.setCentralWidget(new QLabel("Complete."));
    window.setGeometry(QGuiApplication::primaryScreen()->geometry());
    window.showMaximized();
    return QApplication::exec();
}
