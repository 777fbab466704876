// The stand-in for the platform's runtime. The same tests run over the platform's own libraries.
#include <android/hidl/base/1.0/IBase.h>
#include <gtest/gtest.h>
#include <platform/death_registry.h>

#include <mutex>
#include <thread>
#include <vector>

using android::sp;
using android::wp;
using android::hardware::hidl_death_recipient;
using android::hardware::hidl_string;
using android::hardware::Return;
using android::hardware::Status;
using android::hidl::base::V1_0::IBase;

namespace {

struct Recipient : hidl_death_recipient {
    void serviceDied(uint64_t cookie, const wp<IBase>& who) override {
        const std::lock_guard<std::mutex> lock(mMutex);
        mNotices.emplace_back(cookie, who.promote().get());
        EXPECT_NE(mMaker, std::this_thread::get_id());
    }
    std::mutex mMutex;
    std::vector<std::pair<uint64_t, IBase*>> mNotices;
    const std::thread::id mMaker = std::this_thread::get_id();
};

struct Object : IBase {};

// A failed call that nobody checks ends the process, as it does on the platform.
TEST(Runtime, StringsMayHoldZerosAndFailuresMustBeChecked) {
    EXPECT_EQ(hidl_string("a"), hidl_string("a\0b", 3));
    const Return<bool> failed = Status::fromStatusT(android::DEAD_OBJECT);
    EXPECT_FALSE(failed.isOk());
    EXPECT_DEATH(static_cast<void>(static_cast<bool>(failed)), "");
}

TEST(Deaths, AreReportedOnceForEachLink) {
    const sp<Object> object = new Object;
    sp<Object> other = new Object;
    const sp<Recipient> a = new Recipient;
    const sp<Recipient> b = new Recipient;
    EXPECT_TRUE(object->linkToDeath(a, 99));
    EXPECT_TRUE(object->linkToDeath(a, 7));
    EXPECT_TRUE(object->linkToDeath(b, 1));
    EXPECT_TRUE(other->linkToDeath(b, 2));
    EXPECT_FALSE(object->linkToDeath(nullptr, 3));
    EXPECT_TRUE(object->unlinkToDeath(b));
    EXPECT_FALSE(object->unlinkToDeath(b));
    platform::EndOwnerOf(object);
    platform::EndOwnerOf(object);
    using Notices = std::vector<std::pair<uint64_t, IBase*>>;
    EXPECT_EQ((Notices{{99, object.get()}, {7, object.get()}}), a->mNotices);
    // The end of an object is not a death. It removes the links to the object.
    EXPECT_EQ(2, b->getStrongCount());
    other.clear();
    EXPECT_EQ(1, b->getStrongCount());
    EXPECT_EQ(Notices{}, b->mNotices);
}

}  // namespace
