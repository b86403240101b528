#include "ui/ApplicationIcon.h"

#include <QApplication>
#include <QFile>
#include <QIcon>
#include <QImageReader>
#include <QPixmap>

namespace qelmo {

namespace {

/// No window manager is given a larger picture. Those that are left out take twenty times as long to decode
/// as the others together, and the window waits for them.
constexpr int largestPictureWidth = 256;

QIcon iconOfFile(const QString& path) {
    QIcon icon;
    QImageReader reader(path);
    for (int index = 0; index < reader.imageCount() && reader.jumpToImage(index); ++index) {
        const QImage picture = reader.read();
        if (!picture.isNull()) icon.addPixmap(QPixmap::fromImage(picture));
        if (picture.width() >= largestPictureWidth) break;
    }
    return icon;
}

}  // namespace

void setFallbackApplicationIcon() {
    QApplication::setWindowIcon(QIcon(QStringLiteral(":/qelmo/FallbackIcon.png")));
}

void setApplicationIcon(const std::string& path) {
    const QIcon icon = iconOfFile(QFile::decodeName(path.c_str()));
    if (!icon.isNull()) QApplication::setWindowIcon(icon);
}

}  // namespace qelmo
