#include <QtWidgets>

/// Writes what the automatic screen shows to a file, one line of JSON at each look, so that a
/// gap between two lines is one of the event loop. Obeys the word that the link PATH.do points
/// to: the name of an action of the menu, or "answer", which presses OK in the message box.
class ScreenReader : public QGenericPlugin {
    Q_OBJECT
    Q_PLUGIN_METADATA(IID QGenericPluginFactoryInterface_iid FILE "screen_reader.json")

public:
    QObject* create(const QString&, const QString& path) override
    {
        file_.setFileName(path);
        startTimer(file_.open(QIODevice::WriteOnly) ? kLookMs : 0);
        return new QObject; // nothing would be a failure
    }

private:
    void timerEvent(QTimerEvent*) override
    {
        const QString link = file_.fileName() + ".do";
        const QString order = QFileInfo(QFile::symLinkTarget(link)).fileName();
        QFile::remove(link);
        QJsonObject screen{{"ms", QDateTime::currentMSecsSinceEpoch()}};
        QJsonObject rows;
        QJsonArray boxes;
        for (QWidget* widget : QApplication::allWidgets()) {
            if (const auto* box = qobject_cast<QMessageBox*>(widget)) {
                boxes.append(box->text());
                if (order == "answer" && box == QApplication::activeModalWidget()) {
                    box->defaultButton()->click();
                }
            } else if (auto* action = widget->findChild<QAction*>(order); action && order != "") {
                action->trigger();
            } else if (widget->objectName() == "informationLabel") {
                screen["information"] = widget->property("text").toString();
            } else if (const auto* tree = qobject_cast<QTreeWidget*>(widget)) {
                for (int i = 0; i < tree->topLevelItemCount(); ++i) {
                    QTreeWidgetItem* row = tree->topLevelItem(i);
                    rows[row->text(0)] = tree->itemWidget(row, 1)->property("text").toString();
                }
            }
        }
        screen["rows"] = rows;
        screen["boxes"] = boxes;
        file_.write(QJsonDocument(screen).toJson(QJsonDocument::Compact) + '\n');
        file_.flush();
    }

    static constexpr int kLookMs = 100;
    QFile file_;
};

#include "screen_reader.moc"
