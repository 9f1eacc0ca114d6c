#include "volume/detail/HeaderText.h"

#include <cctype>
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <stdexcept>

std::string TezReadFileHead(std::string const& path, size_t limit)
{
    FILE* file = std::fopen(path.c_str(), "rb");
    if (!file)
        throw std::runtime_error("'" + path + "': cannot open: " + std::strerror(errno));
    // No more than the file holds: most files are far below the limit.
    long size = -1;
    if (std::fseek(file, 0, SEEK_END) == 0)
        size = std::ftell(file);
    std::rewind(file);
    if (size >= 0 && size_t(size) < limit)
        limit = size_t(size);
    std::string head(limit, '\0');
    size_t const got = limit ? std::fread(&head[0], 1, limit, file) : 0;
    bool const failed = std::ferror(file) != 0;
    std::fclose(file);
    if (failed)
        throw std::runtime_error("'" + path + "': cannot read");
    head.resize(got);
    return head;
}

std::string TezTrim(std::string const& text)
{
    size_t begin = 0, end = text.size();
    while (begin < end && std::isspace(static_cast<unsigned char>(text[begin])))
        ++begin;
    while (end > begin && std::isspace(static_cast<unsigned char>(text[end - 1])))
        --end;
    return text.substr(begin, end - begin);
}

std::string TezLower(std::string text)
{
    for (char& c : text)
        c = char(std::tolower(static_cast<unsigned char>(c)));
    return text;
}

std::vector<std::string> TezSplitWords(std::string const& text)
{
    std::vector<std::string> words;
    std::string word;
    for (char c : text) {
        if (c == ' ' || c == '\t') {
            if (!word.empty())
                words.push_back(word);
            word.clear();
        } else {
            word += c;
        }
    }
    if (!word.empty())
        words.push_back(word);
    return words;
}

bool TezParseInt64(std::string const& text, int64_t& value)
{
    if (text.empty() || std::isspace(static_cast<unsigned char>(text[0])))
        return false;
    errno = 0;
    char* end = nullptr;
    long long const parsed = std::strtoll(text.c_str(), &end, 10);
    if (errno != 0 || end != text.c_str() + text.size())
        return false;
    value = parsed;
    return true;
}

bool TezParseDouble(std::string const& text, double& value)
{
    if (text.empty() || std::isspace(static_cast<unsigned char>(text[0])))
        return false;
    char* end = nullptr;
    double const parsed = std::strtod(text.c_str(), &end);
    if (end != text.c_str() + text.size())
        return false;
    value = parsed;
    return true;
}

std::string TezBesideFile(std::string const& headerPath, std::string const& name)
{
    if (!name.empty() && name[0] == '/')
        return name;
    size_t const slash = headerPath.find_last_of('/');
    return slash == std::string::npos ? name : headerPath.substr(0, slash + 1) + name;
}
