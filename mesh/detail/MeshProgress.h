#pragma once
// Progress of one mesh step through the application's UI manager:
// SetProgressMessage, StartProgress(count), StepProgress(1) per item and
// EndProgress when the step goes out of scope. Silent without an application.

#include "core/UIManager.h"

#include <cstdint>

namespace tez_detail {

class MeshProgress
{
public:
    // A null message leaves the current one standing.
    MeshProgress(char const* message, uint64_t count) : m_manager(TezUIManager::GetAppUIManager())
    {
        if (!m_manager)
            return;
        if (message)
            m_manager->SetProgressMessage(TezString(message));
        m_manager->StartProgress(count);
    }
    ~MeshProgress()
    {
        if (m_manager)
            m_manager->EndProgress();
    }
    MeshProgress(MeshProgress const&) = delete;
    MeshProgress& operator=(MeshProgress const&) = delete;

    void Step(uint32_t count = 1)
    {
        if (m_manager)
            m_manager->StepProgress(count);
    }

    static void Message(char const* message)
    {
        if (TezRef<TezUIManager> manager = TezUIManager::GetAppUIManager())
            manager->SetProgressMessage(TezString(message));
    }

private:
    TezRef<TezUIManager> m_manager;
};

} // namespace tez_detail
