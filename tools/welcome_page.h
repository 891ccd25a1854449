#pragma once

#include <QWizardPage>

/// The wizard's first page: what it is for.
class WelcomePage : public QWizardPage {
    Q_OBJECT

public:
    explicit WelcomePage(QWidget* parent);
};
