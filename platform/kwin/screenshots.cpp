#include "platform/kwin/screenshots.h"

#include <QCoreApplication>
#include <QDBusConnectionInterface>
#include <QDBusMessage>
#include <QDBusPendingCallWatcher>
#include <QDBusPendingReply>
#include <QDBusServiceWatcher>
#include <QDBusUnixFileDescriptor>
#include <QImage>
#include <QSocketNotifier>
#include <QTimer>

#include <fcntl.h>
#include <unistd.h>

#include <cerrno>
#include <condition_variable>
#include <map>
#include <mutex>

#include "platform/kwin/bus_thread.h"

namespace pv::kwin {

namespace {

const QString kKWin = QStringLiteral("org.kde.KWin");
const QString kShotPath = QStringLiteral("/org/kde/KWin/ScreenShot2");
const QString kShotInterface = QStringLiteral("org.kde.KWin.ScreenShot2");

Failure lostFailure() {
    return {FailureKind::CompositorLost, "KWin has left the session: the compositor went away", ""};
}

// Our pixels from KWin's: whatever QImage format the reply names, to
// premultiplied RGBA rows without gaps.
std::optional<Image> imageOf(const QByteArray& bytes, const QVariantMap& meta) {
    const int w = meta.value("width").toInt(), h = meta.value("height").toInt();
    const int stride = meta.value("stride").toInt(), format = meta.value("format").toInt();
    if (w <= 0 || h <= 0 || stride < w || format <= QImage::Format_Invalid || format >= QImage::NImageFormats)
        return std::nullopt;
    const QImage raw(reinterpret_cast<const uchar*>(bytes.constData()), w, h, stride, QImage::Format(format));
    const QImage rgba = raw.convertToFormat(QImage::Format_RGBA8888_Premultiplied);
    Image out(w, h);
    for (int y = 0; y < h; ++y) std::copy_n(rgba.constScanLine(y), 4 * w, out.row(y));
    return out;
}

}  // namespace

Failure notAuthorised(const std::string& kwinMessage) {
    const std::string exe = QCoreApplication::applicationFilePath().toStdString();
    return {FailureKind::NotAuthorised, "KDE Plasma refuses Plenavue pictures of windows (" + kwinMessage + ")",
            "Plasma allows programs whose installed desktop entry names them by absolute path: install Plenavue "
            "(cmake --install), or put a file into ~/.local/share/applications/ holding [Desktop Entry], "
            "Type=Application, Name=Plenavue, Exec=" +
                exe + " and X-KDE-DBUS-Restricted-Interfaces=org.kde.KWin.ScreenShot2"};
}

// What the waiting thread and the bus thread share of one batch.
struct ScreenShots::State {
    explicit State(size_t n, PictureCallback each) : results(n), done(n, false), open(n), onEach(std::move(each)) {}

    // Makes result i final; false when it already was.
    bool end(size_t i, PictureResult r) {
        {
            std::lock_guard lock(mutex);
            if (done[i]) return false;
            done[i] = true;
            results[i] = std::move(r);
            --open;
        }
        // A final result is never written again, so it is read without the lock.
        if (onEach) onEach(i, results[i]);
        changed.notify_all();
        return true;
    }
    void endAll(const Failure& f) {
        for (size_t i = 0; i < results.size(); ++i) end(i, PictureResult{std::nullopt, f});
    }
    bool isDone(size_t i) {
        std::lock_guard lock(mutex);
        return done[i];
    }
    bool allDone() {
        std::lock_guard lock(mutex);
        return open == 0;
    }

    std::mutex mutex;
    std::condition_variable changed;
    std::vector<PictureResult> results;
    std::vector<bool> done;
    size_t open;
    PictureCallback onEach;
};

// One batch's requests on the bus thread: pipes, replies, bytes, its deadline.
class ScreenShots::Work : public QObject {
public:
    Work(std::shared_ptr<State> state, std::vector<ShotOrder> orders, QDBusConnection bus, std::function<void()> ended)
        : state_(std::move(state)), bus_(std::move(bus)), ended_(std::move(ended)) {
        requests_.resize(orders.size());
        for (size_t i = 0; i < orders.size(); ++i) requests_[i].order = std::move(orders[i]);
    }
    ~Work() override {
        for (auto& r : requests_) closePipe(r);  // a late writer in KWin gets EPIPE and carries on
    }

    void start(std::chrono::milliseconds deadline) {
        QTimer::singleShot(deadline, this, [this, deadline] {
            endAll(
                {FailureKind::TimedOut, "KWin did not answer within " + std::to_string(deadline.count()) + " ms", ""});
        });
        for (size_t i = 0; i < requests_.size(); ++i) send(i, deadline);
    }

    void endAll(const Failure& f) {
        for (size_t i = 0; i < requests_.size(); ++i) end(i, PictureResult{std::nullopt, f});
    }

private:
    struct Request {
        ShotOrder order;
        int fd = -1;
        QVariantMap meta;
        QByteArray bytes;
        qsizetype expected = -1;
        std::unique_ptr<QSocketNotifier> notifier;
    };

    // The pipe's write end goes with the message; our copy closes at once,
    // so that only KWin holds it. Only our end does not block.
    void send(size_t i, std::chrono::milliseconds deadline) {
        Request& r = requests_[i];
        if (r.order.refuse) return end(i, {std::nullopt, *r.order.refuse});
        int fds[2];
        if (::pipe2(fds, O_CLOEXEC) != 0) return end(i, {std::nullopt, {FailureKind::Other, "no pipe", ""}});
        ::fcntl(fds[0], F_SETFL, O_NONBLOCK);
        r.fd = fds[0];
        QDBusMessage m = QDBusMessage::createMethodCall(kKWin, kShotPath, kShotInterface, r.order.method);
        if (!r.order.handle.isEmpty()) m << r.order.handle;
        m << r.order.options << QVariant::fromValue(QDBusUnixFileDescriptor(fds[1]));
        ::close(fds[1]);
        auto* watcher = new QDBusPendingCallWatcher(bus_.asyncCall(m, static_cast<int>(deadline.count())), this);
        connect(watcher, &QDBusPendingCallWatcher::finished, this, [this, i, watcher] {
            watcher->deleteLater();
            replied(i, *watcher);
        });
    }

    void replied(size_t i, const QDBusPendingCall& call) {
        if (state_->isDone(i)) return;
        QDBusPendingReply<QVariantMap> reply = call;
        if (reply.isError()) return end(i, {std::nullopt, failureOf(reply.error())});
        Request& r = requests_[i];
        r.meta = reply.value();
        r.expected = qsizetype(r.meta.value("stride").toLongLong()) * r.meta.value("height").toLongLong();
        if (r.meta.value("type").toString() != "raw" || r.expected <= 0)
            return end(i, {std::nullopt, {FailureKind::Other, "KWin sent a picture of a kind we do not read", ""}});
        r.notifier = std::make_unique<QSocketNotifier>(r.fd, QSocketNotifier::Read);
        connect(r.notifier.get(), &QSocketNotifier::activated, this, [this, i] { drain(i); });
        drain(i);
    }

    // Reads what the pipe holds; the picture is whole at exactly stride x
    // height bytes (KWin may keep the pipe open, so no end of file is awaited).
    void drain(size_t i) {
        Request& r = requests_[i];
        if (r.fd < 0) return;
        char buf[1 << 16];
        for (;;) {
            const qsizetype want = std::min<qsizetype>(sizeof buf, r.expected - r.bytes.size());
            if (want == 0) break;
            const ssize_t n = ::read(r.fd, buf, static_cast<size_t>(want));
            if (n > 0) {
                r.bytes.append(buf, n);
                continue;
            }
            if (n < 0 && errno == EINTR) continue;
            if (n < 0 && errno == EAGAIN) return;
            return end(i, {std::nullopt, {FailureKind::Other, "KWin's picture ended early", ""}});
        }
        closePipe(r);
        auto image = imageOf(r.bytes, r.meta);
        r.bytes = QByteArray();
        if (!image) return end(i, {std::nullopt, {FailureKind::Other, "KWin sent a picture we cannot read", ""}});
        const double scale = r.meta.value("scale", 1.0).toDouble();
        end(i, r.order.finish(RawPicture{std::move(*image), scale > 0 ? scale : 1.0}));
    }

    Failure failureOf(const QDBusError& error) {
        const QString name = error.name();
        const std::string text = error.message().toStdString();
        if (name.endsWith(".NoAuthorized")) return notAuthorised(text);
        if (name.endsWith(".InvalidWindow")) return {FailureKind::WindowGone, "the window has gone", ""};
        const bool kwinThere = bus_.interface()->isServiceRegistered(kKWin);
        if (!kwinThere || error.type() == QDBusError::ServiceUnknown || error.type() == QDBusError::Disconnected)
            return lostFailure();
        if (error.type() == QDBusError::NoReply || error.type() == QDBusError::Timeout ||
            error.type() == QDBusError::TimedOut)
            return {FailureKind::TimedOut, "KWin did not answer in time", ""};
        if (error.type() == QDBusError::UnknownMethod || error.type() == QDBusError::UnknownInterface ||
            error.type() == QDBusError::UnknownObject)
            return {FailureKind::Unsupported, "this KWin has no org.kde.KWin.ScreenShot2",
                    "Plenavue needs KDE Plasma 5.27 or later"};
        return {FailureKind::Other, "KWin: " + name.toStdString() + ": " + text, ""};
    }

    void end(size_t i, PictureResult result) {
        closePipe(requests_[i]);
        state_->end(i, std::move(result));
        if (!finished_ && state_->allDone()) {
            finished_ = true;
            ended_();
        }
    }

    void closePipe(Request& r) {
        r.notifier.reset();
        if (r.fd >= 0) ::close(r.fd);
        r.fd = -1;
    }

    std::shared_ptr<State> state_;
    QDBusConnection bus_;
    std::function<void()> ended_;
    std::vector<Request> requests_;
    bool finished_ = false;
};

// The bus thread's side: the batches in flight, and whether KWin is still there.
struct ScreenShots::Service {
    Service(BusThread& busThread, const QDBusConnection& connection, std::atomic<bool>& goneFlag)
        : thread(busThread),
          bus(connection),
          gone(goneFlag),
          watcher(kKWin, connection, QDBusServiceWatcher::WatchForUnregistration) {
        QObject::connect(&watcher, &QDBusServiceWatcher::serviceUnregistered, &watcher, [this] {
            this->gone = true;
            for (auto& [state, work] : works) work->endAll(lostFailure());
        });
    }

    void start(const std::shared_ptr<State>& state, std::vector<ShotOrder> orders, std::chrono::milliseconds deadline,
               const std::weak_ptr<Service>& self) {
        if (gone) return state->endAll(lostFailure());
        State* key = state.get();
        // Removed after the call that ended it has returned.
        auto work = std::make_unique<Work>(state, std::move(orders), bus, [this, key, self] {
            thread.post([self, key] {
                if (auto service = self.lock()) service->works.erase(key);
            });
        });
        Work* w = work.get();
        works.emplace(key, std::move(work));
        w->start(deadline);
    }

    BusThread& thread;
    QDBusConnection bus;
    std::atomic<bool>& gone;
    QDBusServiceWatcher watcher;
    std::map<State*, std::unique_ptr<Work>> works;
};

namespace {

class Batch : public PictureBatch {
public:
    Batch(std::shared_ptr<ScreenShots::State> state, std::function<void()> dropWork)
        : state_(std::move(state)), dropWork_(std::move(dropWork)) {}
    ~Batch() override { cancel(); }

    void cancel() override {
        bool open;
        {
            std::lock_guard lock(state_->mutex);
            open = state_->open > 0;
        }
        if (!open) return;
        state_->endAll({FailureKind::Cancelled, "cancelled", ""});
        dropWork_();
    }

    bool wait(std::chrono::milliseconds limit) override {
        std::unique_lock lock(state_->mutex);
        return state_->changed.wait_for(lock, limit, [this] { return state_->open == 0; });
    }

    std::vector<PictureResult> results() override {
        std::lock_guard lock(state_->mutex);
        return state_->results;
    }

private:
    std::shared_ptr<ScreenShots::State> state_;
    std::function<void()> dropWork_;
};

}  // namespace

ScreenShots::ScreenShots(BusThread& thread, QDBusConnection bus) : thread_(thread), bus_(std::move(bus)) {
    thread_.run([this] { service_ = std::make_shared<Service>(thread_, bus_, gone_); });
}

// The service goes on the bus thread, where all its objects live; tasks
// posted for it later find it gone.
ScreenShots::~ScreenShots() {
    thread_.run([this] {
        for (auto& [state, work] : service_->works) work->endAll({FailureKind::Cancelled, "cancelled", ""});
        service_.reset();
    });
}

std::unique_ptr<PictureBatch> ScreenShots::send(std::vector<ShotOrder> orders, std::chrono::milliseconds deadline,
                                                PictureCallback onEach) {
    auto state = std::make_shared<State>(orders.size(), std::move(onEach));
    std::weak_ptr<Service> service = service_;
    BusThread& thread = thread_;
    if (gone_) {
        state->endAll(lostFailure());
    } else if (!orders.empty()) {
        thread.post([service, state, orders = std::move(orders), deadline]() mutable {
            if (auto s = service.lock()) s->start(state, std::move(orders), deadline, service);
        });
    }
    State* key = state.get();
    return std::make_unique<Batch>(state, [&thread, service, key] {
        thread.post([service, key] {
            if (auto s = service.lock()) s->works.erase(key);
        });
    });
}

}  // namespace pv::kwin
