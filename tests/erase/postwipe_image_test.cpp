#include "app/program_config.h"
#include "erase/postwipe_image.h"

#include <QFileInfo>
#include <QImage>
#include <QTemporaryDir>
#include <QTest>

#include <csignal>
#include <sys/resource.h>

class PostwipeImageTest : public QObject {
    Q_OBJECT

private slots:
    void init() { theProgramConfig().setLib(lib_.path().toStdString()); }

    void paintsEachDriveItsOwnPicture()
    {
        QList<QImage> pictures;
        for (const auto& [model, partial] :
             {std::pair{"M", false}, {"M", true}, {"<i></i>M", false}}) {
            drive_.setModel(model);
            const QString path = create_postwipe_image_file(drive_, partial, nullptr);
            QCOMPARE(QFileInfo(path).path(), lib_.path());
            const QImage picture(path, "PNG");
            QCOMPARE(picture.size(), QSize(800, 600));
            QVERIFY(!pictures.contains(picture));
            pictures << picture;
        }
    }

    void failsWithoutALibraryDirectory()
    {
        theProgramConfig().setLib("/dev/null");
        QString error;
        QVERIFY(create_postwipe_image_file(drive_, true, &error).isNull());
        QCOMPARE(error, "Cannot create image file");
    }

    void failsWhenThePicturesLastByteDoesNotFit()
    {
        const QFileInfo picture(create_postwipe_image_file(drive_, true, nullptr));
        std::signal(SIGXFSZ, SIG_IGN);
        QString error;
        rlimit limit{static_cast<rlim_t>(picture.size() - 1), RLIM_INFINITY};
        setrlimit(RLIMIT_FSIZE, &limit);
        const QString path = create_postwipe_image_file(drive_, true, &error);
        limit.rlim_cur = RLIM_INFINITY;
        setrlimit(RLIMIT_FSIZE, &limit);
        QVERIFY(path.isNull());
        QCOMPARE(error, "Cannot save image file");
    }

private:
    const QTemporaryDir lib_;
    Drive drive_;
};

QTEST_MAIN(PostwipeImageTest)
#include "postwipe_image_test.moc"
