#pragma once
// TezResourceManager: where the kernel's resource files live.
//
// Resources sit in fixed folders below a resource path that starts as the
// executable's folder: GetFullPath(type, name) is the plain concatenation
// path + folder + name. Failures answer an empty string, never an exception.

#include "core/RefCounter.h"
#include "core/String.h"

TEZ_DECLARE_REF_FUNCTIONS(TezResourceManager)

class TEZ_API TezResourceManager : public TezRefCounter
{
public:
    enum ResourceType {
        ResourceVertexShader = 0,
        ResourceGeometryShader,
        ResourceFragmentShader,
        ResourceMesh,
        ResourceImage,
        ResourceTool,
        ResourceMachine,
        ResourceMachineMesh,
        ResourceCursor,
        ResourceDocumentation,
        ResourceAdditiveDocumentation,
        ResourceTypeCount
    };

    enum Cursors {
        CursorCrossHair = 1,
        CursorOrbit,
        CursorPan,
        CursorPick,
        CursorRotateX,
        CursorRotateY,
        CursorRotateZ,
        CursorZoom,
        CursorZoomWindow
    };

    static TezRef<TezResourceManager> Create();
    static TezRef<TezResourceManager> GetAppResourceManager();

    ~TezResourceManager() override = default;
    virtual TezString GetFullPath(ResourceType type, TezString const& name) const;

    void SetResourcePath(TezString const& path) { m_resourcePath = path; }
    TezString const& GetResourcePath() const { return m_resourcePath; }

    // The folder of a resource type, with forward slashes; empty if out of range.
    static TezString GetFolder(ResourceType type);
    // Cursor file through the application's manager; the "large" files when
    // the flag is set. Empty for a value outside the enumeration.
    static TezString GetCursorPath(Cursors cursor, bool large);
    // The whole file as text; empty if it cannot be read.
    static TezString BufferFromFile(TezString const& path);

private:
    TezResourceManager();
    TezString m_resourcePath;
};
