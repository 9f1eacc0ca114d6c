#pragma once
// Deflater: writes a zlib stream (RFC 1950 around RFC 1951 DEFLATE), or raw
// DEFLATE when made with noZlibHeaderOrFooter.
//
// Use: SetInput, Deflate into an output buffer until IsNeedingInput, repeat;
// then Finish and Deflate until IsFinished. The deflater keeps a pointer to
// the caller's input until it has taken it in (IsNeedingInput), so the
// buffer must stay alive that long.
//
// The engine compresses whole inputs: input is gathered until Finish, and
// output appears from then on. Flush makes what was given so far decodable
// at once by writing it as stored blocks. A preset dictionary is announced
// in the header (FDICT and its Adler-32), as a reader expects, though the
// engine does not search it for matches. The strategy is kept for the
// caller; the engine chooses its own parse.
//
// Throws std::runtime_error with the texts of CompressErrors.h: a level
// outside -1..9, SetInput after Finish or while old input is pending, bad
// buffer arguments, SetDictionary after the stream began, Deflate after End.

#include "core/CompressChecksum.h"
#include "platform/Api.h"

#include <cstddef>
#include <cstdint>
#include <vector>

namespace Compression {

// The tuning table of the classic deflate engine, by level. The levels keep
// their meaning (0 stored, 1 to 4 the fast function, 5 to 9 the slow one)
// and map one to one onto the engine's levels.
struct TEZ_API DeflaterConstants
{
    static constexpr int kDeflated = 8;
    static constexpr int kMinMatch = 3;
    static constexpr int kMaxMatch = 258;
    static constexpr int kMinLookahead = kMaxMatch + kMinMatch + 1; // 262
    static constexpr int kWindowBits = 15;
    static constexpr int kWindowSize = 1 << kWindowBits; // 32,768
    static constexpr int kWindowMask = kWindowSize - 1;
    static constexpr int kHashBits = 15;
    static constexpr int kHashSize = 1 << kHashBits;
    static constexpr int kMaxDistance = kWindowSize - kMinLookahead; // 32,506
    static constexpr int kSlideAt = 2 * kWindowSize - kMinLookahead; // 65,274
    static constexpr int kTooFar = 4096;
    static constexpr int kStoredFunction = 0;
    static constexpr int kFastFunction = 1;
    static constexpr int kSlowFunction = 2;

    static constexpr int kGoodLength[10] = {0, 4, 4, 4, 4, 8, 8, 8, 32, 32};
    static constexpr int kMaxLazy[10] = {0, 4, 5, 6, 4, 16, 16, 32, 128, 258};
    static constexpr int kNiceLength[10] = {0, 8, 16, 32, 16, 32, 128, 128, 258, 258};
    static constexpr int kMaxChain[10] = {0, 4, 8, 32, 16, 32, 128, 256, 1024, 4096};
    static constexpr int kFunction[10] = {0, 1, 1, 1, 1, 2, 2, 2, 2, 2};
};

enum class DeflateStrategy : int { Default = 0, Filtered = 1, HuffmanOnly = 2 };

class TEZ_API Deflater
{
public:
    static constexpr int kBestCompression = 9;
    static constexpr int kBestSpeed = 1;
    static constexpr int kDefaultCompression = -1;
    static constexpr int kNoCompression = 0;

    Deflater(); // level 6
    explicit Deflater(int level, bool noZlibHeaderOrFooter = false);
    ~Deflater();
    Deflater(const Deflater&) = delete;
    Deflater& operator=(const Deflater&) = delete;

    // Back to a fresh stream; level, strategy and header choice stay.
    void Reset();
    // Releases the engine's buffers; a later Deflate throws.
    void End();

    void SetInput(const uint8_t* buffer, std::ptrdiff_t offset, std::ptrdiff_t count);
    void SetInput(const uint8_t* buffer, std::ptrdiff_t count) { SetInput(buffer, 0, count); }
    // Writes up to length bytes of output at output + offset; the count made.
    std::ptrdiff_t Deflate(uint8_t* output, std::ptrdiff_t offset, std::ptrdiff_t length);

    void Flush();
    void Finish();
    bool IsFinished() const;
    bool IsNeedingInput() const { return m_inputCount == 0; }

    void SetLevel(int level);
    int GetLevel() const { return m_level; }
    void SetStrategy(DeflateStrategy strategy) { m_strategy = strategy; }
    DeflateStrategy GetStrategy() const { return m_strategy; }
    void SetDictionary(const uint8_t* dictionary, std::ptrdiff_t offset, std::ptrdiff_t count);

    uint32_t GetAdler() const { return m_adler.GetValue(); }
    int64_t GetTotalIn() const { return m_totalIn; }
    int64_t GetTotalOut() const { return m_totalOut; }

private:
    void TakeInput();
    void EmitStoredBlocks(const uint8_t* data, size_t size);
    void CompressRest(const uint8_t* data, size_t size);

    int m_level = 6;
    bool m_noHeader = false;
    int m_state = 0;
    DeflateStrategy m_strategy = DeflateStrategy::Default;
    int64_t m_totalIn = 0;
    int64_t m_totalOut = 0;

    const uint8_t* m_input = nullptr; // caller's slice not yet taken in
    std::ptrdiff_t m_inputCount = 0;
    std::vector<uint8_t> m_gathered; // input taken in, waiting for Finish or Flush
    std::vector<uint8_t> m_pending;  // output not yet handed out
    size_t m_pendingRead = 0;
    bool m_haveDictionary = false;
    uint32_t m_dictionaryAdler = 0;
    Adler32 m_adler;
};

} // namespace Compression
