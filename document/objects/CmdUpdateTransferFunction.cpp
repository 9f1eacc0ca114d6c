#include "document/objects/CmdUpdateTransferFunction.h"

TezCmdUpdateTransferFunction::TezCmdUpdateTransferFunction(TezRef<TezDocCubeVolume> volume,
                                                           std::vector<TezVector2<float>> const& points)
    : m_volume(volume), m_points(points)
{
}

TezRef<TezCmdUpdateTransferFunction> TezCmdUpdateTransferFunction::Create(TezRef<TezDocCubeVolume> volume,
                                                                          std::vector<TezVector2<float>> const& points)
{
    return TezRef<TezCmdUpdateTransferFunction>(new TezCmdUpdateTransferFunction(volume, points));
}

bool TezCmdUpdateTransferFunction::Redo()
{
    if (!m_volume)
        return false;
    // The volume pins the ends of what it is given; keep what it had, as it
    // had it, for the way back.
    std::vector<TezVector2<float>> const previous = m_volume->GetTransferFunction();
    m_volume->SetTransferFunction(m_points);
    m_points = previous;
    return true;
}

void TezCmdUpdateTransferFunction::ClearUndoMemory()
{
    m_volume = nullptr;
    m_points.clear();
}
