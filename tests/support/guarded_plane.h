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

#include <algorithm>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <random>
#include <stdexcept>
#include <utility>
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
#if defined(MADV_HUGEPAGE)
    // Large planes take the system's big pages where it offers them: faulting in a plane of
    // several megabytes a small page at a time costs more than the kernel under test.
    if (bytes >= (int64_t{4} << 20)) madvise(m, static_cast<size_t>(bytes), MADV_HUGEPAGE);
#endif
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
    // Eight bytes a draw of SplitMix64, which is plenty random for noise and several times
    // quicker than the Mersenne Twister on planes of many megabytes.
    void FillRandomBytes(uint32_t seed) {
        uint64_t state = seed;
        for (uint8_t* p = lo_; p < hi_; p += 8) {
            uint64_t r = (state += 0x9E3779B97F4A7C15u);
            r = (r ^ (r >> 30)) * 0xBF58476D1CE4E5B9u;
            r = (r ^ (r >> 27)) * 0x94D049BB133111EBu;
            r ^= r >> 31;
            std::memcpy(p, &r, static_cast<size_t>(std::min<int64_t>(8, hi_ - p)));
        }
    }
    // Writes each legal row's bytes through gen(x_byte_index) -> T, element by element.
    template <class T, class Gen>
    void FillRows(Gen&& gen) {
        const int64_t n = row_bytes_ / int64_t(sizeof(T));
        for (int y = 0; y < height_; ++y)
            for (int64_t i = 0; i < n; ++i) RowAs<T>(y)[i] = gen(y, i);
    }

    std::vector<uint8_t> Snapshot() const { return {lo_, hi_}; }
    // A 64-bit digest of the whole mapping, for planes that must come back unchanged: cheaper
    // than a snapshot of a plane of many megabytes, though it cannot say where a change is.
    uint64_t Digest() const {
        uint64_t h = 0x243F6A8885A308D3u, word;
        for (const uint8_t* p = lo_; p < hi_; p += 8) std::memcpy(&word, p, 8), h = (h ^ word) * 0x100000001B3u + (h >> 29);
        return h;
    }

    // True when no byte changed outside bytes [x0_bytes, x0_bytes + bytes) of rows [y0, y0 + rows).
    ::testing::AssertionResult OnlyRegionChanged(const std::vector<uint8_t>& before, int64_t x0_bytes, int y0, int64_t bytes,
                                                 int rows) const {
        std::vector<std::pair<int64_t, int64_t>> allowed;  // [start, end) offsets into the mapping, in order
        for (int y = y0; y < y0 + rows && bytes > 0; ++y) allowed.emplace_back(Row(y) - lo_ + x0_bytes, Row(y) - lo_ + x0_bytes + bytes);
        std::sort(allowed.begin(), allowed.end());
        allowed.emplace_back(hi_ - lo_, hi_ - lo_);
        int64_t from = 0;
        for (const auto& [start, end] : allowed) {
            if (start > from && std::memcmp(lo_ + from, before.data() + from, size_t(start - from)) != 0)
                for (int64_t i = from; i < start; ++i)
                    if (lo_[i] != before[size_t(i)])
                        return ::testing::AssertionFailure() << "stray write at byte " << (lo_ + i - data())
                                                             << " from row 0 (step " << step_ << ")";
            from = std::max(from, end);
        }
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

// A caller's array (a table, a matrix, an order) alone on guarded memory: reading one element
// past its end (or, placed at the start, before its first) crashes.
template <class T>
struct GuardedArray {
    GuardedPlane plane;
    explicit GuardedArray(const std::vector<T>& values, Placement placement = Placement::End)
        : plane(int64_t(values.size() * sizeof(T)), 1, 16, placement, int(alignof(T))) {
        std::memcpy(plane.data(), values.data(), values.size() * sizeof(T));
    }
    const T* data() const { return plane.As<T>(); }
};

// A region of w x h pixels of c elements of T inside margins l, t, r, b, on a guarded plane of
// random bytes. Unless a step is given, it gets a random pad of whole elements, a random sign (one
// plane in five bottom-up) and a random guard side. Px(x, y) is the region's pixel; the margins
// sit at negative and past-the-end coordinates.
template <class T>
struct MarginPlane {
    int w, h, c, l, t, r, b;
    GuardedPlane g;
    MarginPlane(std::mt19937& rng, int w_, int h_, int c_, int l_ = 0, int t_ = 0, int r_ = 0, int b_ = 0, int32_t step = 0)
        : w(w_), h(h_), c(c_), l(l_), t(t_), r(r_), b(b_),
          g(Bytes(), h + t + b, step ? step : RandomStep(rng), rng() % 2 ? Placement::End : Placement::Start, int(sizeof(T))) {
        g.FillRandomBytes(static_cast<uint32_t>(rng()));
    }
    int64_t Bytes() const { return int64_t{w + l + r} * c * int64_t(sizeof(T)); }
    int32_t RandomStep(std::mt19937& rng) const {
        const int64_t e = int64_t(sizeof(T)), pad = rng() % 2 ? e * int64_t(rng() % 4) : 0;
        const int32_t step = int32_t((std::max<int64_t>(Bytes(), 1) + pad + 3) / 4 * 4 / e * e);
        return rng() % 5 == 0 ? -step : step;
    }
    T* Px(int x, int y) const { return g.RowAs<T>(y + t) + int64_t{x + l} * c; }
    T& At(int x, int y, int ch = 0) const { return Px(x, y)[ch]; }
    T* Origin() const { return Px(0, 0); }
    int32_t Step() const { return g.step(); }
    // The region's elements, rows packed; Fill writes gen() into each and returns them.
    std::vector<T> Region() const {
        std::vector<T> v;
        for (int y = 0; y < h; ++y) v.insert(v.end(), Px(0, y), Px(0, y) + int64_t{w} * c);
        return v;
    }
    template <class Gen>
    std::vector<T> Fill(Gen&& gen) {
        for (int y = 0; y < h; ++y)
            for (int64_t i = 0; i < int64_t{w} * c; ++i) Px(0, y)[i] = gen();
        return Region();
    }
};

}  // namespace vt
