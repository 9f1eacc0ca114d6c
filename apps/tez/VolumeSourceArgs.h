#pragma once
// The volume input of the commands that read one (tez octree, render,
// tessellate): the positional arguments and the raw-file options, turned
// into a TezVolumeData source in one place.
//
//   FOLDER                      the DICOM files of one series
//   FILE.dcm ...                those files
//   FILE.nrrd | .nhdr | .mhd | .mha
//   FILE --dims X,Y,Z --type uint8|int8|uint16|int16 --endian little|big [--spacing X,Y,Z]
//   PATTERN FIRST LAST          a numbered slice stack (TezSliceStackArgs)
//
// AddOptions puts the positional SOURCE words and the raw-file options on a
// command's parser. Parse checks the words without touching files (its problems are usage
// errors, exit 2); Open reads the headers and says on the error stream what
// is wrong or worth knowing (exit 1 when it answers null).

#include "tez/CommandLine.h"
#include "tez/SliceStackArgs.h"

namespace CLI {
class App;
}
#include "volume/VolumeData.h"

#include <cstdio>
#include <string>
#include <vector>

struct TezVolumeSourceArgs
{
    enum class Kind { None, Stack, DicomFolder, DicomFiles, Nrrd, MetaImage, Raw };

    // For the commands' usage texts.
    static char const* const kSynopsis; // "SOURCE"
    static char const* const kHelp;     // what SOURCE may be, a few lines

    // The raw-file options as given (empty: not given).
    std::string dims, type, endian, spacing;
    // The SOURCE words as given.
    std::vector<std::string> words;
    TezSliceStackArgs stack; // PATTERN FIRST LAST
    Kind kind = Kind::None;
    std::vector<std::string> paths;

    // Binds the SOURCE words and --dims, --type, --endian and --spacing to
    // app, and puts kHelp in its footer.
    void AddOptions(CLI::App& app);

    // Empty when the positional words and the options make one source,
    // otherwise what is wrong.
    std::string Parse(std::vector<std::string> const& positional);
    std::string Parse() { return Parse(words); }

    // The source, or null after a message "tez COMMAND: ..." on err.
    TezRef<TezVolumeData> Open(char const* command, FILE* err);

    // The bits the source holds: 8 or 16.
    int NativeBits() const;
    // A line for the user: the sizes, bits and spacing of a scan file, or
    // empty for a slice stack (its files speak for themselves).
    std::string Describe() const;
    // After the voxels were read: false, after saying so, when too many
    // slices were unreadable (stacks) or any DICOM file failed to decode.
    bool AcceptAfterRead(char const* command, FILE* err) const;

private:
    TezRef<TezVolumeData> m_source;
    int m_dims[3] = {0, 0, 0};
    double m_spacing[3] = {1.0, 1.0, 1.0};
};
