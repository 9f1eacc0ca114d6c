#include "python/ScriptedCommands.h"

TezRef<TezPyCmdAddVolume> TezPyCmdAddVolume::Create(TezRef<TezHostDocument> document, TezRef<TezDocCubeVolume> volume,
                                                    std::string const& line)
{
    return TezRef<TezPyCmdAddVolume>(new TezPyCmdAddVolume(document, volume, line));
}

TezPyCmdAddVolume::TezPyCmdAddVolume(TezRef<TezHostDocument> document, TezRef<TezDocCubeVolume> volume,
                                     std::string const& line)
    : m_document(document), m_volume(volume), m_line(line)
{
}

bool TezPyCmdAddVolume::Undo() { return m_document && m_document->RemoveObject(m_volume); }

bool TezPyCmdAddVolume::Redo()
{
    if (!m_document || !m_document->AddObject(m_volume))
        return false;
    m_document->SetModified(true);
    return true;
}

void TezPyCmdAddVolume::ClearUndoMemory()
{
    // The document holds the volume; only the way back is given up.
    m_document = nullptr;
    m_volume = nullptr;
}

TezRef<TezPyCmdSetTransferFunction> TezPyCmdSetTransferFunction::Create(TezRef<TezDocCubeVolume> volume,
                                                                        std::vector<TezVector2<float>> const& points,
                                                                        std::string const& line)
{
    return TezRef<TezPyCmdSetTransferFunction>(new TezPyCmdSetTransferFunction(volume, points, line));
}
