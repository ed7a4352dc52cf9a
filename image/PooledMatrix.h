// Scratch matrices whose memory comes from the image buffer pool.
#pragma once

#include <opencv2/core.hpp>

#include <new>

#include "PoolRelease.h"

namespace ZTI {

/// A matrix over pool memory, handed back to the pool when this object dies. Per-frame
/// temporaries of a stream of equal frames then reuse the same memory instead of asking the
/// system (and faulting in fresh pages) on every frame.
class PooledMatrix {
public:
    PooledMatrix(int rows, int cols, int type) {
        bytes_ = static_cast<size_t>(rows > 0 ? rows : 0) * static_cast<size_t>(cols > 0 ? cols : 0) *
                 CV_ELEM_SIZE(type);
        memory_ = acquirePixelMemory(bytes_);
        if (memory_ == nullptr && bytes_ != 0) throw std::bad_alloc();
        matrix_ = cv::Mat(rows, cols, type, memory_);
    }
    ~PooledMatrix() { releasePixelMemory(memory_, bytes_); }
    PooledMatrix(const PooledMatrix&) = delete;
    PooledMatrix& operator=(const PooledMatrix&) = delete;

    cv::Mat& mat() { return matrix_; }
    const cv::Mat& mat() const { return matrix_; }

private:
    unsigned char* memory_ = nullptr;
    size_t bytes_ = 0;
    cv::Mat matrix_;
};

}  // namespace ZTI
