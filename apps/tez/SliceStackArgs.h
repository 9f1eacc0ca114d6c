#pragma once
// The PATTERN FIRST LAST arguments of the commands that read a numbered slice
// stack: checked before any file is touched, then opened as a TezImageStack
// with what is missing or unreadable said on the error stream.

#include "volume/ImageStack.h"

#include <cstdio>
#include <string>

struct TezSliceStackArgs
{
    // Unreadable slice files (corrupt, truncated, not images) are filled by
    // interpolation like missing ones, up to this share of the files; more
    // than that is refused unless allowUnreadable is set.
    static constexpr double kMaxUnreadableShare = 0.10;

    std::string pattern;
    int first = 0;
    int last = -1;
    bool allowUnreadable = false;
    // The command's option that sets allowUnreadable, named when refusing;
    // empty when the command has none.
    std::string allowOption;

    // Empty when the arguments are usable, otherwise what is wrong. PATTERN
    // must hold exactly one integer field such as %d or %04d ("%%" is a
    // percent sign); FIRST and LAST are integers with FIRST <= LAST.
    std::string Parse(std::string const& pattern, std::string const& first, std::string const& last);

    // The stack, or null after a message: no such folder, no matching file,
    // FIRST or LAST beyond the files that exist, a match that is not a
    // regular file, no slice that loads, or too many unreadable files. The
    // cost follows the files that exist, never the range. Missing slices
    // are reported and filled by interpolation.
    TezRef<TezImageStack> Open(FILE* err) const;

    // After the stack was read: says how many files turned out unreadable
    // since the last report, and answers false (after saying so) when they
    // pass kMaxUnreadableShare and allowUnreadable is not set.
    bool AcceptUnreadable(TezImageStack const& stack, FILE* err) const;

    std::string FileName(int number) const;

    // Bits per voxel the slices hold: 16 for files of 16-bit grey or 16-bit
    // colour channels, 8 for the rest; 0 when the first file does not load.
    static int SliceBits(TezImageStack const& stack);

private:
    mutable size_t m_reported = 0;
};
