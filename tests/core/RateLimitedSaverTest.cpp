#include "storage/RateLimitedSaver.h"

#include "support/StorageFixture.h"

#include <QElapsedTimer>

#include <memory>

using namespace std::chrono_literals;

class RateLimitedSaverTest : public StorageFixture
{};

TEST_F(RateLimitedSaverTest, FirstRunsAtOnceLaterOnesMergeIntoTheLast)
{
    RateLimitedSaver saver;
    QList<std::pair<int, qint64>> runs;
    QElapsedTimer clock;
    clock.start();
    for (int i = 1; i <= 5; ++i) {
        saver.request([&, i] { runs.append({i, clock.elapsed()}); });
        spin(60); // five requests within 0.3 s
    }
    ASSERT_EQ(runs.size(), 1);
    EXPECT_EQ(runs[0].first, 1);
    EXPECT_TRUE(saver.hasPendingRequest());
    ASSERT_TRUE(waitFor([&] { return runs.size() == 2; }, 2000));
    EXPECT_EQ(runs[1].first, 5);
    EXPECT_GE(runs[1].second, 950);
    EXPECT_LE(runs[1].second, 2000); // generous: CI machines are busy
    spin(300);
    EXPECT_EQ(runs.size(), 2);

    // A request well after the last run goes through at once.
    spin(1100);
    saver.request([&] { runs.append({6, clock.elapsed()}); });
    EXPECT_EQ(runs.size(), 3);
}

TEST_F(RateLimitedSaverTest, DestroyingTheSaverDropsThePendingRun)
{
    int runs = 0;
    auto saver = std::make_unique<RateLimitedSaver>(200ms);
    saver->request([&] { ++runs; });
    saver->request([&] { ++runs; });
    EXPECT_EQ(runs, 1);
    saver.reset();
    spin(400);
    EXPECT_EQ(runs, 1);
}

TEST_F(RateLimitedSaverTest, FlushRunsThePendingRequestOnceAndNothingElse)
{
    int runs = 0;
    int last = 0;
    RateLimitedSaver saver(500ms);
    saver.flush();
    EXPECT_EQ(runs, 0) << "nothing pending, nothing run";
    saver.request([&] { ++runs, last = 1; });
    saver.request([&] { ++runs, last = 2; });
    saver.flush();
    EXPECT_EQ(runs, 2);
    EXPECT_EQ(last, 2);
    EXPECT_FALSE(saver.hasPendingRequest());
    spin(700);
    EXPECT_EQ(runs, 2) << "the scheduled run was taken by the flush";
}
