#pragma once
// A minimal host for document tests: an application whose active document
// is a plain in-memory document, and a recorder of events.

#include "core/Application.h"
#include "core/Events.h"
#include "document/CommandManager.h"
#include "document/Document.h"
#include "document/DocumentObject.h"
#include "document/Selection.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

class TestDocument : public TezDocument
{
public:
    static TezRef<TestDocument> Create() { return TezRef<TestDocument>(new TestDocument()); }
    using TezDocument::Save;
    void Save(TezString const& fileName) override
    {
        savedTo.push_back(fileName.c_str());
        if (throwOnSave)
            throw std::runtime_error("disk full");
    }
    std::vector<std::string> savedTo;
    bool throwOnSave = false;
};

class TestApplication : public TezApplication
{
public:
    explicit TestApplication(HGLRC context = nullptr) : TezApplication(context, nullptr) { m_instance = this; }
    ~TestApplication() override
    {
        active = nullptr;
        m_instance = nullptr;
    }
    TezRef<TezDocument> GetActiveDocument() override { return active; }
    TezRef<TezDocument> NewDocument() override
    {
        ++newCount;
        active = TestDocument::Create();
        return active;
    }
    TezRef<TezDocument> OpenDocument(TezString const& name) override
    {
        opened.push_back(name.c_str());
        auto document = TestDocument::Create();
        if (failOpen)
            document->SetLastError(static_cast<TezDocument::DocErrorCodes>(1));
        active = document;
        return document;
    }
    TezString const& GetScriptModuleName() override { return m_module; }

    TezRef<TestDocument> active;
    int newCount = 0;
    bool failOpen = false;
    std::vector<std::string> opened;

private:
    TezString m_module{"tez"};
};

class EventLog : public TezEventHandler
{
public:
    static TezRef<EventLog> Create() { return TezRef<EventLog>(new EventLog()); }
    void Handle(TezRef<TezEvent> event) override { names.push_back(event->TypeName().c_str()); }
    // Subscribes to every event of the given types.
    template <class... Events>
    void Listen(TezRef<TezEventManager> bus)
    {
        (bus->Subscribe(Events::Create(), this), ...);
    }
    std::vector<std::string> names;
};
