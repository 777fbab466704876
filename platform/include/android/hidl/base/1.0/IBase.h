// Stand-in for the platform's base interface, from which every interface derives.
#pragma once

#include <hidl/HidlSupport.h>
#include <hidl/Status.h>

#include <cstdint>
#include <functional>

namespace android::hidl::base::V1_0 {

// What getDebugInfo reports. For an object in the caller's process: pid -1 and ptr 0.
struct DebugInfo {
    int32_t pid;
    uint64_t ptr;
};

// The methods are declared in the platform's slot order, on which clients built elsewhere depend:
// do not add or move one. The implementations here answer for an object in the caller's process;
// derived interfaces need not override them. Any thread may call them. Callbacks are called before
// the method returns, on the calling thread, under no lock.
struct IBase : virtual public RefBase {
    using interfaceChain_cb =
            std::function<void(const hardware::hidl_vec<hardware::hidl_string>& descriptors)>;
    using interfaceDescriptor_cb = std::function<void(const hardware::hidl_string& descriptor)>;
    using getHashChain_cb = std::function<void(
            const hardware::hidl_vec<hardware::hidl_array<uint8_t, 32>>& hashes)>;
    using getDebugInfo_cb = std::function<void(const DebugInfo& info)>;

    static constexpr const char* descriptor = "android.hidl.base@1.0::IBase";

    virtual bool isRemote() const;
    virtual hardware::Return<void> interfaceChain(interfaceChain_cb callback);
    virtual hardware::Return<void> debug(const hardware::hidl_handle& file,
                                         const hardware::hidl_vec<hardware::hidl_string>& options);
    virtual hardware::Return<void> interfaceDescriptor(interfaceDescriptor_cb callback);
    virtual hardware::Return<void> getHashChain(getHashChain_cb callback);
    virtual hardware::Return<void> setHALInstrumentation();
    // Links `recipient` to this object: it is told, with `cookie`, when the owner of this object
    // dies (platform/death_registry.h). The link holds a strong reference to the recipient. Every
    // call makes a new link. Returns false for an empty recipient. Throws std::bad_alloc without
    // memory; no link is then made.
    virtual hardware::Return<bool> linkToDeath(const sp<hardware::hidl_death_recipient>& recipient,
                                               uint64_t cookie);
    virtual hardware::Return<void> ping();
    virtual hardware::Return<void> getDebugInfo(getDebugInfo_cb callback);
    virtual hardware::Return<void> notifySyspropsChanged();
    // Removes all links of `recipient` to this object. Returns false if there was none. Needs no
    // memory.
    virtual hardware::Return<bool> unlinkToDeath(
            const sp<hardware::hidl_death_recipient>& recipient);

    // Removes the links to this object without a notice: only the death of its owner is reported.
    ~IBase() override;
};

}  // namespace android::hidl::base::V1_0
