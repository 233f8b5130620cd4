#pragma once

#include <QHash>
#include <QString>
#include <QStringList>
#include <QVariantMap>

#include <memory>
#include <mutex>

namespace platform {

/// A folder of resources with an information dictionary, string tables and
/// images, like the platform's bundles.
///
/// Layout of a bundle folder:
///   Info.json                        the information dictionary (a JSON object)
///   <language>.lproj/<Table>.strings string tables ("key" = "value"; lines)
///   <name>.png, <name>@2x.png, ...   images
///
/// Bundles are cached per folder, so bundleWithPath returns the same object
/// for the same folder. All calls are thread-safe.
class Bundle {
public:
    /// The bundle of the folder at path, or null when there is no such folder.
    static std::shared_ptr<Bundle> bundleWithPath(const QString& path);

    /// The host application's bundle. Its folder is the executable's folder;
    /// its information dictionary is whatever the host set (empty by default).
    static std::shared_ptr<Bundle> mainBundle();

    /// The bundle of the shared library that contains address: the first of
    /// the folder named by the environment variable envOverride, the folders
    /// relative to the library's own location, and fallbackPath that exists.
    static std::shared_ptr<Bundle> bundleForLibrary(const void* address, const char* envOverride,
                                                    const QStringList& relativeFolders,
                                                    const QString& fallbackPath);

    explicit Bundle(QString path);

    const QString& bundlePath() const { return _path; }

    /// The information dictionary, read from Info.json once. A missing or
    /// malformed file gives an empty dictionary (and one log line for a
    /// malformed one).
    QVariantMap infoDictionary() const;
    /// Replaces the information dictionary (hosts set their main bundle's).
    void setInfoDictionary(const QVariantMap& info);
    QVariant objectForInfoDictionaryKey(const QString& key) const;

    /// The languages that have string tables, sorted.
    QStringList localizations() const;
    /// The language used for look-ups: the first preferred language that has
    /// tables, else the development language (Info.json's
    /// "CFBundleDevelopmentRegion", "en" when absent).
    QString preferredLocalization() const;
    /// Overrides the preferred languages (default: QXD_LANGUAGES, a
    /// colon-separated list, or the system's UI languages).
    void setPreferredLanguages(const QStringList& languages);

    /// The string for key in table (default "Localizable") in the preferred
    /// language, falling back to the development language. When no table has
    /// it, value when it is not empty, else key itself.
    QString localizedString(const QString& key, const QString& value,
                            const QString& table = QString()) const;

    /// The path of the image file for name at the given screen scale: the
    /// variant whose scale is the nearest at or above it, else the largest
    /// below it. Empty when there is none. name may carry its extension.
    QString pathForImage(const QString& name, double screenScale, double* fileScale) const;
    /// The names of the images in the bundle (without scale suffix and
    /// extension), sorted.
    QStringList imageNames() const;

    /// The path of the resource file name.type (type may be empty, or start
    /// with a dot): the one at the top of the bundle, else the one in the
    /// preferred localisation's folder. Empty when there is none.
    QString pathForResource(const QString& name, const QString& type) const;

private:
    using StringTable = QHash<QString, QString>;

    StringTable loadTable(const QString& language, const QString& table) const;
    StringTable table(const QString& language, const QString& table) const;
    QStringList preferredLanguages() const;

    QString _path;
    mutable std::mutex _mutex;
    mutable bool _infoLoaded = false;
    mutable QVariantMap _info;
    mutable QHash<QString, StringTable> _tables;
    QStringList _preferredLanguages;
};

/// Reads a string table in the platform's text format: "key" = "value";
/// lines with C-style escapes and comments. Malformed entries are skipped.
QHash<QString, QString> parseStringTable(const QString& text);

}  // namespace platform
