#include "app/program_config.h"
#include "erase/postwipe_image.h"

#include <QFileInfo>
#include <QImage>
#include <QRegularExpression>
#include <QTemporaryDir>
#include <QTest>

#include <csignal>
#include <sys/resource.h>

namespace {

QString create_picture(const char* model, bool partial, QString* error)
{
    Drive drive;
    drive.setModel(model);
    return create_postwipe_image_file(drive, partial, error);
}

void limit_file_size(rlim_t bytes)
{
    const rlimit limit{bytes, RLIM_INFINITY};
    setrlimit(RLIMIT_FSIZE, &limit);
}

} // namespace

class PostwipeImageTest : public QObject {
    Q_OBJECT

private slots:
    void init() { theProgramConfig().setLib(lib_.path().toStdString()); }

    void paintsEachDriveItsOwnPicture()
    {
        QList<QImage> pictures;
        for (const auto& [model, partial] :
             {std::pair{"M", false}, {"M", true}, {"<i></i>M", false}}) {
            const QString path = create_picture(model, partial, nullptr);
            QVERIFY(
                QRegularExpression("^" + lib_.path() + "/\\w{6}\\.png$").match(path).hasMatch());
            const QImage picture(path, "PNG");
            QCOMPARE(picture.size(), QSize(800, 600));
            QCOMPARE(picture.format(), QImage::Format_ARGB32);
            QVERIFY(!pictures.contains(picture));
            pictures << picture;
        }
    }

    void failsWithoutALibraryDirectory()
    {
        theProgramConfig().setLib("/dev/null");
        QString error;
        QVERIFY(create_picture("M", false, &error).isNull());
        QCOMPARE(error, "Cannot create image file");
        QVERIFY(create_picture("M", true, nullptr).isNull());
    }

    void failsWhenThePictureDoesNotFit()
    {
        const auto size = QFileInfo(create_picture("M", false, nullptr)).size();
        std::signal(SIGXFSZ, SIG_IGN);
        for (const auto room : {qint64{0}, size - 1}) {
            QString error;
            limit_file_size(static_cast<rlim_t>(room));
            const QString path = create_picture("M", false, &error);
            limit_file_size(RLIM_INFINITY);
            QVERIFY(path.isNull());
            QCOMPARE(error, "Cannot save image file");
        }
    }

private:
    const QTemporaryDir lib_;
};

QTEST_MAIN(PostwipeImageTest)
#include "postwipe_image_test.moc"
