#include "app/window/command_line.h"

#include "app/base/program_config.h"

#include <QFileInfo>
#include <QTest>

class CommandLineTest : public QObject {
    Q_OBJECT

private slots:
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

    void takesTheLibraryBesideTheProgram()
    {
        for (const QString given : {"/a", ""}) {
            theProgramConfig().setLib(given.toStdString());
            settle_library_directory();
            const QString usual = QFileInfo("/proc/self/exe").canonicalPath() + "/lib";
            QCOMPARE(QString::fromStdString(theProgramConfig().lib()),
                     given.isEmpty() ? usual : given);
        }
    }
};

QTEST_GUILESS_MAIN(CommandLineTest)
#include "command_line_test.moc"
