// libFuzzer target: the archive reader walking hostile files the way object
// loaders do. The first input byte picks the stream kind (a regular file,
// whose size the reader knows, or a pipe, whose size it does not); the rest
// is the file. Every read is chosen by the tag it finds.
// fuzz-subsystems: platform core

#include "core/Archive.h"

#include <cstdio>
#include <cstdlib>
#include <stdexcept>
#include <string>
#include <unistd.h>

namespace {

void WriteSeed(std::string const& dir, int index, void (*fill)(TezArchive&))
{
    std::string path = dir + "/seed-" + std::to_string(index);
    FILE* file = std::fopen(path.c_str(), "wb");
    if (!file)
        return;
    std::fputc(0, file);
    {
        TezRef<TezArchive> archive = TezArchive::Open(file, TezArchive::Write);
        fill(*archive);
        archive->Flush();
    }
    std::fclose(file);
}

void Walk(TezArchive& archive)
{
    unsigned char sink[64];
    std::vector<unsigned char> frame;
    for (int step = 0; step < 4096; ++step) {
        TezString tag = archive.ReadTag();
        if (tag.Length() == 0 && step > 0)
            return;
        switch (tag.Length() > 0 ? tag.c_str()[0] % 9 : 0) {
        case 0:
            archive.SkipUnknownTag();
            break;
        case 1:
            archive.ReadInt();
            break;
        case 2:
            archive.ReadString();
            break;
        case 3:
            archive.ReadStartSection(1);
            break;
        case 4:
            archive.ReadStartSection(0);
            break;
        case 5:
            archive.ReadBinary(sink, sizeof sink);
            break;
        case 6:
            archive.ReadObject();
            break;
        case 7:
            archive.ReadCompressedBinary(frame);
            break;
        default:
            archive.ReadSizet();
            break;
        }
    }
}

} // namespace

extern "C" int LLVMFuzzerInitialize(int*, char***)
{
    char const* dir = std::getenv("TEZ_FUZZ_SEED_DIR");
    if (!dir || !*dir)
        return 0;
    WriteSeed(dir, 0, [](TezArchive& a) {
        a.WriteStartSection("Outer");
        a.WriteInt("int", 5);
        a.WriteString("string", "text");
        a.WriteStartSection("Inner");
        a.WriteDouble("double", 1.5);
        a.WriteEndSection();
        a.WriteEndSection();
    });
    WriteSeed(dir, 1, [](TezArchive& a) {
        std::string big(4000, 'x');
        a.WriteString("big", big.c_str());
        a.WriteObject("object", nullptr);
        a.WriteSizet("size", 7);
    });
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(uint8_t const* data, size_t size)
{
    if (size < 1)
        return 0;
    bool pipeStream = data[0] & 1;
    FILE* file = nullptr;
    int fds[2] = {-1, -1};
    if (pipeStream && size - 1 < 60000 && pipe(fds) == 0) {
        // A pipe holds 64 KiB: small inputs fit without a writer thread.
        if (write(fds[1], data + 1, size - 1) != static_cast<ssize_t>(size - 1)) {
            close(fds[0]);
            close(fds[1]);
            return 0;
        }
        close(fds[1]);
        file = fdopen(fds[0], "rb");
    } else {
        file = std::tmpfile();
        if (file) {
            std::fwrite(data + 1, 1, size - 1, file);
            std::rewind(file);
        }
    }
    if (!file)
        return 0;
    {
        TezRef<TezArchive> archive = TezArchive::Open(file, TezArchive::Read);
        try {
            Walk(*archive);
        } catch (std::runtime_error const&) {
        }
    }
    std::fclose(file);
    return 0;
}
