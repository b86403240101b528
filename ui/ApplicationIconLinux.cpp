#include "ui/ApplicationIcon.h"

#include <QApplication>
#include <QFile>
#include <QIcon>
#include <QImageReader>
#include <QPixmap>

namespace qelmo {

namespace {

/// What a window manager shows is no larger. The file's first pictures, up to this size, need no decoder but
/// the file's own; to read one of the others takes longer than the rest of the start.
constexpr int largestPictureWidth = 128;

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

void setApplicationIcon(const std::optional<std::string>& path) {
    QIcon icon;
    if (path) icon = iconOfFile(QFile::decodeName(path->c_str()));
    if (icon.isNull()) icon = QIcon(QStringLiteral(":/qelmo/FallbackIcon.png"));
    QApplication::setWindowIcon(icon);
    // Under Wayland windows have no icon of their own: a desktop shows that of the entry with this name.
    QApplication::setDesktopFileName(QStringLiteral("io.qelmo.varnox-flasher"));
}

bool hasApplicationIcon() {
    return !QApplication::windowIcon().isNull();
}

}  // namespace qelmo
