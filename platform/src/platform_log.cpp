// Replaces log_print.cpp in builds over the platform's own log library: receives the messages from
// it.
#include <android/log.h>

#include "log_delivery.h"

namespace {

void Deliver(const __android_logger_data* data, const char* message) {
    try {
        platform::DeliverLog(data->priority, data->tag, message);
    } catch (...) {
        // Without memory the line is lost.
    }
}

const bool isSet = [] {
    __android_log_set_logger(Deliver);
    __android_log_set_minimum_priority(ANDROID_LOG_VERBOSE);
    return true;
}();

}  // namespace
