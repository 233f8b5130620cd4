#include "platform/foundation/Error.h"
#include "platform/foundation/Value.h"

#include <gtest/gtest.h>

namespace {

namespace value = platform::value;
using platform::Error;
using platform::ErrorPtr;

TEST(ValueTest, NumbersCompareByValueAndNeverEqualStrings) {
    const QVariant yes = value::number(true);
    const QVariant no = value::number(false);
    EXPECT_TRUE(value::isNumber(yes));

    for (const QVariant& one : {QVariant(1), QVariant(1.0), QVariant(true), QVariant(qint64(1)),
                                QVariant(1u), QVariant(1.0f)}) {
        SCOPED_TRACE(one.typeName());
        EXPECT_TRUE(value::isEqual(one, yes));
        EXPECT_TRUE(value::isEqual(yes, one));
        EXPECT_FALSE(value::isEqual(one, no));
    }
    EXPECT_FALSE(value::isEqual(QVariant(2), yes)) << "YES is the number 1, not any true value";
    EXPECT_FALSE(value::isEqual(QVariant(2.0), yes));
    EXPECT_TRUE(value::isEqual(QVariant(0), no));
    EXPECT_TRUE(value::isEqual(QVariant(0.5), QVariant(0.5f)));

    // A string is never equal to a number, whatever it reads.
    for (const char* text : {"YES", "1", "true", "0"}) {
        SCOPED_TRACE(text);
        const QVariant string(QString::fromLatin1(text));
        EXPECT_TRUE(value::isString(string));
        EXPECT_FALSE(value::isNumber(string));
        EXPECT_FALSE(value::isEqual(string, yes));
        EXPECT_FALSE(value::isEqual(no, string));
        EXPECT_FALSE(value::isEqual(string, QVariant(1)));
    }
    EXPECT_TRUE(value::isEqual(QVariant(QStringLiteral("YES")), QVariant(QStringLiteral("YES"))));
    EXPECT_FALSE(value::isEqual(QVariant(QStringLiteral("YES")), QVariant(QStringLiteral("yes"))));
}

TEST(ValueTest, BoolAndFloatValues) {
    EXPECT_EQ(static_cast<double>(value::floatValue(QVariant(0.1))), 0.10000000149011612)
        << "floatValue narrows to single precision";
    EXPECT_EQ(value::doubleValue(QVariant(0.1)), 0.1);

    EXPECT_TRUE(value::boolValue(QVariant(2)));
    EXPECT_TRUE(value::boolValue(QVariant(-1)));
    EXPECT_TRUE(value::boolValue(QVariant(0.25)));
    EXPECT_FALSE(value::boolValue(QVariant(0)));
    EXPECT_FALSE(value::boolValue(QVariant(0.0)));
    EXPECT_FALSE(value::boolValue(QVariant()));
    EXPECT_FALSE(value::boolValue(QVariant(QVariantMap{{QStringLiteral("k"), true}})));

    for (const char* text : {"YES", "yes", "Y", "true", "T", "1", "9", "  yes", "+1", "-7", "0001",
                             "  -0042", "Tomato", "12abc"}) {
        EXPECT_TRUE(value::boolValue(QVariant(QString::fromLatin1(text)))) << text;
    }
    for (const char* text : {"", "   ", "NO", "no", "false", "0", "000", "-0", "+", "0x1", "abc",
                             "nope", "x1", "- 1"}) {
        EXPECT_FALSE(value::boolValue(QVariant(QString::fromLatin1(text)))) << text;
    }
}

TEST(ValueTest, StringIdentityIsAboutStorageNotCharacters) {
    const QString original = QString::fromLatin1("identity");
    const QString copy = original;
    const QString rebuilt = QString::fromLatin1("identity");
    EXPECT_TRUE(value::isSameObject(original, original));
    EXPECT_TRUE(value::isSameObject(original, copy));
    EXPECT_EQ(original, rebuilt);
    EXPECT_FALSE(value::isSameObject(original, rebuilt));

    EXPECT_TRUE(value::isSameObject(QString(), QString())) << "two nils are the same object";
    EXPECT_FALSE(value::isSameObject(QString(), original));
    EXPECT_FALSE(value::isSameObject(original, QString()));
    EXPECT_FALSE(value::isSameObject(QString(), QString::fromLatin1("")));
}

TEST(ErrorTest, DescriptionsAndUnderlyingErrors) {
    const ErrorPtr cause =
        Error::withDescription(QStringLiteral("QXDIODomain"), 5, QStringLiteral("Disk full."));
    EXPECT_EQ(cause->domain(), QStringLiteral("QXDIODomain"));
    EXPECT_EQ(cause->code(), 5);
    EXPECT_EQ(cause->localizedDescription(), QStringLiteral("Disk full."));
    EXPECT_EQ(cause->underlyingError(), nullptr);

    const ErrorPtr error = Error::make(
        QStringLiteral("QXDCaptureDomain"), -12,
        {{QString::fromLatin1(platform::kUnderlyingErrorKey), QVariant::fromValue(cause)},
         {QStringLiteral("QXDFilePath"), QStringLiteral("/tmp/clip.mov")}});
    EXPECT_EQ(error->underlyingError(), cause) << "the very same error object";
    EXPECT_EQ(error->userInfo().value(QStringLiteral("QXDFilePath")).toString(),
              QStringLiteral("/tmp/clip.mov"));
    EXPECT_EQ(
        error->localizedDescription(),
        QStringLiteral("The operation couldn\u2019t be completed. (QXDCaptureDomain error -12.)"));

    const QString debug = error->debugDescription();
    EXPECT_TRUE(debug.contains(QStringLiteral("QXDCaptureDomain"))) << debug.toStdString();
    EXPECT_TRUE(debug.contains(QStringLiteral("-12"))) << debug.toStdString();
    EXPECT_TRUE(debug.contains(QStringLiteral("Disk full."))) << "names the underlying error";

    // Placeholders in the parts are text, not format markers.
    const ErrorPtr percent = Error::make(QStringLiteral("QXD%2Domain"), 7);
    EXPECT_EQ(percent->localizedDescription(),
              QStringLiteral("The operation couldn\u2019t be completed. (QXD%2Domain error 7.)"));
}

}  // namespace
