#include "tests/support/appliance.h"

#include "app/base/program_config.h"
#include "tests/support/script_and_log.h"

#include <QApplication>

namespace {

QString described(const QMessageBox& box)
{
    const bool isQuestion =
        box.icon() == QMessageBox::Question && box.defaultButton() == box.button(QMessageBox::No);
    const bool isFailure = box.icon() == QMessageBox::Critical && box.textFormat() == Qt::PlainText;
    const QString kind = isQuestion ? "question" : isFailure ? "failure" : "unexpected";
    return box.parent()->objectName() + ' ' + kind + ": " + box.text();
}

} // namespace

Appliance::Appliance(const QList<FakeDevice>& devices)
    : service(qEnvironmentVariable("DBUS_SYSTEM_BUS_ADDRESS"))
{
    service.setDevices(devices);
    theProgramConfig().setLib(library.path().toStdString());
    setHelper("driver", "echo 'progress: 100'");
    setHelper("format", "");
    answer = [](const QString& box) {
        return box.contains(" question: ") ? QMessageBox::Yes : QMessageBox::Ok;
    };
    QObject::connect(&boxTimer_, &QTimer::timeout, [this] { answerBox(); });
    boxTimer_.start(5);
    boxWatcher_.appliance = this;
    qApp->installEventFilter(&boxWatcher_);
    qApp->installEventFilter(&windowMinder_);
}

void Appliance::openAndErase(bool emulate)
{
    open();
    auto* emulation = find<QAction>("actionEmulateErasing");
    clickStop(); // ends the discovery
    while (information().startsWith("red: ")) {
        emulation->setChecked(emulate); // looked at when the countdown ends, and never again
        tick("countdownTimeout");
        emulation->setChecked(!emulate);
    }
}

void Appliance::eraseWith(const QByteArray& driver)
{
    setHelper("driver", driver);
    openAndErase();
}

QString Appliance::information() const
{
    const auto* label = find<QLabel>("informationLabel");
    const bool isStop = !find<QPushButton>("stopButton")->isHidden();
    const bool isRestart = !find<QPushButton>("restartInitializationButton")->isHidden();
    return label->styleSheet().remove("QLabel { color : ").replace("; }", ": ") + label->text() +
           (isStop ? " [stop]" : "") + (isRestart ? " [restart]" : "");
}

QProgressBar* Appliance::bar(int row) const
{
    const auto* tree = find<QTreeWidget>("drivesTreeWidget");
    return qobject_cast<QProgressBar*>(tree->itemWidget(tree->topLevelItem(row), 1));
}

QString Appliance::statuses() const
{
    QStringList all;
    for (int row = 0; row < find<QTreeWidget>("drivesTreeWidget")->topLevelItemCount(); ++row) {
        all << bar(row)->format() + ' ' + QString::number(bar(row)->value());
    }
    return all.join(" | ");
}

void Appliance::setHelper(const QString& name, const QByteArray& shellText)
{
    static const char* const kScript = R"(here=%1
echo "%2 $*" >>$here/calls
echo $$ >>$here/pids
wait_for_go() { until test -e $here/go; do sleep 0.02; done; }
)";
    const QByteArray start = QString(kScript).arg(records_.path(), name).toLatin1();
    const QString path = write_script(library.filePath(name), start + shellText);
    if (shellText.isNull()) {
        QFile::remove(path);
    }
}

QStringList Appliance::calls() const
{
    QStringList lines = recorded("calls");
    const QString image = QRegularExpression::escape(library.path()) + "/[A-Za-z]{6}\\.png$";
    lines.replaceInStrings(QRegularExpression(image), "IMAGE").sort();
    return lines;
}

QImage Appliance::image(const QString& drive) const
{
    const QString call = "format /dev/" + drive + ' ';
    return QImage(recorded("calls").filter(call).value(0).mid(call.size()));
}

qsizetype Appliance::runningHelpers() const
{
    const QStringList pids = recorded("pids");
    return std::count_if(pids.cbegin(), pids.cend(),
                         [](const QString& pid) { return QFile::exists("/proc/" + pid); });
}

bool Appliance::BoxWatcher::eventFilter(QObject* watched, QEvent* event)
{
    if (event->type() == QEvent::Show && qobject_cast<QMessageBox*>(watched) != nullptr) {
        QMetaObject::invokeMethod(
            this, [this] { appliance->answerBox(); }, Qt::QueuedConnection);
    }
    return false;
}

void Appliance::answerBox()
{
    auto* box = qobject_cast<QMessageBox*>(QApplication::activeModalWidget());
    const auto button = box != nullptr ? answer(described(*box)) : QMessageBox::NoButton;
    if (button != QMessageBox::NoButton) {
        boxes << described(*box);
        box->button(button)->click();
    }
}

QStringList Appliance::recorded(const char* fileName) const
{
    QFile file(records_.filePath(fileName));
    const bool isOpen = file.open(QIODevice::ReadOnly); // not before the first helper runs
    return isOpen ? QString(file.readAll()).split('\n', Qt::SkipEmptyParts) : QStringList();
}
