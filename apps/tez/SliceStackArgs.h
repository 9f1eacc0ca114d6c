#pragma once
// The PATTERN FIRST LAST arguments of the commands that read a numbered slice
// stack: checked before any file is touched, then opened as a TezImageStack
// with what is missing said on the error stream.

#include "volume/ImageStack.h"

#include <cstdio>
#include <string>

struct TezSliceStackArgs
{
    std::string pattern;
    int first = 0;
    int last = -1;

    // Empty when the arguments are usable, otherwise what is wrong. PATTERN
    // must hold exactly one integer field such as %d or %04d ("%%" is a
    // percent sign); FIRST and LAST are integers with FIRST <= LAST.
    std::string Parse(std::string const& pattern, std::string const& first, std::string const& last);

    // The stack, or null after a message: no such folder, or no slice that
    // loads. Missing slices are reported and filled by interpolation.
    TezRef<TezImageStack> Open(FILE* err) const;

    std::string FileName(int number) const;
};
