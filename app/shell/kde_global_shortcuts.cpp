#include "app/shell/kde_global_shortcuts.h"

#include <QDBusConnection>
#include <QDBusConnectionInterface>
#include <QDBusMessage>
#include <QDBusObjectPath>
#include <QDBusReply>
#include <QKeySequence>
#include <QTimer>

#include <algorithm>

#include "app/app_delegate.h"
#include "platform/kwin/keyboard_layouts.h"

namespace pv {

namespace {

const QString kService = QStringLiteral("org.kde.kglobalaccel");
const QString kPath = QStringLiteral("/kglobalaccel");
const QString kInterface = QStringLiteral("org.kde.KGlobalAccel");
const QString kComponent = QStringLiteral("plenavue");

// The service's SetShortcutFlag values.
constexpr uint kSetPresent = 2;
constexpr uint kIsDefault = 8;

struct Action {
    const char* name;
    const char* friendly;
    int digit;
};
constexpr Action kActions[] = {{"capture-all", "Capture all windows", 5},
                               {"capture-selected", "Capture selected windows", 6}};

QStringList actionId(const Action& a) { return {kComponent, a.name, "Plenavue", a.friendly}; }

QDBusMessage callService(const QString& method, const QList<QVariant>& args) {
    QDBusMessage m = QDBusMessage::createMethodCall(kService, kPath, kInterface, method);
    m.setArguments(args);
    return QDBusConnection::sessionBus().call(m);
}

}  // namespace

std::vector<int> KdeGlobalShortcuts::keysFor(int digit) {
    const auto digitKey = static_cast<Qt::Key>(Qt::Key_0 + digit);
    std::vector<int> keys{QKeyCombination(Qt::SHIFT | Qt::META, digitKey).toCombined()};
    for (const auto& layout : kwin::sessionKeyboardLayouts()) {
        const auto symbol = kwin::shiftedDigit(layout, digit);
        if (!symbol || *symbol > 0xffff) continue;
        // Qt names a character's key by its upper-case form.
        const auto qtKey = static_cast<Qt::Key>(QChar(char16_t(*symbol)).toUpper().unicode());
        const int key = QKeyCombination(Qt::META, qtKey).toCombined();
        if (std::find(keys.begin(), keys.end(), key) == keys.end()) keys.push_back(key);
    }
    return keys;
}

std::unique_ptr<KdeGlobalShortcuts> KdeGlobalShortcuts::install(AppDelegate& delegate, std::vector<std::string>* held) {
    QDBusConnection bus = QDBusConnection::sessionBus();
    if (!bus.isConnected() || !bus.interface()->isServiceRegistered(kService)) return nullptr;
    std::unique_ptr<KdeGlobalShortcuts> shortcuts(new KdeGlobalShortcuts(delegate));
    for (const Action& a : kActions) {
        const QStringList id = actionId(a);
        QList<int> keys;
        for (int k : keysFor(a.digit)) keys << k;
        callService("doRegister", {id});
        callService("setShortcut", {id, QVariant::fromValue(keys), kIsDefault});
        // Keys the person chose in the settings win over ours; the reply is
        // what the action now has, empty when others hold all of ours.
        QDBusReply<QList<int>> bound = callService("setShortcut", {id, QVariant::fromValue(keys), kSetPresent});
        if (bound.isValid() && bound.value().isEmpty()) held->push_back("Shift+Meta+" + std::to_string(a.digit));
    }
    QDBusReply<QDBusObjectPath> component = callService("getComponent", {kComponent});
    if (!component.isValid()) return nullptr;
    bus.connect(kService, component.value().path(), "org.kde.kglobalaccel.Component", "globalShortcutPressed",
                shortcuts.get(), SLOT(pressed(QString, QString, qlonglong)));
    return shortcuts;
}

KdeGlobalShortcuts::KdeGlobalShortcuts(AppDelegate& delegate) : delegate_(delegate) {}

KdeGlobalShortcuts::~KdeGlobalShortcuts() {
    for (const Action& a : kActions) callService("setInactive", {actionId(a)});
}

void KdeGlobalShortcuts::pressed(const QString& component, const QString& action, qlonglong) {
    if (component != kComponent) return;
    // Outside the D-Bus delivery, as the X11 hot keys run outside Qt's event dispatch.
    if (action == "capture-all") QTimer::singleShot(0, &delegate_, [this] { delegate_.capture(); });
    if (action == "capture-selected") QTimer::singleShot(0, &delegate_, [this] { delegate_.captureSelected(); });
}

}  // namespace pv
