#include "app/program_config.h"
#include "erase/postwipe_image.h"

#include <QFileInfo>
#include <QImage>
#include <QTemporaryDir>
#include <QTest>

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

private:
    const QTemporaryDir lib_;
    Drive drive_;
};

QTEST_MAIN(PostwipeImageTest)
#include "postwipe_image_test.moc"
