#include "platform/foundation/Bundle.h"

#include "platform/foundation/Log.h"

#include <QCoreApplication>
#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QHash>
#include <QJsonDocument>
#include <QJsonObject>
#include <QLocale>
#include <QRegularExpression>

#include <algorithm>
#include <cmath>
#include <map>

#include <dlfcn.h>

namespace platform {
namespace {

const QString kDefaultTable = QStringLiteral("Localizable");
const QString kDevelopmentRegionKey = QStringLiteral("CFBundleDevelopmentRegion");

std::mutex& registryMutex() {
    static std::mutex mutex;
    return mutex;
}

// Bundles live as long as the process, as on the platform.
std::map<QString, std::shared_ptr<Bundle>>& registry() {
    static std::map<QString, std::shared_ptr<Bundle>> bundles;
    return bundles;
}

QString executableFolder() {
    const QString exe = QFileInfo(QStringLiteral("/proc/self/exe")).canonicalFilePath();
    return exe.isEmpty() ? QDir::currentPath() : QFileInfo(exe).absolutePath();
}

// Splits "name@2x.png" into ("name", 2); a name without suffix has scale 1.
std::pair<QString, double> splitScale(const QString& baseName) {
    static const QRegularExpression suffix(QStringLiteral("^(.*)@([0-9]+)x$"));
    const auto match = suffix.match(baseName);
    if (match.hasMatch()) {
        return {match.captured(1), match.captured(2).toDouble()};
    }
    return {baseName, 1.0};
}

QString unescape(QStringView s) {
    QString out;
    out.reserve(s.size());
    for (qsizetype i = 0; i < s.size(); ++i) {
        if (s[i] != u'\\' || i + 1 == s.size()) {
            out.append(s[i]);
            continue;
        }
        const QChar c = s[++i];
        if (c == u'n') {
            out.append(u'\n');
        } else if (c == u't') {
            out.append(u'\t');
        } else if (c == u'r') {
            out.append(u'\r');
        } else if ((c == u'U' || c == u'u') && i + 4 < s.size()) {
            bool ok = false;
            const ushort code = s.mid(i + 1, 4).toUShort(&ok, 16);
            if (ok) {
                out.append(QChar(code));
                i += 4;
            }
        } else {
            out.append(c);
        }
    }
    return out;
}

// Removes /* */ and // comments, leaving quoted strings as they are. One pass,
// so quotes inside comments and comment markers inside strings are both plain
// text.
QString withoutComments(const QString& text) {
    QString out;
    out.reserve(text.size());
    const qsizetype n = text.size();
    qsizetype i = 0;
    while (i < n) {
        const QChar c = text[i];
        if (c == u'"') {
            // Copy the string through its closing quote, skipping escapes.
            qsizetype end = i + 1;
            while (end < n && text[end] != u'"') {
                end += text[end] == u'\\' ? 2 : 1;
            }
            end = std::min(end + 1, n);
            out += QStringView(text).sliced(i, end - i);
            i = end;
        } else if (c == u'/' && i + 1 < n && text[i + 1] == u'*') {
            const qsizetype close = text.indexOf(QStringLiteral("*/"), i + 2);
            i = close < 0 ? n : close + 2;
            out += u' ';
        } else if (c == u'/' && i + 1 < n && text[i + 1] == u'/') {
            const qsizetype newline = text.indexOf(u'\n', i + 2);
            i = newline < 0 ? n : newline;
        } else {
            out += c;
            ++i;
        }
    }
    return out;
}

}  // namespace

QHash<QString, QString> parseStringTable(const QString& text) {
    QHash<QString, QString> table;
    // A quoted string: anything but an unescaped quote.
    static const QRegularExpression entry(
        QStringLiteral(R"re("((?:[^"\\]|\\.)*)"\s*=\s*"((?:[^"\\]|\\.)*)"\s*;)re"));
    const QString cleaned = withoutComments(text);
    auto entries = entry.globalMatch(cleaned);
    while (entries.hasNext()) {
        const auto m = entries.next();
        table.insert(unescape(m.capturedView(1)), unescape(m.capturedView(2)));
    }
    return table;
}

std::shared_ptr<Bundle> Bundle::bundleWithPath(const QString& path) {
    const QFileInfo info(path);
    if (!info.isDir()) {
        return nullptr;
    }
    const QString canonical = info.canonicalFilePath();
    std::lock_guard lock(registryMutex());
    auto& slot = registry()[canonical];
    if (!slot) {
        slot = std::make_shared<Bundle>(canonical);
    }
    return slot;
}

std::shared_ptr<Bundle> Bundle::mainBundle() {
    // The main bundle lives for the whole process, so hosts can set its
    // information dictionary once at start-up.
    static const std::shared_ptr<Bundle> bundle = [] {
        auto b = bundleWithPath(executableFolder());
        return b ? b : std::make_shared<Bundle>(QDir::currentPath());
    }();
    return bundle;
}

std::shared_ptr<Bundle> Bundle::bundleForLibrary(const void* address, const char* envOverride,
                                                 const QStringList& relativeFolders,
                                                 const QString& fallbackPath) {
    if (envOverride != nullptr) {
        const QString fromEnvironment = qEnvironmentVariable(envOverride);
        if (!fromEnvironment.isEmpty()) {
            if (auto bundle = bundleWithPath(fromEnvironment)) {
                return bundle;
            }
        }
    }
    Dl_info info{};
    if (address != nullptr && ::dladdr(address, &info) != 0 && info.dli_fname != nullptr) {
        const QDir libraryFolder = QFileInfo(QString::fromLocal8Bit(info.dli_fname)).absoluteDir();
        for (const QString& relative : relativeFolders) {
            const QString candidate = libraryFolder.absoluteFilePath(relative);
            if (QFileInfo::exists(candidate + QStringLiteral("/Info.json"))) {
                return bundleWithPath(candidate);
            }
        }
    }
    return bundleWithPath(fallbackPath);
}

Bundle::Bundle(QString path) : _path(std::move(path)) {}

QVariantMap Bundle::infoDictionary() const {
    std::lock_guard lock(_mutex);
    if (!_infoLoaded) {
        _infoLoaded = true;
        QFile file(_path + QStringLiteral("/Info.json"));
        if (file.open(QIODevice::ReadOnly)) {
            QJsonParseError error{};
            const QJsonDocument document = QJsonDocument::fromJson(file.readAll(), &error);
            if (document.isObject()) {
                _info = document.object().toVariantMap();
            } else {
                log::write(QStringLiteral("Bundle: %1 is not a JSON object (%2)")
                               .arg(file.fileName(), error.errorString()));
            }
        }
    }
    return _info;
}

void Bundle::setInfoDictionary(const QVariantMap& info) {
    std::lock_guard lock(_mutex);
    _infoLoaded = true;
    _info = info;
}

QVariant Bundle::objectForInfoDictionaryKey(const QString& key) const {
    return infoDictionary().value(key);
}

QStringList Bundle::localizations() const {
    QStringList languages;
    const QStringList folders =
        QDir(_path).entryList({QStringLiteral("*.lproj")}, QDir::Dirs, QDir::Name);
    for (const QString& folder : folders) {
        languages << folder.chopped(6);
    }
    return languages;
}

void Bundle::setPreferredLanguages(const QStringList& languages) {
    std::lock_guard lock(_mutex);
    _preferredLanguages = languages;
}

QStringList Bundle::preferredLanguages() const {
    {
        std::lock_guard lock(_mutex);
        if (!_preferredLanguages.isEmpty()) {
            return _preferredLanguages;
        }
    }
    const QString fromEnvironment = qEnvironmentVariable("QXD_LANGUAGES");
    if (!fromEnvironment.isEmpty()) {
        return fromEnvironment.split(u':', Qt::SkipEmptyParts);
    }
    return QLocale::system().uiLanguages();
}

QString Bundle::preferredLocalization() const {
    const QStringList available = localizations();
    for (QString language : preferredLanguages()) {
        language.replace(u'_', u'-');
        if (available.contains(language)) {
            return language;
        }
        const QString base = language.section(u'-', 0, 0);
        if (available.contains(base)) {
            return base;
        }
    }
    const QString development = infoDictionary().value(kDevelopmentRegionKey).toString();
    return development.isEmpty() ? QStringLiteral("en") : development;
}

Bundle::StringTable Bundle::loadTable(const QString& language, const QString& tableName) const {
    QFile file(QStringLiteral("%1/%2.lproj/%3.strings").arg(_path, language, tableName));
    if (!file.open(QIODevice::ReadOnly)) {
        return {};
    }
    return parseStringTable(QString::fromUtf8(file.readAll()));
}

Bundle::StringTable Bundle::table(const QString& language, const QString& tableName) const {
    const QString cacheKey = language + u'/' + tableName;
    {
        std::lock_guard lock(_mutex);
        auto it = _tables.constFind(cacheKey);
        if (it != _tables.constEnd()) {
            return *it;
        }
    }
    StringTable loaded = loadTable(language, tableName);
    std::lock_guard lock(_mutex);
    return *_tables.insert(cacheKey, std::move(loaded));
}

QString Bundle::localizedString(const QString& key, const QString& value,
                                const QString& tableName) const {
    const QString name = tableName.isEmpty() ? kDefaultTable : tableName;
    const QString language = preferredLocalization();
    QString development = infoDictionary().value(kDevelopmentRegionKey).toString();
    if (development.isEmpty()) {
        development = QStringLiteral("en");
    }
    for (const QString& candidate : {language, development}) {
        const StringTable strings = table(candidate, name);
        auto it = strings.constFind(key);
        if (it != strings.constEnd()) {
            return *it;
        }
    }
    return value.isEmpty() ? key : value;
}

QString Bundle::pathForImage(const QString& name, double screenScale, double* fileScale) const {
    if (name.isEmpty()) {
        return {};
    }
    QString base = name;
    if (base.endsWith(QStringLiteral(".png"), Qt::CaseInsensitive)) {
        base.chop(4);
    }
    base = splitScale(base).first;
    const QDir folder(_path);
    std::vector<std::pair<double, QString>> variants;
    const QStringList files = folder.entryList({base + QStringLiteral("*.png")}, QDir::Files);
    for (const QString& file : files) {
        const auto [stem, scale] = splitScale(file.chopped(4));
        if (stem == base) {
            variants.emplace_back(scale, folder.absoluteFilePath(file));
        }
    }
    if (variants.empty()) {
        return {};
    }
    std::sort(variants.begin(), variants.end());
    auto chosen = std::find_if(variants.begin(), variants.end(),
                               [&](const auto& v) { return v.first >= screenScale; });
    if (chosen == variants.end()) {
        chosen = std::prev(variants.end());
    }
    if (fileScale != nullptr) {
        *fileScale = chosen->first;
    }
    return chosen->second;
}

QString Bundle::pathForResource(const QString& name, const QString& type) const {
    if (name.isEmpty()) {
        return {};
    }
    QString file = name;
    if (!type.isEmpty()) {
        file += type.startsWith(QLatin1Char('.')) ? type : QLatin1Char('.') + type;
    }
    const QDir folder(_path);
    for (const QString& candidate :
         {file, preferredLocalization() + QStringLiteral(".lproj/") + file}) {
        const QFileInfo info(folder.absoluteFilePath(candidate));
        if (info.isFile()) {
            return info.absoluteFilePath();
        }
    }
    return {};
}

QStringList Bundle::imageNames() const {
    QStringList names;
    const QStringList files = QDir(_path).entryList({QStringLiteral("*.png")}, QDir::Files);
    for (const QString& file : files) {
        const QString stem = splitScale(file.chopped(4)).first;
        if (!names.contains(stem)) {
            names << stem;
        }
    }
    names.sort();
    return names;
}

}  // namespace platform
