#pragma once
// TezCmdUpdateTransferFunction: sets a volume's transfer function as an
// undoable step. Each Redo swaps the volume's control points with the ones
// the command holds, so Execute, Undo and Redo are the same call. A command
// without a volume is not undoable and changes nothing; ClearUndoMemory
// drops the volume and the points. In a script it stands as the default
// comment line (it has no script function).

#include "document/CommandManager.h"
#include "document/objects/DocCubeVolume.h"

#include <vector>

class TEZ_API TezCmdUpdateTransferFunction : public TezCommand
{
public:
    static TezRef<TezCmdUpdateTransferFunction> Create(TezRef<TezDocCubeVolume> volume,
                                                       std::vector<TezVector2<float>> const& points);

    bool Execute() override { return Redo(); }
    bool IsUndoable() override { return m_volume != nullptr; }
    bool Undo() override { return Redo(); }
    bool Redo() override;
    void ClearUndoMemory() override;

    std::vector<TezVector2<float>> const& GetPoints() const { return m_points; }

protected:
    TezCmdUpdateTransferFunction(TezRef<TezDocCubeVolume> volume, std::vector<TezVector2<float>> const& points);

private:
    TezRef<TezDocCubeVolume> m_volume;
    std::vector<TezVector2<float>> m_points;
};
