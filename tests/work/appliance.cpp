#include "tests/work/appliance.h"

#include "app/program_config.h"
#include "work/work_widget.h"

#include <QApplication>
#include <QFile>
#include <QRegularExpression>

#include <algorithm>

namespace {

QByteArray content(const QString& path)
{
    QFile file(path);
    return file.open(QIODevice::ReadOnly) ? file.readAll() : QByteArray();
}

QString described(const QMessageBox& box)
{
    const bool isQuestion = box.icon() == QMessageBox::Question &&
                            box.standardButtons() == (QMessageBox::Yes | QMessageBox::No) &&
                            box.defaultButton() == box.button(QMessageBox::No);
    const bool isFailure = box.icon() == QMessageBox::Critical &&
                           box.standardButtons() == QMessageBox::Ok &&
                           box.textFormat() == Qt::PlainText;
    const char* kind = isQuestion ? "question" : isFailure ? "failure" : "unexpected";
    return QStringLiteral("%1 %2: %3")
        .arg(box.parent()->objectName(), QLatin1String(kind), box.text());
}

// A process that was killed and not yet waited for does not run.
bool isRunning(const QString& pid)
{
    const QByteArray stat = content(QStringLiteral("/proc/%1/stat").arg(pid));
    return !stat.isEmpty() && !stat.contains(") Z ");
}

} // namespace

Appliance::Appliance(const QString& busAddress, const QList<FakeDevice>& devices)
    : service(busAddress)
{
    service.setDevices(devices);
    theProgramConfig().setLib(library.path().toStdString());
    setHelper("driver", "echo 'progress: 100'");
    setHelper("format", "");
    QObject::connect(&boxTimer_, &QTimer::timeout, [this] { answerBox(); });
    boxTimer_.start(5);
    qApp->installEventFilter(&windowFocus_);
}

void Appliance::open(bool desktop)
{
    window = std::make_unique<MainWindow>(nullptr, desktop);
    work = find<WorkWidget>("WorkWidget");
}

void Appliance::openAndErase(bool emulate)
{
    open();
    find<QAction>("actionEmulateErasing")->setChecked(emulate);
    find<QPushButton>("stopButton")->click(); // ends the discovery
    while (information().startsWith(QStringLiteral("red: ")))
        tick("countdownTimeout");
}

void Appliance::tick(const char* slot)
{
    QMetaObject::invokeMethod(work, slot);
}

QString Appliance::information() const
{
    const auto* label = find<QLabel>("informationLabel");
    static const QRegularExpression sheet(QStringLiteral("^QLabel \\{ color : (\\w+); \\}$"));
    return sheet.match(label->styleSheet()).captured(1) + QStringLiteral(": ") + label->text();
}

QString Appliance::offered() const
{
    const bool isStop = find<QPushButton>("stopButton")->isVisibleTo(work);
    const bool isRestart = find<QPushButton>("restartInitializationButton")->isVisibleTo(work);
    return (isStop ? QStringLiteral("stop") : QString()) +
           (isRestart ? QStringLiteral("restart") : QString());
}

QProgressBar* Appliance::bar(int row) const
{
    const auto* tree = find<QTreeWidget>("drivesTreeWidget");
    return qobject_cast<QProgressBar*>(tree->itemWidget(tree->topLevelItem(row), 1));
}

QString Appliance::status(int row) const
{
    return QStringLiteral("%1 %2").arg(bar(row)->format(), QString::number(bar(row)->value()));
}

void Appliance::setHelper(const char* name, const char* shellText)
{
    static const char* const kScript = "#!/bin/sh\n"
                                       "here=%1\n"
                                       "echo \"%2 $*\" >>$here/calls\n"
                                       "echo $$ >>$here/pids\n"
                                       "%3\n";
    QFile file(library.filePath(QLatin1String(name)));
    if (!file.open(QIODevice::WriteOnly))
        qFatal("no helper script");
    file.write(QString::fromLatin1(kScript)
                   .arg(records_.path(), QLatin1String(name), QLatin1String(shellText))
                   .toLatin1());
    file.setPermissions(QFile::ReadOwner | QFile::ExeOwner);
}

QStringList Appliance::calls() const
{
    const QRegularExpression image(QRegularExpression::escape(library.path()) +
                                   QStringLiteral("/[A-Za-z]{6}\\.png$"));
    QStringList lines = recorded("calls");
    lines.replaceInStrings(image, QStringLiteral("IMAGE")).sort();
    return lines;
}

QImage Appliance::image(const char* drive) const
{
    const QString call = QStringLiteral("format /dev/%1 ").arg(QLatin1String(drive));
    return QImage(recorded("calls").filter(call).value(0).mid(call.size()));
}

int Appliance::runningHelpers() const
{
    const QStringList pids = recorded("pids");
    return static_cast<int>(std::count_if(pids.cbegin(), pids.cend(), isRunning));
}

QString Appliance::here(const char* fileName) const
{
    return records_.filePath(QLatin1String(fileName));
}

void Appliance::touch(const char* fileName) const
{
    QFile file(here(fileName));
    if (!file.open(QIODevice::WriteOnly))
        qFatal("no sign to the helpers");
}

void Appliance::answerBox()
{
    auto* box = qobject_cast<QMessageBox*>(QApplication::activeModalWidget());
    if (box == nullptr)
        return;
    const QString text = described(*box);
    QMessageBox::StandardButton button =
        box->standardButtons() == QMessageBox::Ok ? QMessageBox::Ok : QMessageBox::Yes;
    if (answer)
        button = answer(text);
    // The answer itself may have let other boxes open and close.
    if (button == QMessageBox::NoButton || QApplication::activeModalWidget() != box)
        return;
    boxes << text;
    box->button(button)->click();
}

QStringList Appliance::recorded(const char* fileName) const
{
    return QString::fromLatin1(content(here(fileName))).split(u'\n', Qt::SkipEmptyParts);
}
