#include "tez/HostApplication.h"

#include "core/UIManager.h"
#include "document/CommandManager.h"
#include "document/DocumentCommands.h"
#include "tez/ViewSession.h"

#include <stdexcept>
#include <unistd.h>

// Value 1 is the one the kernel leaves free for hosts.
TezDocument::DocErrorCodes const TezHostApplication::DocumentOpenError = static_cast<TezDocument::DocErrorCodes>(1);

TezHostApplication::TezHostApplication(HGLRC renderContext, HWND window)
    : TezApplication(renderContext, window), m_scriptModuleName("tez")
{
    if (m_instance)
        throw std::runtime_error("TezHostApplication: an application already exists in this process");
    m_instance = this;
    m_ui = std::make_unique<TezTerminalUI>(stderr, isatty(fileno(stderr)) != 0);
    GetUIManager()->SetCallback(m_ui.get());
    m_scriptManager = std::make_unique<TezHostScriptManager>();
    m_scriptManager->Initialize();
}

TezHostApplication::~TezHostApplication()
{
    // Documents report events while they die: they go before the managers.
    m_activeDocument = nullptr;
    m_scriptManager.reset();
    GetUIManager()->SetCallback(nullptr);
    if (m_instance == this)
        m_instance = nullptr;
}

TezRef<TezDocument> TezHostApplication::GetActiveDocument() { return m_activeDocument; }

TezRef<TezDocument> TezHostApplication::NewDocument()
{
    TezRef<TezHostDocument> document = TezHostDocument::Create();
    m_activeDocument = document;
    document->GetCommandManager()->Push(TezCmdDocumentNew::Create());
    TezViewSession::ShowDocument(document);
    return document;
}

TezRef<TezDocument> TezHostApplication::OpenDocument(TezString const& filename)
{
    TezRef<TezHostDocument> document = TezHostDocument::Create();
    if (!document->Read(filename)) {
        // Read has logged why.
        document->SetLastError(DocumentOpenError);
        return document;
    }
    m_activeDocument = document;
    document->GetCommandManager()->Push(TezCmdDocumentOpen::Create(filename));
    TezViewSession::ShowDocument(document);
    return document;
}
TezString const& TezHostApplication::GetScriptModuleName() { return m_scriptModuleName; }
