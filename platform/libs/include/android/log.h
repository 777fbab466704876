// Stand-in for the platform's log: the declarations that the service uses, under the platform's own
// header name. platform/log.h sets where the messages go.
#pragma once

#ifdef __cplusplus
extern "C" {
#endif

enum {
    ANDROID_LOG_DEBUG = 3,
    ANDROID_LOG_INFO = 4,
    ANDROID_LOG_ERROR = 6,
};

// Formats one message and delivers it, with its priority and tag, to the log. Numbers are formatted
// as in the "C" locale. Returns 1, also if the log is dropped. Returns a negative number if the
// message was lost: without memory, or because the receiver threw. Does not throw. Any thread may
// call. It takes the log's lock, so callers' locks come before it.
int __android_log_print(int priority, const char* tag, const char* format, ...)
        __attribute__((format(printf, 3, 4)));

#ifdef __cplusplus
}
#endif
