// The application shell around the controller: settings at start and quit,
// the first launch, the preferences and about dialogs, and their keys.
#include <QApplication>
#include <QButtonGroup>
#include <QCheckBox>
#include <QKeyEvent>
#include <QLabel>
#include <QLineEdit>
#include <QRadioButton>
#include <QSettings>

#include <gtest/gtest.h>


#include "app/shell/about_dialog.h"
#include "app/app_delegate.h"
#include "cli/headless_view.h"
#include "app/localized.h"
#include "app/shell/preferences_dialog.h"
#include "app/shell/qt_shell.h"
#include "platform/fixture_desktop.h"
#include "tests/core/document_test_support.h"

using namespace pv;
namespace fs = std::filesystem;

namespace {

const char* kNoFolderAlert = "No output folder selected.\n\nAfter taking a screenshot, you will be prompted for a file name.";

// The command-line view, which keeps the alerts and log lines it is given.
class RecordingView : public HeadlessView {
public:
    RecordingView() : HeadlessView([] { return PVWindowElement::Ptr(); }) { verbose = false; }
};

void pressEscape(QWidget* w) {
    QKeyEvent press(QEvent::KeyPress, Qt::Key_Escape, Qt::NoModifier);
    QApplication::sendEvent(w, &press);
}

class Shell : public ::testing::Test {
protected:
    void SetUp() override {
        fs::create_directories(pictures_);
        store_ = std::make_unique<QSettings>(QString::fromStdString(dir_ / "settings.ini"),
                                             QSettings::IniFormat);
        desktop_ = FixtureDesktop::load(std::string(PV_SOURCE_DIR) + "/fixtures/one-screen.json");
        delegate_ = std::make_unique<AppDelegate>(*desktop_, view_);
        delegate_->settingsStore = store_.get();
        shell_ = std::make_unique<QtShell>(*delegate_);
        delegate_->shell = shell_.get();
        shell_->folderChooser = [this](const std::optional<std::string>& start) {
            chooserStarts_.push_back(start);
            return chooserAnswer_;
        };
        shell_->urlOpener = [this](const std::string& url) { opened_.push_back(url); };
    }
    void TearDown() override {
        shell_.reset();
        delegate_.reset();
        store_.reset();
    }

    // Quits and starts again on the same store, as the next launch would.
    void relaunch() {
        delegate_->applicationWillTerminate();
        delegate_ = std::make_unique<AppDelegate>(*desktop_, view_);
        delegate_->settingsStore = store_.get();
        delegate_->shell = shell_.get();
        delegate_->awakeFromNib();
    }

    pvtest::ScratchDir dir_;
    const std::string pictures_ = dir_ / "pictures";
    std::unique_ptr<QSettings> store_;
    std::unique_ptr<FixtureDesktop> desktop_;
    RecordingView view_;
    std::unique_ptr<AppDelegate> delegate_;
    std::unique_ptr<QtShell> shell_;
    std::optional<std::string> chooserAnswer_;
    std::vector<std::optional<std::string>> chooserStarts_;
    std::vector<std::string> opened_;
};

// ---- settings and first launch ------------------------------------------------

TEST_F(Shell, FirstLaunchAsksForAFolderAtOnceAndOnlyOnce) {
    delegate_->awakeFromNib();

    delegate_->applicationDidFinishLaunching();
    EXPECT_TRUE(shell_->preferencesDialog().isVisible());
    ASSERT_EQ(chooserStarts_.size(), 1u);  // the folder chooser opened over the preferences
    EXPECT_EQ(view_.alerts, (std::vector<std::string>{kNoFolderAlert}));  // and was cancelled
    EXPECT_TRUE(delegate_->settings.shownIntro);

    relaunch();
    EXPECT_TRUE(store_->value("shownIntro").toBool());
    delegate_->applicationDidFinishLaunching();
    EXPECT_EQ(chooserStarts_.size(), 1u);  // not asked again
}

TEST_F(Shell, ChosenFolderIsShownAndKeptAcrossLaunches) {
    delegate_->awakeFromNib();
    chooserAnswer_ = pictures_;
    delegate_->preferences();
    delegate_->prefsPick();
    EXPECT_EQ(delegate_->settings.outputFolder, chooserAnswer_);
    EXPECT_EQ(shell_->preferencesDialog().folderField()->text().toStdString(), *chooserAnswer_);
    EXPECT_TRUE(view_.alerts.empty());

    // Cancelling with a folder set changes nothing and says nothing.
    chooserAnswer_.reset();
    delegate_->prefsPick();
    EXPECT_EQ(delegate_->settings.outputFolder, pictures_);
    EXPECT_TRUE(view_.alerts.empty());

    relaunch();
    EXPECT_EQ(delegate_->settings.outputFolder, pictures_);
}

TEST_F(Shell, BookmarkWinsOverThePathEvenWhenItsFolderIsGone) {
    store_->setValue("output", QString::fromStdString(pictures_));
    store_->setValue("outputBookmark", QByteArray("/no/such/folder"));
    delegate_->awakeFromNib();
    EXPECT_FALSE(delegate_->settings.outputFolder);

    store_->setValue("outputBookmark", QByteArray::fromStdString(pictures_));
    store_->setValue("output", QString("/somewhere/else"));
    delegate_->awakeFromNib();
    EXPECT_EQ(delegate_->settings.outputFolder, pictures_);
}

TEST_F(Shell, QuittingWithoutAFolderRemovesThePathAndKeepsAnEarlierBookmark) {
    store_->setValue("outputBookmark", QByteArray::fromStdString(pictures_));
    store_->setValue("output", QString::fromStdString(pictures_));
    delegate_->awakeFromNib();
    delegate_->settings.outputFolder.reset();
    delegate_->settings.outputFormat = OutputFormat::PNG;
    delegate_->settings.shadow = false;
    delegate_->applicationWillTerminate();
    EXPECT_FALSE(store_->contains("output"));
    EXPECT_EQ(store_->value("outputBookmark").toByteArray().toStdString(), pictures_);
    EXPECT_EQ(store_->value("format").toInt(), int(OutputFormat::PNG));
    EXPECT_FALSE(store_->value("shadow").toBool());

    relaunch();  // the earlier folder comes back through its bookmark
    EXPECT_EQ(delegate_->settings.outputFolder, pictures_);
}

// ---- preferences ----------------------------------------------------------------

TEST_F(Shell, UnusableStoredValuesFallBackToTheDefaultsAndSaySo) {
    store_->setValue("format", 99);
    store_->setValue("shadow", "banana");
    store_->setValue("ignore", "1");
    store_->setValue("shownIntro", true);
    delegate_->awakeFromNib();
    EXPECT_EQ(delegate_->settings.outputFormat, OutputFormat::UngroupedPSD);
    EXPECT_TRUE(delegate_->settings.shadow);
    EXPECT_TRUE(delegate_->settings.ignoreSystemWindows);
    ASSERT_EQ(view_.logLines.size(), 2u);
    EXPECT_NE(view_.logLines[0].find("\"shadow\""), std::string::npos) << view_.logLines[0];
    EXPECT_NE(view_.logLines[1].find("\"format\" has the unusable value \"99\""), std::string::npos)
        << view_.logLines[1];
    for (const char* text : {"-1", "banana", "2.5"}) {
        store_->setValue("format", text);
        delegate_->awakeFromNib();
        EXPECT_EQ(delegate_->settings.outputFormat, OutputFormat::UngroupedPSD) << text;
    }
}

TEST_F(Shell, PreferencesShowTheSettingsAndActAtOnce) {
    delegate_->awakeFromNib();
    delegate_->settings.outputFormat = OutputFormat::PNG;
    delegate_->preferences();
    PreferencesDialog& prefs = shell_->preferencesDialog();
    EXPECT_TRUE(prefs.shadowField()->isChecked());
    EXPECT_TRUE(prefs.formatField()->button(int(OutputFormat::PNG))->isChecked());

    prefs.formatField()->button(int(OutputFormat::GroupedPSD))->click();
    EXPECT_EQ(delegate_->settings.outputFormat, OutputFormat::GroupedPSD);
    const auto before = delegate_->root();
    prefs.ignoreField()->click();
    EXPECT_TRUE(delegate_->settings.ignoreSystemWindows);
    EXPECT_NE(delegate_->root(), before);  // the inventory was refreshed
    prefs.shadowField()->click();
    EXPECT_FALSE(delegate_->settings.shadow);

    prefs.folderButton()->click();
    EXPECT_EQ(chooserStarts_.size(), 1u);
    EXPECT_EQ(view_.alerts, (std::vector<std::string>{kNoFolderAlert}));
}

TEST_F(Shell, DoneAndEscapeCloseThePreferencesWithoutChangingSettings) {
    delegate_->awakeFromNib();
    delegate_->preferences();
    PreferencesDialog& prefs = shell_->preferencesDialog();
    const Settings before = delegate_->settings;
    pressEscape(&prefs);
    EXPECT_FALSE(prefs.isVisible());
    delegate_->preferences();
    prefs.doneButton()->click();
    EXPECT_FALSE(prefs.isVisible());
    EXPECT_EQ(std::tie(delegate_->settings.outputFormat, delegate_->settings.shadow),
              std::tie(before.outputFormat, before.shadow));
}

// ---- about and links --------------------------------------------------------------

TEST_F(Shell, AboutShowsEachTimeAndLinksOpenTheirAddresses) {
    AboutDialog& about = shell_->aboutDialog();
    for (int i = 0; i < 2; ++i) {
        delegate_->about();
        EXPECT_EQ(about.aboutField()->text().toStdString(), localizedString("NSAbout"));
        pressEscape(&about);
        EXPECT_FALSE(about.isVisible());
    }

    delegate_->moreApps();
    delegate_->feedback();
    delegate_->webSite();
    EXPECT_EQ(opened_, (std::vector<std::string>{localizedString("NSStoreURL"), localizedString("NSFeedbackURL"),
                                                 localizedString("NSHomeURL")}));
    EXPECT_NE(opened_[0], opened_[2]);
}

}  // namespace
