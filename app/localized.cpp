#include "app/localized.h"

#include <QFile>
#include <QJsonDocument>
#include <QJsonObject>

namespace pv {

namespace {

const QJsonObject& table() {
    static const QJsonObject strings = [] {
        QFile file(":/Localized.json");
        if (!file.open(QIODevice::ReadOnly)) return QJsonObject();
        return QJsonDocument::fromJson(file.readAll()).object();
    }();
    return strings;
}

}  // namespace

std::string localizedString(const std::string& key) {
    const QJsonValue value = table().value(QString::fromStdString(key));
    return value.isString() ? value.toString().toStdString() : key;
}

}  // namespace pv
