#include "document/objects/CmdTransformObject.h"

#include "document/Document.h"
#include "document/objects/DocIndexedMesh.h"
#include "render/scene/SceneObject.h"

#include <cmath>
#include <stdexcept>

TEZ_DEFINE_REF_FUNCTIONS(TezCmdTransformObject)

TezCmdTransformObject::TezCmdTransformObject(TezMatrix44<float> const& matrix) : m_matrix(matrix)
{
    float const det = matrix.Determinant();
    if (!std::isfinite(det) || std::fabs(det) < 1e-12f)
        throw std::runtime_error("TezCmdTransformObject::Create: the matrix cannot be inverted");
    m_inverse = matrix.Inverse();
}

TezCmdTransformObject::~TezCmdTransformObject() = default;

TezRef<TezCmdTransformObject> TezCmdTransformObject::Create(TezRef<TezDocIndexedMesh> mesh,
                                                            TezMatrix44<float> const& matrix)
{
    TezRef<TezCmdTransformObject> command(new TezCmdTransformObject(matrix));
    command->m_mesh = mesh;
    return command;
}

TezRef<TezCmdTransformObject> TezCmdTransformObject::Create(TezRef<TezSceneObject> object,
                                                            TezMatrix44<float> const& matrix)
{
    TezRef<TezCmdTransformObject> command(new TezCmdTransformObject(matrix));
    command->m_object = object;
    return command;
}

bool TezCmdTransformObject::Apply(TezMatrix44<float> const& matrix)
{
    if (m_mesh) {
        TezRef<TezDocument> document = TezDocument::GetActiveDocument();
        if (document)
            document->Report(TezDocument::DocChanging);
        m_mesh->TransformGeometry(matrix);
        if (document) {
            document->SetModified(true);
            document->Report(TezDocument::DocChanged);
        }
        return true;
    }
    if (m_object) {
        m_object->SetTransform(matrix * m_object->GetTransform());
        return true;
    }
    return false;
}

bool TezCmdTransformObject::Redo() { return Apply(m_matrix); }

bool TezCmdTransformObject::Undo() { return Apply(m_inverse); }

void TezCmdTransformObject::ClearUndoMemory()
{
    m_mesh = nullptr;
    m_object = nullptr;
}
