#include "app/shell/about_dialog.h"

#include <QDialogButtonBox>
#include <QHBoxLayout>
#include <QIcon>
#include <QLabel>
#include <QPushButton>
#include <QVBoxLayout>

#include "app/app_delegate.h"

namespace pv {

AboutDialog::AboutDialog(AppDelegate& delegate, QWidget* parent) : QDialog(parent), delegate_(delegate) {
    setWindowFlag(Qt::WindowStaysOnTopHint);  // as the preferences: never behind the floating main window
    setWindowTitle("About Plenavue");

    auto* icon = new QLabel(this);
    icon->setPixmap(QIcon(":/plenavue.svg").pixmap(64, 64));
    auto* title = new QLabel("<b style='font-size:16pt'>Plenavue</b>", this);
    aboutField_ = new QLabel(this);
    aboutField_->setWordWrap(true);
    aboutField_->setMinimumWidth(360);
    versionField_ = new QLabel(this);

    auto* text = new QVBoxLayout;
    text->addWidget(title);
    text->addWidget(aboutField_);
    text->addWidget(versionField_);
    auto* top = new QHBoxLayout;
    top->addWidget(icon, 0, Qt::AlignTop);
    top->addLayout(text, 1);

    auto* buttons = new QDialogButtonBox(this);
    auto* more = buttons->addButton("More apps", QDialogButtonBox::ActionRole);
    auto* feedback = buttons->addButton("Feedback", QDialogButtonBox::ActionRole);
    auto* site = buttons->addButton("Web site", QDialogButtonBox::ActionRole);
    auto* close = buttons->addButton(QDialogButtonBox::Close);

    auto* layout = new QVBoxLayout(this);
    layout->addLayout(top);
    layout->addWidget(buttons);

    connect(more, &QPushButton::clicked, this, [this] { delegate_.moreApps(); });
    connect(feedback, &QPushButton::clicked, this, [this] { delegate_.feedback(); });
    connect(site, &QPushButton::clicked, this, [this] { delegate_.webSite(); });
    connect(close, &QPushButton::clicked, this, [this] { delegate_.doneAbout(); });
}

void AboutDialog::showTexts(const QString& about, const QString& version) {
    aboutField_->setText(about);
    versionField_->setText(version);
}

void AboutDialog::reject() { delegate_.doneAbout(); }

}  // namespace pv
