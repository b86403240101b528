#include "ui/MonospacedFont.h"

#include <QFontDatabase>

namespace qelmo {

QFont monospacedFont(int sizePixels, QFont::Weight weight) {
    QFont font = QFontDatabase::systemFont(QFontDatabase::FixedFont);
    font.setPixelSize(sizePixels);
    font.setWeight(weight);
    return font;
}

}  // namespace qelmo
