#include "platform/foundation/Log.h"

#include <QRegularExpression>
#include <QStringList>

#include <gtest/gtest.h>

#include <thread>
#include <vector>

#include <unistd.h>

namespace {

namespace log = platform::log;

const QRegularExpression kLinePattern(
    QStringLiteral(R"(^\d{4}-\d{2}-\d{2} \d{2}:\d{2}:\d{2}\.\d{3} \S+\[(\d+):(\d+)\] (.*)$)"),
    QRegularExpression::DotMatchesEverythingOption);

TEST(LogTest, FormatsDateTimeProcessAndThreadBeforeTheMessage) {
    const QString message = QStringLiteral("Camera started: 100% ready (%1 %2)");
    const QString line = log::formatLine(message);
    const auto match = kLinePattern.match(line);
    ASSERT_TRUE(match.hasMatch()) << line.toStdString();
    EXPECT_EQ(match.captured(1).toLongLong(), static_cast<long long>(::getpid()));
    EXPECT_EQ(match.captured(3), message) << "the message is written as it is";
}

TEST(LogTest, ScopedSinkCapturesLinesAndRestoresThePreviousSink) {
    QStringList outer;
    QStringList inner;
    {
        log::ScopedSink outerSink([&](const QString& line) { outer << line; });
        log::write(QStringLiteral("first"));
        {
            log::ScopedSink innerSink([&](const QString& line) { inner << line; });
            log::write(QStringLiteral("second"));
        }
        log::write(QStringLiteral("third"));
    }
    ASSERT_EQ(outer.size(), 2);
    ASSERT_EQ(inner.size(), 1);
    EXPECT_TRUE(kLinePattern.match(outer[0]).hasMatch()) << outer[0].toStdString();
    EXPECT_TRUE(outer[0].endsWith(QStringLiteral("] first")));
    EXPECT_TRUE(inner[0].endsWith(QStringLiteral("] second")));
    EXPECT_TRUE(outer[1].endsWith(QStringLiteral("] third")));

    // setSink hands back what it replaces, so it can be put back by hand.
    int mine = 0;
    log::Sink previous = log::setSink([&](const QString&) { ++mine; });
    log::Sink replaced = log::setSink(std::move(previous));
    ASSERT_TRUE(replaced);
    replaced(QStringLiteral("line"));
    EXPECT_EQ(mine, 1);
}

TEST(LogTest, LinesFromManyThreadsArriveWhole) {
    // The sink is called under the logging lock, so it needs no lock itself.
    std::vector<QString> lines;
    log::ScopedSink sink([&](const QString& line) { lines.push_back(line); });
    constexpr int kThreads = 4;
    constexpr int kLines = 200;
    std::vector<std::thread> threads;
    for (int t = 0; t < kThreads; ++t) {
        threads.emplace_back([t] {
            for (int i = 0; i < kLines; ++i) {
                log::write(QStringLiteral("thread %1 line %2").arg(t).arg(i));
            }
        });
    }
    for (auto& thread : threads) {
        thread.join();
    }
    ASSERT_EQ(lines.size(), static_cast<size_t>(kThreads * kLines));
    const QRegularExpression message(QStringLiteral(R"(\] thread \d line \d+$)"));
    for (const QString& line : lines) {
        ASSERT_TRUE(kLinePattern.match(line).hasMatch()) << line.toStdString();
        ASSERT_TRUE(message.match(line).hasMatch()) << line.toStdString();
    }
}

}  // namespace
