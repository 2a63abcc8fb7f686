#include "core/support/QSettingsStore.h"

#include "core/support/ByteNames.h"

#include <QSettings>
#include <QStandardPaths>

namespace brimvale {
namespace {

QString toQString(std::string_view text) {
    return QString::fromUtf8(text.data(), static_cast<qsizetype>(text.size()));
}

} // namespace

QSettingsStore::QSettingsStore()
    : QSettingsStore(defaultFilePath()) {}

QSettingsStore::QSettingsStore(const std::string& filePath)
    : settings_(
          std::make_unique<QSettings>(QString::fromStdString(filePath), QSettings::IniFormat)) {}

QSettingsStore::~QSettingsStore() = default;

std::string QSettingsStore::defaultFilePath() {
    return (QStandardPaths::writableLocation(QStandardPaths::GenericConfigLocation) +
            QStringLiteral("/Brimvale/Brimvale.conf"))
        .toStdString();
}

std::string QSettingsStore::filePath() const {
    std::lock_guard lock(mutex_);
    return settings_->fileName().toStdString();
}

std::optional<std::string> QSettingsStore::stringValue(std::string_view key) const {
    std::lock_guard lock(mutex_);
    const QVariant value = settings_->value(toQString(key));
    if (!value.isValid()) {
        return std::nullopt;
    }
    if (value.typeId() == QMetaType::QByteArray) {
        const QByteArray bytes = value.toByteArray();
        return std::string(bytes.constData(), static_cast<std::size_t>(bytes.size()));
    }
    return value.toString().toStdString();
}

void QSettingsStore::setString(std::string_view key, std::string_view value) {
    std::lock_guard lock(mutex_);
    // An INI file is UTF-8 text, and Qt writes a lone surrogate there as U+FFFD, so a value that
    // is not valid UTF-8 (a folder named in another encoding) goes in as Qt's byte array
    // ("@ByteArray(…)" with \x escapes), which reads back byte for byte.
    if (ByteNames::isValidUtf8(value)) {
        settings_->setValue(toQString(key), toQString(value));
    } else {
        settings_->setValue(toQString(key),
                            QByteArray(value.data(), static_cast<qsizetype>(value.size())));
    }
    settings_->sync();
}

std::optional<bool> QSettingsStore::boolValue(std::string_view key) const {
    std::lock_guard lock(mutex_);
    const QVariant value = settings_->value(toQString(key));
    if (!value.isValid()) {
        return std::nullopt;
    }
    // The INI format keeps every value as text; only the two words a bool is written as count.
    const QString text = value.toString();
    if (text == QLatin1String("true")) {
        return true;
    }
    if (text == QLatin1String("false")) {
        return false;
    }
    return std::nullopt;
}

void QSettingsStore::setBool(std::string_view key, bool value) {
    std::lock_guard lock(mutex_);
    settings_->setValue(toQString(key), value);
    settings_->sync();
}

void QSettingsStore::remove(std::string_view key) {
    std::lock_guard lock(mutex_);
    settings_->remove(toQString(key));
    settings_->sync();
}

bool QSettingsStore::contains(std::string_view key) const {
    std::lock_guard lock(mutex_);
    return settings_->contains(toQString(key));
}

std::vector<std::string> QSettingsStore::keys() const {
    std::lock_guard lock(mutex_);
    std::vector<std::string> result;
    for (const QString& key : settings_->allKeys()) {
        result.push_back(key.toStdString());
    }
    return result;
}

} // namespace brimvale
