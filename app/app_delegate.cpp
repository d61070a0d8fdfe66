#include "app/app_delegate.h"

#include <QFile>

#include <atomic>
#include <ctime>
#include <filesystem>
#include <new>

#include "app/threads.h"
#include "capture/output_geometry.h"
#include "capture/window_collection.h"
#include "capture/window_shot.h"
#include "document/file_naming.h"
#include "document/layer_preparation.h"
#include "document/layer_stack.h"
#include "document/png_output.h"
#include "document/psd_writer.h"

// The resources live in a static library, so they must be registered by hand.
static void registerResources() { Q_INIT_RESOURCE(resources); }

namespace pv {

namespace {

const std::string& xmpTemplate() {
    static const std::string text = [] {
        QFile file(":/xmp.dat");
        file.open(QIODevice::ReadOnly);
        return file.readAll().toStdString();
    }();
    return text;
}

// What an exception says, in words for a status line.
std::string reasonOf(const std::exception& e) {
    return dynamic_cast<const std::bad_alloc*>(&e) ? "out of memory" : e.what();
}

std::tm localNow() {
    const std::time_t now = std::time(nullptr);
    std::tm local{};
    localtime_r(&now, &local);
    return local;
}

}  // namespace

// The preview being composed; set to stop it between two windows.
struct AppDelegate::SelectionJob {
    std::atomic<bool> cancel{false};
};

AppDelegate::AppDelegate(WindowServer& server, AppView& view, QObject* parent)
    : QObject(parent), server_(server), view_(view), inventory_(server) {
    registerResources();
    prepareMainThreadQueue();
}

AppDelegate::~AppDelegate() {
    // Background jobs report back to this controller; let them end before it goes.
    if (selectionJob_) selectionJob_->cancel = true;
    waitForBackgroundWork();
}

// ---- Inventory -------------------------------------------------------------

void AppDelegate::refreshScreenList() { inventory_.refreshScreenList(); }

void AppDelegate::refreshWindows() {
    inventory_.ignoreSystemWindows = settings.ignoreSystemWindows;
    inventory_.refreshWindows();
}

bool AppDelegate::isUnwanted(const std::optional<std::string>& ownerName) {
    inventory_.ignoreSystemWindows = settings.ignoreSystemWindows;
    return inventory_.isUnwanted(ownerName);
}

void AppDelegate::refresh() {
    cancelSelectionJob();  // its rows are gone with the old tree
    refreshScreenList();
    refreshWindows();
    view_.setTree(root());
    if (!view_.isMainWindowVisible()) return;
    view_.reloadOutline(root());
    auto picture = server_.desktopPicture();
    if (!picture) return;
    compositeImage = std::make_shared<const Image>(std::move(*picture));
    view_.setPreviewImage(compositeImage);
    view_.fitAll();
}

void AppDelegate::didChangeScreenParameters() { refresh(); }

void AppDelegate::changeShadow(bool on) {
    settings.shadow = on;
    refresh();
}

void AppDelegate::changeIgnore(bool on) {
    settings.ignoreSystemWindows = on;
    refresh();
}

// ---- Capture ---------------------------------------------------------------

void AppDelegate::getShot(PVWindowElement& node) { pv::getShot(node, server_, settings.shadow); }

PixelRect AppDelegate::getOutputRect(const std::vector<PVWindowElement::Ptr>& windows) const {
    return pv::getOutputRect(windows, measures().maxBackingScale);
}

void AppDelegate::collectWindows(const PVWindowElement::Ptr& node, std::vector<PVWindowElement::Ptr>& list) const {
    pv::collectWindows(node, list);
}

void AppDelegate::select() {
    const auto rows = view_.selectedNodes();
    if (rows.empty()) return;
    compositeImage.reset();
    SelectionJobInput input = selectionInput(rows);
    if (!selectionJob_) {
        startSelectionJob(std::move(input));
        return;
    }
    // One job at a time: the running one stops at its next window, and this
    // selection starts when it has.
    selectionJob_->cancel = true;
    pendingSelection_ = std::move(input);
}

SelectionJobInput AppDelegate::selectionInput(const std::vector<PVWindowElement::Ptr>& rows) const {
    auto windows = collectWindowsOf(rows);
    removeDuplicates(windows);
    sortIntoLayerOrder(windows);
    const PixelRect R = getOutputRect(windows);
    return selectionJobInput(windows, R, measures().maxBackingScale, measures().mainScreenHeight);
}

void AppDelegate::startSelectionJob(SelectionJobInput input) {
    auto job = std::make_shared<SelectionJob>();
    selectionJob_ = job;
    isBusy();
    runInBackground([this, job, input = std::move(input), shadow = settings.shadow] {
        SelectionJobResult result;
        std::string failure;
        try {
            result = composeSelection(
                input,
                [this, shadow, job](const std::vector<const PVWindowElement*>& nodes) {
                    return takeShots(nodes, server_, shadow, &job->cancel);
                },
                [this](const std::string& text) { postStatus(text); }, job->cancel);
        } catch (const std::exception& e) {
            failure = reasonOf(e);
        }
        runOnThreadOf(this, [this, job, result = std::move(result), failure]() mutable {
            selectionJobEnded(job, std::move(result), failure);
        });
    });
}

void AppDelegate::selectionJobEnded(const std::shared_ptr<SelectionJob>& job, SelectionJobResult result,
                                    const std::string& failure) {
    // Pictures reach the tree here, on the main thread; a node that got one
    // meanwhile (a save took it) keeps its own.
    for (auto& [node, shot] : result.taken)
        if (!node->shot) storeShot(*node, shot);
    if (job != selectionJob_) return;
    selectionJob_.reset();
    const bool shown = failure.empty() && !job->cancel;
    if (shown) {
        compositeImage = std::make_shared<const Image>(std::move(result.canvas));
        view_.setPreviewImage(compositeImage);
    }
    if (pendingSelection_) {
        auto next = std::move(*pendingSelection_);
        pendingSelection_.reset();
        startSelectionJob(std::move(next));
        return;
    }
    if (!failure.empty()) return leaveBusyAfterFailure("the preview failed: " + failure);
    isNoLongerBusy();
}

void AppDelegate::cancelSelectionJob() {
    pendingSelection_.reset();
    if (selectionJob_) selectionJob_->cancel = true;
}

// ---- Document --------------------------------------------------------------

void AppDelegate::capture() {
    try {
        if (!picturesAllowed()) return;
        refresh();
        view_.playCaptureSound();
        auto picture = server_.desktopPicture();
        if (!picture) return reportDocument("", false, "the desktop picture could not be taken");
        compositeImage = std::make_shared<const Image>(std::move(*picture));
        view_.selectRoot();
        if (!settings.outputFolder) return saveAs(true);
        setOutputFile(freeFileIn(*settings.outputFolder), OnExisting::Number);
        desktopIsTheMergedImage_ = true;
        writeSelection();
    } catch (const std::exception& e) {
        reportDocument("", false, "nothing was captured: " + reasonOf(e));
    }
}

void AppDelegate::captureSelected() {
    view_.raiseMainWindow();
    refresh();
}

void AppDelegate::save() {
    if (picturesAllowed()) saveAs(false);
}

// A backend may refuse pictures (no permission, a locked screen, no backend
// for this session); the capture then ends here with the reason.
bool AppDelegate::picturesAllowed() {
    const Failure refused = server_.checkAccess();
    if (!refused) return true;
    reportDocument("", false, refused.line());
    return false;
}

void AppDelegate::saveAs(bool desktopIsTheMergedImage) {
    const auto path = view_.askSaveFile(buildFileName(), settings.outputFormat);
    if (!path) return;
    setOutputFile(*path, OnExisting::Replace);  // the person chose to replace it
    desktopIsTheMergedImage_ = desktopIsTheMergedImage;
    writeSelection();
}

void AppDelegate::setOutputFile(const std::string& path, OnExisting onExisting) {
    outputFileURL = path;
    outputOnExisting_ = onExisting;
}

// The date-and-time name in the folder, numbered when a file or a document
// still being written already has it.
std::string AppDelegate::freeFileIn(const std::string& folder) const {
    return firstFreePath(folder + "/" + buildFileName(), [this](const std::string& candidate) {
        for (const auto& run : runs_)
            if (run->outputPath == candidate) return true;
        // A name that cannot be looked up counts as free; the write says why it fails.
        std::error_code error;
        return std::filesystem::exists(std::filesystem::symlink_status(candidate, error));
    });
}

void AppDelegate::writeSelection() {
    if (isLayered(settings.outputFormat)) {
        writeToPSD();
    } else {
        writeToPNG();
    }
}

std::string AppDelegate::buildFileName() const { return pv::buildFileName(settings.outputFormat, localNow()); }

bool AppDelegate::writeToPNG() {
    WriteResult result;
    try {
        result = writePNGFile(outputFileURL, compositeImage, outputOnExisting_);
    } catch (const std::bad_alloc&) {
        result = {false, "cannot write " + outputFileURL + ": out of memory", {}};
    }
    reportDocument(result.ok ? result.path : outputFileURL, result.ok, result.error);
    return result.ok;
}

void AppDelegate::changeOutputFormat(OutputFormat format) { settings.outputFormat = format; }

void AppDelegate::writeToPSD() {
    auto run = beginRun();
    try {
        const auto rows = view_.selectedNodes();
        auto windows = collectWindowsOf(rows);
        if (windows.empty())
            return finishRun(
                run,
                {false, nothingWritten(rows.empty() ? "no window was selected" : "there is no window to capture"), {}});
        takeMissingShots(windows, server_, settings.shadow);
        // A capture of everything is laid out on the whole desktop, as its
        // merged image is; a selection on the screens its windows stand on.
        const PixelRect canvas =
            desktopIsTheMergedImage_ ? getDesktopRect(*root(), measures().maxBackingScale) : getOutputRect(windows);
        auto stack = assembleLayerStack(std::move(windows), settings.outputFormat, canvas, measures(), groupDepth_);
        run->layers = std::move(stack.layers);
        run->readyCount = markerCount(run->layers);
        if (desktopIsTheMergedImage_) {
            run->takeMergedImage(compositeImage);
        } else {
            run->composeMergedImage(stack.canvas.size());
        }
    } catch (const std::exception& e) {
        view_.showAlert("Function:\twriteToPSD()\n\nException:\t" + reasonOf(e));
        return finishRun(run, {false, "cannot write " + run->outputPath + ": " + reasonOf(e), {}});
    }
    startPreparation(run);
}

std::string AppDelegate::nothingWritten(const std::string& reason) const {
    return "nothing written to " + outputFileURL + ": " + reason;
}

std::shared_ptr<DocumentRun> AppDelegate::beginRun() {
    auto run = std::make_shared<DocumentRun>();
    run->outputPath = outputFileURL;
    run->onExisting = outputOnExisting_;
    runs_.insert(run);
    isBusy();
    return run;
}

void AppDelegate::startPreparation(const std::shared_ptr<DocumentRun>& run) {
    if (!run->hasPixelLayer()) return finishRun(run, {false, nothingWritten("no window could be captured"), {}});
    // The merged image is encoded alongside the layers, not after them.
    runInBackground([this, run] {
        try {
            run->encodeMerged();
            runOnThreadOf(this, [this, run] {
                run->mergedEncoded = true;
                if (!run->failed && run->allReady()) startWriter(run);
            });
        } catch (const std::exception& e) {
            const std::string reason = reasonOf(e);
            runOnThreadOf(this, [this, run, reason] {
                if (!run->failed) finishRun(run, {false, "cannot write " + run->outputPath + ": " + reason, {}});
            });
        }
    });
    for (const auto& layer : run->layers)
        if (layer->type == LayerTypePixel) runInBackground([this, run, layer] { makeReady(run, layer); });
}

void AppDelegate::makeReady(const std::shared_ptr<DocumentRun>& run, const LayerPtr& layer) {
    try {
        postStatus("Compressing: " + layer->name);
        prepareLayer(*layer);
        runOnThreadOf(this, [this, run] { madeReady(run); });
    } catch (const std::exception& e) {
        const std::string reason = reasonOf(e);
        runOnThreadOf(this, [this, run, reason] {
            if (run->failed) return;
            view_.showAlert("Function:\tmakeReady()\n\nException:\t" + reason);
            finishRun(run, {false, "cannot write " + run->outputPath + ": " + reason, {}});
        });
    }
    postStatus("Writing...");
}

void AppDelegate::madeReady(const std::shared_ptr<DocumentRun>& run) {
    if (run->failed) return;
    ++run->readyCount;
    if (run->allReady()) startWriter(run);
}

void AppDelegate::startWriter(const std::shared_ptr<DocumentRun>& run) {
    runInBackground([this, run] {
        WriteResult result;
        try {
            result = writeEncodedPSD(
                run->outputPath, run->size, run->encodedMerged, run->layers, xmpTemplate(),
                [this](const std::string& text) { postStatus(text); }, run->onExisting);
        } catch (const std::bad_alloc&) {
            result = {false, "cannot write " + run->outputPath + ": out of memory", {}};
        }
        runOnThreadOf(this, [this, run, result] {
            if (!result.ok) view_.log("Error writing to PSD file: " + result.error);
            finishRun(run, result);
        });
    });
}

// The run ends here, written or failed; its entries and merged image go with it.
void AppDelegate::finishRun(const std::shared_ptr<DocumentRun>& run, const WriteResult& result) {
    run->failed = !result.ok;
    runs_.erase(run);
    if (result.ok) {
        isNoLongerBusy();
    } else {
        leaveBusyAfterFailure(result.error);
    }
    reportDocument(result.ok ? result.path : run->outputPath, result.ok, result.error);
}

void AppDelegate::reportDocument(const std::string& path, bool ok, const std::string& reason) {
    view_.documentFinished(path, ok, reason);
    emit documentFinished(QString::fromStdString(path), ok, QString::fromStdString(reason));
}

// ---- Busy state and status line --------------------------------------------

void AppDelegate::isBusy() { view_.setBusyControls(true); }

void AppDelegate::isNoLongerBusy() {
    if (busy()) return;  // another document or the preview is still being made
    update("Ready");
    view_.fitAll();
    view_.setBusyControls(false);
}

void AppDelegate::leaveBusyAfterFailure(const std::string& reason) {
    view_.setFailureStatus(reason);
    if (!busy()) view_.setBusyControls(false);
}

void AppDelegate::update(const std::string& text) { view_.setStatus(text); }

void AppDelegate::postStatus(const std::string& text) {
    runOnThreadOf(this, [this, text] { update(text); });
}

}  // namespace pv
