#include "QXDCameraControllerVersion.h"
#include "QXDCameraCore.h"
#include "platform/foundation/Bundle.h"
#include "platform/foundation/Log.h"
#include "support/BundleCheck.h"

#include <unistd.h>

#include <QByteArray>
#include <QDir>
#include <QFile>
#include <QImage>
#include <QTemporaryDir>

#include <gtest/gtest.h>

#include <cstring>
#include <thread>
#include <vector>

namespace {

// Points QXD_FRAMEWORK_BUNDLE at a folder for the guard's lifetime.
class ScopedBundleOverride {
public:
    explicit ScopedBundleOverride(const QString& folder)
        : _wasSet(qEnvironmentVariableIsSet(kVariable)), _previous(qgetenv(kVariable)) {
        qputenv(kVariable, folder.toLocal8Bit());
    }
    ~ScopedBundleOverride() {
        if (_wasSet) {
            qputenv(kVariable, _previous);
        } else {
            qunsetenv(kVariable);
        }
    }
    ScopedBundleOverride(const ScopedBundleOverride&) = delete;
    ScopedBundleOverride& operator=(const ScopedBundleOverride&) = delete;

private:
    static constexpr const char* kVariable = "QXD_FRAMEWORK_BUNDLE";
    bool _wasSet;
    QByteArray _previous;
};

// Calls QXD_LOG(message) with a bundle whose Info.json is infoJson and
// returns the lines that reached the log.
QStringList logLinesWithInfo(const QByteArray& infoJson, const QString& message) {
    QTemporaryDir folder;
    EXPECT_TRUE(folder.isValid());
    QFile info(folder.filePath(QStringLiteral("Info.json")));
    EXPECT_TRUE(info.open(QIODevice::WriteOnly));
    info.write(infoJson);
    info.close();

    QStringList lines;
    ScopedBundleOverride bundle(folder.path());
    platform::log::ScopedSink sink([&lines](const QString& line) { lines << line; });
    QXD_LOG(message);
    return lines;
}

std::shared_ptr<platform::Bundle> shippedBundle() {
    auto bundle = QXDCameraCore::bundle();
    EXPECT_NE(bundle, nullptr) << "the built resource bundle was not found";
    return bundle;
}

}  // namespace

TEST(QXDLog, WritesNothingWithoutTheLoggingKey) {
    EXPECT_TRUE(
        logLinesWithInfo(R"({"CFBundleName": "QXDCameraController"})", QStringLiteral("hidden"))
            .isEmpty());
}

TEST(QXDLog, WritesNothingWhenLoggingIsOff) {
    EXPECT_TRUE(logLinesWithInfo(R"({"QXDCameraControllerLoggingEnabled": false})",
                                 QStringLiteral("hidden"))
                    .isEmpty());
}

TEST(QXDLog, WritesOnePrefixedLineWhenLoggingIsOn) {
    const QStringList lines = logLinesWithInfo(R"({"QXDCameraControllerLoggingEnabled": true})",
                                               QStringLiteral("shutter pressed"));
    ASSERT_EQ(lines.size(), 1);
    EXPECT_TRUE(lines[0].endsWith(QStringLiteral("QXDCameraController - shutter pressed")))
        << lines[0].toStdString();
}

TEST(QXDLog, TakesTheMessageAsItIsNeverAsAFormat) {
    const QString message = QStringLiteral("%@ 100% %1 %s %n");
    const QStringList lines =
        logLinesWithInfo(R"({"QXDCameraControllerLoggingEnabled": true})", message);
    ASSERT_EQ(lines.size(), 1);
    EXPECT_TRUE(lines[0].endsWith(QStringLiteral("QXDCameraController - ") + message))
        << lines[0].toStdString();
}

TEST(QXDCameraCoreBundle, IsTheSameObjectOnEveryCall) {
    const auto first = QXDCameraCore::bundle();
    ASSERT_NE(first, nullptr);
    EXPECT_EQ(QXDCameraCore::bundle(), first);
    EXPECT_EQ(QXDCameraCore::bundle(), first);
}

TEST(QXDCameraCoreBundle, IsTheSameObjectFromEveryThread) {
    constexpr int kThreads = 8;
    std::vector<std::shared_ptr<platform::Bundle>> seen(kThreads);
    std::vector<std::thread> threads;
    for (int i = 0; i < kThreads; ++i) {
        threads.emplace_back(
            [&seen, i] { seen[static_cast<std::size_t>(i)] = QXDCameraCore::bundle(); });
    }
    for (auto& thread : threads) {
        thread.join();
    }
    ASSERT_NE(seen[0], nullptr);
    for (const auto& bundle : seen) {
        EXPECT_EQ(bundle, seen[0]);
    }
    EXPECT_EQ(QXDCameraCore::bundle(), seen[0]);
}

TEST(QXDCameraControllerVersion, StringAndNumber) {
    const char expected[] = "@(#)PROGRAM:QXDCameraController  PROJECT:QXDCameraController-1\n";
    EXPECT_EQ(std::memcmp(QXDCameraControllerVersionString, expected, sizeof expected), 0);
    EXPECT_EQ(QXDCameraControllerVersionNumber, 1.0);
}

TEST(QXDCameraCoreConstants, QueueLabelsAndErrorDomain) {
    EXPECT_TRUE(QByteArray(QXDCameraCaptureSessionQueueLabel).endsWith(".camera.session"));
    EXPECT_TRUE(QByteArray(QXDCameraStillImageOutputQueueLabel).endsWith(".camera.image"));
    EXPECT_TRUE(QByteArray(QXDCameraVideoDataOutputQueueLabel).endsWith(".camera.video"));
    EXPECT_TRUE(QByteArray(kCameraActionsQueueLabel).endsWith(".cameraActionsQueue"));
    EXPECT_EQ(QXDCameraErrorDomain, QStringLiteral("QXDCameraErrorDomain"));
}

TEST(ShippedBundle, InfoDictionary) {
    const auto bundle = shippedBundle();
    ASSERT_NE(bundle, nullptr);
    const QVariantMap info = bundle->infoDictionary();
    EXPECT_EQ(info.value(QStringLiteral("CFBundleShortVersionString")), QStringLiteral("1.0"));
    EXPECT_EQ(info.value(QStringLiteral("CFBundleVersion")), QStringLiteral("1"));
    EXPECT_EQ(info.value(QStringLiteral("CFBundleDevelopmentRegion")), QStringLiteral("en"));
    EXPECT_EQ(info.value(QStringLiteral("CFBundleIdentifier")),
              QStringLiteral("org.qxdcamera.QXDCameraController"));
    EXPECT_EQ(info.value(QStringLiteral("CFBundleName")), QStringLiteral("QXDCameraController"));
    EXPECT_EQ(info.value(QStringLiteral("QXDCameraControllerLoggingEnabled")).typeId(),
              QMetaType::Bool);
}

TEST(ShippedBundle, HasEveryImageAtOneTwoAndThreeTimes) {
    const auto bundle = shippedBundle();
    ASSERT_NE(bundle, nullptr);
    const QStringList names = {
        QStringLiteral("Camera-Shutter"),
        QStringLiteral("Camera-Flash-OFF"),
        QStringLiteral("Camera-Flash-ON"),
        QStringLiteral("Camera-Switch"),
        QStringLiteral("Camera-Focus-Indicator"),
        QStringLiteral("icon_help_ios"),
        QStringLiteral("velmo_alpha"),
        QStringLiteral("PhotoCorrection-Left"),
        QStringLiteral("PhotoCorrection-Right"),
    };
    for (const QString& name : names) {
        SCOPED_TRACE(name.toStdString());
        EXPECT_TRUE(bundle->imageNames().contains(name));
        QSize pointSize;
        for (const int scale : {1, 2, 3}) {
            double fileScale = 0;
            const QImage image(bundle->pathForImage(name, scale, &fileScale));
            ASSERT_FALSE(image.isNull()) << "@" << scale << "x";
            EXPECT_EQ(fileScale, scale);
            if (scale == 1) {
                pointSize = image.size();
            }
            EXPECT_EQ(image.size(), pointSize * scale) << "@" << scale << "x";
            EXPECT_TRUE(image.hasAlphaChannel());
        }
    }
}

TEST(ShippedBundle, EveryLocalizationHasTheButtonTitles) {
    const auto bundle = shippedBundle();
    ASSERT_NE(bundle, nullptr);
    const QStringList languages = bundle->localizations();
    for (const char* required : {"en", "fr", "de", "es", "it", "pt"}) {
        EXPECT_TRUE(languages.contains(QLatin1String(required))) << required;
    }
    for (const QString& language : languages) {
        SCOPED_TRACE(language.toStdString());
        QFile file(QDir(bundle->bundlePath())
                       .filePath(language + QStringLiteral(".lproj/Localizable.strings")));
        ASSERT_TRUE(file.open(QIODevice::ReadOnly));
        const auto table = platform::parseStringTable(QString::fromUtf8(file.readAll()));
        EXPECT_FALSE(table.value(QStringLiteral("button.cancel")).isEmpty());
        EXPECT_FALSE(table.value(QStringLiteral("button.confirm")).isEmpty());
    }
}

TEST(ShippedBundle, LooksUpEnglishTitles) {
    const auto bundle = shippedBundle();
    ASSERT_NE(bundle, nullptr);
    const QString path = bundle->bundlePath() + QStringLiteral("/en.lproj/Localizable.strings");
    QFile file(path);
    ASSERT_TRUE(file.open(QIODevice::ReadOnly));
    const auto table = platform::parseStringTable(QString::fromUtf8(file.readAll()));
    EXPECT_EQ(table.value(QStringLiteral("button.cancel")), QStringLiteral("Cancel"));
    EXPECT_EQ(table.value(QStringLiteral("button.confirm")), QStringLiteral("Confirm"));
}

namespace {

TEST(FrameworkResources, AMissingEmptyUnreadableOrIncompleteBundleIsNamedAndTheShippedOneIsWhole) {
    const QString missing = support::bundleProblem(nullptr);
    EXPECT_TRUE(missing.contains(QStringLiteral("were not found"))) << missing.toStdString();
    EXPECT_TRUE(missing.contains(QStringLiteral("QXD_FRAMEWORK_BUNDLE")));
    EXPECT_TRUE(missing.contains(QStringLiteral("string keys")));

    const platform::Bundle gone(QStringLiteral("/nonexistent/qxd-resources"));
    EXPECT_TRUE(support::bundleProblem(&gone).contains(QStringLiteral("does not exist")));

    QTemporaryDir folder;
    ASSERT_TRUE(folder.isValid());
    const platform::Bundle empty(folder.path());
    EXPECT_TRUE(support::bundleProblem(&empty).contains(QStringLiteral("is empty")));

    QFile info(folder.filePath(QStringLiteral("Info.json")));
    ASSERT_TRUE(info.open(QIODevice::WriteOnly));
    info.write("{}");
    info.close();
    const platform::Bundle partial(folder.path());
    EXPECT_TRUE(support::bundleProblem(&partial).endsWith(
        QStringLiteral("it has no images, no string tables. Until it is, buttons show their "
                       "string keys instead of their titles and have no icons.")))
        << support::bundleProblem(&partial).toStdString();

    if (::geteuid() != 0) {  // permissions do not stop the superuser
        QFile::setPermissions(folder.path(), QFileDevice::Permissions());
        const platform::Bundle locked(folder.path());
        EXPECT_TRUE(support::bundleProblem(&locked).contains(QStringLiteral("cannot be read")));
        QFile::setPermissions(folder.path(), QFileDevice::ReadOwner | QFileDevice::WriteOwner |
                                                 QFileDevice::ExeOwner);
    }

    EXPECT_TRUE(support::bundleProblem(QXDCameraCore::bundle().get()).isEmpty());
    EXPECT_TRUE(QXDCameraCore::bundleProblem().isEmpty());
}

}  // namespace
