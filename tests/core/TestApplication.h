#pragma once
// An application for tests: no documents, becomes the instance while it lives.

#include "core/Application.h"
#include "core/String.h"
#include "document/Document.h"

class TestApplication : public TezApplication
{
public:
    explicit TestApplication(HGLRC context = nullptr, HWND window = nullptr) : TezApplication(context, window)
    {
        m_instance = this;
    }
    ~TestApplication() override { m_instance = nullptr; }
    TezRef<TezDocument> GetActiveDocument() override { return nullptr; }
    TezRef<TezDocument> NewDocument() override { return nullptr; }
    TezRef<TezDocument> OpenDocument(TezString const&) override { return nullptr; }
    TezString const& GetScriptModuleName() override { return m_name; }

private:
    TezString m_name{"test"};
};
