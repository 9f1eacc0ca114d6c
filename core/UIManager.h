#pragma once
// TezUIManager: the kernel's one door to the host's user interface.
//
// Every operation forwards to the host's TezUICallback when one is installed
// and is a harmless no-op otherwise (GetStopFlag false, GetActiveLevel 0), so
// kernel code reports progress and polls the stop flag unconditionally. Calls
// arrive on whatever thread the work runs on; the callback must cope.

#include "core/ResourceManager.h"

#include <cstdint>

// Implemented by the host. The bridge's operations come first in this order.
class TEZ_API TezUICallback
{
public:
    virtual void StartProgress(uint64_t count) = 0;
    virtual void EndProgress() = 0;
    virtual void StepProgress(uint32_t count) = 0;
    virtual void SetProgressMessage(TezString const& message) = 0;
    virtual void StartNestedSection(bool flag) = 0;
    virtual void FinishNestedSection() = 0;
    virtual void AddNode(int node) = 0;
    virtual void RemoveNode(int node) = 0;
    virtual void SetActiveNode(int node) = 0;
    virtual void SetActiveLevel(int level) = 0;
    virtual int GetActiveLevel() = 0;
    virtual bool GetStopFlag() = 0;
    virtual void ZoomAll() = 0;
    virtual void SetCursor(TezResourceManager::Cursors cursor) = 0;
    virtual void SetToolCursor(TezResourceManager::Cursors cursor) = 0;
    virtual void ReportError(TezString const& text) = 0;
    virtual ~TezUICallback() = default;
};

TEZ_DECLARE_REF_FUNCTIONS(TezUIManager)

class TEZ_API TezUIManager : public TezRefCounter
{
public:
    static TezRef<TezUIManager> Create();
    // The application's manager; null without an application.
    static TezRef<TezUIManager> GetAppUIManager();

    ~TezUIManager() override = default;
    virtual void StartProgress(uint64_t count);
    virtual void EndProgress();
    virtual void StepProgress(uint32_t count);
    virtual void SetProgressMessage(TezString const& message);
    virtual void StartNestedSection(bool flag);
    virtual void FinishNestedSection();
    virtual void AddNode(int node);
    virtual void RemoveNode(int node);
    virtual void SetActiveNode(int node);
    virtual void SetActiveLevel(int level);
    virtual int GetActiveLevel();
    virtual bool GetStopFlag();
    virtual void ZoomAll();
    virtual void SetCursor(TezResourceManager::Cursors cursor);
    virtual void SetToolCursor(TezResourceManager::Cursors cursor);
    virtual void ReportError(TezString const& text);
    // Replaces the callback at once; the old one is told nothing. Not owned.
    virtual void SetCallback(TezUICallback* callback);

    TezUICallback* GetCallback() const { return m_callback; }

private:
    TezUIManager() = default;
    TezUICallback* m_callback = nullptr;
};
