#pragma once
// GL for the drawing benchmarks: a context made and bound on a hidden window
// of its own, kept for the whole run (nothing releases it; the process ends
// with it). Where none can be made, ok is false and reason says why, for
// SkipWithError. TezBenchApplication is the application the view benchmarks
// hand the context to: it has no documents.

#include "core/Application.h"
#include "platform/Handles.h"

#include <string>

struct TezBenchGL
{
    bool ok = false;
    std::string reason;
    HWND window = nullptr;
    HDC dc = nullptr;
    HGLRC context = nullptr;
};

TezBenchGL TezMakeBenchGL(int width, int height);

class TezBenchApplication : public TezApplication
{
public:
    TezBenchApplication(HGLRC context, HWND window) : TezApplication(context, window) { m_instance = this; }
    ~TezBenchApplication() override { m_instance = nullptr; }
    TezRef<TezDocument> GetActiveDocument() override { return nullptr; }
    TezRef<TezDocument> NewDocument() override { return nullptr; }
    TezRef<TezDocument> OpenDocument(TezString const&) override { return nullptr; }
    TezString const& GetScriptModuleName() override { return m_name; }

private:
    TezString m_name{"bench"};
};
