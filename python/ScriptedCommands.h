#pragma once
// The commands that Python's document calls run, so that they take part in
// undo and redo and stand in the history as the calls that replay them.
//
// Each holds its script line, made by the binding while it holds the GIL (a
// Python expression such as "tez.active_document().add_volume(...)"); the
// module name is the application's. A volume whose data have no script form
// (an array from numpy) stands as a comment line saying so.

#include "document/CommandManager.h"
#include "document/objects/CmdUpdateTransferFunction.h"
#include "document/objects/DocCubeVolume.h"
#include "tez/HostDocument.h"

#include <string>

// Adds a volume object to a document; Undo takes it off again.
class TezPyCmdAddVolume : public TezCommand
{
public:
    static TezRef<TezPyCmdAddVolume> Create(TezRef<TezHostDocument> document, TezRef<TezDocCubeVolume> volume,
                                            std::string const& line);
    bool Execute() override { return Redo(); }
    bool IsUndoable() override { return m_document != nullptr; }
    bool Undo() override;
    bool Redo() override;
    void ClearUndoMemory() override;
    TezString BuildPython() const override { return TezString(m_line.c_str()); }

protected:
    TezPyCmdAddVolume(TezRef<TezHostDocument> document, TezRef<TezDocCubeVolume> volume, std::string const& line);

private:
    TezRef<TezHostDocument> m_document;
    TezRef<TezDocCubeVolume> m_volume;
    std::string m_line;
};

// The kernel's transfer function command with a script line.
class TezPyCmdSetTransferFunction : public TezCmdUpdateTransferFunction
{
public:
    static TezRef<TezPyCmdSetTransferFunction>
    Create(TezRef<TezDocCubeVolume> volume, std::vector<TezVector2<float>> const& points, std::string const& line);
    TezString BuildPython() const override { return TezString(m_line.c_str()); }

protected:
    TezPyCmdSetTransferFunction(TezRef<TezDocCubeVolume> volume, std::vector<TezVector2<float>> const& points,
                                std::string const& line)
        : TezCmdUpdateTransferFunction(volume, points), m_line(line)
    {
    }

private:
    std::string m_line;
};
