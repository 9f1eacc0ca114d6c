#include "DocumentFixture.h"

#include "document/DocumentCommands.h"
#include "document/objects/CmdUpdateTransferFunction.h"
#include "render/objects/SceneVoxelOctree.h"
#include "volume/MemoryVolume.h"

#include <algorithm>
#include <vector>

namespace {

TezRef<TezDocCubeVolume> SmallVolume()
{
    int const n = 16;
    std::vector<uint8_t> voxels(size_t(n) * n * n, 0);
    for (size_t i = 0; i < voxels.size(); i += 3)
        voxels[i] = uint8_t(i % 251);
    return TezDocCubeVolume::Create(
        TezVoxelOctree::CreateFromVolumeData("v", TezMemoryVolume::Create8(n, n, n, voxels), 1.0 / n, 8, 64));
}

std::vector<float> Table(TezRef<TezDocCubeVolume> const& volume)
{
    return dynamic_cast<TezSceneVoxelOctree*>(volume->GetSceneObject().Get())->GetTransferTable();
}

} // namespace

// Undo and redo through the document's history restore the points and the
// opacity table the ray caster reads.
TEST(CmdUpdateTransferFunction, UndoAndRedoSwapThePointsAndTheOpacityTable)
{
    TestApplication app;
    app.NewDocument();
    TezRef<TezCommandManager> history = TezCommandManager::Create();
    // The oldest entry is the document's root command, never undone.
    ASSERT_TRUE(history->Execute(TezCmdInsertPython::Create("import tez\n")));
    TezRef<TezDocCubeVolume> volume = SmallVolume();
    std::vector<TezVector2<float>> const original = volume->GetTransferFunction();
    std::vector<float> const originalTable = Table(volume);

    std::vector<TezVector2<float>> const ramp = {{0.1f, 0}, {0.5f, 0.25f}, {0.8f, 1}};
    TezRef<TezCmdUpdateTransferFunction> command = TezCmdUpdateTransferFunction::Create(volume, ramp);
    EXPECT_TRUE(command->IsUndoable());
    ASSERT_TRUE(history->Execute(command));
    std::vector<TezVector2<float>> const pinned = {{0, 0}, {0.5f, 0.25f}, {1, 1}};
    EXPECT_EQ(pinned, volume->GetTransferFunction());
    std::vector<float> const changedTable = Table(volume);
    EXPECT_NE(originalTable, changedTable);
    EXPECT_NEAR(0.25f, changedTable[127], 0.01f);

    history->Undo();
    EXPECT_EQ(original, volume->GetTransferFunction());
    EXPECT_EQ(originalTable, Table(volume));
    history->Redo();
    EXPECT_EQ(pinned, volume->GetTransferFunction());
    EXPECT_EQ(changedTable, Table(volume));

    // In the script it is the default comment line.
    std::vector<TezString> const script = history->BuildPython();
    TezString const line("# The ability to build python for this command is not yet implemented.\n");
    EXPECT_NE(script.end(), std::find(script.begin(), script.end(), line));
}

TEST(CmdUpdateTransferFunction, WithoutAVolumeNothingChanges)
{
    TezRef<TezCmdUpdateTransferFunction> none = TezCmdUpdateTransferFunction::Create(nullptr, {{0, 0}, {1, 1}});
    EXPECT_FALSE(none->IsUndoable());
    EXPECT_FALSE(none->Execute());

    TezRef<TezDocCubeVolume> volume = SmallVolume();
    TezRef<TezCmdUpdateTransferFunction> one = TezCmdUpdateTransferFunction::Create(volume, {{0.5f, 1}});
    std::vector<TezVector2<float>> const before = volume->GetTransferFunction();
    EXPECT_TRUE(one->Execute());
    EXPECT_EQ(before, volume->GetTransferFunction()) << "a single point is not a transfer function";
    one->ClearUndoMemory();
    EXPECT_FALSE(one->IsUndoable());
    EXPECT_TRUE(one->GetPoints().empty());
}
