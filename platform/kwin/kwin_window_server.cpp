#include "platform/kwin/kwin_window_server.h"

#include <QCoreApplication>
#include <QDBusConnection>
#include <QDBusConnectionInterface>
#include <QDBusMessage>
#include <QDir>
#include <QFile>
#include <QGuiApplication>
#include <QScreen>
#include <QStandardPaths>
#include <QSysInfo>
#include <QTemporaryFile>
#include <QThread>
#include <QUuid>

#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <cmath>
#include <condition_variable>
#include <map>
#include <mutex>
#include <tuple>

#include "platform/kwin/bus_thread.h"
#include "platform/kwin/compositor_bus.h"
#include "platform/kwin/frame_in_picture.h"
#include "platform/kwin/kwin_windows.h"
#include "platform/kwin/list_windows_script.h"
#include "platform/kwin/screenshots.h"
#include "platform/own_windows.h"

namespace pv {

using namespace kwin;

namespace {

const QString kKWin = QStringLiteral("org.kde.KWin");
const QString kSinkPath = QStringLiteral("/org/plenavue/WindowListSink");
const QString kNullWindow = QStringLiteral("{00000000-0000-0000-0000-000000000000}");
constexpr std::chrono::milliseconds kAccessDeadline{3000};

Failure lostFailure() {
    return {FailureKind::CompositorLost, "KWin has left the session: the compositor went away", ""};
}

// The Name of an application's desktop entry (the [Desktop Entry] group's
// unlocalised Name=), found by its id on the XDG data path.
std::optional<std::string> desktopEntryName(const std::string& id) {
    if (id.empty()) return std::nullopt;
    const QString path =
        QStandardPaths::locate(QStandardPaths::ApplicationsLocation, QString::fromStdString(id) + ".desktop");
    QFile file(path);
    if (path.isEmpty() || !file.open(QIODevice::ReadOnly)) return std::nullopt;
    bool inEntry = false;
    while (!file.atEnd()) {
        const QString line = QString::fromUtf8(file.readLine()).trimmed();
        if (line.startsWith('[')) inEntry = line == "[Desktop Entry]";
        if (inEntry && line.startsWith("Name=")) return line.mid(5).trimmed().toStdString();
    }
    return std::nullopt;
}

}  // namespace

// Receives the list the KWin script sends with callDBus. Lives on the bus
// thread, so that it is served while the caller waits.
class WindowListSink : public QObject {
    Q_OBJECT
    Q_CLASSINFO("D-Bus Interface", "org.plenavue.WindowListSink")

public:
    void expect(const QString& token) {
        std::lock_guard lock(mutex_);
        token_ = token;
        json_.reset();
    }
    std::optional<std::string> waitFor(std::chrono::milliseconds limit) {
        std::unique_lock lock(mutex_);
        arrived_.wait_for(lock, limit, [this] { return json_.has_value(); });
        return json_;
    }

public Q_SLOTS:
    Q_SCRIPTABLE void windowList(const QString& token, const QString& json) {
        {
            std::lock_guard lock(mutex_);
            if (token != token_) return;  // a late answer to an earlier listing
            json_ = json.toStdString();
        }
        arrived_.notify_all();
    }

private:
    std::mutex mutex_;
    std::condition_variable arrived_;
    QString token_;
    std::optional<std::string> json_;
};

struct KWinWindowServer::Impl {
    Options options;
    QString connectionName;
    QDBusConnection bus;
    std::unique_ptr<BusThread> thread;
    std::unique_ptr<ScreenShots> shots;
    WindowListSink* sink = nullptr;  // on the bus thread

    mutable std::mutex mutex;  // guards everything below
    int api = 0;
    int serial = 0;
    QString runPathStyle;  // "/%1" (5.27) or "/Scripting/Script%1" (Plasma 6), once known
    std::map<std::string, uint32_t> numbers;
    uint32_t nextNumber = 1;
    std::map<std::string, uint32_t> displayIds;
    std::map<std::string, std::string> appNames;
    struct Listed {
        KWinWindow window;
        WindowRect bounds;
    };
    std::map<uint32_t, Listed> listed;
    std::vector<ListedWindow> lastList;
    struct Screen {
        std::string name;
        GlobalRect geometry;
        double scale = 1;
        std::optional<std::string> product;
    };
    std::vector<Screen> screens;  // main first
    bool screensFromQt = false;

    Impl(Options o, QString name, QDBusConnection b)
        : options(std::move(o)), connectionName(std::move(name)), bus(std::move(b)) {}

    ~Impl() {
        shots.reset();
        if (thread)
            thread->run([this] {
                bus.unregisterObject(kSinkPath);
                delete sink;
            });
        thread.reset();
        QDBusConnection::disconnectFromBus(connectionName);
    }

    bool kwinThere() { return !shots->compositorGone() && bus.interface()->isServiceRegistered(kKWin); }

    [[noreturn]] void throwLostOr(const std::string& what) {
        if (!kwinThere()) throw PlatformError(lostFailure().line());
        throw PlatformError(what);
    }

    QDBusMessage call(const QString& path, const QString& interface, const QString& method,
                      const QList<QVariant>& args) {
        QDBusMessage m = QDBusMessage::createMethodCall(kKWin, path, interface, method);
        m.setArguments(args);
        return bus.call(m, QDBus::Block, static_cast<int>(options.listTimeout.count()));
    }

    // Loads the script with our address and a fresh token, runs it, waits for
    // its call, unloads it.
    KWinListing runListing() {
        const QString token = QUuid::createUuid().toString(QUuid::WithoutBraces);
        QString text = QString::fromUtf8(kListWindowsScript);
        text.replace("__SERVICE__", bus.baseService()).replace("__PATH__", kSinkPath).replace("__TOKEN__", token);
        QTemporaryFile file(QDir::tempPath() + "/plenavue-kwin-XXXXXX.js");
        if (!file.open() || file.write(text.toUtf8()) < 0 || !file.flush())
            throw PlatformError("cannot write KWin's window list script into " + QDir::tempPath().toStdString());

        QString name, pathStyle;
        {
            std::lock_guard lock(mutex);
            name = QStringLiteral("plenavue-list-%1-%2-%3")
                       .arg(QCoreApplication::applicationPid())
                       .arg(connectionName.section('-', -1))
                       .arg(++serial);
            pathStyle = runPathStyle;
        }
        sink->expect(token);
        const QDBusMessage loaded = call("/Scripting", "org.kde.kwin.Scripting", "loadScript", {file.fileName(), name});
        if (loaded.type() != QDBusMessage::ReplyMessage)
            throwLostOr("KWin does not load scripts: " + loaded.errorMessage().toStdString());
        const int id = loaded.arguments().value(0).toInt();
        if (id < 0) throw PlatformError("KWin refused the window list script");

        // 5.27 puts the script at /<id>, Plasma 6 at /Scripting/Script<id>.
        QStringList styles = {"/%1", "/Scripting/Script%1"};
        if (!pathStyle.isEmpty()) styles = {pathStyle};
        bool ran = false;
        for (const QString& style : styles) {
            if (call(style.arg(id), "org.kde.kwin.Script", "run", {}).type() != QDBusMessage::ReplyMessage) continue;
            ran = true;
            std::lock_guard lock(mutex);
            runPathStyle = style;
            break;
        }
        const auto json = ran ? sink->waitFor(options.listTimeout) : std::nullopt;
        call("/Scripting", "org.kde.kwin.Scripting", "unloadScript", {name});
        if (!ran) throwLostOr("KWin does not run scripts");
        if (!json)
            throwLostOr("KWin did not report its windows within " + std::to_string(options.listTimeout.count()) +
                        " ms");
        try {
            return parseListing(*json);
        } catch (const ListingError& e) {
            throw PlatformError(e.what());
        }
    }

    uint32_t numberOf(const std::string& id) {
        auto [it, added] = numbers.emplace(id, nextNumber);
        if (added) ++nextNumber;
        return it->second;
    }

    uint32_t displayIdOf(const std::string& name) {
        auto [it, added] = displayIds.emplace(name, static_cast<uint32_t>(displayIds.size() + 1));
        return it->second;
    }

    std::string applicationName(const KWinWindow& w) {
        const std::string key = w.desktopFileName + "\n" + w.resourceClass;
        if (auto it = appNames.find(key); it != appNames.end()) return it->second;
        std::optional<std::string> name = desktopEntryName(w.desktopFileName);
        if (!name && w.desktopFileName != w.resourceClass) name = desktopEntryName(w.resourceClass);
        if (!name && !w.resourceClass.empty()) name = w.resourceClass;
        if (!name && !w.resourceName.empty()) name = w.resourceName;
        return appNames[key] = name.value_or("<no owner>");
    }

    // Qt's screens on Wayland, from the thread of the GUI application.
    static bool qtScreensReadable() {
        auto* gui = qobject_cast<QGuiApplication*>(QCoreApplication::instance());
        return gui && QGuiApplication::platformName() == "wayland" && QThread::currentThread() == gui->thread();
    }

    void readQtScreens() {
        std::vector<Screen> list;
        QScreen* primary = QGuiApplication::primaryScreen();
        for (QScreen* s : QGuiApplication::screens()) {
            const QRect g = s->geometry();
            Screen screen{s->name().toStdString(),
                          {double(g.x()), double(g.y()), double(g.width()), double(g.height())},
                          s->devicePixelRatio(),
                          std::nullopt};
            if (!s->model().isEmpty()) screen.product = s->model().toStdString();
            list.insert(s == primary ? list.begin() : list.end(), screen);
        }
        std::lock_guard lock(mutex);
        screens = orderedScreens(std::move(list));
        screensFromQt = true;
    }

    void takeListingScreens(const KWinListing& listing) {
        std::vector<Screen> list;
        for (const KWinScreen& s : listing.screens) list.push_back({s.name, s.geometry, s.scale, std::nullopt});
        std::lock_guard lock(mutex);
        if (screensFromQt || list.empty()) return;
        screens = orderedScreens(std::move(list));
    }

    // The main screen first, the others left to right, then top to bottom.
    static std::vector<Screen> orderedScreens(std::vector<Screen> list) {
        if (list.size() > 1)
            std::stable_sort(list.begin() + 1, list.end(), [](const Screen& a, const Screen& b) {
                return std::tie(a.geometry.x, a.geometry.y) < std::tie(b.geometry.x, b.geometry.y);
            });
        return list;
    }

    GlobalRect mainScreen() {
        std::lock_guard lock(mutex);
        return screens.empty() ? GlobalRect{} : screens.front().geometry;
    }

    // The layout's bounding box: what CaptureWorkspace shows.
    GlobalRect layout() {
        std::lock_guard lock(mutex);
        GlobalRect all;
        for (const Screen& s : screens) all = all.united(s.geometry);
        return all;
    }

    std::vector<ListedWindow> list() {
        const KWinListing listing = runListing();
        takeListingScreens(listing);
        const GlobalRect main = mainScreen();
        std::lock_guard lock(mutex);
        api = listing.api;
        EntryRules rules;
        rules.mainScreen = main;
        rules.ownPid = options.ownPid;
        rules.numberOf = [this](const std::string& id) { return numberOf(id); };
        rules.applicationName = [this](const KWinWindow& w) { return applicationName(w); };
        auto windows = listedWindows(listing, rules);
        listed.clear();
        for (const ListedWindow& w : windows) listed[w.entry.number] = {w.window, w.entry.bounds};
        lastList = windows;
        return windows;
    }

    bool screenLocked() {
        QDBusMessage m = QDBusMessage::createMethodCall("org.freedesktop.ScreenSaver", "/ScreenSaver",
                                                        "org.freedesktop.ScreenSaver", "GetActive");
        const QDBusMessage reply = bus.call(m, QDBus::Block, 2000);
        // No screen saver service: nothing can lock the screen.
        return reply.type() == QDBusMessage::ReplyMessage && reply.arguments().value(0).toBool();
    }

    // The picture the request asks for, out of KWin's picture of the window.
    static PictureResult windowResult(RawPicture raw, const Listed& at, const PictureRequest& request) {
        const double s = raw.scale;
        const auto frame = frameInPicture(raw.image, s, at.window.frame, at.window.buffer);
        if (!frame) return {std::nullopt, {FailureKind::Other, "the window's frame is not in KWin's picture", ""}};
        WindowPicture p;
        p.scale = s;
        const WindowRect& b = at.bounds;
        if (request.bounds) {
            const WindowRect& r = *request.bounds;
            p.image =
                cutOut(raw.image, {frame->x + (r.x - b.x) * s, frame->y + (r.y - b.y) * s, r.width * s, r.height * s});
            p.placement = r;
        } else if (request.framing) {
            p.image = std::move(raw.image);
            p.placement = {b.x - frame->x / s, b.y - frame->y / s, p.image.width / s, p.image.height / s};
        } else {
            p.image = cutOut(raw.image, *frame);
            p.placement = b;
        }
        p.frame = request.framing && !request.bounds ? *frame
                                                     : CanvasRect{0, 0, double(p.image.width), double(p.image.height)};
        return {std::move(p), {}};
    }

    ShotOrder windowOrder(const PictureRequest& request, bool locked) {
        ShotOrder order;
        order.method = "CaptureWindow";
        if (locked) {
            order.refuse = Failure{FailureKind::ScreenLocked, "the screen is locked", "unlock it and capture again"};
            return order;
        }
        std::optional<Listed> at;
        {
            std::lock_guard lock(mutex);
            if (auto it = listed.find(request.window); it != listed.end()) at = it->second;
        }
        if (!at) {
            order.refuse = Failure{FailureKind::WindowGone, "the window is not in KWin's list", ""};
            return order;
        }
        order.handle = QString::fromStdString(at->window.id);
        order.options = {
            {"include-decoration", true}, {"include-shadow", request.framing}, {"native-resolution", true}};
        order.finish = [at = *at, request](RawPicture raw) { return windowResult(std::move(raw), at, request); };
        return order;
    }

    std::optional<WindowPicture> workspacePicture() {
        ShotOrder order;
        order.method = "CaptureWorkspace";
        order.options = {{"native-resolution", true}};
        const GlobalRect all = layout(), main = mainScreen();
        order.finish = [placement = WindowRect{all.x - main.x, all.y - main.y, all.width, all.height}](RawPicture raw) {
            WindowPicture p;
            p.scale = raw.scale;
            p.placement = placement;
            p.frame = {0, 0, double(raw.image.width), double(raw.image.height)};
            p.image = std::move(raw.image);
            return PictureResult{std::move(p), {}};
        };
        std::vector<ShotOrder> orders;
        orders.push_back(std::move(order));
        auto batch = shots->send(std::move(orders), std::chrono::milliseconds(5000));
        batch->wait(std::chrono::milliseconds(6000));
        batch->cancel();
        auto results = batch->results();
        throwIfServerLost(results);
        return results.front().picture;
    }
};

KWinWindowServer::KWinWindowServer(std::unique_ptr<Impl> impl) : d_(std::move(impl)) {}

KWinWindowServer::~KWinWindowServer() = default;

bool KWinWindowServer::presentOnSessionBus() { return serviceOnSessionBus(kKWin); }

std::unique_ptr<KWinWindowServer> KWinWindowServer::connect(const Options& options, std::string* error) {
    auto connection = connectToCompositor(options.busAddress, kKWin, "KDE Plasma", "KWin", error);
    if (!connection) return nullptr;
    const auto& [bus, name] = *connection;
    Options o = options;
    if (o.ownPid == 0) o.ownPid = static_cast<int32_t>(::getpid());
    auto impl = std::make_unique<Impl>(o, name, bus);
    impl->thread = std::make_unique<BusThread>();
    impl->shots = std::make_unique<ScreenShots>(*impl->thread, bus);
    Impl* d = impl.get();
    bool registered = false;
    impl->thread->run([d, &registered] {
        d->sink = new WindowListSink;
        registered = d->bus.registerObject(kSinkPath, d->sink, QDBusConnection::ExportScriptableSlots);
    });
    if (!registered) {
        *error = "cannot receive KWin's window list on the session bus";
        return nullptr;
    }
    return std::unique_ptr<KWinWindowServer>(new KWinWindowServer(std::move(impl)));
}

std::string KWinWindowServer::hostName() { return QSysInfo::machineHostName().toStdString(); }

std::vector<ScreenListEntry> KWinWindowServer::screenList() {
    if (Impl::qtScreensReadable()) {
        d_->readQtScreens();
    } else {
        bool known;
        {
            std::lock_guard lock(d_->mutex);
            known = !d_->screens.empty();
        }
        if (!known) d_->list();
    }
    std::lock_guard lock(d_->mutex);
    std::vector<ScreenListEntry> out;
    if (d_->screens.empty()) return out;
    const GlobalRect main = d_->screens.front().geometry;
    for (const auto& s : d_->screens) {
        const WindowRect top{s.geometry.x - main.x, s.geometry.y - main.y, s.geometry.width, s.geometry.height};
        out.push_back({d_->displayIdOf(s.name), toScreenSpace(top, main.height), s.scale});
    }
    return out;
}

std::optional<std::string> KWinWindowServer::productName(uint32_t displayId) {
    std::lock_guard lock(d_->mutex);
    for (const auto& s : d_->screens)
        if (d_->displayIdOf(s.name) == displayId) return s.product;
    return std::nullopt;
}

std::vector<WindowListEntry> KWinWindowServer::windowList() {
    std::vector<WindowListEntry> entries;
    for (auto& w : d_->list()) entries.push_back(std::move(w.entry));
    return entries;
}

std::optional<std::vector<uint32_t>> KWinWindowServer::displaysOfRect(const WindowRect& bounds, uint32_t maxCount) {
    std::vector<ScreenListEntry> screens;
    {
        std::lock_guard lock(d_->mutex);
        if (d_->screens.empty()) return std::nullopt;
        const GlobalRect main = d_->screens.front().geometry;
        for (const auto& s : d_->screens) {
            const WindowRect top{s.geometry.x - main.x, s.geometry.y - main.y, s.geometry.width, s.geometry.height};
            screens.push_back({d_->displayIdOf(s.name), toScreenSpace(top, main.height), s.scale});
        }
    }
    return displaysMeetingRect(screens, bounds, maxCount);
}

std::optional<Image> KWinWindowServer::windowPicture(const std::optional<WindowRect>& bounds, uint32_t windowNumber,
                                                     bool framing) {
    PictureRequest r;
    r.window = windowNumber;
    r.bounds = bounds;
    r.framing = framing;
    auto results = takePictures({r}, std::chrono::milliseconds(5000));
    throwIfServerLost(results);
    if (!results.front().picture) return std::nullopt;
    return std::move(results.front().picture->image);
}

// The screens as shown, with our own windows painted over by what lies
// behind them (as on X11), since the screen shows them.
std::optional<Image> KWinWindowServer::desktopPicture() {
    if (checkAccess()) return std::nullopt;
    std::vector<ListedWindow> windows;
    {
        std::lock_guard lock(d_->mutex);
        windows = d_->lastList;
    }
    if (windows.empty()) windows = d_->list();
    auto desktop = d_->workspacePicture();
    if (!desktop) return std::nullopt;

    std::vector<WindowListEntry> entries;
    for (const auto& w : windows) entries.push_back(w.entry);
    coverOwnWindows(*this, *desktop, entries);
    return std::move(desktop->image);
}

Capabilities KWinWindowServer::capabilities() const {
    return Capability::CoveredWindowsWhole | Capability::GlobalPositions | Capability::DesktopPicture |
           Capability::ConcurrentPictures | Capability::CompositorShadow | Capability::PerScreenScale |
           Capability::NeedsPermission;
}

Failure KWinWindowServer::checkAccess() {
    if (!d_->kwinThere()) return lostFailure();
    if (d_->screenLocked()) return {FailureKind::ScreenLocked, "the screen is locked", "unlock it and capture again"};
    ShotOrder probe;
    probe.method = "CaptureWindow";
    probe.handle = kNullWindow;
    probe.finish = [](RawPicture) { return PictureResult{WindowPicture{}, {}}; };
    std::vector<ShotOrder> orders;
    orders.push_back(std::move(probe));
    auto batch = d_->shots->send(std::move(orders), kAccessDeadline);
    batch->wait(kAccessDeadline + std::chrono::seconds(1));
    batch->cancel();
    const Failure answer = batch->results().front().failure;
    // The null window does not exist: "invalid window" is KWin serving us.
    if (answer.kind == FailureKind::WindowGone) return {};
    return answer;
}

std::unique_ptr<PictureBatch> KWinWindowServer::requestPictures(std::vector<PictureRequest> requests,
                                                                std::chrono::milliseconds deadline,
                                                                PictureCallback onEach) {
    const bool locked = !requests.empty() && d_->kwinThere() && d_->screenLocked();
    std::vector<ShotOrder> orders;
    for (const PictureRequest& r : requests) orders.push_back(d_->windowOrder(r, locked));
    return d_->shots->send(std::move(orders), deadline, std::move(onEach));
}

int KWinWindowServer::scriptApi() const {
    std::lock_guard lock(d_->mutex);
    return d_->api;
}

}  // namespace pv

#include "kwin_window_server.moc"
