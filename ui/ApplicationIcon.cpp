#include "ui/ApplicationIcon.h"

#include <QApplication>
#include <QFile>
#include <QIcon>

namespace qelmo {

void setFallbackApplicationIcon() {
    QApplication::setWindowIcon(QIcon(QStringLiteral(":/qelmo/FallbackIcon.png")));
}

void setApplicationIcon(const std::string& path) {
    const QIcon icon(QFile::decodeName(path.c_str()));
    // An icon of an unreadable file is not null; it only has no pictures.
    if (!icon.availableSizes().isEmpty()) QApplication::setWindowIcon(icon);
}

}  // namespace qelmo
