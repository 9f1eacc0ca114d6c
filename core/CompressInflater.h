#pragma once
// Inflater: reads a zlib stream (RFC 1950 around RFC 1951 DEFLATE), or raw
// DEFLATE when made with noHeader, in pieces of any size.
//
// Use: SetInput, then Inflate into an output buffer until it returns 0;
// then IsNeedingInput asks for more input, IsNeedingDictionary for the preset
// dictionary the header named (SetDictionary), and IsFinished tells the
// stream ended with its checksum verified. The inflater keeps a pointer to
// the caller's input until it has read it all, so the buffer must stay alive
// that long. Output held back in the window waits until the checksum behind
// it has been read, so every byte handed out of a finished stream is checked.
//
// Throws std::runtime_error with the texts of CompressErrors.h on bad
// arguments and on corrupt data: header ("Header checksum illegal",
// "Compression Method unknown"), block type, stored length, code length
// repeats, checksum; data the decoder cannot interpret (a code that is not
// in the tables, an over-full code, a length or distance symbol out of
// range, or a distance before the start of the output) raises
// "Inflater.Decode unknown mode". Never reads past the input it was given.

#include "platform/Api.h"

#include <cstddef>
#include <cstdint>
#include <memory>

namespace Compression {

class TEZ_API Inflater
{
public:
    Inflater();
    explicit Inflater(bool noHeader);
    ~Inflater();
    Inflater(const Inflater&) = delete;
    Inflater& operator=(const Inflater&) = delete;

    // Back to the start of a new stream.
    void Reset();

    void SetInput(const uint8_t* buffer, std::ptrdiff_t offset, std::ptrdiff_t count);
    void SetInput(const uint8_t* buffer, std::ptrdiff_t count) { SetInput(buffer, 0, count); }
    // Writes up to count bytes at buffer + offset; the number written.
    std::ptrdiff_t Inflate(uint8_t* buffer, std::ptrdiff_t offset, std::ptrdiff_t count);
    void SetDictionary(const uint8_t* buffer, std::ptrdiff_t index, std::ptrdiff_t count);

    bool IsNeedingInput() const;
    bool IsNeedingDictionary() const;
    bool IsFinished() const;

    uint32_t GetAdler() const;
    int64_t GetTotalIn() const;
    int64_t GetTotalOut() const;
    std::ptrdiff_t GetRemainingInput() const;

private:
    struct State;
    std::unique_ptr<State> m_state;
};

} // namespace Compression
