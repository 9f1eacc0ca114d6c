#pragma once
// The built-in sample: a small CT-like phantom (a body with a bony shell,
// lungs, a spine, a contrast-filled organ and a table, with noise inside and
// air exactly 0 around it) written as a numbered PNG slice stack.

#include <string>

// Row j of the phantom is scan line j of the file, so it becomes the
// volume's y = j. Writes size slices of size x size 8-bit PNG files named slice%04d.png into
// folder (created if needed) and answers the printf pattern of their names,
// or an empty string after a message on stderr. Reports one progress step
// a slice and ends early, with some slices missing, when the host's stop
// flag is raised; the caller checks the flag.
std::string TezWriteSampleStack(std::string const& folder, int size);
