#pragma once
// AppDelegate: the one controller. Every command and every step of the capture
// pipeline is a method here; each is a short step into the subsystem folder
// that owns the logic. The same controller runs behind the desktop
// application and behind the command line; only its AppView differs.
//
// Threads: every method runs on the thread that owns this object (the main
// thread, with a Qt event loop), and only that thread touches the inventory
// tree. Background work (the selection job, one preparation task per layer,
// the writer job) runs on the global thread pool on objects it owns, and hands
// its results back to the main thread without waiting.

#include <QObject>

#include <cstdint>
#include <memory>
#include <optional>
#include <set>
#include <string>
#include <vector>

#include "app/app_view.h"
#include "app/settings.h"
#include "capture/qt/selection_job.h"
#include "document/document_run.h"
#include "inventory/inventory.h"
#include "platform/window_server.h"

class QSettings;

namespace pv {

class ShellView;

class AppDelegate : public QObject {
    Q_OBJECT

public:
    AppDelegate(WindowServer& server, AppView& view, QObject* parent = nullptr);
    ~AppDelegate() override;

    // Settings in memory; stored by the shell at quit.
    Settings settings;

    // Inventory.
    void refreshScreenList();
    void refreshWindows();
    bool isUnwanted(const std::optional<std::string>& ownerName);
    void refresh();
    void didChangeScreenParameters();
    void changeShadow(bool on);
    void changeIgnore(bool on);
    const PVWindowElement::Ptr& root() const { return inventory_.root; }
    const ScreenMeasures& measures() const { return inventory_.measures; }

    // Capture.
    void getShot(PVWindowElement& node);
    PixelRect getOutputRect(const std::vector<PVWindowElement::Ptr>& windows) const;
    void collectWindows(const PVWindowElement::Ptr& node, std::vector<PVWindowElement::Ptr>& list) const;
    // Composes the selected windows in the preview. A selection made while an
    // earlier one is still composing stops that one and follows it.
    void select();

    // Document.
    void capture();
    void captureSelected();
    void save();
    std::string buildFileName() const;
    bool writeToPNG();
    void changeOutputFormat(OutputFormat format);
    void writeToPSD();

    // Busy state and status line. Busy while any document or the preview is
    // being made; "Ready" once all of them have ended.
    void isBusy();
    void isNoLongerBusy();
    void update(const std::string& text);
    bool busy() const { return !runs_.empty() || selectionJob_ != nullptr; }
    int runsInFlight() const { return static_cast<int>(runs_.size()); }
    bool selectionInFlight() const { return selectionJob_ != nullptr; }

    // The current composite picture: the whole desktop after a refresh or a
    // capture, the composed selection after a preview.
    ImagePtr compositeImage;
    // The file of the last capture or save.
    std::string outputFileURL;

    // Application shell (tray, dialogs, keys): set by the desktop application.
    ShellView* shell = nullptr;
    // Where the settings are read at start and written at quit; none: the
    // person's own store.
    QSettings* settingsStore = nullptr;
    void awakeFromNib();
    void applicationDidFinishLaunching();
    void applicationWillTerminate();
    void preferences();
    void prefsPick();
    void prefsDone();
    void about();
    void doneAbout();
    void moreApps();
    void feedback();
    void webSite();
    void installEventHandler();

signals:
    // A document ended: written to path, or failed with a reason.
    void documentFinished(const QString& path, bool ok, const QString& reason);

private:
    struct SelectionJob;

    // Preview.
    SelectionJobInput selectionInput(const std::vector<PVWindowElement::Ptr>& rows) const;
    void startSelectionJob(SelectionJobInput input);
    void selectionJobEnded(const std::shared_ptr<SelectionJob>& job, SelectionJobResult result,
                           const std::string& failure);
    void cancelSelectionJob();

    // Documents.
    bool picturesAllowed();
    void setOutputFile(const std::string& path, OnExisting onExisting);
    std::string freeFileIn(const std::string& folder) const;
    void writeSelection();
    void saveAs(bool desktopIsTheMergedImage);
    std::string nothingWritten(const std::string& reason) const;
    std::shared_ptr<DocumentRun> beginRun();
    void startPreparation(const std::shared_ptr<DocumentRun>& run);
    void makeReady(const std::shared_ptr<DocumentRun>& run, const LayerPtr& layer);
    void madeReady(const std::shared_ptr<DocumentRun>& run);
    void startWriter(const std::shared_ptr<DocumentRun>& run);
    void finishRun(const std::shared_ptr<DocumentRun>& run, const WriteResult& result);
    void reportDocument(const std::string& path, bool ok, const std::string& reason);

    void leaveBusyAfterFailure(const std::string& reason);
    void postStatus(const std::string& text);

    WindowServer& server_;
    AppView& view_;
    Inventory inventory_;
    OnExisting outputOnExisting_ = OnExisting::Replace;
    // A capture of everything stores the desktop picture as the merged image;
    // a saved selection the picture its own layers make.
    bool desktopIsTheMergedImage_ = false;
    std::set<std::shared_ptr<DocumentRun>> runs_;  // preparing or writing
    std::shared_ptr<SelectionJob> selectionJob_;   // composing the preview
    std::optional<SelectionJobInput> pendingSelection_;
    int32_t groupDepth_ = 0;
};

}  // namespace pv
