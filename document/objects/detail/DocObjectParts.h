#pragma once
// What the document objects' own code shares, beside TezDocumentObject.
//
// Archive tags compare without regard to case. TezReadObjectSection handles
// a "sectionStart" tag inside a kind's Load loop: the first section is the
// kind's own, whose name must be the object's type name (blanks aside), and
// each later one is the base object's part, read by TezDocumentObject::Load.
// A wrong name throws std::runtime_error "<where>: section \"NAME\" is not
// <what>".
//
// TezJoinDocumentScene puts a scene object under the root of the document's
// scene; TezLeaveDocumentScene takes it out only of that scene. Both do
// nothing without a document, a scene or an object.

#include "core/Archive.h"
#include "document/Document.h"
#include "document/DocumentObject.h"
#include "render/scene/SceneObject.h"

bool TezArchiveTagIs(TezString const& tag, char const* name);

void TezReadObjectSection(TezRef<TezArchive> const& archive, TezDocumentObject& object, int& sections,
                          char const* where, char const* what);

void TezJoinDocumentScene(TezRef<TezDocument> const& document, TezRef<TezSceneObject> const& object);
void TezLeaveDocumentScene(TezRef<TezDocument> const& document, TezRef<TezSceneObject> const& object);
