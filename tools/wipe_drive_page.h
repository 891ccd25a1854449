#pragma once

#include <QWizardPage>

class WipeWidget;

/// The wizard's frame around the sector wipe.
class WipeDrivePage : public QWizardPage {
    Q_OBJECT

public:
    explicit WipeDrivePage(QWidget* parent);

    void initializePage() override;

private:
    WipeWidget* wipeWidget_;
};
