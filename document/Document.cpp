#include "document/Document.h"

#include "core/Application.h"
#include "core/Events.h"
#include "core/Logger.h"
#include "document/CommandManager.h"
#include "document/DocumentObject.h"
#include "document/Selection.h"
#include "render/objects/SceneBackground.h"
#include "render/scene/Scene.h"
#include "render/scene/SceneObject.h"

#include <exception>
#include <stdexcept>

TEZ_DEFINE_REF_FUNCTIONS(TezDocument)

// ---- TezDocument ----

TezDocument::TezDocument()
{
    m_commandManager = TezCommandManager::Create();
    m_focusCommandManager = TezCommandManager::Create();
    m_selection = TezSelection::Create();
    TezApplication* app = TezApplication::Instance();
    if (!app || !app->GetRenderContext())
        return; // no render context: no scenes
    m_scene = TezScene::Create();
    m_auxiliaryScene = TezScene::Create();
    m_scene->AddChild(m_scene->GetRoot(), TezSceneBackground::Create());
}

TezDocument::~TezDocument()
{
    if (m_commandManager)
        m_commandManager->ClearAll();
    if (m_focusCommandManager)
        m_focusCommandManager->ClearAll();
    if (m_scene)
        m_scene->RemoveAllChildren(m_scene->GetRoot());
    if (m_auxiliaryScene)
        m_auxiliaryScene->RemoveAllChildren(m_auxiliaryScene->GetRoot());
    if (m_selection)
        m_selection->RemoveAll();
    m_commandManager = nullptr;
    m_focusCommandManager = nullptr;
    m_scene = nullptr;
    m_auxiliaryScene = nullptr;
    m_selection = nullptr;
}

TezRef<TezDocument> TezDocument::GetActiveDocument()
{
    TezApplication* app = TezApplication::Instance();
    return app ? app->GetActiveDocument() : nullptr;
}

TezRef<TezCommandManager> TezDocument::GetCommandManager() { return m_commandManager; }
TezRef<TezCommandManager> TezDocument::GetFocusCommandManager() { return m_focusCommandManager; }
TezRef<TezScene> TezDocument::GetScene() { return m_scene; }
TezRef<TezScene> TezDocument::GetAuxiliaryScene() { return m_auxiliaryScene; }
TezRef<TezSelection> TezDocument::GetSelection() { return m_selection; }

// The scene's statics live here: a scene knows nothing of documents.
TezRef<TezScene> TezScene::GetActiveScene()
{
    TezRef<TezDocument> document = TezDocument::GetActiveDocument();
    return document ? document->GetScene() : nullptr;
}

TezRef<TezScene> TezScene::GetAuxiliaryScene()
{
    TezRef<TezDocument> document = TezDocument::GetActiveDocument();
    return document ? document->GetAuxiliaryScene() : nullptr;
}

void TezDocument::Report(DocEventType type)
{
    if (m_reportSuspendCount != 0)
        return;
    TezRef<TezEvent> event;
    switch (type) {
    case DocChanging:
        event = TezEventDocumentChanging::Create();
        break;
    case DocChanged:
        event = TezEventDocumentChanged::Create();
        break;
    case DocSelected:
        event = TezEventDocumentSelected::Create();
        break;
    default:
        return;
    }
    TezRef<TezEventManager> events = TezEventManager::GetAppEventManager();
    if (events)
        events->Report(event);
}

TezDocument::DocErrorCodes TezDocument::GetLastError()
{
    DocErrorCodes code = m_lastError;
    m_lastError = DocNoError;
    return code;
}

void TezDocument::Save()
{
    TezString fileName = GetFileName();
    if (fileName.Length() == 0) {
        m_lastError = DocSaveError;
        return;
    }
    try {
        Save(fileName);
    } catch (std::exception const& e) {
        TezLogger::info("ERROR: %s\n", e.what());
        m_lastError = DocSaveError;
    }
}

// ---- TezDocumentObject ----

void TezDocumentObject::Report(TezDocument::DocEventType type)
{
    TezRef<TezDocument> document = TezDocument::GetActiveDocument();
    if (!document)
        throw std::runtime_error("TezDocumentObject::Report: there is no active document");
    document->Report(type);
}

void TezDocumentObject::Save(TezRef<TezArchive> archive)
{
    archive->WriteStartSection("Object Name");
    archive->WriteString("name", m_name);
    archive->WriteEndSection();
}

void TezDocumentObject::Load(TezRef<TezArchive> archive)
{
    int sections = 0;
    for (;;) {
        TezString tag = archive->ReadTag();
        if (tag.CompareNoCase(TezString("sectionStart")) == 0) {
            archive->ReadStartSection(sections++);
        } else if (tag.CompareNoCase(TezString("name")) == 0) {
            m_name = archive->ReadString();
        } else if (tag.CompareNoCase(TezString("sectionEnd")) == 0) {
            archive->ReadEndSection();
            break;
        } else {
            archive->SkipUnknownTag();
        }
    }
}
