#pragma once
// TezCmdTransformObject: moves or turns an object by a world matrix as one
// undoable step; what the move and rotate tools leave behind a drag.
//
// A mesh of the document has its vertices moved (TransformGeometry), so
// that a save keeps the change; a bare scene object (one that no document
// object owns, as a viewer's sample shape) has the matrix put before its
// transform. Undo applies the inverse the same way. A matrix that cannot be
// inverted is refused by Create with std::runtime_error; a command without
// an object changes nothing and is not undoable. ClearUndoMemory lets the
// object go. In a script it stands as the default comment line.

#include "document/CommandManager.h"
#include "math/Matrix.h"

TEZ_DECLARE_REF_FUNCTIONS(TezDocIndexedMesh)
TEZ_DECLARE_REF_FUNCTIONS(TezSceneObject)
TEZ_DECLARE_REF_FUNCTIONS(TezCmdTransformObject)

class TEZ_API TezCmdTransformObject : public TezCommand
{
public:
    static TezRef<TezCmdTransformObject> Create(TezRef<TezDocIndexedMesh> mesh, TezMatrix44<float> const& matrix);
    static TezRef<TezCmdTransformObject> Create(TezRef<TezSceneObject> object, TezMatrix44<float> const& matrix);
    ~TezCmdTransformObject() override;

    bool Execute() override { return Redo(); }
    bool IsUndoable() override { return m_mesh || m_object; }
    bool Undo() override;
    bool Redo() override;
    void ClearUndoMemory() override;

    TezMatrix44<float> const& GetMatrix() const { return m_matrix; }

protected:
    TezCmdTransformObject(TezMatrix44<float> const& matrix);

private:
    bool Apply(TezMatrix44<float> const& matrix);

    TezRef<TezDocIndexedMesh> m_mesh;
    TezRef<TezSceneObject> m_object;
    TezMatrix44<float> m_matrix;
    TezMatrix44<float> m_inverse;
};
