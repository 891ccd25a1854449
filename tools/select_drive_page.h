#pragma once

#include "storage/drive.h"

#include <QWizardPage>

#include <vector>

class QListWidget;
class QPushButton;

/// The wizard's list of drives. The selection is taken when the page is left forwards.
class SelectDrivePage : public QWizardPage {
    Q_OBJECT

public:
    explicit SelectDrivePage(QWidget* parent);

    void initializePage() override;
    [[nodiscard]] bool isComplete() const override;
    bool validatePage() override;

protected:
    void showEvent(QShowEvent* event) override;

private slots:
    void refresh();
    void view();

private:
    [[nodiscard]] const Drive* currentDrive() const;

    std::vector<Drive> drives_; ///< Row i of the list shows element i.
    QListWidget* list_;
    QPushButton* viewButton_;
};
