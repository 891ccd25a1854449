#include "app/base/debug_log.h"

#include <QTemporaryFile>
#include <QTest>
#include <QThread>

#include <unistd.h>

namespace {

void log_lines()
{
    dbg_ostream("Tag", 12) << ": " << QString("n: ") << 34 << " caf\xe9 "
                           << std::string("cut\0off", 7) << Qt::endl;
    qWarning("w");
    qInfo("i"); // a kind without a name
}

const QString kLines = QString::fromLatin1("Tag(12): n: 34 caf\xe9 cut\n[Warning] w\n[] i\n");

} // namespace

class DebugLogTest : public QObject {
    Q_OBJECT

private slots:
    void goesWhereItIsSent()
    {
        QCOMPARE(dbg_type(), "stderr"); // before anybody chooses
        dbg_init("string", 1);
        log_lines();
        QCOMPARE(dbg_string(), kLines);
        QTemporaryFile file;
        QVERIFY(file.open() && file.write(QByteArray(1000, 'x')) > 0 && file.flush());
        dbg_init(qPrintable(file.fileName()), 1);
        log_lines();
        QVERIFY(file.seek(0));
        QCOMPARE(QString::fromUtf8(file.readAll()), kLines);
        QTemporaryFile errors; // in the place of the standard error stream
        QVERIFY(errors.open() && ::dup2(errors.handle(), STDERR_FILENO) >= 0);
        for (const char* path : {"/nonexistent/log", ""}) { // the log is lost then
            dbg_init(path, 1);
            log_lines();
            QCOMPARE(dbg_type(), "stderr");
        }
        QCOMPARE(errors.size(), 0);
    }

    void takesMessagesOfOtherThreadsOneByOne()
    {
        dbg_init("string", 1);
        const qsizetype start = dbg_string().size();
        constexpr int kLines = 2000;
        const std::unique_ptr<QThread> other(QThread::create([] {
            for (int i = 0; i < kLines; ++i) {
                qWarning("theirs");
            }
        }));
        other->start();
        for (int i = 0; i < kLines; ++i) {
            dbg_ostream("Tag", 1) << ": "
                                  << "ours" << Qt::endl;
        }
        other->wait();
        QCoreApplication::processEvents();
        QStringList lines = dbg_string().mid(start).split('\n', Qt::SkipEmptyParts);
        QCOMPARE(lines.removeAll("Tag(1): ours"), kLines);
        QCOMPARE(lines.removeAll("[Warning] theirs"), kLines);
        QCOMPARE(lines, QStringList());
    }
};

QTEST_GUILESS_MAIN(DebugLogTest)
#include "debug_log_test.moc"
