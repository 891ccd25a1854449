#include "erase/post_wipe.h"

#include "app/base/program_config.h"
#include "app/display/display_helpers.h"
#include "app/display/image_file.h"
#include "ui_post_wipe.h"

#include <QImage>
#include <QTemporaryFile>

namespace {

// The path of a new, empty, uniquely named file; null when it cannot be made.
QString create_empty_file()
{
    QTemporaryFile file(QString::fromStdString(theProgramConfig().lib()) +
                        QLatin1String("/XXXXXX.png"));
    if (!file.open()) {
        return {};
    }
    file.setAutoRemove(false);
    return file.fileName();
}

QString erased_sentence(bool partial)
{
    const QString product =
        QString::fromLatin1(theProgramConfig().nameHtml()) + QLatin1String("<sup>TM</sup>");
    return (partial ? QObject::tr("This drive was partially erased with %1")
                    : QObject::tr("This drive was erased with %1"))
        .arg(product);
}

QString invitation()
{
    return QObject::tr("For more information visit "
                       "<font color='blue'>https://vantrelle.example/%1</font>")
        .arg(QString::fromLatin1(theProgramConfig().name()).toLower());
}

QString message_html(const Drive& drive, bool partial)
{
    // The drive's model is shown as it is, whatever markup it may hold.
    return QLatin1String("<html>") + drive_string_short(drive).toHtmlEscaped() +
           QLatin1String("<p>") + erased_sentence(partial) + QLatin1String("<p>") + invitation() +
           QLatin1String("</html>");
}

QImage render(const QString& html)
{
    PostWipe postWipe(html, nullptr);
    // One image pixel is one widget pixel, whatever the screen's scale.
    QImage image(postWipe.size(), QImage::Format_ARGB32);
    postWipe.render(&image);
    return image;
}

void report(QString* error, const QString& message)
{
    if (error != nullptr) {
        *error = message;
    }
}

} // namespace

PostWipe::PostWipe(const QString& html, QWidget* parent)
    : QWidget(parent), ui(std::make_unique<Ui_PostWipe>())
{
    ui->setupUi(this);
    ui->label->setText(html);
}

PostWipe::~PostWipe() = default;

QString create_postwipe_image_file(const Drive& drive, bool partial, QString* error)
{
    QString path = create_empty_file();
    if (path.isNull()) {
        report(error, QObject::tr("Cannot create image file"));
        return {};
    }
    if (!save_image_file(render(message_html(drive, partial)), path, QStringLiteral("PNG"))) {
        report(error, QObject::tr("Cannot save image file"));
        return {}; // See "Pictures that stay" in docs/odd-on-purpose.md.
    }
    return path;
}
