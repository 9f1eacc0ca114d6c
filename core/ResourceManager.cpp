#include "core/ResourceManager.h"

#include "core/AppService.h"
#include "platform/System.h"

#include <cstdio>
#include <string>

TEZ_DEFINE_REF_FUNCTIONS(TezResourceManager)

namespace {

struct FolderTable
{
    std::string folders[TezResourceManager::ResourceTypeCount];
    FolderTable()
    {
        char const* const literals[] = {
            "\\media\\shaders\\vertex\\", "\\media\\shaders\\geometry\\",     "\\media\\shaders\\fragment\\",
            "\\media\\meshes\\",          "\\media\\shaders\\images\\",       "\\media\\tools\\",
            "\\media\\machines\\",        "\\media\\machine_meshes\\",        "\\media\\cursors\\",
            "\\media\\documentation\\",   "\\media\\additivedocumentation\\",
        };
        for (int i = 0; i < TezResourceManager::ResourceTypeCount; ++i)
            folders[i] = TezTransformPath(literals[i]);
    }
};

// Built at load.
FolderTable const g_folders;

struct CursorFiles
{
    char const* plain;
    char const* large;
};

CursorFiles const kCursorFiles[] = {
    {"CrossHairCursor.ico", "CrossHairCursor.ico"},
    {"OrbitCursor.ico", "OrbitCursor24.ico"},
    {"PanCursor.ico", "PanCursor24.ico"},
    {"PickCursor.ico", "PickCursor24.ico"},
    {"RotateXCursor.ico", "RotateXCursor24.ico"},
    {"RotateYCursor.ico", "RotateYCursor24.ico"},
    {"RotateZCursor.ico", "RotateZCursor24.ico"},
    {"ZoomCursor.ico", "ZoomCursor24.ico"},
    {"ZoomWindowCursor.ico", "ZoomWindowCursor24.ico"},
};

} // namespace

TezResourceManager::TezResourceManager() : m_resourcePath(TezGetExecutableDir().c_str()) {}

TezRef<TezResourceManager> TezResourceManager::Create() { return TezRef<TezResourceManager>(new TezResourceManager()); }

TezRef<TezResourceManager> TezResourceManager::GetAppResourceManager()
{
    return TezAppService<TezResourceManager>::Get();
}

TezString TezResourceManager::GetFolder(ResourceType type)
{
    if (type < 0 || type >= ResourceTypeCount)
        return TezString();
    return TezString(g_folders.folders[type].c_str());
}

TezString TezResourceManager::GetFullPath(ResourceType type, TezString const& name) const
{
    return m_resourcePath + GetFolder(type) + name;
}

TezString TezResourceManager::GetCursorPath(Cursors cursor, bool large)
{
    if (cursor < CursorCrossHair || cursor > CursorZoomWindow)
        return TezString();
    TezRef<TezResourceManager> manager = GetAppResourceManager();
    if (!manager)
        return TezString();
    CursorFiles const& files = kCursorFiles[cursor - CursorCrossHair];
    return manager->GetFullPath(ResourceCursor, TezString(large ? files.large : files.plain));
}

TezString TezResourceManager::BufferFromFile(TezString const& path)
{
    FILE* file = std::fopen(path.c_str(), "r");
    if (!file)
        return TezString();
    std::string text;
    char chunk[65536];
    size_t n;
    while ((n = std::fread(chunk, 1, sizeof chunk, file)) > 0)
        text.append(chunk, n);
    std::fclose(file);
    return TezString(text.c_str());
}
