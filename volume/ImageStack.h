#pragma once
// TezImageStack: a numbered series of image files, one file a slice, read as
// a volume of 8- or 16-bit grey voxels.
//
// The creators keep the stretch of the list from the first to the last file
// that loads; the first loadable file fixes the slice size, and every other
// slice is converted to grey and rescaled to it (or to the size set by
// Resize). Gaps in the numbering, and files that will not load, are filled by
// linear interpolation between the neighbouring slices when the stack is
// copied. SetScale resamples the depth as well; Copy then reads sequentially
// and interpolates between the two slices around each output slice.
//
// Files that will not read as images are not fatal: each is warned about
// once, naming it ("TezImageStack: skipping slice file ..."), its slice is
// interpolated like a gap, and GetUnreadableFiles lists them so that callers
// can refuse a stack with too many. CheckFiles finds most of them up front by
// reading only the files' headers; damaged pixel data shows only when Copy
// reads the file.
//
// Copy reports progress through the application's UI manager when there is
// an application. Only the creators' file list is state: the stack does not
// persist it (Save writes an empty section).

#include "core/Archive.h"
#include "core/String.h"
#include "volume/VolumeData.h"

#include <mutex>
#include <vector>

class TezImage;

class TEZ_API TezImageStack : public TezVolumeData
{
    TEZ_TYPIFIED_CLASS(TezImageStack)

public:
    struct ImageFile
    {
        TezString name;
        int index = 0; // the slice's position in the numbering
    };

    // pattern: a printf format taking the number (one integer conversion,
    // e.g. "slice%03d.png"); index = number - first. Other patterns give an
    // invalid stack. The folder is listed rather than every number tried, so
    // a huge range costs no more than the folder's size.
    static TezRef<TezImageStack> Create(char const* pattern, int first, int last);
    // index = position in the list; missing files leave gaps.
    static TezRef<TezImageStack> Create(std::vector<TezString> const& names);
    // The list as it is, ascending by index.
    static TezRef<TezImageStack> Create(std::vector<ImageFile> const& images);

    bool IsValid() const override { return !m_images.empty(); }
    int GetWidth() const override { return m_width; }
    int GetHeight() const override { return m_height; }
    int GetDepth() const override { return m_depth; }
    int GetFileWidth() const { return m_fileWidth; }
    int GetFileHeight() const { return m_fileHeight; }
    int GetFileDepth() const { return m_fileDepth; }
    std::vector<ImageFile> const& GetImages() const { return m_images; }

    // The paths of a numbered series that exist in any form (directories
    // included), ascending by number, index = number - first: the entries of
    // the folder that holds the numbered part of the pattern whose names
    // that pattern prints for some number in [first, last]. Empty for a
    // pattern without exactly one integer conversion or a missing folder.
    static std::vector<ImageFile> FindNumberedFiles(char const* pattern, int first, int last);

    // Reads every file's header (in parallel) and records those that are not
    // readable images; answers how many files are on record as unreadable.
    size_t CheckFiles();
    // Files found unreadable so far (by the creators, CheckFiles or Copy),
    // each once, in the order found.
    std::vector<TezString> GetUnreadableFiles() const;
    // The files the stack was made from, unreadable ones included.
    size_t GetFileCount() const { return m_fileCount; }

    // The delivered slice size; the files keep theirs.
    void Resize(int width, int height);
    // Delivered size = file size * factor, truncated, at least 1 each.
    void SetScale(double factor);

    // Refused, with the warning "TezImageStack::Copy: invalid copy request",
    // for an empty stack, bitsPerPixel other than 8 or 16, a box outside the
    // stack, a null buffer, strides too small for the box, or odd strides at
    // 16 bits.
    bool Copy(void* buffer, int x, int y, int z, int width, int height, int depth, int bitsPerPixel, uint64_t rowStride,
              uint64_t sliceStride, uint8_t** interpolationBuffers) override;

    void Save(TezRef<TezArchive> archive) const;
    void Load(TezRef<TezArchive> archive);

private:
    TezImageStack() = default;
    bool LoadImageList(std::vector<ImageFile> const& images);

    // The copy of one box and its steps.
    class Copier;
    void NoteUnreadable(TezString const& name);

    std::vector<ImageFile> m_images;
    int m_fileWidth = 0, m_fileHeight = 0, m_fileDepth = 0;
    int m_width = 0, m_height = 0, m_depth = 0;
    size_t m_fileCount = 0;
    mutable std::mutex m_unreadableMutex;
    std::vector<TezString> m_unreadable;
};
