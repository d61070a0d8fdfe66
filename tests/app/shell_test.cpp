// The application shell around the controller: settings at start and quit,
// the first launch, the preferences and about dialogs, their keys, and the
// refresh after the screens change.
#include <QApplication>
#include <QButtonGroup>
#include <QCheckBox>
#include <QElapsedTimer>
#include <QKeyEvent>
#include <QLabel>
#include <QLineEdit>
#include <QRadioButton>
#include <QSettings>

#include <gtest/gtest.h>

#include "app/app_delegate.h"
#include "app/shell/about_dialog.h"
#include "app/shell/preferences_dialog.h"
#include "app/shell/qt_shell.h"
#include "app/shell/screen_change_watcher.h"
#include "cli/headless_view.h"
#include "platform/fixture_desktop.h"
#include "tests/app/wait_for.h"
#include "tests/core/document_test_support.h"

using namespace pv;
namespace fs = std::filesystem;

namespace {

const char* kNoFolderAlert =
    "No output folder selected.\n\nAfter taking a screenshot, you will be prompted for a file name.";

void pressEscape(QWidget* w) {
    QKeyEvent press(QEvent::KeyPress, Qt::Key_Escape, Qt::NoModifier);
    QApplication::sendEvent(w, &press);
}

// The controller and the shell on a settings store of their own; the
// command-line view keeps the alerts and log lines it is given.
class Shell : public ::testing::Test {
protected:
    void SetUp() override {
        fs::create_directories(pictures_);
        view_.verbose = false;
        desktop_ = FixtureDesktop::load(std::string(PV_SOURCE_DIR) + "/fixtures/one-screen.json");
        delegate_ = std::make_unique<AppDelegate>(*desktop_, view_);
        delegate_->settingsStore = &store_;
        shell_ = std::make_unique<QtShell>(*delegate_);
        delegate_->shell = shell_.get();
        shell_->folderChooser = [this](const std::optional<std::string>& start) {
            chooserStarts_.push_back(start);
            return chooserAnswer_;
        };
    }
    void TearDown() override {
        shell_.reset();
        delegate_.reset();
    }

    // Quits and starts again on the same store, as the next launch would.
    void relaunch() {
        delegate_->applicationWillTerminate();
        delegate_ = std::make_unique<AppDelegate>(*desktop_, view_);
        delegate_->settingsStore = &store_;
        delegate_->shell = shell_.get();
        delegate_->awakeFromNib();
    }

    pvtest::ScratchDir dir_;
    const std::string pictures_ = dir_ / "pictures";
    QSettings store_{QString::fromStdString(dir_ / "settings.ini"), QSettings::IniFormat};
    std::unique_ptr<FixtureDesktop> desktop_;
    HeadlessView view_{[] { return PVWindowElement::Ptr(); }};
    std::unique_ptr<AppDelegate> delegate_;
    std::unique_ptr<QtShell> shell_;
    std::optional<std::string> chooserAnswer_;
    std::vector<std::optional<std::string>> chooserStarts_;
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
    EXPECT_TRUE(store_.value("shownIntro").toBool());
    delegate_->applicationDidFinishLaunching();
    EXPECT_EQ(chooserStarts_.size(), 1u);  // not asked again
}

TEST_F(Shell, TheChosenFolderAndSettingsAreKeptAcrossLaunchesTheBookmarkFirst) {
    delegate_->awakeFromNib();
    chooserAnswer_ = pictures_;
    delegate_->preferences();
    delegate_->prefsPick();
    EXPECT_EQ(delegate_->settings.outputFolder, pictures_);
    EXPECT_EQ(shell_->preferencesDialog().folderField()->text().toStdString(), pictures_);
    // Cancelling with a folder set changes nothing and says nothing.
    chooserAnswer_.reset();
    delegate_->prefsPick();
    EXPECT_EQ(delegate_->settings.outputFolder, pictures_);
    EXPECT_TRUE(view_.alerts.empty());
    relaunch();
    EXPECT_EQ(delegate_->settings.outputFolder, pictures_);

    // Quitting without a folder removes the path and keeps the earlier
    // bookmark, which brings the folder back at the next launch.
    delegate_->settings.outputFolder.reset();
    delegate_->settings.outputFormat = OutputFormat::PNG;
    delegate_->settings.shadow = false;
    relaunch();
    EXPECT_FALSE(store_.contains("output"));
    EXPECT_EQ(delegate_->settings.outputFolder, pictures_);
    EXPECT_EQ(delegate_->settings.outputFormat, OutputFormat::PNG);
    EXPECT_FALSE(delegate_->settings.shadow);

    // The bookmark wins over the path, even when its folder is gone.
    store_.setValue("output", QString("/somewhere/else"));
    delegate_->awakeFromNib();
    EXPECT_EQ(delegate_->settings.outputFolder, pictures_);
    store_.setValue("outputBookmark", QByteArray("/no/such/folder"));
    delegate_->awakeFromNib();
    EXPECT_FALSE(delegate_->settings.outputFolder);
}

TEST_F(Shell, UnusableStoredValuesFallBackToTheDefaultsAndSaySo) {
    store_.setValue("format", 99);
    store_.setValue("shadow", "banana");
    store_.setValue("ignore", "1");
    delegate_->awakeFromNib();
    EXPECT_EQ(delegate_->settings.outputFormat, OutputFormat::UngroupedPSD);
    EXPECT_TRUE(delegate_->settings.shadow);
    EXPECT_TRUE(delegate_->settings.ignoreSystemWindows);
    ASSERT_EQ(view_.logLines.size(), 2u);
    EXPECT_NE(view_.logLines[0].find("\"shadow\""), std::string::npos) << view_.logLines[0];
    EXPECT_NE(view_.logLines[1].find("\"format\" has the unusable value \"99\""), std::string::npos)
        << view_.logLines[1];
    for (const char* text : {"-1", "banana", "2.5"}) {
        store_.setValue("format", text);
        delegate_->awakeFromNib();
        EXPECT_EQ(delegate_->settings.outputFormat, OutputFormat::UngroupedPSD) << text;
    }
}

// ---- the dialogs and the screens ------------------------------------------------

TEST_F(Shell, PreferencesShowTheSettingsActAtOnceAndTheDialogsCloseWithDoneOrEscape) {
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

    pressEscape(&prefs);
    EXPECT_FALSE(prefs.isVisible());
    delegate_->preferences();
    prefs.doneButton()->click();
    EXPECT_FALSE(prefs.isVisible());
    EXPECT_EQ(std::tie(delegate_->settings.outputFormat, delegate_->settings.shadow),
              std::make_tuple(OutputFormat::GroupedPSD, false));
    for (int i = 0; i < 2; ++i) {  // the about box shows each time
        delegate_->about();
        EXPECT_TRUE(shell_->aboutDialog().isVisible());
        pressEscape(&shell_->aboutDialog());
        EXPECT_FALSE(shell_->aboutDialog().isVisible());
    }
}

// A burst of screen changes refreshes the inventory once, after the burst.
TEST(ScreenChangeWatcher, ABurstSettlesOnceAfterItsLastChange) {
    ScreenChangeWatcher watcher(400);
    int settled = 0;
    QObject::connect(&watcher, &ScreenChangeWatcher::settled, [&settled] { ++settled; });
    for (int i = 0; i < 5; ++i) {
        watcher.noteChange();
        QCoreApplication::processEvents(QEventLoop::AllEvents, 5);
    }
    EXPECT_EQ(settled, 0);  // nothing while the burst goes on
    ASSERT_TRUE(test::waitFor([&] { return settled > 0; }));
    QElapsedTimer quiet;
    quiet.start();
    test::waitFor([&] { return quiet.elapsed() > 600; });
    EXPECT_EQ(settled, 1);

    watcher.noteChange();  // a later, separate change settles again
    ASSERT_TRUE(test::waitFor([&] { return settled == 2; }));
}

}  // namespace
