#pragma once
// TezDocument: what one open file is. Hosts derive it, hold the document
// objects and write the file in Save(path).
//
// A document owns two command managers (the model's history and a separate
// one for view moves), a selection and, only when the application has a
// render context, a main and an auxiliary scene. Report() sends the document
// events unless reporting is suspended (suspends count, with no floor; muted
// events are lost). Save() with no file name, or whose Save(path) throws a
// standard exception, sets the last error to DocSaveError; GetLastError()
// reads it once.

#include "core/RefCounter.h"
#include "core/String.h"

TEZ_DECLARE_REF_FUNCTIONS(TezDocument)
TEZ_DECLARE_REF_FUNCTIONS(TezCommandManager)
TEZ_DECLARE_REF_FUNCTIONS(TezScene)
TEZ_DECLARE_REF_FUNCTIONS(TezSelection)

class TEZ_API TezDocument : public TezRefCounter
{
public:
    enum DocEventType { DocChanging = 0, DocChanged = 1, DocSelected = 2 };
    enum DocErrorCodes { DocNoError = 0, DocSaveError = 2 };

    // The host application's active document; null without an application.
    static TezRef<TezDocument> GetActiveDocument();
    ~TezDocument() override;

    virtual TezRef<TezCommandManager> GetCommandManager();
    virtual TezRef<TezCommandManager> GetFocusCommandManager();
    virtual TezRef<TezScene> GetScene();
    virtual TezRef<TezScene> GetAuxiliaryScene();
    virtual TezRef<TezSelection> GetSelection();
    virtual TezString GetFileName() const { return m_fileName; }
    virtual void SetFileName(TezString const& name) { m_fileName = name; }
    virtual bool IsModified() const { return m_modified; }
    virtual void SetModified(bool modified) { m_modified = modified; }
    // Writes the document to the file; the host's part.
    virtual void Save(TezString const& fileName) = 0;
    virtual void Save();

    void Report(DocEventType type);
    void SuspendReporting() { ++m_reportSuspendCount; }
    void ResumeReporting() { --m_reportSuspendCount; }
    // Answers the last error and clears it.
    DocErrorCodes GetLastError();
    void SetLastError(DocErrorCodes code) { m_lastError = code; }

protected:
    TezDocument();

private:
    TezRef<TezCommandManager> m_commandManager;
    TezRef<TezCommandManager> m_focusCommandManager;
    TezRef<TezScene> m_scene;
    TezRef<TezScene> m_auxiliaryScene;
    TezRef<TezSelection> m_selection;
    TezString m_fileName;
    bool m_modified = false;
    int32_t m_reportSuspendCount = 0;
    DocErrorCodes m_lastError = DocNoError;
};
