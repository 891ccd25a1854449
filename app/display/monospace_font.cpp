#include "app/display/monospace_font.h"

#include <QFontDatabase>
#include <QStringList>

QFont ui_get_monospace_font()
{
    // See "The first font called mono" in docs/odd-on-purpose.md.
    const QStringList families = QFontDatabase::families();
    for (const QString& family : families) {
        if (family.contains(QLatin1String("mono"), Qt::CaseInsensitive)) {
            return QFont(family);
        }
    }
    return QFont(QStringLiteral("monospace"));
}
