// The interface that every interface derives from.
#pragma once

#include <hidl/HidlSupport.h>
#include <hidl/Status.h>

#include <cstdint>
#include <functional>

namespace android::hidl::base::V1_0 {

// What a process tells of itself: an object in the caller's own has nothing to tell, pid -1.
struct DebugInfo {
    int32_t pid;
    uint64_t ptr;
};

// The operations stand in the slot order of the platform, which clients built elsewhere rely on:
// add none and move none. Implementations of this layer answer for an object in the caller's own
// process; interfaces need not override them.
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
    // Has `recipient` told with `cookie` when the owner of this object ends. Every call makes a
    // link of its own. False for an empty recipient.
    virtual hardware::Return<bool> linkToDeath(const sp<hardware::hidl_death_recipient>& recipient,
                                               uint64_t cookie);
    virtual hardware::Return<void> ping();
    virtual hardware::Return<void> getDebugInfo(getDebugInfo_cb callback);
    virtual hardware::Return<void> notifySyspropsChanged();
    // Removes the links of `recipient` to this object. False when there was none.
    virtual hardware::Return<bool> unlinkToDeath(
            const sp<hardware::hidl_death_recipient>& recipient);

    // Removes the links to this object without a notice: only the end of its owner is a death.
    ~IBase() override;
};

}  // namespace android::hidl::base::V1_0
