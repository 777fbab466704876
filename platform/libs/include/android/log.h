// The platform log, as the host offers it: the declarations that the service's sources use,
// under the platform's own header name.
#pragma once

#ifdef __cplusplus
extern "C" {
#endif

enum {
    ANDROID_LOG_DEBUG = 3,
    ANDROID_LOG_INFO = 4,
    ANDROID_LOG_ERROR = 6,
};

// Writes one message with its priority and tag to the log; any thread may call. Returns 1, or a
// negative number when the message was lost; never throws.
int __android_log_print(int priority, const char* tag, const char* format, ...)
        __attribute__((format(printf, 3, 4)));

#ifdef __cplusplus
}
#endif
