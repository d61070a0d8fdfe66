#pragma once
// AppDelegate: the one controller. Every command and every step of the capture
// pipeline is a method here; each is a short step into the subsystem folder
// that owns the logic. The same controller runs behind the desktop
// application and behind the command line; only its AppView differs.
//
// Threads: every method runs on the thread that owns this object (the main
// thread, with a Qt event loop). Background work (the selection job, one
// preparation task per layer, the writer job) runs on the global thread pool
// and hands its results back to the main thread without waiting.

#include <QObject>

class QSettings;

#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "app/app_view.h"
#include "app/settings.h"
#include "document/layer_element.h"
#include "inventory/inventory.h"
#include "platform/window_server.h"

namespace pv {

class ShellView;

// One layered document being made. Each capture owns its run, so a capture
// that starts while an earlier one is still being written cannot disturb it.
struct DocumentRun {
    std::vector<LayerPtr> layers;        // top of the stack first
    int32_t readyCount = 0;              // entries of layers that are ready
    std::vector<uint8_t> mergedImageData;  // the composite, RGBA premultiplied
    Size size;                           // the composite's size in pixels
    std::string outputPath;
    bool failed = false;
};

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
    Rect getOutputRect(const std::vector<PVWindowElement::Ptr>& windows) const;
    void collectWindows(const PVWindowElement::Ptr& node, std::vector<PVWindowElement::Ptr>& list) const;
    void select();

    // Document.
    void capture();
    void captureSelected();
    void save();
    std::string buildFileName() const;
    bool writeToPNG();
    void changeOutputFormat(int32_t format);
    void writeToPSD();
    void insertGroupStart(const std::string& name, int32_t index);
    void insertGroupEnd(const std::string& name, int32_t index);

    // Busy state and status line.
    void isBusy();
    void isNoLongerBusy();
    void update(const std::string& text);
    bool busy() const { return busy_; }

    // The current composite picture: the whole desktop after a refresh or a
    // capture, the composed selection after a preview.
    ImagePtr compositeImage;
    // The file of the last capture or save.
    std::string outputFileURL;
    // Runs that are still preparing or writing.
    int runsInFlight() const { return runsInFlight_; }

    // Application shell (tray, dialogs, keys): set by the desktop application.
    ShellView* shell = nullptr;
    // Where the settings are read at start and written at quit; none: the
    // person's own store (organisation "Veltrano", application "Plenavue").
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
    // A document run ended (also reported to the view).
    void documentFinished(const QString& path, bool ok, const QString& reason);

private:
    void startRun(const std::shared_ptr<DocumentRun>& run);
    void makeReady(const std::shared_ptr<DocumentRun>& run, const LayerPtr& layer);
    void madeReady(const std::shared_ptr<DocumentRun>& run);
    void startWriter(const std::shared_ptr<DocumentRun>& run);
    void finishRun(const std::shared_ptr<DocumentRun>& run, bool ok, const std::string& reason);
    void writeSelection();
    void postStatus(const std::string& text);

    WindowServer& server_;
    AppView& view_;
    Inventory inventory_;
    std::shared_ptr<DocumentRun> currentRun_;  // the run being assembled
    int32_t groupDepth_ = 0;
    int runsInFlight_ = 0;
    bool busy_ = false;
    uint64_t selectionGeneration_ = 0;
};

}  // namespace pv
