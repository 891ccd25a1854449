#pragma once

#include <QWizard>

/// The guided manual tool: choose a drive, look at its sectors, overwrite some, format it.
class Wizard : public QWizard {
    Q_OBJECT

public:
    explicit Wizard(QWidget* parent);
};
