// SPDX-License-Identifier: GPL-3.0-or-later
#include "settings/preference_store_qt.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <QDir>
#include <QFileInfo>
#include <QSettings>

namespace qf::settings {
namespace {

constexpr const char* kIdentity = "org.quirefold.extract";

QString key_of(std::string_view key)
{
    return QString::fromUtf8(key.data(), static_cast<qsizetype>(key.size()));
}

// QSettings writes a new file through a temporary that keeps an existing file's mode, so a
// file made private before the first write never shows its passwords to others, not even
// for the moment between the write and a chmod.
void make_private_file(const QString& path)
{
    QDir().mkpath(QFileInfo(path).absolutePath());
    const QByteArray local = QFile::encodeName(path);
    const int fd = ::open(local.constData(), O_WRONLY | O_CREAT | O_CLOEXEC, S_IRUSR | S_IWUSR);
    if (fd >= 0) {
        ::close(fd);
    }
    ::chmod(local.constData(), S_IRUSR | S_IWUSR);
}

} // namespace

QtPreferenceStore::QtPreferenceStore()
    : settings_(std::make_unique<QSettings>(QSettings::NativeFormat, QSettings::UserScope, kIdentity))
{
}

QtPreferenceStore::~QtPreferenceStore() = default;

std::optional<std::string> QtPreferenceStore::string_value(std::string_view key) const
{
    const QString name = key_of(key);
    if (!settings_->contains(name)) {
        return std::nullopt;
    }
    return settings_->value(name).toString().toStdString();
}

std::optional<bool> QtPreferenceStore::bool_value(std::string_view key) const
{
    const QString name = key_of(key);
    if (!settings_->contains(name)) {
        return std::nullopt;
    }
    const QVariant value = settings_->value(name);
    if (value.typeId() == QMetaType::Bool) {
        return value.toBool();
    }
    const QString text = value.toString();
    if (text == "true" || text == "false") {
        return text == "true";
    }
    return std::nullopt;
}

void QtPreferenceStore::set_string(std::string_view key, const std::string& value)
{
    settings_->setValue(key_of(key), QString::fromStdString(value));
}

void QtPreferenceStore::set_bool(std::string_view key, bool value)
{
    settings_->setValue(key_of(key), value);
}

void QtPreferenceStore::synchronize()
{
    const QString path = settings_->fileName();
    make_private_file(path);
    settings_->sync();
    ::chmod(QFile::encodeName(path).constData(), S_IRUSR | S_IWUSR);
}

QString QtPreferenceStore::file_name() const
{
    return settings_->fileName();
}

} // namespace qf::settings
