#include "core/CompressDeflater.h"

#include "core/CompressErrors.h"
#include "core/detail/CompressEngine.h"

#include <algorithm>
#include <cstring>
#include <stdexcept>

namespace Compression {

namespace {

constexpr int kIsSetDict = 0x01;
constexpr int kIsFlushing = 0x04;
constexpr int kIsFinishing = 0x08;
constexpr int kInitState = 0x00;
constexpr int kSetDictState = 0x01;
constexpr int kBusyState = 0x10;
constexpr int kFinishedState = 0x1e;
constexpr int kClosedState = 0x7f;

void CheckSlice(const uint8_t* buffer, std::ptrdiff_t offset, std::ptrdiff_t count)
{
    if (!buffer && count != 0)
        throw std::runtime_error(Messages::kEngineNullBuffer);
    if (offset < 0)
        throw std::runtime_error(Messages::kEngineBadOffset);
    if (count < 0)
        throw std::runtime_error(Messages::kEngineBadCount);
}

} // namespace

Deflater::Deflater() : Deflater(kDefaultCompression, false) {}

Deflater::Deflater(int level, bool noZlibHeaderOrFooter)
    : m_level(detail::ResolveLevel(level)), m_noHeader(noZlibHeaderOrFooter)
{
    Reset();
}

Deflater::~Deflater() = default;

void Deflater::Reset()
{
    m_state = m_noHeader ? kBusyState : kInitState;
    m_totalIn = m_totalOut = 0;
    m_input = nullptr;
    m_inputCount = 0;
    m_gathered.clear();
    m_pending.clear();
    m_pendingRead = 0;
    m_haveDictionary = false;
    m_dictionaryAdler = 0;
    m_adler.Reset();
}

void Deflater::End()
{
    Reset();
    m_gathered.shrink_to_fit();
    m_pending.shrink_to_fit();
    m_state = kClosedState;
}

void Deflater::SetLevel(int level) { m_level = detail::ResolveLevel(level); }

void Deflater::SetInput(const uint8_t* buffer, std::ptrdiff_t offset, std::ptrdiff_t count)
{
    if (m_state & kIsFinishing)
        throw std::runtime_error(Messages::kFinishCalled);
    CheckSlice(buffer, offset, count);
    if (m_inputCount > 0)
        throw std::runtime_error(Messages::kOldInputPending);
    m_input = count ? buffer + offset : nullptr;
    m_inputCount = count;
}

void Deflater::SetDictionary(const uint8_t* dictionary, std::ptrdiff_t offset, std::ptrdiff_t count)
{
    if (m_state != kInitState)
        throw std::runtime_error(Messages::kDictionaryTooLate);
    CheckSlice(dictionary, offset, count);
    Adler32 adler;
    if (count)
        adler.Update(dictionary, offset, count);
    m_dictionaryAdler = adler.GetValue();
    m_haveDictionary = true;
    m_state = kSetDictState;
}

void Deflater::Flush() { m_state |= kIsFlushing; }

void Deflater::Finish() { m_state |= kIsFlushing | kIsFinishing; }

bool Deflater::IsFinished() const { return m_state == kFinishedState && m_pendingRead == m_pending.size(); }

void Deflater::TakeInput()
{
    if (m_inputCount == 0)
        return;
    m_adler.Update(m_input, 0, m_inputCount);
    m_gathered.insert(m_gathered.end(), m_input, m_input + m_inputCount);
    m_totalIn += m_inputCount;
    m_input = nullptr;
    m_inputCount = 0;
}

void Deflater::EmitStoredBlocks(const uint8_t* data, size_t size)
{
    // Non-final stored blocks keep the stream byte aligned, so whatever the
    // engine writes later starts on a byte boundary. An empty flush still
    // writes one empty block, the usual sync marker 00 00 FF FF.
    do {
        const size_t n = std::min<size_t>(size, 65535);
        const uint8_t head[5] = {0x00, uint8_t(n), uint8_t(n >> 8), uint8_t(~n), uint8_t(~n >> 8)};
        m_pending.insert(m_pending.end(), head, head + 5);
        m_pending.insert(m_pending.end(), data, data + n);
        data += n;
        size -= n;
    } while (size > 0);
}

void Deflater::CompressRest(const uint8_t* data, size_t size)
{
    const size_t start = m_pending.size();
    const size_t bound = detail::DeflateRawBound(size);
    m_pending.resize(start + bound + 4);
    const size_t body = detail::DeflateRaw(m_level, data, size, m_pending.data() + start, bound);
    size_t end = start + body;
    if (!m_noHeader) {
        const uint32_t a = m_adler.GetValue();
        const uint8_t trailer[4] = {uint8_t(a >> 24), uint8_t(a >> 16), uint8_t(a >> 8), uint8_t(a)};
        std::memcpy(m_pending.data() + end, trailer, 4);
        end += 4;
    }
    m_pending.resize(end);
}

std::ptrdiff_t Deflater::Deflate(uint8_t* output, std::ptrdiff_t offset, std::ptrdiff_t length)
{
    if (m_state == kClosedState)
        throw std::runtime_error(Messages::kDeflaterClosed);
    CheckSlice(output, offset, length);

    if (!(m_state & kBusyState)) {
        uint8_t header[6];
        detail::WriteZlibHeader(header, m_level, m_state & kIsSetDict);
        size_t n = 2;
        if (m_state & kIsSetDict) {
            const uint32_t d = m_dictionaryAdler;
            header[2] = uint8_t(d >> 24);
            header[3] = uint8_t(d >> 16);
            header[4] = uint8_t(d >> 8);
            header[5] = uint8_t(d);
            n = 6;
        }
        m_pending.insert(m_pending.end(), header, header + n);
        m_state = kBusyState | (m_state & (kIsFlushing | kIsFinishing));
    }

    if (m_state != kFinishedState) {
        if (m_state & kIsFinishing) {
            if (m_gathered.empty() && m_inputCount > 0) {
                // The common whole-buffer case: compress straight from the caller.
                m_adler.Update(m_input, 0, m_inputCount);
                m_totalIn += m_inputCount;
                CompressRest(m_input, size_t(m_inputCount));
                m_input = nullptr;
                m_inputCount = 0;
            } else {
                TakeInput();
                CompressRest(m_gathered.data(), m_gathered.size());
            }
            m_gathered.clear();
            m_gathered.shrink_to_fit();
            m_state = kFinishedState;
        } else {
            TakeInput();
            if (m_state & kIsFlushing) {
                EmitStoredBlocks(m_gathered.data(), m_gathered.size());
                m_gathered.clear();
                m_state &= ~kIsFlushing;
            }
        }
    }

    const size_t avail = m_pending.size() - m_pendingRead;
    const size_t n = std::min(avail, size_t(length));
    if (n) {
        std::memcpy(output + offset, m_pending.data() + m_pendingRead, n);
        m_pendingRead += n;
        m_totalOut += std::ptrdiff_t(n);
    }
    if (m_pendingRead == m_pending.size() && m_state != kFinishedState) {
        m_pending.clear();
        m_pendingRead = 0;
    }
    return std::ptrdiff_t(n);
}

} // namespace Compression
