// Nothing is lost uncounted, and no file is left that cannot be read.
#include "devhost/outputs/capture_file.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/resource.h>

#include <csignal>
#include <filesystem>
#include <fstream>
#include <random>

#include "tests/outputs/feed.h"

namespace outputs {
namespace {

using host::Drop;
using testing::HasSubstr;
using testing::ThrowsMessage;

uint64_t dropped(const host::Account& account, Drop reason) {
    return account.dropped[static_cast<size_t>(reason)];
}

TEST(BoundedQueue, BalancesAtEveryPoint) {
    using Queue = BoundedQueue<uint64_t>;
    constexpr size_t kBound = 10 * Queue::kOverhead;
    for (const WhenFull policy : {WhenFull::dropOldest, WhenFull::dropNewest}) {
        Queue queue(kBound, policy);
        std::minstd_rand random(policy == WhenFull::dropOldest ? 1 : 2);
        std::deque<Queue::Entry> taken;
        std::vector<uint64_t> delivered;
        const auto at = [&] { return testing::Message() << "offered " << queue.account().offered; };
        for (uint64_t number = 1; number <= 5000; ++number) {
            const uint64_t records = random() % 4;  // drawn in this order by every compiler
            queue.offer(number, random() % 300, records);
            if (auto entry = random() % 2 == 0 ? queue.take(Queue::Clock::now()) : std::nullopt) {
                taken.push_back(std::move(*entry));
            }
            if (taken.size() > random() % 4) {
                const auto chance = random() % 8;
                if (chance == 0) {
                    queue.dropped(taken.front(), Drop::refused, "no");
                } else if (chance == 1) {
                    queue.putBack(taken.back());
                    taken.pop_back();
                    continue;
                } else {
                    queue.delivered(taken.front());
                    delivered.push_back(taken.front().item);
                }
                taken.pop_front();
            }
            ASSERT_TRUE(queue.account().balanced()) << at();
            ASSERT_LE(queue.account().bytesWaiting, kBound) << at();
        }
        EXPECT_TRUE(std::ranges::is_sorted(delivered));
        queue.offer(0, kBound, 3);
        queue.close();
        queue.offer(0, 0, 5);
        ASSERT_FALSE(taken.empty());
        const host::Account before = queue.account();
        EXPECT_EQ(dropped(before, Drop::tooLarge), 3u);
        EXPECT_EQ(dropped(before, Drop::stopped), 5u);
        EXPECT_GT(dropped(before, Drop::full), 0u);
        EXPECT_GT(dropped(before, Drop::refused), 0u);
        queue.abandon();
        queue.delivered(taken.front());
        queue.putBack(taken.back());
        const host::Account after = queue.account();
        EXPECT_TRUE(after.balanced());
        EXPECT_EQ(after.waiting + after.bytesWaiting, 0u);
        EXPECT_EQ(dropped(after, Drop::stopped), 5 + before.waiting);
        EXPECT_FALSE(queue.take().has_value());
    }
}

TEST(BoundedQueue, DropsTheOldestOrTheNewest) {
    for (const WhenFull policy : {WhenFull::dropOldest, WhenFull::dropNewest}) {
        BoundedQueue<int> queue(3 * BoundedQueue<int>::kOverhead, policy);
        queue.offer(1, 0, 1);
        const auto first = queue.take();
        for (const int item : {2, 3, 4}) {
            queue.offer(item, 0, 1);
        }
        EXPECT_EQ(dropped(queue.account(), Drop::full), 1u);
        EXPECT_EQ(queue.take()->item, policy == WhenFull::dropOldest ? 3 : 2);
        queue.delivered(*first);
        EXPECT_EQ(queue.account().delivered, 1u);
    }
}

class CaptureFileTest : public testing::Test {
  protected:
    CaptureFileTest() {
        std::string name = (std::filesystem::temp_directory_path() / "captureXXXXXX").string();
        folder = mkdtemp(name.data());
        file = (folder / "all.qos").string();
    }
    ~CaptureFileTest() override { std::filesystem::remove_all(folder); }

    /* A pass of so many records, each in a batch of its own. */
    void feedTo(CaptureFile& output, size_t batches) {
        for (size_t index = 0; index < batches; ++index) {
            feed.pass(
                {queueRecord("eth0", 0, 1)}, [&](const auto& batch) { output.batch(batch); },
                [&](const auto& end) { output.passEnded(end); });
        }
    }

    void settle(const CaptureFile& output) {
        while (output.account().bytesWaiting > 0) {
            std::this_thread::sleep_for(std::chrono::milliseconds(1));
        }
    }

    void flush(CaptureFile& output) {
        output.flush(std::chrono::seconds(20), [this] { loop.stop(); });
        loop.run();
        EXPECT_TRUE(output.account().balanced());
        EXPECT_EQ(output.account().waiting, 0u);
    }

    static size_t recordsIn(const std::string& name) {
        host::CaptureReader reader(name);
        size_t records = 0;
        while (reader.next()) {
            ++records;
        }
        return records;
    }

    std::filesystem::path folder;
    std::string file;
    host::Loop loop;
    Feed feed{1};
};

TEST_F(CaptureFileTest, IsWrittenOnAndBegunAnew) {
    {
        CaptureFile output(loop, {file});
        EXPECT_THAT([&] { CaptureFile(loop, {file}); }, ThrowsMessage<std::runtime_error>(HasSubstr(file)));
        feedTo(output, 2);
        flush(output);
        EXPECT_EQ(output.account().delivered, 2u);
        feedTo(output, 1);
        EXPECT_EQ(dropped(output.account(), Drop::stopped), 1u);
    }
    std::filesystem::resize_file(file, std::filesystem::file_size(file) - 3);
    CaptureFile output(loop, {file});
    feedTo(output, 1);
    settle(output);
    EXPECT_EQ(recordsIn(file), 3 + 2u);
    std::filesystem::rename(file, file + ".1");
    feedTo(output, 1);
    settle(output);
    std::filesystem::resize_file(file, 0);
    feedTo(output, 2);
    flush(output);
    EXPECT_EQ(recordsIn(file + ".1"), 5u);
    EXPECT_EQ(recordsIn(file), 4u);
    EXPECT_EQ(output.account().reconnects, 2u);
    EXPECT_EQ(output.account().delivered, 4u);
}

TEST_F(CaptureFileTest, OthersFilesStayAsTheyAre) {
    std::ofstream(file) << "QOS-CAPTURE 2\nnot a record";
    for (const std::string& name : {file, std::string("/dev/null"), folder.string(), (folder / "no" / "f").string()}) {
        EXPECT_THAT([&] { CaptureFile(loop, {name}); }, ThrowsMessage<std::runtime_error>(HasSubstr(name)));
    }
    EXPECT_EQ(std::filesystem::file_size(file), 26u);
}

TEST_F(CaptureFileTest, AFullDiskCostsWholeRecordsThatAreCounted) {
    std::signal(SIGXFSZ, SIG_IGN);
    CaptureFile output(loop, {file, 4096});
    feedTo(output, 1);
    settle(output);
    rlimit before{};
    getrlimit(RLIMIT_FSIZE, &before);
    const rlimit small{.rlim_cur = std::filesystem::file_size(file) + 20, .rlim_max = before.rlim_max};
    setrlimit(RLIMIT_FSIZE, &small);
    feedTo(output, 100);
    while (dropped(output.account(), Drop::refused) == 0) {
        std::this_thread::sleep_for(std::chrono::milliseconds(1));
    }
    EXPECT_EQ(recordsIn(file), 2u);
    setrlimit(RLIMIT_FSIZE, &before);
    flush(output);
    const host::Account account = output.account();
    EXPECT_EQ(account.offered, 101u);
    EXPECT_GT(dropped(account, Drop::full), 0u);
    EXPECT_GT(account.delivered, 1u);
    EXPECT_THAT(account.lastError, HasSubstr(file));
    EXPECT_GE(recordsIn(file), account.delivered);
}

}  // namespace
}  // namespace outputs
