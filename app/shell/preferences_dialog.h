#pragma once
// The preferences: output folder, shadows, system windows and the format.
// Every control acts at once through the controller; Done only closes.

#include <QDialog>

#include <optional>
#include <string>

#include "app/settings.h"

class QAbstractButton;
class QButtonGroup;
class QCheckBox;
class QLineEdit;

namespace pv {

class AppDelegate;

class PreferencesDialog : public QDialog {
    Q_OBJECT

public:
    explicit PreferencesDialog(AppDelegate& delegate, QWidget* parent = nullptr);

    // Shows the settings in the controls without acting on them.
    void showSettings(const Settings& settings);
    void showFolder(const std::optional<std::string>& folder);

    QLineEdit* folderField() const { return folderField_; }
    QCheckBox* shadowField() const { return shadowField_; }
    QCheckBox* ignoreField() const { return ignoreField_; }
    QButtonGroup* formatField() const { return formatField_; }
    QAbstractButton* folderButton() const { return folderButton_; }
    QAbstractButton* doneButton() const { return doneButton_; }

protected:
    // Escape ends the dialog as Done does.
    void reject() override;

private:
    AppDelegate& delegate_;
    QLineEdit* folderField_;
    QAbstractButton* folderButton_;
    QCheckBox* shadowField_;
    QCheckBox* ignoreField_;
    QButtonGroup* formatField_;
    QAbstractButton* doneButton_;
};

}  // namespace pv
