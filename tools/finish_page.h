#pragma once

#include <QWizardPage>

/// The wizard's last page: restart or shut down the computer, at once and without asking.
class FinishPage : public QWizardPage {
    Q_OBJECT

public:
    explicit FinishPage(QWidget* parent);

protected:
    void showEvent(QShowEvent* event) override;

private slots:
    void restartComputer();
    void shutdownComputer();
};
