#include "tez/HostApplication.h"

#include "core/UIManager.h"
#include "document/Document.h"

#include <stdexcept>
#include <unistd.h>

TezHostApplication::TezHostApplication(HGLRC renderContext, HWND window)
    : TezApplication(renderContext, window), m_scriptModuleName("tez")
{
    if (m_instance)
        throw std::runtime_error("TezHostApplication: an application already exists in this process");
    m_instance = this;
    m_ui = std::make_unique<TezTerminalUI>(stderr, isatty(fileno(stderr)) != 0);
    GetUIManager()->SetCallback(m_ui.get());
}

TezHostApplication::~TezHostApplication()
{
    GetUIManager()->SetCallback(nullptr);
    if (m_instance == this)
        m_instance = nullptr;
}

TezRef<TezDocument> TezHostApplication::GetActiveDocument() { return nullptr; }
TezRef<TezDocument> TezHostApplication::NewDocument() { return nullptr; }
TezRef<TezDocument> TezHostApplication::OpenDocument(TezString const&) { return nullptr; }
TezString const& TezHostApplication::GetScriptModuleName() { return m_scriptModuleName; }
