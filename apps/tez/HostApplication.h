#pragma once
// The tez program's application: no window, and a render context only when
// the host made one. Becomes TezApplication::Instance() for its lifetime and
// installs the terminal UI bridge (progress on stderr, Ctrl-C to stop).

#include "core/Application.h"
#include "core/String.h"
#include "tez/TerminalUI.h"

#include <memory>

class TezHostApplication : public TezApplication
{
public:
    explicit TezHostApplication(HGLRC renderContext = nullptr, HWND window = nullptr);
    ~TezHostApplication() override;

    TezRef<TezDocument> GetActiveDocument() override;
    TezRef<TezDocument> NewDocument() override;
    TezRef<TezDocument> OpenDocument(TezString const& filename) override;
    TezString const& GetScriptModuleName() override;

    TezTerminalUI& GetTerminalUI() { return *m_ui; }

private:
    TezString m_scriptModuleName;
    std::unique_ptr<TezTerminalUI> m_ui;
};
