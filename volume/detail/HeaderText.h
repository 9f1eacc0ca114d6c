#pragma once
// Small text helpers shared by the NRRD and MetaImage header readers.
// Internal: not installed. The number readers take the whole field or fail.

#include <cstdint>
#include <string>
#include <vector>

// Headers longer than this are refused: real ones are a few hundred bytes.
constexpr size_t kTezMaxHeaderBytes = 1 << 20;

// The file's first bytes, at most `limit`; throws when it cannot be read.
std::string TezReadFileHead(std::string const& path, size_t limit);

std::string TezTrim(std::string const& text);
std::string TezLower(std::string text);
// Splits at spaces and tabs; no empty words.
std::vector<std::string> TezSplitWords(std::string const& text);
bool TezParseInt64(std::string const& text, int64_t& value);
bool TezParseDouble(std::string const& text, double& value);
// `name` relative to the folder of `headerPath`, unless it is absolute.
std::string TezBesideFile(std::string const& headerPath, std::string const& name);
