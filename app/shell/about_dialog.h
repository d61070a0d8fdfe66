#pragma once
// The about dialog: our text, the version, and links to our web pages.

#include <QDialog>

class QLabel;

namespace pv {

class AppDelegate;

class AboutDialog : public QDialog {
    Q_OBJECT

public:
    explicit AboutDialog(AppDelegate& delegate, QWidget* parent = nullptr);

    void showTexts(const QString& about, const QString& version);
    QLabel* aboutField() const { return aboutField_; }
    QLabel* versionField() const { return versionField_; }

protected:
    // Escape ends the dialog as its Close button does.
    void reject() override;

private:
    AppDelegate& delegate_;
    QLabel* aboutField_;
    QLabel* versionField_;
};

}  // namespace pv
