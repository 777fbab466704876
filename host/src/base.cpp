#include <android/hidl/base/1.0/IBase.h>
#include <unistd.h>

#include <list>
#include <mutex>
#include <thread>

#include "host/death_registry.h"

namespace {

using android::RefBase;
using android::sp;
using android::wp;
using android::hardware::hidl_death_recipient;
using android::hidl::base::V1_0::IBase;

struct Link {
    const IBase* object;  // Compared only; its destructor removes the link.
    hidl_death_recipient* recipient;
    // Keeps the recipient. Held by its base, because releasing it must not look into its class:
    // the library of a recipient that lives on may be unloaded by then.
    sp<RefBase> reference;
    uint64_t cookie;
};

struct Registry {
    std::mutex mutex;
    std::list<Link> links;  // Guarded by mutex.

    void Add(const Link& link) {
        std::list<Link> added = {link};
        const std::lock_guard<std::mutex> lock(mutex);
        links.splice(links.end(), added);
    }

    // Takes the links of `object` out, all or those of one recipient. Needs no memory: objects end
    // where there is none.
    std::list<Link> Take(const IBase* object, const hidl_death_recipient* recipient) {
        std::list<Link> taken;
        const std::lock_guard<std::mutex> lock(mutex);
        for (auto link = links.begin(); link != links.end();) {
            const auto next = std::next(link);
            if (link->object == object && (recipient == nullptr || link->recipient == recipient)) {
                taken.splice(taken.end(), links, link);
            }
            link = next;
        }
        return taken;
    }
};

// Never destroyed: objects may end while the process does.
Registry& Links() {
    static auto* registry = new Registry;
    return *registry;
}

}  // namespace

namespace host {

void EndOwnerOf(const sp<IBase>& object) {
    // Taken by the thread itself: if it cannot start, the links are still there.
    std::thread notifier([&object] {
        const std::list<Link> links = Links().Take(object.get(), nullptr);
        const wp<IBase> who(object);
        for (const Link& link : links)
            link.recipient->serviceDied(link.cookie, who);
    });
    notifier.join();
}

}  // namespace host

namespace android::hidl::base::V1_0 {

using hardware::Return;
using hardware::Void;

bool IBase::isRemote() const {
    return false;
}

Return<void> IBase::interfaceChain(interfaceChain_cb callback) {
    callback({});
    return Void();
}

Return<void> IBase::debug(const native_handle*, const hardware::hidl_vec<hardware::hidl_string>&) {
    return Void();
}

Return<void> IBase::interfaceDescriptor(interfaceDescriptor_cb callback) {
    callback({});
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
    Links().Add({this, recipient.get(), recipient.get(), cookie});
    return true;
}

Return<void> IBase::ping() {
    return Void();
}

Return<void> IBase::getDebugInfo(getDebugInfo_cb callback) {
    callback({getpid(), reinterpret_cast<uintptr_t>(this)});
    return Void();
}

Return<void> IBase::notifySyspropsChanged() {
    return Void();
}

Return<bool> IBase::unlinkToDeath(const sp<hardware::hidl_death_recipient>& recipient) {
    if (recipient == nullptr) return false;
    return !Links().Take(this, recipient.get()).empty();
}

IBase::~IBase() {
    Links().Take(this, nullptr);
}

}  // namespace android::hidl::base::V1_0
