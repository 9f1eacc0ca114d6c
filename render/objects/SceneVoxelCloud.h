#pragma once
// The clouds on screen.
//
// TezSceneVoxelCloud "Voxel Cloud": each point of a TezVoxelCloud becomes a
// cube in the geometry stage of "Effect Voxel Cloud". Pass 0 lays down the
// cubes' faces: coloured and lit with style Solid (2), the only pass then;
// depth only, pushed back by a polygon offset, with the other styles. Pass 1
// (not Solid) draws the cubes' edges over that depth: a hidden-line view.
// The matrices come from the view's camera, or from SetCamera's when one is
// set; a viewport of width above 0 replaces the view's while the cloud draws.
// The four state flags pass on to the cloud and to the shaders. SetDirty
// after changing the cloud's points uploads them again on the next Draw.
//
// TezScenePointCloud "Point Cloud": the points of a TezPointCloud as square
// dots of PointSize pixels, unlit, in the object's colour.
//
// Building and drawing need the context current.

#include "render/gl/Buffer.h"
#include "render/scene/SceneObject.h"

#include <cstdint>

TEZ_DECLARE_REF_FUNCTIONS(TezSceneVoxelCloud)
TEZ_DECLARE_REF_FUNCTIONS(TezScenePointCloud)
TEZ_DECLARE_REF_FUNCTIONS(TezVoxelCloud)
TEZ_DECLARE_REF_FUNCTIONS(TezPointCloud)
TEZ_DECLARE_REF_FUNCTIONS(TezCameraView)

class TEZ_API TezSceneVoxelCloud : public TezSceneObject
{
    TEZ_TYPIFIED_CLASS(TezSceneVoxelCloud)
public:
    // Styles: the shaders know Solid; every other value is the hidden-line
    // view of the cubes' edges.
    enum RenderingStyle : int32_t { HiddenLine = 0, Solid = 2 };

    static TezRef<TezSceneVoxelCloud> Create();
    ~TezSceneVoxelCloud() override;

    // Takes the cloud's state flags; the cubes' half edge is their size in
    // cells times cellSize.
    void SetCloud(TezRef<TezVoxelCloud> cloud, float cellSize);
    TezRef<TezVoxelCloud> GetCloud() const;
    float GetCellSize() const { return m_cellSize; }
    RenderingStyle GetRenderStyle() const { return m_renderStyle; }
    void SetRenderStyle(RenderingStyle style) { m_renderStyle = style; }

    bool GetEmptyVisible() const { return m_emptyVisible; }
    void SetEmptyVisible(bool on);
    bool GetFullVisible() const { return m_fullVisible; }
    void SetFullVisible(bool on);
    bool GetBoundaryVisible() const { return m_boundaryVisible; }
    void SetBoundaryVisible(bool on);
    bool GetState3Visible() const { return m_state3Visible; }
    void SetState3Visible(bool on);

    void SetCamera(TezRef<TezCameraView> camera);
    void SetViewport(int x, int y, int width, int height);
    // The cloud's points changed: upload them again.
    void SetDirty();

    bool BuildObject() override;
    bool UnbuildObject() override;
    bool DrawObject(TezSceneDrawData const& data) override;
    TezBox3<float> GetObjectBounds() override;

protected:
    TezSceneVoxelCloud();

private:
    void FlagsChanged();

    TezRef<TezVoxelCloud> m_cloud;
    TezGLVertexArray m_vertexArray;
    TezGLBuffer m_vertexBuffer;
    size_t m_numUploaded = 0;
    int m_viewport[4] = {0, 0, 0, 0};
    TezRef<TezCameraView> m_camera;
    float m_cellSize = 1.0f;
    bool m_emptyVisible = true;
    bool m_fullVisible = true;
    bool m_boundaryVisible = true;
    bool m_state3Visible = true;
    RenderingStyle m_renderStyle = HiddenLine;
    TezBox3<float> m_bounds;
    bool m_boundsValid = false;
};

class TEZ_API TezScenePointCloud : public TezSceneObject
{
    TEZ_TYPIFIED_CLASS(TezScenePointCloud)
public:
    enum RenderingStyle : int32_t { Dots = 0 };

    static TezRef<TezScenePointCloud> Create(TezRef<TezPointCloud> cloud = nullptr);
    ~TezScenePointCloud() override;

    virtual void SetCloud(TezRef<TezPointCloud> cloud);
    virtual TezRef<TezPointCloud> GetCloud() const;
    float GetPointSize() const { return m_pointSize; }
    void SetPointSize(float size) { m_pointSize = size; }
    RenderingStyle GetRenderStyle() const { return m_renderStyle; }
    void SetRenderStyle(RenderingStyle style) { m_renderStyle = style; }

    bool BuildObject() override;
    bool UnbuildObject() override;
    bool DrawObject(TezSceneDrawData const& data) override;
    TezBox3<float> GetObjectBounds() override { return m_renderingBounds; }

protected:
    TezScenePointCloud();

private:
    TezRef<TezPointCloud> m_cloud;
    float m_pointSize = 3.0f;
    RenderingStyle m_renderStyle = Dots;
    TezBox3<float> m_renderingBounds;
    TezGLVertexArray m_vertexArray;
    TezGLBuffer m_vertexBuffer;
    size_t m_numUploaded = 0;
};
