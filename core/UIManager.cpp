#include "core/UIManager.h"

#include "core/AppService.h"

TEZ_DEFINE_REF_FUNCTIONS(TezUIManager)

TezRef<TezUIManager> TezUIManager::Create() { return TezRef<TezUIManager>(new TezUIManager()); }

TezRef<TezUIManager> TezUIManager::GetAppUIManager() { return TezAppService<TezUIManager>::Get(); }

void TezUIManager::StartProgress(uint64_t count)
{
    if (m_callback)
        m_callback->StartProgress(count);
}
void TezUIManager::EndProgress()
{
    if (m_callback)
        m_callback->EndProgress();
}
void TezUIManager::StepProgress(uint32_t count)
{
    if (m_callback)
        m_callback->StepProgress(count);
}
void TezUIManager::SetProgressMessage(TezString const& message)
{
    if (m_callback)
        m_callback->SetProgressMessage(message);
}
void TezUIManager::StartNestedSection(bool flag)
{
    if (m_callback)
        m_callback->StartNestedSection(flag);
}
void TezUIManager::FinishNestedSection()
{
    if (m_callback)
        m_callback->FinishNestedSection();
}
void TezUIManager::AddNode(int node)
{
    if (m_callback)
        m_callback->AddNode(node);
}
void TezUIManager::RemoveNode(int node)
{
    if (m_callback)
        m_callback->RemoveNode(node);
}
void TezUIManager::SetActiveNode(int node)
{
    if (m_callback)
        m_callback->SetActiveNode(node);
}
void TezUIManager::SetActiveLevel(int level)
{
    if (m_callback)
        m_callback->SetActiveLevel(level);
}
int TezUIManager::GetActiveLevel() { return m_callback ? m_callback->GetActiveLevel() : 0; }
bool TezUIManager::GetStopFlag() { return m_callback ? m_callback->GetStopFlag() : false; }
void TezUIManager::ZoomAll()
{
    if (m_callback)
        m_callback->ZoomAll();
}
void TezUIManager::SetCursor(TezResourceManager::Cursors cursor)
{
    if (m_callback)
        m_callback->SetCursor(cursor);
}
void TezUIManager::SetToolCursor(TezResourceManager::Cursors cursor)
{
    if (m_callback)
        m_callback->SetToolCursor(cursor);
}
void TezUIManager::ReportError(TezString const& text)
{
    if (m_callback)
        m_callback->ReportError(text);
}
void TezUIManager::SetCallback(TezUICallback* callback) { m_callback = callback; }
