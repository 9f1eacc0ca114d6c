#pragma once
// The tez program's application: no window, and a render context only when
// the host made one. Becomes TezApplication::Instance() for its lifetime and
// installs the terminal UI bridge (progress on stderr, Ctrl-C to stop) and
// the script manager.
//
// It holds one active document. NewDocument and a successful OpenDocument
// make a TezHostDocument active and record its root command (new, open) on
// its command manager. An open that fails (no such file, not a document)
// answers a document whose last error is DocumentOpenError and leaves the
// active document as it was. The script module is named "tez".

#include "core/Application.h"
#include "core/String.h"
#include "tez/HostDocument.h"
#include "tez/HostScriptManager.h"
#include "tez/TerminalUI.h"

#include <memory>

class TezHostApplication : public TezApplication
{
public:
    // The last error of a document that could not be opened.
    static TezDocument::DocErrorCodes const DocumentOpenError;

    explicit TezHostApplication(HGLRC renderContext = nullptr, HWND window = nullptr);
    ~TezHostApplication() override;

    TezRef<TezDocument> GetActiveDocument() override;
    TezRef<TezDocument> NewDocument() override;
    TezRef<TezDocument> OpenDocument(TezString const& filename) override;
    TezString const& GetScriptModuleName() override;

    TezTerminalUI& GetTerminalUI() { return *m_ui; }
    TezHostScriptManager& GetScriptManager() { return *m_scriptManager; }
    // Makes a document active (null: none); no root command is recorded.
    void SetActiveDocument(TezRef<TezHostDocument> document) { m_activeDocument = document; }

private:
    TezString m_scriptModuleName;
    std::unique_ptr<TezTerminalUI> m_ui;
    std::unique_ptr<TezHostScriptManager> m_scriptManager;
    TezRef<TezHostDocument> m_activeDocument;
};
