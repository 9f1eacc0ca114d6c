#include "volume/VoxelOctree.h"

#include "core/Archive.h"
#include "core/Logger.h"
#include "core/Progress.h"
#include "volume/VolumeData.h"

#include <tbb/blocked_range.h>
#include <tbb/enumerable_thread_specific.h>
#include <tbb/parallel_for.h>

#if defined(__SSE2__)
#    include <emmintrin.h>
#endif
#if defined(__x86_64__) && defined(__GNUC__)
#    include <immintrin.h>
#    define TEZ_OCTREE_WIDE_VECTORS 1
#endif

#include <algorithm>
#include <atomic>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <new>
#if defined(__linux__)
#    include <sys/mman.h>
#endif

TEZ_TYPIFIED_IMPL(TezVoxelOctree, "TezVoxelOctree")
TEZ_DEFINE_REF_FUNCTIONS(TezVoxelOctree)

namespace {
constexpr double kMiB = 1048576.0;
constexpr int kBrickEdge = 16;
constexpr int kBrickVoxels = kBrickEdge * kBrickEdge * kBrickEdge;

int RoundUp(int value, int multiple) { return (value + multiple - 1) / multiple * multiple; }

int CeilDiv(int value, int divisor) { return (value + divisor - 1) / divisor; }

struct FreeBytes
{
    void operator()(uint8_t* bytes) const { std::free(bytes); }
};
using SlabBytes = std::unique_ptr<uint8_t[], FreeBytes>;

// The slab is hundreds of megabytes, touched first by the read of each build:
// on 2 MiB pages its first touch costs a few hundred faults, not tens of
// thousands. It starts zero-filled (calloc of that size maps fresh pages, with
// no pass over them). Null when the memory cannot be had.
SlabBytes AllocateSlab(uint64_t bytes)
{
    auto* slab = static_cast<uint8_t*>(std::calloc(1, size_t(bytes)));
#if defined(MADV_HUGEPAGE)
    constexpr uintptr_t kPage = 4096;
    if (slab) {
        uintptr_t const begin = (reinterpret_cast<uintptr_t>(slab) + kPage - 1) & ~(kPage - 1);
        uintptr_t const end = (reinterpret_cast<uintptr_t>(slab) + bytes) & ~(kPage - 1);
        if (end > begin)
            madvise(reinterpret_cast<void*>(begin), size_t(end - begin), MADV_HUGEPAGE);
    }
#endif
    return SlabBytes(slab);
}

// True when the 16 voxels of a brick row all fall into histogram bin `bin`
// (the value at 8 bits, the high byte at 16).
template <typename T>
bool RowIsOneBin(T const* row, unsigned bin)
{
#if defined(__SSE2__)
    auto const* v = reinterpret_cast<__m128i const*>(row);
    if constexpr (sizeof(T) == 1) {
        return _mm_movemask_epi8(_mm_cmpeq_epi8(_mm_loadu_si128(v), _mm_set1_epi8(char(bin)))) == 0xFFFF;
    } else {
        __m128i const b = _mm_set1_epi16(short(bin));
        __m128i const low = _mm_cmpeq_epi16(_mm_srli_epi16(_mm_loadu_si128(v), 8), b);
        __m128i const high = _mm_cmpeq_epi16(_mm_srli_epi16(_mm_loadu_si128(v + 1), 8), b);
        return _mm_movemask_epi8(_mm_and_si128(low, high)) == 0xFFFF;
    }
#else
    for (int x = 0; x < kBrickEdge; ++x)
        if (unsigned(row[x] >> (8 * (sizeof(T) - 1))) != bin)
            return false;
    return true;
#endif
}

// True when every voxel of a 16-bit brick has the same high byte, its
// histogram bin: then the high bytes of the AND and the OR of them all agree.
bool BrickIsOneBin(uint16_t const* brick)
{
#if defined(__SSE2__)
    auto const* in = reinterpret_cast<__m128i const*>(brick);
    __m128i all = _mm_set1_epi8(char(0xFF)), any = _mm_setzero_si128();
    for (int i = 0; i < kBrickVoxels / 8; ++i) {
        __m128i const v = _mm_loadu_si128(in + i);
        all = _mm_and_si128(all, v);
        any = _mm_or_si128(any, v);
    }
    __m128i const high = _mm_set1_epi16(short(0xFF00));
    all = _mm_and_si128(all, high);
    any = _mm_and_si128(any, high);
    // Every lane must agree, and the lanes with each other.
    uint16_t a[8], o[8];
    _mm_storeu_si128(reinterpret_cast<__m128i*>(a), all);
    _mm_storeu_si128(reinterpret_cast<__m128i*>(o), any);
    uint16_t andAll = 0xFFFF, orAll = 0;
    for (int i = 0; i < 8; ++i) {
        andAll &= a[i];
        orAll |= o[i];
    }
    return andAll == orAll;
#else
    for (int i = 1; i < kBrickVoxels; ++i)
        if ((brick[i] >> 8) != (brick[0] >> 8))
            return false;
    return true;
#endif
}

#if TEZ_OCTREE_WIDE_VECTORS
// The 4096 bytes of a brick whose values lie within kValues of `least`,
// counted one value at a time with 64-byte compares, each byte lane counting
// its matches (at most 64 a lane).
template <int kValues>
__attribute__((target("avx512f,avx512bw"))) void CountNarrowBytes(uint8_t const* bytes, unsigned least, unsigned values,
                                                                  uint32_t* counts)
{
    constexpr int kRows = kBrickVoxels / 64;
    __m512i const base = _mm512_set1_epi8(char(least));
    __m512i const one = _mm512_set1_epi8(1);
    __m512i found[kValues];
    for (__m512i& f : found)
        f = _mm512_setzero_si512();
    for (int i = 0; i < kRows; ++i) {
        __m512i const offset = _mm512_sub_epi8(_mm512_loadu_si512(bytes + 64 * i), base);
        for (int j = 0; j < kValues; ++j)
            found[j] = _mm512_mask_add_epi8(found[j], _mm512_cmpeq_epi8_mask(offset, _mm512_set1_epi8(char(j))),
                                            found[j], one);
    }
    for (unsigned j = 0; j < values; ++j) {
        alignas(64) uint64_t sums[8];
        _mm512_store_si512(sums, _mm512_sad_epu8(found[j], _mm512_setzero_si512()));
        counts[least + j] += uint32_t(sums[0] + sums[1] + sums[2] + sums[3] + sums[4] + sums[5] + sums[6] + sums[7]);
    }
}

// The histogram of a brick whose bins lie within 32 of each other, or do
// once its zeros are set apart, with 64-byte vectors: several times faster
// than an increment per voxel. At 16 bits the high bytes are gathered first
// (in any order: a histogram does not care). False, and nothing counted, for
// a brick whose bins spread wider.
template <typename T>
__attribute__((target("avx512f,avx512bw,popcnt"))) bool AddNarrowBrickHistogram(T const* brick, uint32_t* counts)
{
    constexpr int kRows = kBrickVoxels / 64;
    alignas(64) uint8_t gathered[sizeof(T) == 2 ? kBrickVoxels : 1];
    uint8_t const* bytes = reinterpret_cast<uint8_t const*>(brick);
    if constexpr (sizeof(T) == 2) {
        for (int i = 0; i < kRows; ++i) {
            __m512i const a = _mm512_srli_epi16(_mm512_loadu_si512(brick + 64 * i), 8);
            __m512i const b = _mm512_srli_epi16(_mm512_loadu_si512(brick + 64 * i + 32), 8);
            _mm512_store_si512(gathered + 64 * i, _mm512_packus_epi16(a, b));
        }
        bytes = gathered;
    }
    __m512i low = _mm512_set1_epi8(char(0xFF)), high = _mm512_setzero_si512();
    for (int i = 0; i < kRows; ++i) {
        __m512i const v = _mm512_loadu_si512(bytes + 64 * i);
        low = _mm512_min_epu8(low, v);
        high = _mm512_max_epu8(high, v);
    }
    alignas(64) uint8_t lows[64], highs[64];
    _mm512_store_si512(lows, low);
    _mm512_store_si512(highs, high);
    unsigned least = 255, most = 0;
    for (int i = 0; i < 64; ++i) {
        least = std::min<unsigned>(least, lows[i]);
        most = std::max<unsigned>(most, highs[i]);
    }
    if (least == 0 && most > 32) {
        // Air beside a narrow spread (the edge of a body): zeros are counted
        // apart, and lie 256 - leastAboveZero past the base of the others,
        // beyond the values counted from it.
        __m512i lowAboveZero = _mm512_set1_epi8(char(0xFF));
        uint64_t zeros = 0;
        for (int i = 0; i < kRows; ++i) {
            __m512i const v = _mm512_loadu_si512(bytes + 64 * i);
            __mmask64 const zero = _mm512_cmpeq_epi8_mask(v, _mm512_setzero_si512());
            lowAboveZero = _mm512_min_epu8(lowAboveZero, _mm512_mask_blend_epi8(zero, v, _mm512_set1_epi8(char(0xFF))));
            zeros += uint64_t(_mm_popcnt_u64(zero));
        }
        _mm512_store_si512(lows, lowAboveZero);
        least = 255;
        for (int i = 0; i < 64; ++i)
            least = std::min<unsigned>(least, lows[i]);
        if (most - least >= 32)
            return false;
        counts[0] += uint32_t(zeros);
    }
    unsigned const values = most - least + 1;
    if (values <= 4) {
        CountNarrowBytes<4>(bytes, least, values, counts);
    } else if (values <= 16) {
        CountNarrowBytes<16>(bytes, least, values, counts);
    } else if (values <= 32) {
        CountNarrowBytes<16>(bytes, least, 16, counts);
        CountNarrowBytes<16>(bytes, least + 16, values - 16, counts);
    } else {
        return false;
    }
    return true;
}
#endif

// Adds the voxels of a full-resolution brick to four interleaved tables of
// 256 bins: consecutive voxels of one value would otherwise wait on each
// other's increment. A uniform brick counts at once, and so do a 16-bit
// brick in one bin and a row of one bin (air, or 16-bit voxels whose high
// byte stays put). wide: the processor has 64-byte vectors.
template <typename T>
void AddBrickHistogram(T const* brick, bool uniform, bool wide, uint32_t* counts)
{
    constexpr int kShift = 8 * (int(sizeof(T)) - 1);
    if (uniform) {
        counts[brick[0] >> kShift] += kBrickVoxels;
        return;
    }
    if constexpr (sizeof(T) == 2) {
        if (BrickIsOneBin(brick)) {
            counts[brick[0] >> kShift] += kBrickVoxels;
            return;
        }
    }
#if TEZ_OCTREE_WIDE_VECTORS
    if (wide && AddNarrowBrickHistogram(brick, counts))
        return;
#endif
    (void)wide;
    for (int r = 0; r < kBrickEdge * kBrickEdge; ++r) {
        T const* row = brick + r * kBrickEdge;
        unsigned const bin = unsigned(row[0] >> kShift);
        if (RowIsOneBin(row, bin)) {
            counts[256 * (r & 3) + bin] += kBrickEdge;
            continue;
        }
        for (int x = 0; x < kBrickEdge; x += 4) {
            ++counts[row[x] >> kShift];
            ++counts[256 + (row[x + 1] >> kShift)];
            ++counts[512 + (row[x + 2] >> kShift)];
            ++counts[768 + (row[x + 3] >> kShift)];
        }
    }
}

// Levels of bricks in a block of at most 256 voxels: edges 256 down to 16.
constexpr int kBlockLevels = 5;
// How many full-resolution bricks ahead of the one being sampled the build
// asks the memory for: the next cube of 32 voxels (2, 16 and 32 measured slower).
constexpr uint32_t kPrefetchBricks = 8;

// The build visits the full-resolution bricks of a block in the order of
// their coordinates' bits interleaved, x lowest (at most 16 bricks an axis).
uint32_t InterleaveBits(int x, int y, int z)
{
    uint32_t code = 0;
    for (int b = 0; b < 4; ++b)
        code |= uint32_t((x >> b) & 1) << (3 * b) | uint32_t((y >> b) & 1) << (3 * b + 1) |
                uint32_t((z >> b) & 1) << (3 * b + 2);
    return code;
}

void SplitBits(uint32_t code, int& x, int& y, int& z)
{
    x = y = z = 0;
    for (int b = 0; b < 4; ++b) {
        x |= int((code >> (3 * b)) & 1) << b;
        y |= int((code >> (3 * b + 1)) & 1) << b;
        z |= int((code >> (3 * b + 2)) & 1) << b;
    }
}

constexpr int kHalfEdge = kBrickEdge / 2;

// Octant k of a brick: x, y, z halves from bits 0, 1, 2.
template <typename T>
T* Octant(T* brick, int k)
{
    return brick + ((k >> 2) & 1) * kHalfEdge * kBrickEdge * kBrickEdge + ((k >> 1) & 1) * kHalfEdge * kBrickEdge +
           (k & 1) * kHalfEdge;
}

// A uniform child's part of its parent's brick: its octant, all its value.
template <typename T>
void FillOctant(T value, int k, T* parent)
{
    T* octant = Octant(parent, k);
    for (int z = 0; z < kHalfEdge; ++z)
        for (int y = 0; y < kHalfEdge; ++y)
            std::fill_n(octant + (z * kBrickEdge + y) * kBrickEdge, kHalfEdge, value);
}

// Puts a child's brick, halved, into octant k of its parent's brick: every
// other voxel along each axis, which is what sampling the parent's cube
// directly would pick.
template <typename T>
void ShrinkIntoOctant(T const* child, int k, T* parent)
{
    constexpr int kHalf = kHalfEdge;
    T* octant = Octant(parent, k);
    for (int z = 0; z < kHalf; ++z)
        for (int y = 0; y < kHalf; ++y) {
            T* out = octant + (z * kBrickEdge + y) * kBrickEdge;
            T const* in = child + (2 * z * kBrickEdge + 2 * y) * kBrickEdge;
#if defined(__SSE2__)
            // Even voxels: the low byte of each 16-bit pair, or the low
            // half of each 32-bit pair (sign-extended to pack back exactly).
            if constexpr (sizeof(T) == 1) {
                __m128i const v = _mm_loadu_si128(reinterpret_cast<__m128i const*>(in));
                __m128i const even = _mm_and_si128(v, _mm_set1_epi16(0x00FF));
                _mm_storel_epi64(reinterpret_cast<__m128i*>(out), _mm_packus_epi16(even, even));
            } else {
                __m128i const a = _mm_loadu_si128(reinterpret_cast<__m128i const*>(in));
                __m128i const b = _mm_loadu_si128(reinterpret_cast<__m128i const*>(in) + 1);
                __m128i const ea = _mm_srai_epi32(_mm_slli_epi32(a, 16), 16);
                __m128i const eb = _mm_srai_epi32(_mm_slli_epi32(b, 16), 16);
                _mm_storeu_si128(reinterpret_cast<__m128i*>(out), _mm_packs_epi32(ea, eb));
            }
#else
            for (int x = 0; x < kHalf; ++x)
                out[x] = in[2 * x];
#endif
        }
}

// Nodes of a full tree from the 16-voxel level up to a cube of edge `edge`:
// 1 + 8 + 64 + ..., one term per doubling.
uint32_t FullTreeCount(int edge)
{
    uint32_t count = 0;
    uint32_t level = 1;
    for (int e = kBrickEdge; e <= edge; e *= 2) {
        count += level;
        level *= 8;
    }
    return count;
}

#if defined(__SSE2__)
// The sum of a brick's voxels and whether all equal the first, taken 16
// bytes at a time (16-bit sums in 32-bit lanes: at most 256 values of 65535
// each per lane).
template <int Bytes>
struct BrickTally
{
    __m128i first;
    __m128i sums = _mm_setzero_si128();
    __m128i same = _mm_set1_epi8(char(0xFF));

    explicit BrickTally(uint8_t const* firstVoxel)
        : first(Bytes == 1 ? _mm_set1_epi8(char(*firstVoxel))
                           : _mm_set1_epi16(short(*reinterpret_cast<uint16_t const*>(firstVoxel))))
    {
    }
    void Add(__m128i v)
    {
        __m128i const zero = _mm_setzero_si128();
        if (Bytes == 1) {
            sums = _mm_add_epi64(sums, _mm_sad_epu8(v, zero));
            same = _mm_and_si128(same, _mm_cmpeq_epi8(v, first));
        } else {
            sums = _mm_add_epi32(sums, _mm_add_epi32(_mm_unpacklo_epi16(v, zero), _mm_unpackhi_epi16(v, zero)));
            same = _mm_and_si128(same, _mm_cmpeq_epi16(v, first));
        }
    }
    bool Uniform() const { return _mm_movemask_epi8(same) == 0xFFFF; }
    uint32_t Average() const
    {
        uint64_t sum = 0;
        if (Bytes == 1) {
            uint64_t lanes[2];
            _mm_storeu_si128(reinterpret_cast<__m128i*>(lanes), sums);
            sum = lanes[0] + lanes[1];
        } else {
            uint32_t lanes[4];
            _mm_storeu_si128(reinterpret_cast<__m128i*>(lanes), sums);
            sum = uint64_t(lanes[0]) + lanes[1] + lanes[2] + lanes[3];
        }
        return uint32_t(sum / kBrickVoxels);
    }
};
#endif
} // namespace

TezVoxelOctreePlan TezVoxelOctreeMakePlan(int width, int height, int depth, int bitsPerPixel, int memoryLimit)
{
    TezVoxelOctreePlan plan;
    int const largest = std::max({width, height, depth, 1});
    int const bricks = RoundUp(largest, kBrickEdge) / kBrickEdge;
    int power = 1;
    while (power < bricks)
        power *= 2;
    plan.treeSize = power * kBrickEdge;
    plan.blockSize = std::min(256, plan.treeSize);
    plan.blocksInRow = plan.treeSize / plan.blockSize;
    plan.blocksX = CeilDiv(RoundUp(width, kBrickEdge), plan.blockSize);
    plan.blocksY = CeilDiv(RoundUp(height, kBrickEdge), plan.blockSize);

    uint64_t const block = uint64_t(plan.blockSize);
    plan.bytesPerBlock = uint64_t(bitsPerPixel / 8) * block * block * block;
    int64_t const fit = int64_t(std::max(memoryLimit, 0)) * 1048576 / int64_t(plan.bytesPerBlock);

    if (plan.blocksX >= fit) {
        plan.memoryRaised = true;
        plan.rowsPerPass = 1;
        plan.passes = plan.blocksY;
    } else {
        int const r = int(fit / plan.blocksX);
        plan.rowsPerPass = plan.blocksY;
        plan.passes = 1;
        if (r < plan.blocksY) {
            if (plan.blocksY % r == 0) {
                plan.rowsPerPass = r;
                plan.passes = plan.blocksY / r;
            } else {
                int c = CeilDiv(plan.blocksY, r);
                if (plan.blocksY % c != 0) {
                    c = CeilDiv(plan.blocksInRow, r);
                    while (c > 1 && plan.treeSize % c != 0)
                        --c;
                }
                plan.rowsPerPass = c;
                plan.passes = plan.blocksInRow / c;
            }
        }
    }
    plan.startIndex = FullTreeCount(plan.blocksInRow * kBrickEdge / 2);
    plan.startCount = FullTreeCount(plan.blocksInRow * kBrickEdge);
    uint64_t const slice =
        uint64_t(bitsPerPixel / 8) * uint64_t(plan.blocksX) * block * uint64_t(plan.rowsPerPass) * block;
    plan.bufferBytes = slice * block + 2 * slice;
    return plan;
}

int TezVoxelOctreeSmallestMemoryLimit(int width, int height, int depth, int bitsPerPixel)
{
    // The plan's buffers shrink as the limit does, down to one row of blocks
    // per pass; start from that size and go up until a plan fits.
    uint64_t const least = TezVoxelOctreeMakePlan(width, height, depth, bitsPerPixel, 0).bufferBytes;
    for (uint64_t limit = std::max<uint64_t>(1, (least + 1048575) / 1048576); limit < uint64_t(INT32_MAX); ++limit)
        if (TezVoxelOctreeMakePlan(width, height, depth, bitsPerPixel, int(limit)).bufferBytes <= limit * 1048576)
            return int(limit);
    return INT32_MAX;
}

namespace {
bool HasWideVectors()
{
#if TEZ_OCTREE_WIDE_VECTORS
    static bool const has = __builtin_cpu_supports("avx512f") && __builtin_cpu_supports("avx512bw");
    return has;
#else
    return false;
#endif
}
} // namespace

// The build of one octree; lives for one CreateFromVolumeData call.
class TezVoxelOctreeBuilder
{
public:
    TezVoxelOctreeBuilder(TezVoxelOctree& tree, TezVolumeData& source, int bitsPerPixel, TezVoxelOctreePlan const& plan)
        : m_tree(tree), m_source(source), m_plan(plan), m_bytesPerVoxel(bitsPerPixel / 8), m_bitsPerPixel(bitsPerPixel),
          m_brickBytes(size_t(kBrickVoxels) * size_t(m_bytesPerVoxel)),
          m_workers([bytes = m_brickBytes] { return Worker(bytes); })
    {
    }

    // False when the pools cannot grow or the host asks to stop.
    bool Run(TezProgress& progress);

private:
    struct Sample
    {
        bool uniform;
        uint32_t average;
    };
    // What one block took from the pools, in the order it took them.
    struct Taken
    {
        std::vector<uint32_t> octets; // first node of each
        std::vector<uint32_t> bricks;
        void Append(Taken const& other)
        {
            octets.insert(octets.end(), other.octets.begin(), other.octets.end());
            bricks.insert(bricks.end(), other.bricks.begin(), other.bricks.end());
        }
    };
    // A cube's octet while its children join it in order: the first node
    // (0 until a child needs it) and the value of the child before.
    // Uniform children wait to the end to fill their octants of the cube's
    // brick: when all eight are one value the cube is too, and only the
    // first voxel of its brick is read again.
    struct Octet
    {
        uint32_t first = 0;
        uint32_t previous = 0;
        uint32_t uniform = 0; // one bit a child
        uint32_t values[8] = {};
    };
    // One eighth of a block, built by itself: what it took, its sample and
    // the octet of its own children.
    struct Part
    {
        Taken taken;
        Sample sample{true, 0};
        uint32_t first = 0;
    };
    // What each thread that builds blocks keeps: a brick to sample into and
    // its part of the histogram, four interleaved tables of 256 bins.
    struct Worker
    {
        explicit Worker(size_t brickBytes) : bytes(brickBytes), bricks(kBlockLevels * brickBytes), counts(4 * 256, 0) {}
        // The sample of the cube being built at each depth below the block.
        uint8_t* Brick(int depth) { return bricks.data() + size_t(depth) * bytes; }
        size_t bytes;
        // The block being built: its corner in the chunk, bricks per axis.
        int blockX = 0, blockY = 0, blockZ = 0, blockBricks = 1;
        std::vector<uint8_t> bricks;
        std::vector<uint32_t> counts;
    };
    // One pass: a row of blocks along x, rowsPerPass rows deep in y.
    struct Pass
    {
        int bx, by, bz;
        int countX, countY;
    };

    // The steps of Run.
    void PrepareBuffers();
    bool PreparePools();
    bool BuildPass(Pass const& pass, TezProgress& progress);
    bool ViewChunk(Pass const& pass);
    void ReadChunk(Pass const& pass, TezProgress const& progress);
    void BuildBlocks(Pass const& pass);
    void ClearBlocks(Pass const& pass);
    void ArrangeTree();
    void Summarise(std::vector<uint32_t> const& table);
    std::vector<uint32_t> CollectHistogram();

    template <typename T>
    Sample SampleCube(int ox, int oy, int oz, int edge, T* brick) const;
    Sample SampleCube(int ox, int oy, int oz, int edge, uint8_t* brick, uint8_t const* ahead = nullptr) const;
    uint8_t const* BrickAhead(Worker const& worker, int ox, int oy, int oz) const;
    uint32_t BuildNode(int ox, int oy, int oz, int edge, int depth, Worker& worker, Taken& taken, Sample& sample);
    Sample Summarise(uint8_t const* brick) const;
    Sample CloseCube(Octet const& octet, uint8_t* brick) const;
    void StoreNode(uint64_t index, Sample const& sample, uint8_t const* brick, Taken& taken);
    bool JoinChild(int k, uint32_t childFirst, Sample const& child, uint8_t const* childBrick, Octet& octet,
                   uint8_t* brick, Taken& taken);
    void StartBlock(Pass const& pass, int n, Worker& worker) const;
    void FinishBlock(Pass const& pass, int n, Part const* parts, uint8_t const* partBricks, Worker& worker);
    void PutInBlockOrder();
    uint32_t LinkPyramid(int x, int y, int z, uint32_t dim, uint32_t levelStart, uint32_t node);
    void CountLeafs(uint32_t node, size_t level);
    void ZeroChunk();
    void ZeroAround(int width, int height, int depth);
    void MoveRootOctetToFront();
    uint32_t BlockNode(int bx, int by, int bz) const;

    TezVoxelOctreeNode& Node(uint64_t index) { return *m_tree.m_nodePool.Node(index); }

    TezVoxelOctree& m_tree;
    TezVolumeData& m_source;
    TezVoxelOctreePlan const& m_plan;
    int m_bytesPerVoxel;
    int m_bitsPerPixel;
    bool m_wideVectors = HasWideVectors();
    size_t m_brickBytes;
    uint64_t m_rowStride = 0;
    uint64_t m_sliceStride = 0;
    // The slab of the source of one pass, and the two slices its
    // interpolation keeps from outside it.
    SlabBytes m_chunk;
    uint64_t m_chunkBytes = 0;
    bool m_chunkZero = false;
    std::vector<uint8_t> m_interpolation;
    // Where the blocks of the pass are sampled from: the slab, or the source
    // itself where it holds them in memory.
    uint8_t const* m_view = nullptr;
    uint64_t m_viewRow = 0;
    uint64_t m_viewSlice = 0;
    // Zeros sampled beyond the source's edges, which the histogram leaves out.
    uint64_t m_padding = 0;
    tbb::enumerable_thread_specific<Worker> m_workers;
    std::atomic<bool> m_stop{false};
    // Every octet and brick in block order: the order of a build on one
    // thread, which the pools are put in once the blocks are built.
    std::vector<uint32_t> m_octetOrder;
    std::vector<uint32_t> m_brickOrder;
};

uint32_t TezVoxelOctreeBuilder::BlockNode(int bx, int by, int bz) const
{
    uint32_t const dim = uint32_t(m_plan.blocksInRow / 2);
    uint32_t const position = 8 * ((uint32_t(bz / 2) * dim + uint32_t(by / 2)) * dim + uint32_t(bx / 2)) +
                              4 * uint32_t(bz % 2) + 2 * uint32_t(by % 2) + uint32_t(bx % 2);
    return m_plan.startIndex + position;
}

// Nearest-lower subsampling of a cube of the chunk into one 16^3 brick, with
// a 16.16 fixed-point step, the integer average and the uniform flag.
template <typename T>
TezVoxelOctreeBuilder::Sample TezVoxelOctreeBuilder::SampleCube(int ox, int oy, int oz, int edge, T* brick) const
{
    uint32_t const step = (uint32_t(edge) << 16) / kBrickEdge;
    int offsets[kBrickEdge];
    for (uint32_t i = 0, acc = 0; i < kBrickEdge; ++i, acc += step)
        offsets[i] = int(acc >> 16);

    uint8_t const* base = m_view;
    uint64_t sum = 0;
    T const first = *reinterpret_cast<T const*>(base + uint64_t(oz) * m_viewSlice + uint64_t(oy) * m_viewRow +
                                                uint64_t(ox) * sizeof(T));
    bool uniform = true;
    T* out = brick;
    for (int z = 0; z < kBrickEdge; ++z) {
        uint8_t const* slice = base + uint64_t(oz + offsets[z]) * m_viewSlice;
        for (int y = 0; y < kBrickEdge; ++y) {
            T const* row = reinterpret_cast<T const*>(slice + uint64_t(oy + offsets[y]) * m_viewRow) + ox;
            if (edge == kBrickEdge) {
                std::memcpy(out, row, kBrickEdge * sizeof(T));
            } else {
                for (int x = 0; x < kBrickEdge; ++x)
                    out[x] = row[offsets[x]];
            }
            T differs = 0;
            for (int x = 0; x < kBrickEdge; ++x) {
                sum += out[x];
                differs |= T(out[x] ^ first);
            }
            uniform = uniform && differs == 0;
            out += kBrickEdge;
        }
    }
    return {uniform, uint32_t(sum / kBrickVoxels)};
}

// Where the full-resolution brick a few ahead of the one at (ox, oy, oz)
// starts in the chunk, for the sampling to prefetch; null past the block.
uint8_t const* TezVoxelOctreeBuilder::BrickAhead(Worker const& worker, int ox, int oy, int oz) const
{
    int const n = worker.blockBricks;
    uint32_t const next = InterleaveBits((ox - worker.blockX) / kBrickEdge, (oy - worker.blockY) / kBrickEdge,
                                         (oz - worker.blockZ) / kBrickEdge) +
                          kPrefetchBricks;
    if (next >= uint32_t(n * n * n))
        return nullptr;
    int x = 0, y = 0, z = 0;
    SplitBits(next, x, y, z);
    return m_view + uint64_t(worker.blockZ + z * kBrickEdge) * m_viewSlice +
           uint64_t(worker.blockY + y * kBrickEdge) * m_viewRow +
           uint64_t(worker.blockX + x * kBrickEdge) * uint64_t(m_bytesPerVoxel);
}

TezVoxelOctreeBuilder::Sample TezVoxelOctreeBuilder::SampleCube(int ox, int oy, int oz, int edge, uint8_t* brick,
                                                                uint8_t const* ahead) const
{
#if defined(__SSE2__)
    // Full resolution, 8 bits: each brick row is one 16-byte load; the sum
    // comes from SAD against zero and the uniform test from one compare.
    if (m_bytesPerVoxel == 1 && edge == kBrickEdge) {
        uint8_t const* base = m_view + uint64_t(oz) * m_viewSlice + uint64_t(oy) * m_viewRow + uint64_t(ox);
        BrickTally<1> tally(base);
        __m128i* out = reinterpret_cast<__m128i*>(brick);
        for (int z = 0; z < kBrickEdge; ++z) {
            uint8_t const* slice = base + uint64_t(z) * m_viewSlice;
            for (int y = 0; y < kBrickEdge; ++y) {
                if (ahead)
                    _mm_prefetch(
                        reinterpret_cast<char const*>(ahead + uint64_t(z) * m_viewSlice + uint64_t(y) * m_viewRow),
                        _MM_HINT_T0);
                __m128i const row = _mm_loadu_si128(reinterpret_cast<__m128i const*>(slice + uint64_t(y) * m_viewRow));
                _mm_storeu_si128(out++, row);
                tally.Add(row);
            }
        }
        return {tally.Uniform(), tally.Average()};
    }
    // The same at 16 bits: two loads a row, sums in 32-bit lanes (at most
    // 256 values of 65535 each per lane).
    if (m_bytesPerVoxel == 2 && edge == kBrickEdge) {
        uint8_t const* base = m_view + uint64_t(oz) * m_viewSlice + uint64_t(oy) * m_viewRow + uint64_t(ox) * 2;
        BrickTally<2> tally(base);
        __m128i* out = reinterpret_cast<__m128i*>(brick);
        for (int z = 0; z < kBrickEdge; ++z) {
            uint8_t const* slice = base + uint64_t(z) * m_viewSlice;
            for (int y = 0; y < kBrickEdge; ++y) {
                if (ahead)
                    _mm_prefetch(
                        reinterpret_cast<char const*>(ahead + uint64_t(z) * m_viewSlice + uint64_t(y) * m_viewRow),
                        _MM_HINT_T0);
                auto const* row = reinterpret_cast<__m128i const*>(slice + uint64_t(y) * m_viewRow);
                for (int half = 0; half < 2; ++half) {
                    __m128i const v = _mm_loadu_si128(row + half);
                    _mm_storeu_si128(out++, v);
                    tally.Add(v);
                }
            }
        }
        return {tally.Uniform(), tally.Average()};
    }
#endif
    if (m_bytesPerVoxel == 1)
        return SampleCube<uint8_t>(ox, oy, oz, edge, brick);
    return SampleCube<uint16_t>(ox, oy, oz, edge, reinterpret_cast<uint16_t*>(brick));
}

void TezVoxelOctreeBuilder::StoreNode(uint64_t index, Sample const& sample, uint8_t const* brick, Taken& taken)
{
    TezVoxelOctreeNode& node = Node(index);
    if (sample.uniform) {
        node.children &= ~TezNodeFlagBit;
        node.data = sample.average;
        return;
    }
    TezVoxelOctreeLeafVolumePool& leaves = m_tree.m_leafPool;
    uint64_t const leaf = leaves.Allocate(1);
    if (leaf == TezMemoryPoolBase::InvalidIndex) {
        m_stop = true;
        return;
    }
    taken.bricks.push_back(uint32_t(leaf));
    uint8_t* to = leaves.Brick(leaf);
#if defined(__SSE2__)
    // The build does not read its bricks again; streaming them out spares
    // the cache and the read of each line before it is written.
    if ((reinterpret_cast<uintptr_t>(to) & 15) == 0) {
        auto const* from = reinterpret_cast<__m128i const*>(brick);
        auto* out = reinterpret_cast<__m128i*>(to);
        for (size_t i = 0; i < m_brickBytes / 16; ++i)
            _mm_stream_si128(out + i, _mm_loadu_si128(from + i));
    } else {
        std::memcpy(to, brick, m_brickBytes);
    }
#else
    std::memcpy(to, brick, m_brickBytes);
#endif
    node.data = uint32_t(leaf) | TezNodeFlagBit;
    node.children |= TezNodeFlagBit;
}

// The average and uniform flag of a brick made from its children.
TezVoxelOctreeBuilder::Sample TezVoxelOctreeBuilder::Summarise(uint8_t const* brick) const
{
#if defined(__SSE2__)
    auto const* in = reinterpret_cast<__m128i const*>(brick);
    auto tallied = [&](auto tally) -> Sample {
        for (size_t i = 0; i < m_brickBytes / 16; ++i)
            tally.Add(_mm_loadu_si128(in + i));
        return {tally.Uniform(), tally.Average()};
    };
    return m_bytesPerVoxel == 1 ? tallied(BrickTally<1>(brick)) : tallied(BrickTally<2>(brick));
#else
    auto summarise = [](auto const* voxels) {
        uint64_t sum = 0;
        bool uniform = true;
        for (int i = 0; i < kBrickVoxels; ++i) {
            sum += voxels[i];
            uniform = uniform && voxels[i] == voxels[0];
        }
        return Sample{uniform, uint32_t(sum / kBrickVoxels)};
    };
    if (m_bytesPerVoxel == 1)
        return summarise(brick);
    return summarise(reinterpret_cast<uint16_t const*>(brick));
#endif
}

// Builds the cube of edge `edge` at (ox, oy, oz) of the chunk: its sample,
// into the worker's brick at `depth`, and below the full resolution the
// children it needs. Answers the pool index of their octet, or 0 when the
// cube needs none: eight uniform, equal and childless children are
// represented by the parent. Only the full resolution reads the chunk; each
// coarser sample is made from the samples of its children.
uint32_t TezVoxelOctreeBuilder::BuildNode(int ox, int oy, int oz, int edge, int depth, Worker& worker, Taken& taken,
                                          Sample& sample)
{
    uint8_t* brick = worker.Brick(depth);
    if (edge <= kBrickEdge) {
        sample = SampleCube(ox, oy, oz, edge, brick, BrickAhead(worker, ox, oy, oz));
        // Every voxel is sampled once at full resolution: the histogram comes
        // from there, without a pass of its own over the source.
        if (m_bytesPerVoxel == 1)
            AddBrickHistogram(brick, sample.uniform, m_wideVectors, worker.counts.data());
        else
            AddBrickHistogram(reinterpret_cast<uint16_t const*>(brick), sample.uniform, m_wideVectors,
                              worker.counts.data());
        return 0;
    }
    int const half = edge / 2;
    uint8_t* childBrick = worker.Brick(depth + 1);
    Octet octet;
    for (int k = 0; k < 8; ++k) {
        int const cx = ox + (k & 1) * half;
        int const cy = oy + ((k >> 1) & 1) * half;
        int const cz = oz + ((k >> 2) & 1) * half;
        Sample child{true, 0};
        uint32_t const childFirst = BuildNode(cx, cy, cz, half, depth + 1, worker, taken, child);
        if (!JoinChild(k, childFirst, child, childBrick, octet, brick, taken))
            return 0;
    }
    sample = CloseCube(octet, brick);
    return octet.first;
}

// Joins child k, built, to its cube: the octet is taken at the first child
// that is not uniform, has children or differs from the ones before it
// (which then become uniform nodes of their common value); the child's
// brick is stored and, halved, becomes part of the cube's. False when the
// pools ran out.
bool TezVoxelOctreeBuilder::JoinChild(int k, uint32_t childFirst, Sample const& child, uint8_t const* childBrick,
                                      Octet& octet, uint8_t* brick, Taken& taken)
{
    if (octet.first == 0 && (!child.uniform || childFirst > 0 || (k > 0 && child.average != octet.previous))) {
        uint64_t const first = m_tree.m_nodePool.Allocate(8);
        if (first == TezMemoryPoolBase::InvalidIndex) {
            m_stop = true;
            return false;
        }
        octet.first = uint32_t(first);
        taken.octets.push_back(octet.first);
        for (int j = 0; j < k; ++j) {
            TezVoxelOctreeNode& passed = Node(octet.first + j);
            passed.children = 0;
            passed.data = octet.previous;
        }
    }
    octet.previous = child.average;
    if (octet.first != 0) {
        TezVoxelOctreeNode& node = Node(octet.first + k);
        node.children = (node.children & TezNodeFlagBit) | childFirst;
        StoreNode(octet.first + k, child, childBrick, taken);
    }
    if (child.uniform) {
        octet.uniform |= 1u << k;
        octet.values[k] = child.average;
    } else if (m_bytesPerVoxel == 1) {
        ShrinkIntoOctant(childBrick, k, brick);
    } else {
        ShrinkIntoOctant(reinterpret_cast<uint16_t const*>(childBrick), k, reinterpret_cast<uint16_t*>(brick));
    }
    return true;
}

// The sample of a cube once its eight children have joined it: one value
// when they are all that one value, else its brick completed with the
// octants of its uniform children and summarised.
TezVoxelOctreeBuilder::Sample TezVoxelOctreeBuilder::CloseCube(Octet const& octet, uint8_t* brick) const
{
    uint32_t const value = octet.values[0];
    if (octet.uniform == 0xFFu && std::all_of(octet.values, octet.values + 8, [&](uint32_t v) { return v == value; })) {
        if (m_bytesPerVoxel == 1)
            brick[0] = uint8_t(value);
        else
            *reinterpret_cast<uint16_t*>(brick) = uint16_t(value);
        return {true, value};
    }
    for (int k = 0; k < 8; ++k) {
        if (!(octet.uniform & (1u << k)))
            continue;
        if (m_bytesPerVoxel == 1)
            FillOctant(uint8_t(octet.values[k]), k, brick);
        else
            FillOctant(uint16_t(octet.values[k]), k, reinterpret_cast<uint16_t*>(brick));
    }
    return Summarise(brick);
}

// Points the worker at block n of the pass (its corner in the chunk).
void TezVoxelOctreeBuilder::StartBlock(Pass const& pass, int n, Worker& worker) const
{
    int const edge = m_plan.blockSize;
    worker.blockX = (n % pass.countX) * edge;
    worker.blockY = (n / pass.countX) * edge;
    worker.blockZ = 0;
    worker.blockBricks = edge / kBrickEdge;
}

// Joins the eight parts of block n (one part, the whole block, when the
// block is a single brick) in the order a build of the whole block would
// take them, then stores the block's node.
void TezVoxelOctreeBuilder::FinishBlock(Pass const& pass, int n, Part const* parts, uint8_t const* partBricks,
                                        Worker& worker)
{
    Taken taken;
    Sample sample = parts[0].sample;
    uint32_t first = parts[0].first;
    uint8_t const* brick = partBricks;
    if (m_plan.blockSize > kBrickEdge) {
        uint8_t* joined = worker.Brick(0);
        Octet octet;
        for (int k = 0; k < 8; ++k) {
            taken.Append(parts[k].taken);
            if (!JoinChild(k, parts[k].first, parts[k].sample, partBricks + size_t(k) * m_brickBytes, octet, joined,
                           taken))
                return;
        }
        sample = CloseCube(octet, joined);
        first = octet.first;
        brick = joined;
    } else {
        taken.Append(parts[0].taken);
    }
    uint32_t const index = BlockNode(pass.bx + n % pass.countX, pass.by + n / pass.countX, pass.bz);
    Node(index).children = first;
    StoreNode(index, sample, brick, taken);
    m_octetOrder.insert(m_octetOrder.end(), taken.octets.begin(), taken.octets.end());
    m_brickOrder.insert(m_brickOrder.end(), taken.bricks.begin(), taken.bricks.end());
}

// Links the full levels above the blocks and gives each of their nodes the
// mean of its children. A child with a brick counts as 0 in that mean.
uint32_t TezVoxelOctreeBuilder::LinkPyramid(int x, int y, int z, uint32_t dim, uint32_t levelStart, uint32_t node)
{
    if (node >= m_plan.startIndex) {
        TezVoxelOctreeNode const& n = Node(node);
        return (n.children & TezNodeFlagBit) ? 0 : n.data;
    }
    uint32_t const nextLevel = levelStart + dim * dim * dim;
    uint32_t const first = nextLevel + 8 * ((uint32_t(z) * dim + uint32_t(y)) * dim + uint32_t(x));
    TezVoxelOctreeNode& parent = Node(node);
    parent.children = (parent.children & TezNodeFlagBit) | first;
    uint64_t sum = 0;
    for (int k = 0; k < 8; ++k)
        sum +=
            LinkPyramid(2 * x + (k & 1), 2 * y + ((k >> 1) & 1), 2 * z + ((k >> 2) & 1), 2 * dim, nextLevel, first + k);
    uint32_t const value = uint32_t(sum >> 3);
    TezVoxelOctreeNode& again = Node(node);
    again.children &= ~TezNodeFlagBit;
    again.data = value;
    return value;
}

void TezVoxelOctreeBuilder::ZeroChunk()
{
    uint8_t* chunk = m_chunk.get();
    uint64_t const part = 1u << 20;
    tbb::parallel_for(uint64_t(0), (m_chunkBytes + part - 1) / part, [&](uint64_t i) {
        std::memset(chunk + i * part, 0, size_t(std::min(part, m_chunkBytes - i * part)));
    });
}

// Zeroes the slab outside the box at its corner: the rest of each of the
// box's rows, the rows below it and the slices behind it.
void TezVoxelOctreeBuilder::ZeroAround(int width, int height, int depth)
{
    uint8_t* chunk = m_chunk.get();
    uint64_t const rowBytes = uint64_t(width) * uint64_t(m_bytesPerVoxel);
    uint64_t const boxRows = uint64_t(height) * m_rowStride;
    tbb::parallel_for(0, int(m_chunkBytes / m_sliceStride), [&](int z) {
        uint8_t* slice = chunk + uint64_t(z) * m_sliceStride;
        if (z >= depth) {
            std::memset(slice, 0, size_t(m_sliceStride));
            return;
        }
        if (rowBytes < m_rowStride)
            for (int y = 0; y < height; ++y)
                std::memset(slice + uint64_t(y) * m_rowStride + rowBytes, 0, size_t(m_rowStride - rowBytes));
        std::memset(slice + boxRows, 0, size_t(m_sliceStride - boxRows));
    });
}

namespace {
// Rearranges n elements in place so that slot p receives the element now at
// from[p]. The permutation's cycles are cut into runs of at most kRun slots
// that move in parallel: the first element of every run is saved before any
// moves, and each run ends with the saved head of the run after it, which
// is the element that run overwrites first.
template <class Save, class Move, class Restore>
void PermuteInPlace(std::vector<uint32_t> const& from, Save save, Move move, Restore restore)
{
    constexpr size_t kRun = 256;
    size_t const n = from.size();
    std::vector<uint32_t> slots;  // every cycle, slot by slot
    std::vector<size_t> runs;     // start of each run in slots
    std::vector<size_t> nextHead; // the run whose head ends each run
    std::vector<bool> seen(n, false);
    for (size_t p = 0; p < n; ++p) {
        if (seen[p] || from[p] == p)
            continue;
        size_t const begin = slots.size();
        size_t const firstRun = runs.size();
        for (size_t j = p; !seen[j]; j = from[j]) {
            seen[j] = true;
            if ((slots.size() - begin) % kRun == 0)
                runs.push_back(slots.size());
            slots.push_back(uint32_t(j));
        }
        for (size_t r = firstRun; r < runs.size(); ++r)
            nextHead.push_back(r + 1 < runs.size() ? r + 1 : firstRun);
    }
    runs.push_back(slots.size());
    size_t const count = runs.size() - 1;
    for (size_t r = 0; r < count; ++r)
        save(r, slots[runs[r]]);
    tbb::parallel_for(size_t(0), count, [&](size_t r) {
        // The run's slots are j[a] ... j[b-1]; each takes from the next, the
        // last from the saved head of the following run.
        size_t const a = runs[r], b = runs[r + 1];
        size_t const last = b - 1;
        for (size_t i = a; i < last; ++i)
            move(slots[i + 1], slots[i]);
        restore(nextHead[r], slots[last]);
    });
}
} // namespace

// The blocks of a pass are built in parallel, so their octets and bricks come
// from the pools in whatever order the threads reach them, and two builds of
// one source would differ. Moving each octet and brick to its place in block
// order gives the pools of a build on one thread, at any thread count: one
// pass over the nodes to relink them, then each element moved once, in
// parallel, with no second copy of the pools.
void TezVoxelOctreeBuilder::PutInBlockOrder()
{
    uint32_t const start = m_plan.startCount;
    size_t const octets = m_octetOrder.size();
    size_t const bricks = m_brickOrder.size();
    auto octetOf = [start](uint32_t first) { return uint32_t((first - start) / 8); };

    // Where each octet and brick comes from, and where each goes.
    std::vector<uint32_t> octetFrom(octets), octetTo(octets), brickTo(bricks);
    bool inOrder = true;
    for (size_t p = 0; p < octets; ++p) {
        octetFrom[p] = octetOf(m_octetOrder[p]);
        octetTo[octetFrom[p]] = uint32_t(p);
        inOrder = inOrder && octetFrom[p] == p;
    }
    for (size_t p = 0; p < bricks; ++p) {
        brickTo[m_brickOrder[p]] = uint32_t(p);
        inOrder = inOrder && m_brickOrder[p] == p;
    }
    if (inOrder)
        return;

    TezVoxelOctreeNodePool& nodes = m_tree.m_nodePool;
    TezVoxelOctreeLeafVolumePool& leaves = m_tree.m_leafPool;
    uint64_t const count = nodes.GetNumElements();
    for (uint64_t i = 0; i < count; ++i) {
        TezVoxelOctreeNode& node = Node(i);
        uint32_t const first = node.children & TezNodeLowMask;
        if (first != 0)
            node.children = (node.children & TezNodeFlagBit) | (start + 8 * octetTo[octetOf(first)]);
        if (node.data & TezNodeFlagBit)
            node.data = TezNodeFlagBit | brickTo[node.data & TezNodeLowMask];
    }

    std::vector<TezVoxelOctreeNode> savedOctets;
    PermuteInPlace(
        octetFrom,
        [&](size_t run, uint32_t slot) {
            if (savedOctets.size() < 8 * (run + 1))
                savedOctets.resize(8 * (run + 1));
            for (uint64_t k = 0; k < 8; ++k)
                savedOctets[8 * run + k] = Node(start + 8 * uint64_t(slot) + k);
        },
        [&](uint32_t from, uint32_t to) {
            for (uint64_t k = 0; k < 8; ++k)
                Node(start + 8 * uint64_t(to) + k) = Node(start + 8 * uint64_t(from) + k);
        },
        [&](size_t run, uint32_t to) {
            for (uint64_t k = 0; k < 8; ++k)
                Node(start + 8 * uint64_t(to) + k) = savedOctets[8 * run + k];
        });

    size_t const brickBytes = size_t(leaves.GetElementSize());
    std::vector<uint8_t> savedBricks;
    PermuteInPlace(
        m_brickOrder,
        [&](size_t run, uint32_t slot) {
            if (savedBricks.size() < brickBytes * (run + 1))
                savedBricks.resize(brickBytes * (run + 1));
            std::memcpy(savedBricks.data() + brickBytes * run, leaves.Brick(slot), brickBytes);
        },
        [&](uint32_t from, uint32_t to) { std::memcpy(leaves.Brick(to), leaves.Brick(from), brickBytes); },
        [&](size_t run, uint32_t to) {
            std::memcpy(leaves.Brick(to), savedBricks.data() + brickBytes * run, brickBytes);
        });
}

// The ray caster finds the root's children at node 1, as the pyramid places
// them. A tree that is a single block builds its root's octet after those of
// deeper levels; swap it with the octet at 1 and relink both parents.
void TezVoxelOctreeBuilder::MoveRootOctetToFront()
{
    uint32_t const root = Node(0).children & TezNodeLowMask;
    if (root == 0 || root == 1)
        return;
    uint64_t const count = m_tree.m_nodePool.GetNumElements();
    uint64_t parent = 0;
    for (uint64_t i = 1; i < count; ++i)
        if ((Node(i).children & TezNodeLowMask) == 1) {
            parent = i;
            break;
        }
    for (uint32_t k = 0; k < 8; ++k)
        std::swap(Node(1 + k), Node(root + k));
    if (parent >= root && parent < uint64_t(root) + 8)
        parent = parent - root + 1;
    TezNodeSetFirstChild(Node(0), 1);
    TezNodeSetFirstChild(Node(parent), root);
}

void TezVoxelOctreeBuilder::CountLeafs(uint32_t node, size_t level)
{
    TezVoxelOctreeNode const n = Node(node);
    std::vector<int32_t>& counts = m_tree.m_leafsPerSlice;
    if (n.children & TezNodeFlagBit) {
        if (counts.size() <= level)
            counts.resize(level + 1, 0);
        ++counts[level];
    }
    uint32_t const first = n.children & TezNodeLowMask;
    if (first != 0)
        for (uint32_t k = 0; k < 8; ++k)
            CountLeafs(first + k, level + 1);
}

bool TezVoxelOctreeBuilder::Run(TezProgress& progress)
{
    PrepareBuffers();
    if (!PreparePools())
        return false;

    int const blocksInRow = m_plan.blocksInRow;
    progress.Start(uint64_t(CeilDiv(m_source.GetDepth(), m_plan.blockSize)) * uint64_t(blocksInRow) *
                   uint64_t(blocksInRow));
    for (int bz = 0; bz < blocksInRow; ++bz)
        for (int by = 0; by < blocksInRow; by += m_plan.rowsPerPass)
            for (int bx = 0; bx < blocksInRow; bx += m_plan.blocksX) {
                Pass const pass{bx, by, bz, std::min(m_plan.blocksX, blocksInRow - bx),
                                std::min(m_plan.rowsPerPass, blocksInRow - by)};
                if (!BuildPass(pass, progress))
                    return false;
            }
    m_chunk.reset();
    m_interpolation = std::vector<uint8_t>();

    ArrangeTree();
    Summarise(CollectHistogram());
    return true;
}

// The threads' tables in one, without the zeros sampled outside the source.
std::vector<uint32_t> TezVoxelOctreeBuilder::CollectHistogram()
{
    std::vector<uint32_t> table(256, 0);
    for (Worker const& worker : m_workers)
        for (size_t i = 0; i < worker.counts.size(); ++i)
            table[i % 256] += worker.counts[i];
    table[0] -= uint32_t(m_padding);
    return table;
}

// The slab holds rowsPerPass rows of blocksX blocks, one block deep. It is
// allocated by the first pass that copies: a source that holds its voxels in
// memory may never need it.
void TezVoxelOctreeBuilder::PrepareBuffers()
{
    uint64_t const blockSize = uint64_t(m_plan.blockSize);
    uint64_t const chunkWidth = uint64_t(m_plan.blocksX) * blockSize;
    uint64_t const chunkHeight = uint64_t(m_plan.rowsPerPass) * blockSize;
    m_rowStride = uint64_t(m_bytesPerVoxel) * chunkWidth;
    m_sliceStride = m_rowStride * chunkHeight;
    m_chunkBytes = m_sliceStride * blockSize;
}

// Fresh pools with the full tree above the blocks in place.
bool TezVoxelOctreeBuilder::PreparePools()
{
    TezVoxelOctreeNodePool& nodes = m_tree.m_nodePool;
    TezVoxelOctreeLeafVolumePool& leaves = m_tree.m_leafPool;
    nodes.Initialize(1024);
    leaves.SetElementSize(uint64_t(m_brickBytes));
    leaves.Initialize(1024);
    TezLogger::info("Blocks in row: %d, start index: %d, start count: %d\n", m_plan.blocksInRow, int(m_plan.startIndex),
                    int(m_plan.startCount));
    return nodes.Allocate(m_plan.startCount) != TezMemoryPoolBase::InvalidIndex;
}

// Builds the pass's blocks, or clears them where they lie outside the
// source; false when the pools ran out or the host asks to stop.
bool TezVoxelOctreeBuilder::BuildPass(Pass const& pass, TezProgress& progress)
{
    int const blockSize = m_plan.blockSize;
    if (pass.bx * blockSize < m_source.GetWidth() && pass.by * blockSize < m_source.GetHeight() &&
        pass.bz * blockSize < m_source.GetDepth()) {
        if (!ViewChunk(pass))
            ReadChunk(pass, progress);
        BuildBlocks(pass);
    } else {
        ClearBlocks(pass);
    }
    progress.Step(uint32_t(pass.countX * pass.countY));
    if (m_stop) {
        TezLogger::error("TezVoxelOctree: out of memory for the octree's pools\n");
        return false;
    }
    return !progress.StopRequested();
}

// Samples the pass's blocks where the source holds them, when it holds all
// of them in memory at the build's depth.
bool TezVoxelOctreeBuilder::ViewChunk(Pass const& pass)
{
    int const blockSize = m_plan.blockSize;
    uint8_t const* voxels = nullptr;
    uint64_t rowStride = 0, sliceStride = 0;
    if (!m_source.ViewBox(pass.bx * blockSize, pass.by * blockSize, pass.bz * blockSize, pass.countX * blockSize,
                          pass.countY * blockSize, blockSize, m_bitsPerPixel, voxels, rowStride, sliceStride))
        return false;
    m_view = voxels;
    m_viewRow = rowStride;
    m_viewSlice = sliceStride;
    return true;
}

// The part of the source under the pass, zero beyond its edges, into the
// slab, which the blocks are then sampled from.
void TezVoxelOctreeBuilder::ReadChunk(Pass const& pass, TezProgress const& progress)
{
    int const blockSize = m_plan.blockSize;
    int const x = pass.bx * blockSize;
    int const y = pass.by * blockSize;
    int const z = pass.bz * blockSize;
    int const boxWidth = std::min(pass.countX * blockSize, m_source.GetWidth() - x);
    int const boxHeight = std::min(pass.countY * blockSize, m_source.GetHeight() - y);
    int const boxDepth = std::min(blockSize, m_source.GetDepth() - z);
    // The first read lands on a slab that is still all zero. Later, a source
    // that writes all of the box leaves only its surroundings to clear,
    // which saves a pass over the whole slab.
    if (!m_chunk) {
        m_chunk = AllocateSlab(m_chunkBytes);
        if (!m_chunk)
            throw std::bad_alloc();
        m_chunkZero = true;
        m_interpolation.resize(2 * m_sliceStride);
    }
    bool const fills = m_source.CopyFillsBox();
    if (!m_chunkZero) {
        if (fills)
            ZeroAround(boxWidth, boxHeight, boxDepth);
        else
            ZeroChunk();
    }
    m_chunkZero = false;
    bool copied = false;
    {
        TezProgress::Nested const reading(progress);
        uint8_t* slices[2] = {m_interpolation.data(), m_interpolation.data() + m_sliceStride};
        copied = m_source.Copy(m_chunk.get(), x, y, z, boxWidth, boxHeight, boxDepth, m_bitsPerPixel, m_rowStride,
                               m_sliceStride, slices);
    }
    if (fills && !copied)
        ZeroChunk();
    m_view = m_chunk.get();
    m_viewRow = m_rowStride;
    m_viewSlice = m_sliceStride;
    uint64_t const blockVoxels = uint64_t(blockSize) * uint64_t(blockSize) * uint64_t(blockSize);
    m_padding += uint64_t(pass.countX) * uint64_t(pass.countY) * blockVoxels -
                 uint64_t(boxWidth) * uint64_t(boxHeight) * uint64_t(boxDepth);
}

// The pass's blocks in parallel, in eighths so that a few blocks keep every
// thread busy to the end. Each part keeps its own record of what it took;
// the blocks join their parts, and the block order, afterwards in order.
void TezVoxelOctreeBuilder::BuildBlocks(Pass const& pass)
{
    int const count = pass.countX * pass.countY;
    int const edge = m_plan.blockSize;
    int const parts = edge > kBrickEdge ? 8 : 1;
    std::vector<Part> built(size_t(count) * size_t(parts));
    std::vector<uint8_t> bricks(built.size() * m_brickBytes);
    tbb::parallel_for(tbb::blocked_range<int>(0, count * parts, 1), [&](tbb::blocked_range<int> const& range) {
        Worker& worker = m_workers.local();
        for (int n = range.begin(); n < range.end() && !m_stop.load(std::memory_order_relaxed); ++n) {
            int const block = n / parts, k = n % parts;
            StartBlock(pass, block, worker);
            Part& part = built[size_t(n)];
            int const depth = parts == 8 ? 1 : 0;
            int const half = parts == 8 ? edge / 2 : edge;
            part.first = BuildNode(worker.blockX + (k & 1) * half, worker.blockY + ((k >> 1) & 1) * half,
                                   ((k >> 2) & 1) * half, half, depth, worker, part.taken, part.sample);
            std::memcpy(bricks.data() + size_t(n) * m_brickBytes, worker.Brick(depth), m_brickBytes);
        }
#if defined(__SSE2__)
        _mm_sfence(); // the streamed bricks are seen by whoever reads them next
#endif
    });
    Worker& worker = m_workers.local();
    for (int n = 0; n < count && !m_stop; ++n)
        FinishBlock(pass, n, &built[size_t(n) * size_t(parts)], bricks.data() + size_t(n) * parts * m_brickBytes,
                    worker);
#if defined(__SSE2__)
    _mm_sfence();
#endif
}

// Blocks outside the source are empty: uniform 0, no children.
void TezVoxelOctreeBuilder::ClearBlocks(Pass const& pass)
{
    for (int j = 0; j < pass.countY; ++j)
        for (int i = 0; i < pass.countX; ++i) {
            TezVoxelOctreeNode& node = Node(BlockNode(pass.bx + i, pass.by + j, pass.bz));
            node.children = 0;
            node.data = 0;
        }
}

// The pools in the order of a build on one thread, the levels above the
// blocks linked, and the root's children where the ray caster finds them.
void TezVoxelOctreeBuilder::ArrangeTree()
{
    PutInBlockOrder();
    LinkPyramid(0, 0, 0, 1, 0, 0);
    MoveRootOctetToFront();
}

// The pool sizes for the log, the bricks per level and the histogram.
void TezVoxelOctreeBuilder::Summarise(std::vector<uint32_t> const& table)
{
    TezVoxelOctreeNodePool const& nodes = m_tree.m_nodePool;
    TezVoxelOctreeLeafVolumePool const& leaves = m_tree.m_leafPool;
    TezLogger::info("Nodes %d, Leafs %d\n", int(nodes.GetNumElements()), int(leaves.GetNumElements()));
    TezLogger::info("Memory per nodes: %.2f Mb\n", double(nodes.GetSizeBytes()) / kMiB);
    TezLogger::info("Memory per leafs: %.2f Mb\n", double(leaves.GetSizeBytes()) / kMiB);

    m_tree.m_leafsPerSlice.clear();
    CountLeafs(0, 0);
    for (size_t level = 0; level < m_tree.m_leafsPerSlice.size(); ++level)
        TezLogger::info("Memory per slice %d: %.2f Mb, count: %d\n", int(level),
                        double(m_tree.m_leafsPerSlice[level]) * double(m_brickBytes) / kMiB,
                        m_tree.m_leafsPerSlice[level]);

    float const scale =
        1.0f / float(double(m_source.GetWidth()) * double(m_source.GetHeight()) * double(m_source.GetDepth()));
    m_tree.m_histogram.resize(256);
    for (int i = 0; i < 256; ++i)
        m_tree.m_histogram[size_t(i)] = float(table[size_t(i)]) * scale;
}

TezRef<TezVoxelOctree> TezVoxelOctree::CreateFromVolumeData(TezString const& /*name*/, TezRef<TezVolumeData> volumeData,
                                                            double voxelSize, int bitsPerPixel, int memoryLimit,
                                                            int /*reserved*/)
{
    if (!volumeData || !volumeData->IsValid() || (bitsPerPixel != 8 && bitsPerPixel != 16))
        return TezRef<TezVoxelOctree>();
    int const width = volumeData->GetWidth();
    int const height = volumeData->GetHeight();
    int const depth = volumeData->GetDepth();
    if (width <= 0 || height <= 0 || depth <= 0)
        return TezRef<TezVoxelOctree>();

    TezProgress progress;
    progress.SetMessage("Building Voxel Octree...");
    TezVoxelOctreePlan const plan = TezVoxelOctreeMakePlan(width, height, depth, bitsPerPixel, memoryLimit);
    if (plan.memoryRaised)
        TezLogger::warn("Warning: memory usage increased for better performance\n");
    TezLogger::info("IO passes: %d\n", plan.passes);
    TezLogger::info("Block size: %d\n", plan.blockSize);
    TezLogger::info("Memory per block: %.2f Mb\n", double(plan.bytesPerBlock) * plan.rowsPerPass * plan.blocksX / kMiB);

    TezRef<TezVoxelOctree> tree(new TezVoxelOctree());
    TezVoxelOctreeBuilder builder(*tree, *volumeData, bitsPerPixel, plan);
    bool const built = builder.Run(progress);
    progress.End();
    if (!built)
        return TezRef<TezVoxelOctree>();
    tree->m_bitsPerPixel = bitsPerPixel;
    tree->m_treeSize = plan.treeSize;
    tree->m_voxelSize = voxelSize;
    tree->m_dimensions = TezVector3<int>(width, height, depth);
    return tree;
}

namespace {
// Element-wise copy of a pool's handed-out elements into a fresh pool.
template <class Pool>
void CopyPool(Pool& from, Pool& to)
{
    to.Initialize(from.GetBlockSize());
    uint64_t const count = from.GetNumElements();
    if (count == 0)
        return;
    to.Allocate(count);
    uint64_t const size = from.GetElementSize();
    for (uint64_t i = 0; i < count; ++i)
        std::memcpy(to.ElementBytes(i), from.ElementBytes(i), size);
}
} // namespace

TezVoxelOctree::TezVoxelOctree() = default;

TezVoxelOctree::TezVoxelOctree(TezVoxelOctree const& other) : TezIdentifiableObject(other) { *this = other; }

TezVoxelOctree::TezVoxelOctree(TezVoxelOctree&& other) noexcept : TezIdentifiableObject(other)
{
    *this = std::move(other);
}

TezVoxelOctree& TezVoxelOctree::operator=(TezVoxelOctree const& other)
{
    if (this == &other)
        return *this;
    m_bitsPerPixel = other.m_bitsPerPixel;
    m_treeSize = other.m_treeSize;
    m_voxelSize = other.m_voxelSize;
    m_dimensions = other.m_dimensions;
    m_leafsPerSlice = other.m_leafsPerSlice;
    m_histogram = other.m_histogram;
    m_blockMasks = other.m_blockMasks;
    auto& from = const_cast<TezVoxelOctree&>(other);
    m_leafPool.SetElementSize(from.m_leafPool.GetElementSize());
    CopyPool(from.m_nodePool, m_nodePool);
    CopyPool(from.m_leafPool, m_leafPool);
    return *this;
}

TezVoxelOctree& TezVoxelOctree::operator=(TezVoxelOctree&& other) noexcept
{
    // The pools own blocks that never move; a move is a copy of the tree.
    try {
        *this = static_cast<TezVoxelOctree const&>(other);
    } catch (...) {
        std::terminate();
    }
    return *this;
}

TezVoxelOctree::~TezVoxelOctree() = default;

TezVector3<float> TezVoxelOctree::GetDimensions() const
{
    float const size = GetVoxelSize();
    return TezVector3<float>(float(m_dimensions[0]) * size, float(m_dimensions[1]) * size,
                             float(m_dimensions[2]) * size);
}

TezBox3<float> TezVoxelOctree::GetBounds() const
{
    return TezBox3<float>(TezVector3<float>(0.0f, 0.0f, 0.0f), GetDimensions());
}

void TezVoxelOctree::Save(TezRef<TezArchive> archive)
{
    archive->WriteStartSection(TypeName().c_str());
    archive->WriteInt("bitsPerPixel", m_bitsPerPixel);
    archive->WriteInt("treeSize", m_treeSize);
    archive->WriteDouble("voxelSize", m_voxelSize);
    int32_t const dimensions[3] = {m_dimensions[0], m_dimensions[1], m_dimensions[2]};
    archive->WriteBinary("dimensions", dimensions, sizeof dimensions);
    archive->WriteSizet("histogramSize", m_histogram.size());
    archive->WriteBinary("", m_histogram.data(), m_histogram.size() * sizeof(float));
    archive->WriteSizet("leafsPerSliceSize", m_leafsPerSlice.size());
    archive->WriteBinary("", m_leafsPerSlice.data(), m_leafsPerSlice.size() * sizeof(int32_t));
    archive->WriteString("pools", "");
    m_nodePool.Save(*archive);
    m_leafPool.Save(*archive);
    archive->WriteEndSection();
}

void TezVoxelOctree::Load(TezRef<TezArchive> archive)
{
    // A histogram or level table larger than this is not an octree's.
    constexpr uint64_t kMaxTable = 1u << 20;
    m_blockMasks.clear();
    bool first = true;
    for (;;) {
        TezString const tag = archive->ReadTag();
        if (tag.CompareNoCase(TezString("sectionStart")) == 0) {
            TezString name = archive->ReadStartSection(0);
            if (first) {
                TezString expected = TypeName();
                expected.CollapseWhitespace();
                name.CollapseWhitespace();
                if (name != expected)
                    return;
                first = false;
            }
        } else if (tag.CompareNoCase(TezString("sectionEnd")) == 0) {
            archive->ReadEndSection();
            break;
        } else if (tag.CompareNoCase(TezString("bitsPerPixel")) == 0) {
            m_bitsPerPixel = archive->ReadInt();
            if (m_bitsPerPixel != 8 && m_bitsPerPixel != 16)
                throw std::runtime_error("TezVoxelOctree::Load: bits per pixel must be 8 or 16");
        } else if (tag.CompareNoCase(TezString("treeSize")) == 0) {
            m_treeSize = archive->ReadInt();
        } else if (tag.CompareNoCase(TezString("voxelSize")) == 0) {
            m_voxelSize = archive->ReadDouble();
        } else if (tag.CompareNoCase(TezString("dimensions")) == 0) {
            int32_t dimensions[3];
            archive->ReadBinary(dimensions, sizeof dimensions);
            m_dimensions = TezVector3<int>(dimensions[0], dimensions[1], dimensions[2]);
        } else if (tag.CompareNoCase(TezString("histogramSize")) == 0 ||
                   tag.CompareNoCase(TezString("leafsPerSliceSize")) == 0) {
            uint64_t const size = archive->ReadSizet();
            if (size > kMaxTable)
                throw std::runtime_error("TezVoxelOctree::Load: table size out of range");
            if (tag.CompareNoCase(TezString("histogramSize")) == 0) {
                m_histogram.resize(size);
                archive->ReadBinary(m_histogram.data(), size * sizeof(float));
            } else {
                m_leafsPerSlice.resize(size);
                archive->ReadBinary(m_leafsPerSlice.data(), size * sizeof(int32_t));
            }
        } else if (tag.CompareNoCase(TezString("pools")) == 0) {
            archive->ReadString();
            m_leafPool.SetElementSize(uint64_t(m_bitsPerPixel / 8) * kBrickVoxels);
            m_leafPool.Initialize(1024);
            m_nodePool.Load(*archive);
            m_leafPool.Load(*archive);
        } else {
            archive->SkipUnknownTag();
        }
    }
}
