#include "app/base/debug_log.h"
#include "app/base/program_config.h"
#include "app/window/command_line.h"

#include <QTemporaryFile>
#include <QTest>

namespace {

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
        dbg_init("string", 1);
        log_lines();
        QCOMPARE(dbg_string(), kLines);
        QTemporaryFile file;
        QVERIFY(file.open() && file.write(QByteArray(1000, 'x')) > 0 && file.flush());
        dbg_init(qPrintable(file.fileName()), 1);
        log_lines();
        QVERIFY(file.seek(0));
        QCOMPARE(QString::fromUtf8(file.readAll()), kLines);
        for (const char* path : {"/nonexistent/log", ""}) { // the log is lost then
            dbg_init(path, 1);
            log_lines();
            QCOMPARE(dbg_type(), "stderr");
        }
    }

    void readsTheCommandLine()
    {
        for (const auto& [line, expected] : std::initializer_list<std::pair<QByteArray, QString>>{
                 {"lib=/opt/wipe", "pt/wipe string 0"}, // two more characters are skipped
                 {"desktop lib=a", " string 1"},        // not read past its end
                 // The last of a kind counts, and anything else not at all.
                 {"lib=ab1 x dbg=/a Desktop lib=ab2 desktop=1 dbg=/b desk", "2 /b 0"}}) {
            const QByteArrayList arguments = line.split(' ');
            std::vector<const char*> argv{"desktop"}; // a program's own name says nothing
            for (const QByteArray& argument : arguments) {
                argv.push_back(argument.constData());
            }
            const auto options = read_command_line(static_cast<int>(argv.size()), argv.data());
            const std::string read = theProgramConfig().lib() + ' ' + options.debugType + ' ';
            QCOMPARE(QString::fromStdString(read) + QString::number(options.desktop), expected);
        }
    }
};

QTEST_GUILESS_MAIN(DebugLogTest)
#include "debug_log_test.moc"
