// The reference for the start: a Qt application with one empty window of our window's size.

#include <QApplication>
#include <QWidget>

int main(int argumentCount, char** arguments) {
    const QApplication application(argumentCount, arguments);
    QWidget window;
    window.setFixedSize(720, 650);
    window.show();
    return QApplication::exec();
}
