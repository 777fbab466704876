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
    // Keeps the recipient alive. A reference to its base class, because the release must not use
    // the class of the recipient: its library may be unloaded by then if the recipient lives on.
    sp<RefBase> reference;
    uint64_t cookie;
};

// The links of each object, in the order in which they were made. The key is compared only, never
// followed: the destructor of the object removes its links.
using Links = std::multimap<const IBase*, Link>;

struct Registry {
    // No other lock is taken and no recipient is called or released under it.
    std::mutex mutex;
    Links links;  // Guarded by mutex.

    void Add(const IBase* object, const Link& link) {
        Links added = {{object, link}};
        const std::lock_guard<std::mutex> lock(mutex);
        links.insert(added.extract(added.begin()));
    }

    // Removes and returns the links of `object`: those of `recipient`, or all if it is null. Needs
    // no memory, because destructors call it.
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

// Never destroyed: objects may be destroyed while the process ends.
Registry& DeathRegistry() {
    static auto* registry = new Registry;
    return *registry;
}

}  // namespace

namespace platform {

void EndOwnerOf(const sp<IBase>& object) {
    // The new thread removes the links, so they remain if it cannot start.
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
