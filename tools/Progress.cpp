#include "Progress.h"

#include <unistd.h>

#include <cstdio>
#include <utility>

namespace ztool {
namespace {
constexpr int kBarWidth = 30;
}

Progress::Progress(std::string label, size_t total)
    : label_(std::move(label)), total_(total), active_(total > 0 && isatty(STDERR_FILENO) == 1) {
    draw();
}

Progress::~Progress() { finish(); }

void Progress::step() {
    ++done_;
    draw();
}

void Progress::clear() {
    if (!active_) return;
    std::fprintf(stderr, "\r\033[K");
    std::fflush(stderr);
}

void Progress::finish() {
    clear();
    active_ = false;
}

void Progress::draw() {
    if (!active_) return;
    const size_t done = done_ < total_ ? done_ : total_;
    const int filled = static_cast<int>(done * kBarWidth / total_);
    // Redraw on every step: the count changes each time, and steps are whole frames or files.
    std::string bar(static_cast<size_t>(filled), '#');
    bar.resize(kBarWidth, '.');
    std::fprintf(stderr, "\r%s [%s] %zu/%zu", label_.c_str(), bar.c_str(), done, total_);
    std::fflush(stderr);
}

}  // namespace ztool
