#include "app/shell/preferences_dialog.h"

#include <QButtonGroup>
#include <QCheckBox>
#include <QDialogButtonBox>
#include <QFormLayout>
#include <QGroupBox>
#include <QHBoxLayout>
#include <QLineEdit>
#include <QPushButton>
#include <QRadioButton>
#include <QSignalBlocker>
#include <QVBoxLayout>

#include "app/app_delegate.h"

namespace pv {

PreferencesDialog::PreferencesDialog(AppDelegate& delegate, QWidget* parent) : QDialog(parent), delegate_(delegate) {
    // The main window floats above ordinary windows once asked for; a dialog
    // opened from the tray must not open behind it. Set before the native
    // window exists, so that it is never replaced (and never loses its
    // no-capture mark).
    setWindowFlag(Qt::WindowStaysOnTopHint);
    setWindowTitle("Plenavue Preferences");

    folderField_ = new QLineEdit(this);
    folderField_->setReadOnly(true);
    folderField_->setMinimumWidth(320);
    folderButton_ = new QPushButton("Choose...", this);
    auto* folderRow = new QHBoxLayout;
    folderRow->addWidget(folderField_, 1);
    folderRow->addWidget(folderButton_);

    shadowField_ = new QCheckBox("Capture windows with their drop shadow", this);
    ignoreField_ = new QCheckBox("Leave out system windows (panels, docks, desktop, notifications)", this);

    auto* formats = new QGroupBox("Format", this);
    auto* formatLayout = new QVBoxLayout(formats);
    formatField_ = new QButtonGroup(this);
    const std::pair<OutputFormat, const char*> choices[] = {
        {OutputFormat::GroupedPSD, "Grouped PSD: one layer group per application"},
        {OutputFormat::UngroupedPSD, "Ungrouped PSD: layers named \"Application - Window\""},
        {OutputFormat::PNG, "PNG: one flat picture"}};
    for (const auto& [format, label] : choices) {
        auto* radio = new QRadioButton(label, formats);
        formatField_->addButton(radio, outputFormatValue(format));
        formatLayout->addWidget(radio);
    }

    auto* buttons = new QDialogButtonBox(this);
    doneButton_ = buttons->addButton("Done", QDialogButtonBox::AcceptRole);

    auto* form = new QFormLayout;
    form->addRow("Output folder:", folderRow);
    auto* layout = new QVBoxLayout(this);
    layout->addLayout(form);
    layout->addWidget(shadowField_);
    layout->addWidget(ignoreField_);
    layout->addWidget(formats);
    layout->addWidget(buttons);

    connect(folderButton_, &QAbstractButton::clicked, this, [this] { delegate_.prefsPick(); });
    connect(shadowField_, &QCheckBox::toggled, this, [this](bool on) { delegate_.changeShadow(on); });
    connect(ignoreField_, &QCheckBox::toggled, this, [this](bool on) { delegate_.changeIgnore(on); });
    connect(formatField_, &QButtonGroup::idClicked, this, [this](int id) {
        if (auto format = outputFormatFromValue(id)) delegate_.changeOutputFormat(*format);
    });
    connect(doneButton_, &QAbstractButton::clicked, this, [this] { delegate_.prefsDone(); });
}

void PreferencesDialog::showSettings(const Settings& settings) {
    const QSignalBlocker blockShadow(shadowField_);
    const QSignalBlocker blockIgnore(ignoreField_);
    shadowField_->setChecked(settings.shadow);
    ignoreField_->setChecked(settings.ignoreSystemWindows);
    if (auto* button = formatField_->button(outputFormatValue(settings.outputFormat))) button->setChecked(true);
    showFolder(settings.outputFolder);
}

void PreferencesDialog::showFolder(const std::optional<std::string>& folder) {
    folderField_->setText(folder ? QString::fromStdString(*folder) : QString("< No folder selected >"));
}

void PreferencesDialog::reject() { delegate_.prefsDone(); }

}  // namespace pv
