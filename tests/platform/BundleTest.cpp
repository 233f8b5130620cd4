#include "platform/foundation/Bundle.h"
#include "platform/foundation/Log.h"
#include "platform/foundation/Value.h"

#include <QDir>
#include <QFile>
#include <QImage>
#include <QTemporaryDir>

#include <gtest/gtest.h>

#include <string>

namespace {

using platform::Bundle;

// A bundle folder in a fresh temporary directory.
class BundleFolder {
public:
    BundleFolder() { EXPECT_TRUE(_dir.isValid()); }

    QString path() const { return _dir.path(); }

    void write(const QString& relativePath, const QByteArray& contents) const {
        const QString file = _dir.filePath(relativePath);
        ASSERT_TRUE(QDir().mkpath(QFileInfo(file).absolutePath()));
        QFile out(file);
        ASSERT_TRUE(out.open(QIODevice::WriteOnly));
        out.write(contents);
    }

    void writeImage(const QString& fileName) const {
        QImage image(2, 2, QImage::Format_ARGB32);
        image.fill(Qt::red);
        ASSERT_TRUE(image.save(_dir.filePath(fileName), "PNG"));
    }

    std::shared_ptr<Bundle> bundle() const { return Bundle::bundleWithPath(path()); }

private:
    QTemporaryDir _dir;
};

TEST(BundleTest, ReadsTheInformationDictionary) {
    BundleFolder folder;
    folder.write(QStringLiteral("Info.json"), R"({
        "CFBundleIdentifier": "com.qxd.test.bundle",
        "QXDEnabled": true,
        "QXDEnabledAsNumber": 1,
        "QXDDisabled": false
    })");
    auto bundle = folder.bundle();
    ASSERT_TRUE(bundle);
    EXPECT_EQ(bundle->bundlePath(), QFileInfo(folder.path()).canonicalFilePath());
    EXPECT_EQ(bundle->objectForInfoDictionaryKey(QStringLiteral("CFBundleIdentifier")).toString(),
              QStringLiteral("com.qxd.test.bundle"));

    using platform::value::boolValue;
    auto flag = [&](const char* key) {
        return boolValue(bundle->objectForInfoDictionaryKey(QString::fromLatin1(key)));
    };
    EXPECT_TRUE(flag("QXDEnabled"));
    EXPECT_TRUE(flag("QXDEnabledAsNumber"));
    EXPECT_FALSE(flag("QXDDisabled"));
    EXPECT_FALSE(bundle->objectForInfoDictionaryKey(QStringLiteral("QXDMissing")).isValid());
    EXPECT_FALSE(flag("QXDMissing")) << "a missing key reads as NO";
}

TEST(BundleTest, MissingOrMalformedInfoGivesAnEmptyDictionary) {
    QStringList lines;
    platform::log::ScopedSink sink([&](const QString& line) { lines << line; });

    BundleFolder noInfo;
    EXPECT_TRUE(noInfo.bundle()->infoDictionary().isEmpty());
    EXPECT_TRUE(lines.isEmpty()) << "a bundle need not have an Info.json";

    BundleFolder malformed;
    malformed.write(QStringLiteral("Info.json"), R"({"CFBundleIdentifier": "com.qxd.)");
    auto bundle = malformed.bundle();
    EXPECT_TRUE(bundle->infoDictionary().isEmpty());
    EXPECT_TRUE(bundle->infoDictionary().isEmpty());
    ASSERT_EQ(lines.size(), 1) << "one log line, however often the dictionary is read";
    EXPECT_TRUE(lines.front().contains(QStringLiteral("Info.json"))) << lines.front().toStdString();
}

TEST(BundleTest, BundleWithPathReturnsOneObjectPerFolder) {
    BundleFolder folder;
    BundleFolder other;
    folder.write(QStringLiteral("Sub/file.txt"), "x");
    auto bundle = folder.bundle();
    ASSERT_TRUE(bundle);
    EXPECT_EQ(bundle, Bundle::bundleWithPath(folder.path()));
    EXPECT_EQ(bundle, Bundle::bundleWithPath(folder.path() + QStringLiteral("/")));
    EXPECT_EQ(bundle, Bundle::bundleWithPath(folder.path() + QStringLiteral("/Sub/..")));
    EXPECT_NE(bundle, other.bundle());

    EXPECT_EQ(Bundle::bundleWithPath(folder.path() + QStringLiteral("/Missing")), nullptr);
    EXPECT_EQ(Bundle::bundleWithPath(folder.path() + QStringLiteral("/Sub/file.txt")), nullptr);
}

TEST(BundleTest, PicksTheImageVariantForTheScreenScale) {
    BundleFolder folder;
    for (const char* file : {"button.png", "button@2x.png", "button@3x.png", "retina@2x.png",
                             "retina@3x.png", "retina-large.png"}) {
        folder.writeImage(QString::fromLatin1(file));
    }
    auto bundle = folder.bundle();
    // "<file> at <scale>" for an image name at a screen scale.
    auto pick = [&](const char* name, double screenScale) {
        double scale = -1.0;
        const QString path = bundle->pathForImage(QString::fromLatin1(name), screenScale, &scale);
        return QFileInfo(path).fileName().toStdString() + " at " + std::to_string(scale);
    };
    EXPECT_EQ(pick("button", 1.0), "button.png at 1.000000");
    EXPECT_EQ(pick("button", 1.5), "button@2x.png at 2.000000");
    EXPECT_EQ(pick("button", 2.0), "button@2x.png at 2.000000");
    EXPECT_EQ(pick("button", 2.5), "button@3x.png at 3.000000");
    EXPECT_EQ(pick("button", 4.0), "button@3x.png at 3.000000") << "else the largest below";
    EXPECT_EQ(pick("button.png", 2.0), "button@2x.png at 2.000000");
    EXPECT_EQ(pick("retina", 1.0), "retina@2x.png at 2.000000")
        << "a name is not confused with a longer name that starts with it";
    EXPECT_EQ(bundle->pathForImage(QStringLiteral("retina"), 1.0, nullptr),
              QDir(bundle->bundlePath()).absoluteFilePath(QStringLiteral("retina@2x.png")));

    double untouched = -1.0;
    EXPECT_TRUE(bundle->pathForImage(QStringLiteral("missing"), 2.0, &untouched).isEmpty());
    EXPECT_TRUE(bundle->pathForImage(QString(), 2.0, &untouched).isEmpty());
    EXPECT_EQ(untouched, -1.0);

    EXPECT_EQ(bundle->imageNames(), (QStringList{QStringLiteral("button"), QStringLiteral("retina"),
                                                 QStringLiteral("retina-large")}));
}

TEST(BundleTest, LocalizesInThePreferredLanguageThenTheDevelopmentLanguage) {
    BundleFolder folder;
    // The development language is German, not the default "en".
    folder.write(QStringLiteral("Info.json"), R"({"CFBundleDevelopmentRegion": "de"})");
    folder.write(QStringLiteral("de.lproj/Localizable.strings"),
                 "\"greeting\" = \"Hallo\";\n\"only.de\" = \"Nur Deutsch\";\n");
    folder.write(QStringLiteral("fr.lproj/Localizable.strings"), "\"greeting\" = \"Bonjour\";");
    folder.write(QStringLiteral("de.lproj/Camera.strings"),
                 "\"greeting\" = \"Bitte l\u00e4cheln\";");
    auto bundle = folder.bundle();
    auto tr = [&](const char* key, const QString& value = {}, const QString& table = {}) {
        return bundle->localizedString(QString::fromLatin1(key), value, table);
    };
    EXPECT_EQ(bundle->localizations(), (QStringList{QStringLiteral("de"), QStringLiteral("fr")}));

    bundle->setPreferredLanguages({QStringLiteral("ja"), QStringLiteral("fr_CA")});
    EXPECT_EQ(bundle->preferredLocalization(), QStringLiteral("fr"));
    EXPECT_EQ(tr("greeting"), QStringLiteral("Bonjour"));
    EXPECT_EQ(tr("only.de"), QStringLiteral("Nur Deutsch"))
        << "missing in the preferred language falls back to the development language";
    EXPECT_EQ(tr("greeting", {}, QStringLiteral("Camera")), QStringLiteral("Bitte l\u00e4cheln"));
    EXPECT_EQ(tr("missing", QStringLiteral("Fallback")), QStringLiteral("Fallback"));
    EXPECT_EQ(tr("missing"), QStringLiteral("missing"));
    EXPECT_EQ(tr("missing", {}, QStringLiteral("NoSuchTable")), QStringLiteral("missing"));

    bundle->setPreferredLanguages({QStringLiteral("ja")});
    EXPECT_EQ(bundle->preferredLocalization(), QStringLiteral("de"));
    EXPECT_EQ(tr("greeting"), QStringLiteral("Hallo"));
}

TEST(BundleTest, ParsesStringTablesWithEscapesAndComments) {
    const QString text = QStringLiteral(R"(/* A block comment with "quotes" = "inside"; */
// "commented" = "out";
"plain" = "Plain";
"escaped \"key\"" = "Tab\there\nnext line \\ backslash";
"unicode" = "caf\U00e9";
  "spaced"   =   "// not a comment /* either */"  ;
"first" = "1"; "second" = "2"; // trailing comment
/* multi-line
   comment */ "after.block" = "After block";
"no semicolon" = "skipped"
"next" = "Next";
)");
    const auto table = platform::parseStringTable(text);
    EXPECT_EQ(table.value(QStringLiteral("plain")), QStringLiteral("Plain"));
    EXPECT_EQ(table.value(QStringLiteral("escaped \"key\"")),
              QStringLiteral("Tab\there\nnext line \\ backslash"));
    EXPECT_EQ(table.value(QStringLiteral("unicode")), QStringLiteral("caf\u00e9"));
    EXPECT_EQ(table.value(QStringLiteral("spaced")),
              QStringLiteral("// not a comment /* either */"));
    EXPECT_EQ(table.value(QStringLiteral("first")), QStringLiteral("1"));
    EXPECT_EQ(table.value(QStringLiteral("second")), QStringLiteral("2"));
    EXPECT_EQ(table.value(QStringLiteral("after.block")), QStringLiteral("After block"));
    EXPECT_EQ(table.value(QStringLiteral("next")), QStringLiteral("Next"));
    EXPECT_FALSE(table.contains(QStringLiteral("no semicolon")));
    EXPECT_FALSE(table.contains(QStringLiteral("commented"))) << "entries in comments are ignored";
    EXPECT_FALSE(table.contains(QStringLiteral("quotes")));
    EXPECT_EQ(table.size(), 8);
}

}  // namespace
