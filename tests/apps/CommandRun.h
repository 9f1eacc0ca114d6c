#pragma once
// The program's commands under test: all the text a file holds (flushed and
// read from its start, so a temporary file can be read more than once), and
// one command line run in-process with both streams captured.

#include "tez/CommandLine.h"

#include <cstdio>
#include <string>

inline std::string FileText(FILE* file)
{
    std::fflush(file);
    std::rewind(file);
    std::string text;
    char chunk[4096];
    size_t n;
    while ((n = std::fread(chunk, 1, sizeof chunk, file)) > 0)
        text.append(chunk, n);
    return text;
}

struct Captured
{
    int code = -1;
    std::string out, err;
};

inline Captured RunCommandLine(TezArgs const& args)
{
    FILE* out = std::tmpfile();
    FILE* err = std::tmpfile();
    Captured c;
    c.code = TezRunCommandLine(args, out, err);
    c.out = FileText(out);
    c.err = FileText(err);
    std::fclose(out);
    std::fclose(err);
    return c;
}
