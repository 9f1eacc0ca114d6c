#include "document/objects/detail/DocObjectParts.h"

#include "render/scene/Scene.h"

#include <stdexcept>
#include <string>

namespace {

// A name without its white space: archives store section names that way.
std::string Collapsed(TezString const& text)
{
    std::string out;
    for (char c : std::string(text.c_str()))
        if (c != ' ' && c != '\t' && c != '\n' && c != '\r')
            out += c;
    return out;
}

} // namespace

bool TezArchiveTagIs(TezString const& tag, char const* name) { return tag.CompareNoCase(TezString(name)) == 0; }

void TezReadObjectSection(TezRef<TezArchive> const& archive, TezDocumentObject& object, int& sections,
                          char const* where, char const* what)
{
    if (sections++ > 0) {
        object.TezDocumentObject::Load(archive);
        return;
    }
    TezString const name = archive->ReadStartSection(0);
    if (Collapsed(name) != Collapsed(object.TypeName()))
        throw std::runtime_error(std::string(where) + ": section \"" + name.c_str() + "\" is not " + what);
}

void TezJoinDocumentScene(TezRef<TezDocument> const& document, TezRef<TezSceneObject> const& object)
{
    TezRef<TezScene> scene = document ? document->GetScene() : nullptr;
    if (scene && object)
        scene->AddChild(scene->GetRoot(), object);
}

void TezLeaveDocumentScene(TezRef<TezDocument> const& document, TezRef<TezSceneObject> const& object)
{
    TezRef<TezScene> scene = document ? document->GetScene() : nullptr;
    if (scene && object && object->GetScene() == scene)
        scene->RemoveChild(object);
}
