#include "progress.h"

#include <fmt/format.h>
#include <unistd.h>

#include <cstdio>

#include "message.h"

namespace {
constexpr size_t kBarWidth = 30;
}

Progress::Progress() : mIsTerminal(isatty(STDERR_FILENO) == 1) {}

Progress::~Progress() {
    Clear();
}

void Progress::Show(const char* step, size_t done, size_t all) {
    if (!mIsTerminal) return;
    std::string text;
    if (all > 0) {
        const size_t filled = kBarWidth * done / all;
        text = fmt::format("{:<12} [{:#<{}}{:<{}}] {:3}%", step, "", filled, "", kBarWidth - filled,
                           100 * done / all);
    } else {
        text = done > 0 ? fmt::format("{:<12} {}", step, done) : fmt::format("{:<12} ...", step);
    }
    if (text == mShown) return;
    Clear();
    mShown = text;
    std::fputs(mShown.c_str(), stderr);
    std::fflush(stderr);
}

offlinetz::ProgressCallback Progress::Callback() {
    return [this](const char* step, size_t done, size_t all) { Show(step, done, all); };
}

void Progress::PrintMessage(const std::string& text) {
    Clear();
    ::PrintMessage(text);
}

void Progress::Clear() {
    if (mShown.empty()) return;
    std::fprintf(stderr, "\r%*s\r", static_cast<int>(mShown.size()), "");
    mShown.clear();
}
