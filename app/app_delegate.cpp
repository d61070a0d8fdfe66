#include "app/app_delegate.h"

#include <QFile>
#include <QMetaObject>
#include <QThreadPool>

#include <algorithm>
#include <ctime>
#include <iostream>

#include "capture/output_geometry.h"
#include "capture/qt/selection_job.h"
#include "capture/window_collection.h"
#include "capture/window_shot.h"
#include "document/file_naming.h"
#include "document/group_markers.h"
#include "document/layer_placement.h"
#include "document/layer_preparation.h"
#include "document/psd_writer.h"
#include "document/qt/bitmap.h"
#include "document/safe_file.h"
#include "platform/png_io.h"

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

std::tm localNow() {
    const std::time_t now = std::time(nullptr);
    std::tm local{};
    localtime_r(&now, &local);
    return local;
}

void runInBackground(std::function<void()> task) {
    QThreadPool::globalInstance()->start(std::move(task), QThread::HighPriority);
}

}  // namespace

AppDelegate::AppDelegate(WindowServer& server, AppView& view, QObject* parent)
    : QObject(parent), server_(server), view_(view), inventory_(server) {
    registerResources();
}

AppDelegate::~AppDelegate() {
    // Background jobs hold this controller; let them end before it goes.
    QThreadPool::globalInstance()->waitForDone();
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

Rect AppDelegate::getOutputRect(const std::vector<PVWindowElement::Ptr>& windows) const {
    return pv::getOutputRect(windows, *root(), measures().maxBackingScale);
}

void AppDelegate::collectWindows(const PVWindowElement::Ptr& node, std::vector<PVWindowElement::Ptr>& list) const {
    pv::collectWindows(node, list);
}

void AppDelegate::select() {
    const auto rows = view_.selectedNodes();
    if (rows.empty()) return;
    isBusy();
    compositeImage.reset();

    SelectionJobInput input;
    for (const auto& node : rows) collectWindows(node, input.windows);
    sortIntoLayerOrder(input.windows);
    input.outputRect = getOutputRect(input.windows);
    input.maxBackingScale = measures().maxBackingScale;
    input.mainScreenHeight = measures().mainScreenHeight;

    // A newer selection replaces an older one still composing: only the
    // newest job's picture is shown.
    const uint64_t generation = ++selectionGeneration_;
    const bool shadow = settings.shadow;
    runInBackground([this, input = std::move(input), generation, shadow] {
        std::string failure;
        ImagePtr picture;
        try {
            picture = std::make_shared<const Image>(composeSelection(
                input, [this, shadow](PVWindowElement& node) { pv::getShot(node, server_, shadow); },
                [this](const std::string& text) { postStatus(text); }));
        } catch (const std::exception& e) {
            failure = e.what();
        }
        QMetaObject::invokeMethod(this, [this, picture, generation, failure] {
            if (generation != selectionGeneration_) return;
            if (picture) {
                compositeImage = picture;
                view_.setPreviewImage(picture);
            }
            isNoLongerBusy();
            update(failure.empty() ? "Ready" : failure);
        }, Qt::QueuedConnection);
    });
}

// ---- Document --------------------------------------------------------------

void AppDelegate::capture() {
    try {
        refresh();
        view_.playCaptureSound();
        auto picture = server_.desktopPicture();
        if (!picture) {
            view_.documentFinished("", false, "the desktop picture could not be taken");
            return;
        }
        compositeImage = std::make_shared<const Image>(std::move(*picture));
        view_.selectRoot();
        if (settings.outputFolder) {
            outputFileURL = *settings.outputFolder + "/" + buildFileName();
            writeSelection();
        } else {
            save();
        }
    } catch (const PlatformError& e) {
        view_.documentFinished("", false, e.what());
    }
}

void AppDelegate::captureSelected() {
    view_.raiseMainWindow();
    refresh();
}

void AppDelegate::save() {
    const auto path = view_.askSaveFile(buildFileName(), settings.outputFormat);
    if (!path) return;
    outputFileURL = *path;
    writeSelection();
}

void AppDelegate::writeSelection() {
    if (settings.outputFormat == PNG) {
        writeToPNG();
    } else {
        writeToPSD();
    }
}

std::string AppDelegate::buildFileName() const { return pv::buildFileName(settings.outputFormat, localNow()); }

bool AppDelegate::writeToPNG() {
    WriteResult result;
    const auto bitmap = compositeImage ? bitmapFromImage(*compositeImage, compositeImage->width,
                                                         compositeImage->height)
                                       : std::nullopt;
    if (!bitmap) {
        result.error = "cannot write " + outputFileURL + ": there is no picture to write";
    } else {
        const auto bytes = encodePNG(*bitmap);
        result = writeFileAtomically(outputFileURL, [&bytes](AtomicFile& file) {
            if (bytes.empty()) file.fail("the picture could not be encoded as PNG");
            return file.write(bytes.data(), bytes.size());
        });
    }
    view_.documentFinished(outputFileURL, result.ok, result.error);
    emit documentFinished(QString::fromStdString(outputFileURL), result.ok, QString::fromStdString(result.error));
    return result.ok;
}

void AppDelegate::changeOutputFormat(int32_t format) { settings.outputFormat = format; }

void AppDelegate::insertGroupStart(const std::string& name, int32_t index) {
    pv::insertGroupStart(currentRun_->layers, groupDepth_, settings.outputFormat, name, index);
}

void AppDelegate::insertGroupEnd(const std::string& name, int32_t index) {
    pv::insertGroupEnd(currentRun_->layers, groupDepth_, settings.outputFormat, name, index);
}

void AppDelegate::writeToPSD() {
    isBusy();
    auto run = std::make_shared<DocumentRun>();
    run->outputPath = outputFileURL;
    currentRun_ = run;
    ++runsInFlight_;
    try {
        if (compositeImage) {
            run->size = {static_cast<double>(compositeImage->width), static_cast<double>(compositeImage->height)};
            if (auto merged = bitmapFromImage(*compositeImage, compositeImage->width, compositeImage->height)) {
                run->mergedImageData = std::move(merged->pixels);
            }
        }

        std::vector<PVWindowElement::Ptr> windows;
        for (const auto& node : view_.selectedNodes()) collectWindows(node, windows);
        if (settings.outputFormat != GroupedPSD) sortIntoLayerOrder(windows);
        const Rect R = getOutputRect(windows);
        const float s = measures().maxBackingScale;

        const PVWindowElement* currentGroup = nullptr;
        std::string currentGroupName;
        for (const auto& w : windows) {
            if (!w->shot) getShot(*w);
            if (!w->shot) continue;
            const Size pixelSize = layerPixelSize(*w, s, w->shot->width, w->shot->height);
            auto bitmap = bitmapFromImage(*w->shot, pixelSize.width, pixelSize.height);
            if (!bitmap) continue;

            auto layer = std::make_shared<LayerElement>();
            const auto parent = w->parent();
            const std::string parentName = parent ? parent->name : std::string();
            layer->name = settings.outputFormat == UngroupedPSD ? ungroupedLayerName(parentName, w->name) : w->name;
            layer->location = layerLocation(*w, {static_cast<double>(bitmap->width), static_cast<double>(bitmap->height)},
                                            R.x, s, measures().screenTopOffset);
            layer->imageData = std::move(bitmap->pixels);
            run->layers.push_back(layer);

            if (parent.get() != currentGroup) {
                if (currentGroup) insertGroupStart(currentGroupName, static_cast<int32_t>(run->layers.size()) - 1);
                insertGroupEnd(parentName, static_cast<int32_t>(run->layers.size()) - 1);
                currentGroup = parent.get();
                currentGroupName = parentName;
            }
        }
        if (currentGroup) insertGroupStart(currentGroupName, static_cast<int32_t>(run->layers.size()));

        run->readyCount = static_cast<int32_t>(
            std::count_if(run->layers.begin(), run->layers.end(), [](const LayerPtr& l) { return l->type != 0; }));
    } catch (const std::exception& e) {
        view_.showAlert(std::string("Function:\twriteToPSD()\n\nException:\t") + e.what());
        finishRun(run, false, "cannot write " + run->outputPath + ": " + e.what());
        return;
    }
    startRun(run);
}

void AppDelegate::startRun(const std::shared_ptr<DocumentRun>& run) {
    const bool anyPixelLayer =
        std::any_of(run->layers.begin(), run->layers.end(), [](const LayerPtr& l) { return l->type == 0; });
    if (!anyPixelLayer) {
        finishRun(run, false, "nothing written to " + run->outputPath + ": no window could be captured");
        return;
    }
    for (const auto& layer : run->layers) {
        if (layer->type != 0) continue;
        runInBackground([this, run, layer] { makeReady(run, layer); });
    }
}

void AppDelegate::makeReady(const std::shared_ptr<DocumentRun>& run, const LayerPtr& layer) {
    postStatus("Compressing: " + layer->name);
    try {
        prepareLayer(*layer);
        QMetaObject::invokeMethod(this, [this, run] { madeReady(run); }, Qt::QueuedConnection);
    } catch (const std::exception& e) {
        const std::string reason = e.what();
        QMetaObject::invokeMethod(this, [this, run, reason] {
            if (run->failed) return;
            view_.showAlert("Function:\tmakeReady()\n\nException:\t" + reason);
            finishRun(run, false, "cannot write " + run->outputPath + ": " + reason);
        }, Qt::QueuedConnection);
    }
    postStatus("Writing...");
}

void AppDelegate::madeReady(const std::shared_ptr<DocumentRun>& run) {
    if (run->failed) return;
    ++run->readyCount;
    if (run->readyCount == static_cast<int32_t>(run->layers.size())) startWriter(run);
}

void AppDelegate::startWriter(const std::shared_ptr<DocumentRun>& run) {
    runInBackground([this, run] {
        const WriteResult result = writePSD(run->outputPath, run->size, run->mergedImageData, run->layers,
                                            xmpTemplate(), [this](const std::string& text) { postStatus(text); });
        QMetaObject::invokeMethod(this, [this, run, result] {
            if (!result.ok) std::cerr << "Error writing to PSD file: " << result.error << '\n';
            finishRun(run, result.ok, result.error);
        }, Qt::QueuedConnection);
    });
}

void AppDelegate::finishRun(const std::shared_ptr<DocumentRun>& run, bool ok, const std::string& reason) {
    run->failed = !ok;
    --runsInFlight_;
    run->layers.clear();
    run->mergedImageData = {};
    if (runsInFlight_ == 0) {
        if (ok) {
            isNoLongerBusy();
        } else {
            busy_ = false;
            view_.setBusyControls(false);
            update(reason);
        }
    }
    view_.documentFinished(run->outputPath, ok, reason);
    emit documentFinished(QString::fromStdString(run->outputPath), ok, QString::fromStdString(reason));
}

// ---- Busy state and status line --------------------------------------------

void AppDelegate::isBusy() {
    busy_ = true;
    view_.setBusyControls(true);
}

void AppDelegate::isNoLongerBusy() {
    busy_ = false;
    if (currentRun_) currentRun_->layers.clear();
    update("Ready");
    view_.fitAll();
    view_.setBusyControls(false);
}

void AppDelegate::update(const std::string& text) { view_.setStatus(text); }

void AppDelegate::postStatus(const std::string& text) {
    QMetaObject::invokeMethod(this, [this, text] { update(text); }, Qt::QueuedConnection);
}

}  // namespace pv
