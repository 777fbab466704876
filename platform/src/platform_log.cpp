// Takes what the platform's own log library is given, in the place of log_print.cpp.
#include <android/log.h>

#include "log_delivery.h"

namespace {

void Deliver(const __android_logger_data* data, const char* message) {
    try {
        platform::DeliverLog(data->priority, data->tag, message);
    } catch (...) {
        // A line that there is no memory for is lost.
    }
}

const bool isSet = [] {
    __android_log_set_logger(Deliver);
    __android_log_set_minimum_priority(ANDROID_LOG_VERBOSE);
    return true;
}();

}  // namespace
