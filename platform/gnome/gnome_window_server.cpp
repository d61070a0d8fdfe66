#include "platform/gnome/gnome_window_server.h"

#include <QCoreApplication>
#include <QDBusConnection>
#include <QDBusConnectionInterface>
#include <QDBusMessage>
#include <QDBusUnixFileDescriptor>
#include <QSysInfo>
#include <QVariantMap>

#include <sys/mman.h>
#include <sys/stat.h>
#include <unistd.h>

#include <atomic>
#include <condition_variable>
#include <filesystem>
#include <fstream>
#include <map>
#include <mutex>
#include <nlohmann/json.hpp>
#include <thread>

#include "platform/gnome/gnome_windows.h"
#include "platform/kwin/compositor_bus.h"
#include "platform/kwin/frame_in_picture.h"
#include "platform/own_windows.h"
#include "platform/png_io.h"

namespace pv {

using namespace kwin;
using nlohmann::json;

namespace {

const QString kShell = QStringLiteral("org.gnome.Shell");
const QString kService = QStringLiteral("com.veltrano.Plenavue.Shell");
const QString kPath = QStringLiteral("/com/veltrano/Plenavue/Shell");
const QString kInterface = QStringLiteral("com.veltrano.Plenavue.Shell1");

std::string selfExecutable() {
    std::error_code ec;
    return std::filesystem::read_symlink("/proc/self/exe", ec).string();
}

// A memory file the extension writes pictures into; unmapped and closed with it.
struct MemoryFile {
    int fd = memfd_create("plenavue-pictures", MFD_CLOEXEC);
    ~MemoryFile() {
        if (fd >= 0) ::close(fd);
    }
    std::vector<uint8_t> bytes() const {
        struct stat st {};
        if (fd < 0 || fstat(fd, &st) != 0 || st.st_size <= 0) return {};
        std::vector<uint8_t> out(static_cast<size_t>(st.st_size));
        size_t done = 0;
        while (done < out.size()) {
            const ssize_t n = pread(fd, out.data() + done, out.size() - done, static_cast<off_t>(done));
            if (n <= 0) break;
            done += static_cast<size_t>(n);
        }
        out.resize(done);
        return out;
    }
};

// One picture of the reply: straight RGBA rows (the last one possibly short of
// the stride), or a PNG.
std::optional<Image> decodePicture(const json& entry, const std::vector<uint8_t>& data) {
    const size_t offset = entry.value("offset", size_t(0)), size = entry.value("size", size_t(0));
    if (offset > data.size() || size > data.size() - offset) return std::nullopt;
    const uint8_t* at = data.data() + offset;
    if (entry.value("encoding", "") == "png") {
        std::string error;
        return readPNGData(at, size, &error);
    }
    const int width = entry.value("width", 0), height = entry.value("height", 0);
    const size_t stride = entry.value("stride", size_t(0));
    const bool alpha = entry.value("format", "") == "RGBA8888";
    const size_t pixelBytes = alpha ? 4 : 3;
    if (!pictureSide(width) || !pictureSide(height) || width == 0 || height == 0 ||
        stride < pixelBytes * size_t(width) || size < stride * size_t(height - 1) + pixelBytes * size_t(width))
        return std::nullopt;
    Image image(width, height);
    for (int y = 0; y < height; ++y) {
        const uint8_t* src = at + stride * size_t(y);
        uint8_t* dst = image.row(y);
        for (int x = 0; x < width; ++x, src += pixelBytes, dst += 4) {
            const unsigned a = alpha ? src[3] : 255;
            for (int c = 0; c < 3; ++c) dst[c] = uint8_t((src[c] * a + 127) / 255);
            dst[3] = uint8_t(a);
        }
    }
    return image;
}

Failure pictureError(const std::string& error) {
    if (error == "not-ready") return {FailureKind::NotReady, "the window has not drawn its first frame yet", ""};
    return {FailureKind::WindowGone, "GNOME Shell gives no picture of the window (" + error + ")", ""};
}

// A batch whose requests are served by one worker thread.
class WorkerBatch : public PictureBatch {
public:
    WorkerBatch(size_t count, std::function<std::vector<PictureResult>()> work, PictureCallback onEach)
        : results_(count), onEach_(std::move(onEach)) {
        worker_ = std::thread([this, work = std::move(work)] {
            auto results = work();
            {
                std::lock_guard lock(mutex_);
                if (done_) return;  // cancelled meanwhile
                results_ = std::move(results);
                done_ = true;
            }
            finished_.notify_all();
            announce();
        });
    }
    ~WorkerBatch() override {
        cancel();
        worker_.join();
    }
    void cancel() override {
        {
            std::lock_guard lock(mutex_);
            if (done_) return;
            for (auto& r : results_) r = {std::nullopt, {FailureKind::Cancelled, "the capture was cancelled", ""}};
            done_ = true;
        }
        finished_.notify_all();
        announce();
    }
    bool wait(std::chrono::milliseconds limit) override {
        std::unique_lock lock(mutex_);
        return finished_.wait_for(lock, limit, [this] { return done_; });
    }
    std::vector<PictureResult> results() override {
        std::lock_guard lock(mutex_);
        return results_;
    }

private:
    void announce() {
        if (!onEach_) return;
        const auto all = results();
        for (size_t i = 0; i < all.size(); ++i) onEach_(i, all[i]);
    }

    std::mutex mutex_;
    std::condition_variable finished_;
    bool done_ = false;
    std::vector<PictureResult> results_;
    PictureCallback onEach_;
    std::thread worker_;
};

}  // namespace

struct GnomeWindowServer::Impl {
    Options options;
    QString connectionName;
    QDBusConnection bus;

    std::mutex mutex;  // guards everything below
    std::map<std::string, uint32_t> numbers;
    uint32_t nextNumber = 1;
    struct Listed {
        KWinWindow window;
        WindowRect bounds;
    };
    std::map<uint32_t, Listed> listed;
    std::vector<WindowListEntry> lastList;
    std::vector<KWinScreen> screens;  // main first

    Impl(Options o, QString name, QDBusConnection b)
        : options(std::move(o)), connectionName(std::move(name)), bus(std::move(b)) {}
    ~Impl() { QDBusConnection::disconnectFromBus(connectionName); }

    bool registered(const QString& name) { return bus.isConnected() && bus.interface()->isServiceRegistered(name); }

    QDBusMessage call(const QString& method, const QList<QVariant>& args, std::chrono::milliseconds timeout) {
        QDBusMessage m = QDBusMessage::createMethodCall(kService, kPath, kInterface, method);
        m.setArguments(args);
        return bus.call(m, QDBus::Block, static_cast<int>(timeout.count()));
    }

    gnome::ExtensionReport report() {
        gnome::ExtensionReport r;
        r.self = selfExecutable();
        r.shellPresent = registered(kShell);
        if (!r.shellPresent) return r;
        r.serving = registered(kService);
        QDBusMessage info = QDBusMessage::createMethodCall(kShell, "/org/gnome/Shell", "org.gnome.Shell.Extensions",
                                                           "GetExtensionInfo");
        info.setArguments({QString::fromLatin1(gnome::kExtensionUuid)});
        const QDBusMessage reply = bus.call(info, QDBus::Block, 3000);
        const QVariantMap map = qdbus_cast<QVariantMap>(reply.arguments().value(0));
        if (!map.isEmpty()) {
            r.state = int(map.value("state").toDouble());
            r.error = map.value("error").toString().toStdString();
            try {
                const json meta =
                    json::parse(std::ifstream(map.value("path").toString().toStdString() + "/metadata.json"));
                for (const auto& a : meta.value("allowed-executables", json::array()))
                    if (a.is_string()) r.allowed.push_back(a.get<std::string>());
            } catch (const json::exception&) {
            }
        }
        if (r.serving) {
            QDBusMessage get =
                QDBusMessage::createMethodCall(kService, kPath, "org.freedesktop.DBus.Properties", "Get");
            get.setArguments({kInterface, QStringLiteral("ApiVersion")});
            const QDBusMessage v = bus.call(get, QDBus::Block, 3000);
            r.apiVersion = qdbus_cast<QDBusVariant>(v.arguments().value(0)).variant().toUInt();
        }
        return r;
    }

    // Why a call of ours failed, as one line.
    Failure failureOf(const QDBusMessage& reply) {
        if (reply.errorName().endsWith(".Error.NotAllowed"))
            return {FailureKind::NotAuthorised,
                    "GNOME Shell's extension refuses us: " + reply.errorMessage().toStdString(),
                    "run the installed Plenavue, or reinstall it so that the extension names this program"};
        if (Failure problem = gnome::extensionProblem(report())) return problem;
        if (reply.errorName() == "org.freedesktop.DBus.Error.NoReply")
            return {FailureKind::TimedOut, "GNOME Shell did not answer in time", ""};
        return {FailureKind::Other, "GNOME Shell's extension failed: " + reply.errorMessage().toStdString(), ""};
    }

    std::vector<WindowListEntry> list() {
        const QDBusMessage reply = call("ListWindows", {}, options.listTimeout);
        if (reply.type() != QDBusMessage::ReplyMessage) throw PlatformError(failureOf(reply).line());
        gnome::GnomeListing parsed;
        try {
            parsed = gnome::parseListing(reply.arguments().value(0).toString().toStdString());
        } catch (const ListingError& e) {
            throw PlatformError(e.what());
        }
        std::lock_guard lock(mutex);
        if (!parsed.listing.screens.empty()) screens = parsed.listing.screens;
        EntryRules rules;
        rules.mainScreen = screens.empty() ? GlobalRect{} : screens.front().geometry;
        rules.ownPid = options.ownPid;
        rules.numberOf = [this](const std::string& id) {
            auto [it, added] = numbers.emplace(id, nextNumber);
            if (added) ++nextNumber;
            return it->second;
        };
        rules.applicationName = [&](const KWinWindow& w) {
            if (auto it = parsed.applications.find(w.id); it != parsed.applications.end() && !it->second.name.empty())
                return it->second.name;
            if (!w.resourceClass.empty()) return w.resourceClass;
            return w.resourceName.empty() ? std::string("<no owner>") : w.resourceName;
        };
        listed.clear();
        lastList.clear();
        for (ListedWindow& w : listedWindows(parsed.listing, rules)) {
            WindowListEntry& e = w.entry;
            e.handle = {std::stoull(w.window.id), ""};
            if (auto it = parsed.applications.find(w.window.id); it != parsed.applications.end()) {
                e.applicationName = it->second.name;
                if (!it->second.icon.empty()) e.applicationIcon = it->second.icon;
            }
            listed[e.number] = {w.window, e.bounds};
            lastList.push_back(e);
        }
        return lastList;
    }

    GlobalRect mainScreen() {
        std::lock_guard lock(mutex);
        return screens.empty() ? GlobalRect{} : screens.front().geometry;
    }

    // One CaptureWindows call for these requests, all at the frame or all with
    // the shadow around it.
    void capture(const std::vector<PictureRequest>& requests, const std::vector<size_t>& which, bool frameOnly,
                 std::chrono::milliseconds deadline, std::vector<PictureResult>& out) {
        if (which.empty()) return;
        QList<qulonglong> ids;
        std::vector<std::optional<Listed>> at;
        {
            std::lock_guard lock(mutex);
            for (size_t i : which) {
                auto it = listed.find(requests[i].window);
                at.push_back(it == listed.end() ? std::nullopt : std::optional<Listed>(it->second));
                ids.push_back(it == listed.end() ? 0 : std::stoull(it->second.window.id));
            }
        }
        MemoryFile file;
        if (file.fd < 0) {
            for (size_t i : which) out[i].failure = {FailureKind::Other, "cannot create a memory file", ""};
            return;
        }
        const QDBusMessage reply = call(
            "CaptureWindows",
            {QVariant::fromValue(ids), frameOnly, QVariantMap{}, QVariant::fromValue(QDBusUnixFileDescriptor(file.fd))},
            deadline);
        if (reply.type() != QDBusMessage::ReplyMessage) {
            const Failure f = failureOf(reply);
            for (size_t i : which) out[i].failure = f;
            return;
        }
        json doc;
        try {
            doc = json::parse(reply.arguments().value(0).toString().toStdString());
        } catch (const json::exception&) {
        }
        const json entries = doc.is_object() ? doc.value("windows", json::array()) : json::array();
        const std::vector<uint8_t> data = file.bytes();
        const GlobalRect main = mainScreen();
        for (size_t k = 0; k < which.size(); ++k) {
            const PictureRequest& request = requests[which[k]];
            PictureResult& result = out[which[k]];
            if (!at[k]) {
                result.failure = {FailureKind::WindowGone, "the window is not in GNOME Shell's list", ""};
                continue;
            }
            const json entry = k < entries.size() ? entries[k] : json::object();
            if (entry.contains("error")) {
                result.failure = pictureError(entry.value("error", ""));
                continue;
            }
            auto image = decodePicture(entry, data);
            if (!image) {
                result.failure = {FailureKind::Other, "GNOME Shell's picture of the window cannot be read", ""};
                continue;
            }
            const json& l = entry.value("logical", json::object());
            const WindowRect logical{l.value("x", 0.0) - main.x, l.value("y", 0.0) - main.y, l.value("width", 0.0),
                                     l.value("height", 0.0)};
            WindowPicture p;
            p.scale = logical.width > 0 ? image->width / logical.width : 1.0;
            p.placement = logical;
            p.frame = {0, 0, double(image->width), double(image->height)};
            if (request.bounds) {
                const WindowRect& r = *request.bounds;
                const double s = p.scale;
                *image = cutOut(*image, {(r.x - logical.x) * s, (r.y - logical.y) * s, r.width * s, r.height * s});
                p.placement = r;
                p.frame = {0, 0, double(image->width), double(image->height)};
            } else if (!frameOnly) {
                const GlobalRect& f = at[k]->window.frame;
                p.frame = {(f.x - main.x - logical.x) * p.scale, (f.y - main.y - logical.y) * p.scale,
                           f.width * p.scale, f.height * p.scale};
            }
            p.image = std::move(*image);
            result.picture = std::move(p);
        }
    }

    std::vector<PictureResult> pictures(const std::vector<PictureRequest>& requests,
                                        std::chrono::milliseconds deadline) {
        std::vector<PictureResult> out(requests.size());
        std::vector<size_t> atFrame, withShadow;
        for (size_t i = 0; i < requests.size(); ++i)
            (requests[i].framing && !requests[i].bounds ? withShadow : atFrame).push_back(i);
        capture(requests, atFrame, true, deadline, out);
        capture(requests, withShadow, false, deadline, out);
        return out;
    }
};

GnomeWindowServer::GnomeWindowServer(std::unique_ptr<Impl> impl) : d_(std::move(impl)) {}
GnomeWindowServer::~GnomeWindowServer() = default;

bool GnomeWindowServer::presentOnSessionBus() { return serviceOnSessionBus(kShell); }

std::unique_ptr<GnomeWindowServer> GnomeWindowServer::connect(const Options& options, std::string* error) {
    auto connection = connectToCompositor(options.busAddress, kShell, "GNOME", "GNOME Shell", error);
    if (!connection) return nullptr;
    const auto& [bus, name] = *connection;
    Options o = options;
    if (o.ownPid == 0) o.ownPid = static_cast<int32_t>(::getpid());
    return std::unique_ptr<GnomeWindowServer>(new GnomeWindowServer(std::make_unique<Impl>(o, name, bus)));
}

std::string GnomeWindowServer::hostName() { return QSysInfo::machineHostName().toStdString(); }

std::vector<ScreenListEntry> GnomeWindowServer::screenList() {
    bool known;
    {
        std::lock_guard lock(d_->mutex);
        known = !d_->screens.empty();
    }
    if (!known) d_->list();
    std::lock_guard lock(d_->mutex);
    std::vector<ScreenListEntry> out;
    if (d_->screens.empty()) return out;
    const GlobalRect main = d_->screens.front().geometry;
    for (const auto& s : d_->screens) {
        const WindowRect top{s.geometry.x - main.x, s.geometry.y - main.y, s.geometry.width, s.geometry.height};
        out.push_back({uint32_t(std::stoul(s.name) + 1), toScreenSpace(top, main.height), s.scale});
    }
    return out;
}

std::optional<std::string> GnomeWindowServer::productName(uint32_t) { return std::nullopt; }

std::vector<WindowListEntry> GnomeWindowServer::windowList() { return d_->list(); }

std::optional<std::vector<uint32_t>> GnomeWindowServer::displaysOfRect(const WindowRect& bounds, uint32_t maxCount) {
    const auto screens = screenList();
    if (screens.empty()) return std::nullopt;
    return displaysMeetingRect(screens, bounds, maxCount);
}

std::optional<Image> GnomeWindowServer::windowPicture(const std::optional<WindowRect>& bounds, uint32_t windowNumber,
                                                      bool framing) {
    PictureRequest r;
    r.window = windowNumber;
    r.bounds = bounds;
    r.framing = framing;
    auto results = d_->pictures({r}, std::chrono::milliseconds(5000));
    throwIfServerLost(results);
    if (!results.front().picture) return std::nullopt;
    return std::move(results.front().picture->image);
}

// The stage as the shell shows it (its top bar included), our own windows
// painted over by what lies behind them.
std::optional<Image> GnomeWindowServer::desktopPicture() {
    if (checkAccess()) return std::nullopt;
    std::vector<WindowListEntry> windows;
    {
        std::lock_guard lock(d_->mutex);
        windows = d_->lastList;
    }
    if (windows.empty()) windows = d_->list();
    MemoryFile file;
    const QDBusMessage reply =
        d_->call("CaptureDesktop", {QVariant::fromValue(QDBusUnixFileDescriptor(file.fd))}, std::chrono::seconds(10));
    if (reply.type() != QDBusMessage::ReplyMessage) {
        const Failure f = d_->failureOf(reply);
        if (f.kind == FailureKind::CompositorLost) throw PlatformError(f.line());
        return std::nullopt;
    }
    const std::vector<uint8_t> data = file.bytes();
    std::string error;
    auto image = readPNGData(data.data(), data.size(), &error);
    if (!image) return std::nullopt;
    json area;
    try {
        area = json::parse(reply.arguments().value(0).toString().toStdString()).value("logical", json::object());
    } catch (const json::exception&) {
        area = json::object();
    }
    const GlobalRect main = d_->mainScreen();
    WindowPicture desktop;
    desktop.placement = {area.value("x", 0.0) - main.x, area.value("y", 0.0) - main.y,
                         area.value("width", double(image->width)), area.value("height", double(image->height))};
    desktop.scale = desktop.placement.width > 0 ? image->width / desktop.placement.width : 1.0;
    desktop.frame = {0, 0, double(image->width), double(image->height)};
    desktop.image = std::move(*image);
    coverOwnWindows(*this, desktop, windows);
    return std::move(desktop.image);
}

Capabilities GnomeWindowServer::capabilities() const {
    return Capability::CoveredWindowsWhole | Capability::GlobalPositions | Capability::DesktopPicture |
           Capability::ConcurrentPictures | Capability::CompositorShadow | Capability::PerScreenScale |
           Capability::NeedsPermission;
}

Failure GnomeWindowServer::checkAccess() { return gnome::extensionProblem(d_->report()); }

std::unique_ptr<PictureBatch> GnomeWindowServer::requestPictures(std::vector<PictureRequest> requests,
                                                                 std::chrono::milliseconds deadline,
                                                                 PictureCallback onEach) {
    const size_t count = requests.size();
    Impl* d = d_.get();
    return std::make_unique<WorkerBatch>(
        count, [d, requests = std::move(requests), deadline] { return d->pictures(requests, deadline); },
        std::move(onEach));
}

}  // namespace pv
