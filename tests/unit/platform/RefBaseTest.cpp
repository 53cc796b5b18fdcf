#include <utils/RefBase.h>

#include <atomic>
#include <thread>
#include <vector>

#include <gtest/gtest.h>

using android::RefBase;
using android::sp;
using android::wp;

namespace {

struct Counters {
    std::atomic<int> firstRefs{0};
    std::atomic<int> lastRefs{0};
    std::atomic<int> destroyed{0};
};

class Tracked : public RefBase {
public:
    explicit Tracked(Counters* c) : mC(c) {}
    ~Tracked() override { mC->destroyed++; }
    void onFirstRef() override { mC->firstRefs++; }
    void onLastStrongRef(const void*) override { mC->lastRefs++; }

private:
    Counters* mC;
};

}  // namespace

TEST(RefBaseTest, LifetimeFollowsStrongReferencesAndWeakOnesPromoteOnlyWhileAlive) {
    Counters c;
    wp<Tracked> weak;
    {
        sp<Tracked> a = new Tracked(&c);
        EXPECT_EQ(1, c.firstRefs.load());
        weak = a;
        sp<Tracked> b = weak.promote();
        EXPECT_EQ(a.get(), b.get());
        EXPECT_EQ(2, a->getStrongCount());
        a.clear();
        EXPECT_EQ(0, c.destroyed.load());
    }
    EXPECT_EQ(1, c.lastRefs.load());
    EXPECT_EQ(1, c.destroyed.load());
    EXPECT_EQ(nullptr, weak.promote().get());

    // An object only ever weakly held dies with its last weak reference.
    Counters weakOnly;
    { wp<Tracked> w(new Tracked(&weakOnly)); }
    EXPECT_EQ(1, weakOnly.destroyed.load());
    EXPECT_EQ(0, weakOnly.firstRefs.load());
}

TEST(RefBaseTest, ConcurrentCopiesAndPromotionsKeepCountsExact) {
    Counters c;
    {
        sp<Tracked> root = new Tracked(&c);
        wp<Tracked> weak = root;
        std::vector<std::thread> threads;
        for (int t = 0; t < 4; ++t) {
            threads.emplace_back([&] {
                for (int i = 0; i < 20000; ++i) {
                    sp<Tracked> copy = root;
                    sp<Tracked> p = weak.promote();
                    ASSERT_NE(nullptr, p.get());
                }
            });
        }
        for (auto& t : threads) t.join();
        EXPECT_EQ(1, root->getStrongCount());
    }
    EXPECT_EQ(1, c.destroyed.load());
    EXPECT_EQ(1, c.firstRefs.load());
}

// The last strong release racing promotions: the object dies once, and a promotion
// either wins a live object or gets null.
TEST(RefBaseTest, PromotionRacingLastReleaseNeverResurrects) {
    for (int round = 0; round < 300; ++round) {
        Counters c;
        sp<Tracked> strong = new Tracked(&c);
        wp<Tracked> weak = strong;
        std::thread promoter([&] {
            for (int i = 0; i < 50; ++i) {
                sp<Tracked> p = weak.promote();
                if (p == nullptr) break;
            }
        });
        strong.clear();
        promoter.join();
        weak.clear();
        ASSERT_EQ(1, c.destroyed.load());
    }
}
