// Planes fenced by inaccessible pages. The bytes a kernel may legally touch sit directly against
// a no-access page (after the last legal byte, or before the first), so a read or write one
// byte outside crashes the test at the faulting instruction. Everything else inside the mapping
// (row gaps, alignment slack) is poisoned and checked afterwards for stray writes.
#pragma once

#if defined(_WIN32)
#ifndef NOMINMAX
#define NOMINMAX
#endif
#define WIN32_LEAN_AND_MEAN
#include <windows.h>
#else
#include <sys/mman.h>
#include <unistd.h>
#endif

#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <random>
#include <stdexcept>
#include <vector>

#include <gtest/gtest.h>

namespace vt {

// Whole pages from the system, readable and writable until NoAccess fences part of them.
namespace pages {
#if defined(_WIN32)
inline int64_t Size() {
    SYSTEM_INFO info;
    GetSystemInfo(&info);
    return info.dwPageSize;
}
inline uint8_t* Map(int64_t bytes) {
    void* m = VirtualAlloc(nullptr, static_cast<size_t>(bytes), MEM_RESERVE | MEM_COMMIT, PAGE_READWRITE);
    if (!m) throw std::runtime_error("VirtualAlloc failed");
    return static_cast<uint8_t*>(m);
}
inline void NoAccess(uint8_t* p, int64_t bytes) {
    DWORD old;
    VirtualProtect(p, static_cast<size_t>(bytes), PAGE_NOACCESS, &old);
}
inline void Unmap(uint8_t* p, int64_t) { VirtualFree(p, 0, MEM_RELEASE); }
#else
inline int64_t Size() { return sysconf(_SC_PAGESIZE); }
inline uint8_t* Map(int64_t bytes) {
    void* m = mmap(nullptr, static_cast<size_t>(bytes), PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
    if (m == MAP_FAILED) throw std::runtime_error("mmap failed");
    return static_cast<uint8_t*>(m);
}
inline void NoAccess(uint8_t* p, int64_t bytes) { mprotect(p, static_cast<size_t>(bytes), PROT_NONE); }
inline void Unmap(uint8_t* p, int64_t bytes) { munmap(p, static_cast<size_t>(bytes)); }
#endif
}  // namespace pages

// Which edge of the legal bytes touches a guard page.
enum class Placement { End, Start };

inline constexpr uint8_t kPoison = 0xA5;

class GuardedPlane {
public:
    // height rows of row_bytes legal bytes each (width plus any documented overrun), rows step
    // bytes apart (negative: row 0 is the highest in memory). The first legal byte is aligned to
    // `align`; with Placement::End up to align-1 bytes of slack separate the last legal byte
    // from the guard page, so use align 1 wherever the kernel accepts any address.
    GuardedPlane(int64_t row_bytes, int height, int32_t step, Placement placement = Placement::End, int align = 16)
        : row_bytes_(row_bytes), height_(height), step_(step) {
        const int64_t abs_step = step < 0 ? -int64_t{step} : step;
        if (height > 1 && abs_step < row_bytes) throw std::invalid_argument("step shorter than a row");
        extent_ = height > 0 && row_bytes > 0 ? (height - 1) * abs_step + row_bytes : 0;
        page_ = pages::Size();
        const int64_t inner = (extent_ + align + page_ - 1) / page_ * page_;
        map_bytes_ = inner + 2 * page_;
        map_ = pages::Map(map_bytes_);
        pages::NoAccess(map_, page_);
        pages::NoAccess(map_ + page_ + inner, page_);
        lo_ = map_ + page_;
        hi_ = lo_ + inner;
        if (placement == Placement::Start) {
            first_ = lo_;
        } else {
            const uintptr_t end_start = reinterpret_cast<uintptr_t>(hi_) - extent_;
            first_ = reinterpret_cast<uint8_t*>(end_start / align * align);
        }
        std::memset(lo_, kPoison, hi_ - lo_);
    }
    ~GuardedPlane() {
        if (map_) pages::Unmap(map_, map_bytes_);
    }
    GuardedPlane(GuardedPlane&& o) noexcept
        : row_bytes_(o.row_bytes_), height_(o.height_), step_(o.step_), extent_(o.extent_), page_(o.page_),
          map_bytes_(o.map_bytes_), map_(o.map_), lo_(o.lo_), hi_(o.hi_), first_(o.first_) {
        o.map_ = nullptr;
    }
    GuardedPlane(const GuardedPlane&) = delete;
    GuardedPlane& operator=(const GuardedPlane&) = delete;

    int32_t step() const { return step_; }
    int height() const { return height_; }
    int64_t row_bytes() const { return row_bytes_; }
    uint8_t* data() const { return height_ > 1 && step_ < 0 ? first_ + int64_t{height_ - 1} * -int64_t{step_} : first_; }
    uint8_t* Row(int y) const { return data() + int64_t{y} * step_; }
    template <class T>
    T* As() const { return reinterpret_cast<T*>(data()); }
    template <class T>
    T* RowAs(int y) const { return reinterpret_cast<T*>(Row(y)); }

    // Random bytes everywhere (gaps included), so an uninitialised read shows up as noise.
    void FillRandomBytes(uint32_t seed) {
        std::mt19937 rng(seed);
        for (uint8_t* p = lo_; p < hi_; ++p) *p = static_cast<uint8_t>(rng());
    }
    // Writes each legal row's bytes through gen(x_byte_index) -> T, element by element.
    template <class T, class Gen>
    void FillRows(Gen&& gen) {
        const int64_t n = row_bytes_ / int64_t(sizeof(T));
        for (int y = 0; y < height_; ++y)
            for (int64_t i = 0; i < n; ++i) RowAs<T>(y)[i] = gen(y, i);
    }

    std::vector<uint8_t> Snapshot() const { return {lo_, hi_}; }

    // True when no byte changed outside bytes [x0_bytes, x0_bytes + bytes) of rows [y0, y0 + rows).
    ::testing::AssertionResult OnlyRegionChanged(const std::vector<uint8_t>& before, int64_t x0_bytes, int y0, int64_t bytes,
                                                 int rows) const {
        std::vector<bool> allowed(hi_ - lo_, false);
        for (int y = y0; y < y0 + rows && bytes > 0; ++y) {
            const int64_t off = Row(y) - lo_ + x0_bytes;
            for (int64_t i = 0; i < bytes; ++i) allowed[off + i] = true;
        }
        for (int64_t i = 0; i < hi_ - lo_; ++i)
            if (!allowed[i] && lo_[i] != before[i])
                return ::testing::AssertionFailure() << "stray write at byte " << (lo_ + i - data())
                                                     << " from row 0 (step " << step_ << ")";
        return ::testing::AssertionSuccess();
    }
    // True when no byte changed outside the first `written_bytes` bytes of each row.
    ::testing::AssertionResult OnlyRowsChanged(const std::vector<uint8_t>& before, int64_t written_bytes) const {
        return OnlyRegionChanged(before, 0, 0, written_bytes, height_);
    }
    ::testing::AssertionResult Unchanged(const std::vector<uint8_t>& before) const { return OnlyRowsChanged(before, 0); }

private:
    int64_t row_bytes_;
    int height_;
    int32_t step_;
    int64_t extent_ = 0, page_ = 0, map_bytes_ = 0;
    uint8_t *map_ = nullptr, *lo_ = nullptr, *hi_ = nullptr, *first_ = nullptr;
};

}  // namespace vt
