#include "app/command_line.h"
#include "app/debug_log.h"
#include "app/program_config.h"

#include <QTemporaryFile>
#include <QTest>

#include <unistd.h>

namespace {

QString standard_error_of(void (*action)())
{
    QTemporaryFile file;
    if (!file.open())
        return "no temporary file";
    const int saved = dup(STDERR_FILENO);
    dup2(file.handle(), STDERR_FILENO);
    action();
    dup2(saved, STDERR_FILENO);
    close(saved);
    file.seek(0);
    return QString::fromUtf8(file.readAll());
}

void log_lines()
{
    dbg_ostream("Tag", 12) << ": " << QString("n: ") << 34 << " caf\xe9 "
                           << std::string("cut\0off", 7) << Qt::endl;
    qWarning("w");
}

const QString kLines = QString::fromLatin1("Tag(12): n: 34 caf\xe9 cut\n[Warning] w\n");

} // namespace

class DebugLogTest : public QObject {
    Q_OBJECT

private slots:
    void goesWhereItIsSent()
    {
        QCOMPARE(dbg_type(), "stderr");
        QVERIFY(standard_error_of([] { dbg_ostream() << "first" << Qt::endl; }) == "first\n");
        dbg_init("string", 1);
        QCOMPARE(standard_error_of(log_lines), "");
        QCOMPARE(dbg_string(), kLines);
        dbg_init_stderr(1);
        QCOMPARE(standard_error_of(log_lines), kLines);
        QCOMPARE(dbg_type(), "string");
        QTemporaryFile file;
        QVERIFY(file.open() && file.write(QByteArray(1000, 'x')) > 0 && file.flush());
        dbg_init(qPrintable(file.fileName()), 1);
        QCOMPARE(standard_error_of(log_lines), "");
        QVERIFY(file.seek(0));
        QCOMPARE(QString::fromUtf8(file.readAll()), kLines);
        QCOMPARE(dbg_type(), file.fileName());
    }

    void isLostSilentlyWhenTheFileDoesNotOpen()
    {
        const auto before = dbg_string().size();
        for (const char* path : {"/nonexistent/log", "/dev", ""}) {
            dbg_init(path, 1);
            QCOMPARE(standard_error_of(log_lines), "");
            QCOMPARE(dbg_type(), "stderr");
            QCOMPARE(dbg_string().size(), before);
        }
    }

    void readsTheCommandLine_data()
    {
        using List = QByteArrayList;
        QTest::addColumn<List>("arguments");
        QTest::addColumn<QString>("read");
        QTest::newRow("nothing") << List{} << " string 0";
        QTest::newRow("lib= skips two more characters") << List{"lib=ab/x"} << "/x string 0";
        QTest::newRow("lib= always skips them") << List{"lib=/opt/wipe"} << "pt/wipe string 0";
        QTest::newRow("a short lib= is not read past its end")
            << List{{"lib=\0\0hidden", 12}} << " string 0";
        QTest::newRow("the last of a kind counts")
            << List{"lib=ab1", "dbg=/a", "lib=ab2", "dbg=/b"} << "2 /b 0";
        QTest::newRow("kinds mix in any order") << List{"desktop", "x", "dbg=y"} << " y 1";
        QTest::newRow("desktop is taken only exactly")
            << List{"Desktop", "desktop=1", "desktops", "desk"} << " string 0";
    }

    void readsTheCommandLine()
    {
        QFETCH(QByteArrayList, arguments);
        std::vector<const char*> argv{"desktop"}; // a program's own name says nothing
        for (const QByteArray& argument : arguments)
            argv.push_back(argument.constData());
        theProgramConfig().setLib("");
        const auto options = read_command_line(static_cast<int>(argv.size()), argv.data());
        const std::string read = theProgramConfig().lib() + ' ' + options.debugType + ' ';
        QTEST(QString::fromStdString(read) + QString::number(options.desktop), "read");
    }
};

QTEST_GUILESS_MAIN(DebugLogTest)
#include "debug_log_test.moc"
