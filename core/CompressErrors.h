#pragma once
// The fixed texts of the failures of the Compression namespace. Every failure
// is raised as std::runtime_error with one of these texts, so callers and
// tests can compare them exactly. A few guard states our implementation
// cannot reach (the deflate engine's own compression function table and
// Huffman heap live inside the engine); their texts stay here so the list is
// complete and stable.

namespace Compression {
namespace Messages {

// Adler32::Update
inline constexpr const char* kAdlerNullBuffer = "Argument Null Exception: buffer";
inline constexpr const char* kAdlerNegativeOffset = "Argument cannot be negative: offset";
inline constexpr const char* kAdlerNegativeCount = "Argument cannot be negative: count";

// Crc32::Update (reflected CRC-32)
inline constexpr const char* kCrcNullBuffer = "Argument Null: buffer";
inline constexpr const char* kCrcNegativeCount = "Argument out of range: count cannot be less than zero";
inline constexpr const char* kCrcBadOffset = "Argument out of range: offset";

// StrangeCRC::Update
inline constexpr const char* kStrangeNullBuffer = "Argument Null: buffer";
inline constexpr const char* kStrangeNegative = "Argument out of range: cannot be less than zero";

// Deflater
inline constexpr const char* kDeflaterClosed = "Invalid Operation: Deflater closed";
inline constexpr const char* kBadLevel = "Argument out of range: level";
inline constexpr const char* kDictionaryTooLate = "Invalid Operation";
inline constexpr const char* kFinishCalled = "Invalid Operation: Finish() already called";
inline constexpr const char* kUnknownFunction = "Invalid Operation: unknown compressionFunction";
inline constexpr const char* kEngineNullBuffer = "Argument Null: buffer";
inline constexpr const char* kEngineBadOffset = "Argument out of range: offset";
inline constexpr const char* kEngineBadCount = "Argument out of range: count";
inline constexpr const char* kOldInputPending = "Invalid Operation: Old input was not completely processed";
inline constexpr const char* kHeapInvariant = "Heap invariant violated";
inline constexpr const char* kHeapNotEmpty = "!Empty";

// Inflater
inline constexpr const char* kUnknownBlockType = "Unknown block type";
inline constexpr const char* kBrokenStoredBlock = "broken uncompressed block";
inline constexpr const char* kDecodeUnknownMode = "Inflater.Decode unknown mode";
inline constexpr const char* kAdlerMismatch = "Adler chksum doesn't match";
inline constexpr const char* kHeaderChecksum = "Header checksum illegal";
inline constexpr const char* kUnknownMethod = "Compression Method unknown";
inline constexpr const char* kInflaterUnknownMode = "Inflater unknown mode";
inline constexpr const char* kInflateNegativeCount = "Argument out of range: count cannot be negative";
inline constexpr const char* kInflateNegativeOffset = "Argument out of range: offset cannot be negative";
inline constexpr const char* kDictNullBuffer = "Null argument: buffer";
inline constexpr const char* kDictBadIndex = "Argument out of range: index";
inline constexpr const char* kDictNotNeeded = "Invalid Operation: Dictionary is not needed";
inline constexpr const char* kDictWrongAdler = "Wrong adler checksum";
inline constexpr const char* kRepeatWithoutPrevious = "Ptr is zero in decoder";
inline constexpr const char* kRepeatTooLong = "Ptr plus count too large in decoder";
inline constexpr const char* kWindowNullDictionary = "Argument Null: dictionary";
inline constexpr const char* kWindowFullWrite = "Invalid Operation Window full";
inline constexpr const char* kWindowFullRepeat = "Invalid Operation: Window full";
inline constexpr const char* kBitsBadLength = "Argument out of range: length";
inline constexpr const char* kBitsNotAligned = "Invalid Operation: Bit buffer is not byte aligned!";

} // namespace Messages
} // namespace Compression
