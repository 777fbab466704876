#include <android/hidl/base/1.0/IBase.h>

#include <iterator>
#include <map>
#include <mutex>
#include <thread>

#include <platform/death_registry.h>

namespace {

using android::RefBase;
using android::sp;
using android::wp;
using android::hardware::hidl_death_recipient;
using android::hidl::base::V1_0::IBase;

struct Link {
    hidl_death_recipient* recipient;
    // Keeps the recipient. Held by its base, because releasing it must not look into its class:
    // the library of a recipient that lives on may be unloaded by then.
    sp<RefBase> reference;
    uint64_t cookie;
};

// Links by their object, which is compared only: its destructor removes them. Those of one object
// stand in the order in which they were made.
using Links = std::multimap<const IBase*, Link>;

struct Registry {
    std::mutex mutex;
    Links links;  // Guarded by mutex.

    void Add(const IBase* object, const Link& link) {
        Links added = {{object, link}};
        const std::lock_guard<std::mutex> lock(mutex);
        links.insert(added.extract(added.begin()));
    }

    // Takes the links of `object` out, all or those of one recipient. Needs no memory: objects end
    // where there is none.
    Links Take(const IBase* object, const hidl_death_recipient* recipient) {
        Links taken;
        const std::lock_guard<std::mutex> lock(mutex);
        for (auto link = links.lower_bound(object); link != links.end() && link->first == object;) {
            const auto next = std::next(link);
            if (recipient == nullptr || link->second.recipient == recipient)
                taken.insert(taken.end(), links.extract(link));
            link = next;
        }
        return taken;
    }
};

// Never destroyed: objects may end while the process does.
Registry& DeathRegistry() {
    static auto* registry = new Registry;
    return *registry;
}

}  // namespace

namespace platform {

void EndOwnerOf(const sp<IBase>& object) {
    // Taken by the thread itself: if it cannot start, the links are still there.
    std::thread notifier([&object] {
        const Links links = DeathRegistry().Take(object.get(), nullptr);
        const wp<IBase> who(object);
        for (const auto& [_, link] : links)
            link.recipient->serviceDied(link.cookie, who);
    });
    notifier.join();
}

}  // namespace platform

namespace android::hidl::base::V1_0 {

using hardware::Return;
using hardware::Void;

bool IBase::isRemote() const {
    return false;
}

Return<void> IBase::interfaceChain(interfaceChain_cb callback) {
    callback({descriptor});
    return Void();
}

Return<void> IBase::debug(const hardware::hidl_handle&,
                          const hardware::hidl_vec<hardware::hidl_string>&) {
    return Void();
}

Return<void> IBase::interfaceDescriptor(interfaceDescriptor_cb callback) {
    callback(descriptor);
    return Void();
}

Return<void> IBase::getHashChain(getHashChain_cb callback) {
    callback({});
    return Void();
}

Return<void> IBase::setHALInstrumentation() {
    return Void();
}

Return<bool> IBase::linkToDeath(const sp<hardware::hidl_death_recipient>& recipient,
                                uint64_t cookie) {
    if (recipient == nullptr) return false;
    DeathRegistry().Add(this, {recipient.get(), recipient.get(), cookie});
    return true;
}

Return<void> IBase::ping() {
    return Void();
}

Return<void> IBase::getDebugInfo(getDebugInfo_cb callback) {
    callback({-1, 0});
    return Void();
}

Return<void> IBase::notifySyspropsChanged() {
    return Void();
}

Return<bool> IBase::unlinkToDeath(const sp<hardware::hidl_death_recipient>& recipient) {
    if (recipient == nullptr) return false;
    return !DeathRegistry().Take(this, recipient.get()).empty();
}

IBase::~IBase() {
    DeathRegistry().Take(this, nullptr);
}

}  // namespace android::hidl::base::V1_0
