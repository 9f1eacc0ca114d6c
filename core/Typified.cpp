#include "core/Typified.h"

#include <cstring>
#include <map>

uint32_t const TezInvalidObjectType = 0;

namespace {

// The kernel's registration table. Display names that several classes share
// resolve to the class listed first here; classes not listed rank behind all
// of these, in the order they register.
char const* const kRegistrationOrder[] = {
    "TezDocBrep",
    "TezDocCubeVolume",
    "TezEventPreferencesChanged",
    "TezEventPreferencesChanging",
    "TezSceneArrowsWidget",
    "TezSceneBrepFace",
    "TezSceneCone",
    "TezSceneCubeVolume",
    "TezSceneRibbonBox",
    "TezSceneThickPolyline",
    "TezSceneVoxelCloud",
    "TezSceneVoxelOctree",
    "TezCubeVolumeEffect",
    "TezEffectBrepFace",
    "TezEffectRectangularRibbon",
    "TezEffectThickPolyline",
    "TezEffectTriangleMesh",
    "TezEffectVoxelCloud",
    "TezEqualDepthEffect",
    "TezVoxelOctreeEffect",
    "TezCubeVolume",
    "TezImageStack",
    "TezVoxelOctree",
    "TezDocCloud",
    "TezEventCommandManagerStatusChanged",
    "TezEventDocumentSelected",
    "TezSceneBackground",
    "TezSceneCoordSysWidget",
    "TezSceneFrame",
    "TezScenePointCloud",
    "TezScenePolylineGroup",
    "TezSceneGdiOverlay",
    "TezSceneBox",
    "TezSceneCylinder",
    "TezScenePointSprites",
    "TezScenePolyline",
    "TezSceneQuad",
    "TezSceneRibbonCylinder",
    "TezSceneRibbonSphere",
    "TezSceneText",
    "TezSceneTextEffect",
    "TezBackgroundEffect",
    "TezDefaultEffect",
    "TezDefaultUnlitEffect",
    "TezEffectCoordSys",
    "TezEffectPolarRibbon",
    "TezEffectRevolvedRibbon",
    "TezGdiOverlayEffect",
    "TezCirclePointBBSpriteEffect",
    "TezCirclePointSpriteEffect",
    "TezTrianglePointSpriteEffect",
    "TezLineEffect",
    "TezScreenSpaceEffect",
    "TezShinyLightEffect",
    "TezUnlitEffect",
    "TezSceneArrow",
    "TezSceneIndexedMesh",
    "TezSceneMeshHole",
    "TezSceneMeshSelection",
    "TezSceneMoveWidget",
    "TezSceneObject",
    "TezSceneRectangle",
    "TezSceneRing",
    "TezSceneRotateWidget",
    "TezSceneSphere",
    "TezEventDocumentChanged",
    "TezEventDocumentChanging",
    "TezEventRequestRedraw",
    "TezEventSceneChanged",
    "TezEventSceneChanging",
    "TezEventSelectionChanged",
    "TezEventSelectionChanging",
    "TezDocIndexedMesh",
};

constexpr int kUnlistedRank = 1 << 20;

struct NameEntry
{
    uint32_t type;
    int rank;
};

struct TypeEntry
{
    TezString name;
    TezTypeFactory factory;
};

// Built on first use so that no load order among object files can miss them.
std::map<TezString, NameEntry>& NameMap()
{
    static std::map<TezString, NameEntry> map;
    return map;
}

std::map<uint32_t, TypeEntry>& TypeMap()
{
    static std::map<uint32_t, TypeEntry> map;
    return map;
}

int RankOf(char const* className)
{
    if (className)
        for (size_t i = 0; i < sizeof(kRegistrationOrder) / sizeof(kRegistrationOrder[0]); ++i)
            if (std::strcmp(kRegistrationOrder[i], className) == 0)
                return static_cast<int>(i);
    return kUnlistedRank;
}

void Register(uint32_t type, TezString const& name, TezTypeFactory factory, int rank)
{
    auto& names = NameMap();
    auto found = names.find(name);
    if (found == names.end())
        names.emplace(name, NameEntry{type, rank});
    else if (rank < found->second.rank)
        found->second = NameEntry{type, rank};
    TypeMap().emplace(type, TypeEntry{name, factory});
}

} // namespace

uint32_t TezAssignObjectType()
{
    static uint32_t counter = 0;
    return ++counter;
}

void TezInitializeType(uint32_t type, TezString const& name, TezTypeFactory factory)
{
    Register(type, name, factory, kUnlistedRank);
}

void TezInitializeClassType(uint32_t type, TezString const& name, TezTypeFactory factory, char const* className)
{
    Register(type, name, factory, RankOf(className));
}

void TezUninitializeType(uint32_t type, TezString const& name)
{
    auto& names = NameMap();
    auto found = names.find(name);
    // A shared name stays with the class that still holds it.
    if (found != names.end() && found->second.type == type)
        names.erase(found);
    TypeMap().erase(type);
}

TezString TezTypeNameFromType(uint32_t type)
{
    auto& types = TypeMap();
    auto found = types.find(type);
    return found == types.end() ? TezString() : found->second.name;
}

TezRef<TezTypifiedObject> TezCreateObjectFromType(uint32_t type)
{
    auto& types = TypeMap();
    auto found = types.find(type);
    if (found == types.end() || !found->second.factory)
        return nullptr;
    return found->second.factory();
}

TezRef<TezTypifiedObject> TezCreateObjectFromName(TezString const& name)
{
    auto& names = NameMap();
    auto found = names.find(name);
    if (found == names.end())
        return nullptr;
    return TezCreateObjectFromType(found->second.type);
}

std::vector<std::pair<uint32_t, TezString>> TezRegisteredTypes()
{
    std::vector<std::pair<uint32_t, TezString>> all;
    for (auto const& [type, entry] : TypeMap())
        all.emplace_back(type, entry.name);
    return all;
}
