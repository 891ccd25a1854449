#pragma once

#include <QProcess>
#include <QWizardPage>

class QLabel;
class QProgressDialog;

/// The wizard's page that formats the chosen drive with its picture. It runs the helper
/// program `format` itself, under a busy dialog that can interrupt it.
class FormatPage : public QWizardPage {
    Q_OBJECT

public:
    explicit FormatPage(QWidget* parent);
    ~FormatPage() override;

    void initializePage() override;

private slots:
    void format();
    void processStandardOutput();
    void processStandardError();
    void processFinished(int exitCode, QProcess::ExitStatus exitStatus);
    void processClear();
    void processCancelled();

private:
    void startProcess(const QStringList& arguments);
    void runProgressDialog();

    QLabel* driveLabel_;
    QProcess* process_ = nullptr;
    QProgressDialog* progressDialog_ = nullptr;
    bool cancelled_ = false;
};
